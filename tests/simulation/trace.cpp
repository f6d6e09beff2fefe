// SPDX-License-Identifier: MIT
// What happened last, kept as bytes and only made into text when it is needed.
#include <algorithm>
#include <cstdio>

#include "simulation/world.h"

namespace simulation {
namespace {

std::string text_of(Time at) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%11.6f", static_cast<double>(at) / 1e6);
  return buffer;
}

std::string text_of(const Port* port) {
  return port == nullptr ? "-" : port->host->label + "/" + std::to_string(port->medium->index);
}

void keep(World& world, Line&& line) {
  if (!world.breach.empty()) {
    return;  // the story ends with it
  }
  world.lines.push_back(std::move(line));
  if (world.lines.size() > world.lines_max) {
    world.lines.pop_front();
  }
}

const char* protocols_text(mdns::Protocols protocols) {
  constexpr const char* kTexts[] = {"", " v4", " v6", " v4+6"};
  return kTexts[protocols & 3U];
}

}  // namespace

void note(World& world, const Port* port, const char* what, std::string text) {
  keep(world, {world.now, port == nullptr ? -1 : port->index, what, std::move(text), {}, {}});
}

void note_datagram(World& world, const Port* port, const char* what, mdns::Bytes bytes, mdns::Protocols protocols) {
  keep(world, {world.now, port == nullptr ? -1 : port->index, what, {}, {bytes.begin(), bytes.end()}, protocols});
}

void fail(World& world, const Port* port, const char* invariant, const std::string& subject) {
  const std::string_view text = invariant;
  const bool is_overlooked =
      std::any_of(world.overlooked.begin(), world.overlooked.end(),
                  [&](const std::string& begin) { return text.substr(0, begin.size()) == begin; });
  if (!world.breach.empty() || is_overlooked) {
    return;
  }
  world.breach =
      std::string(invariant) + ": " + subject + " (host " + text_of(port) + ", at" + text_of(world.now) + ")";
}

std::string story(const World& world) {
  std::string text = world.breach + "\n";
  for (const Line& line : world.lines) {
    const Port* port = line.port < 0 ? nullptr : &world.ports[static_cast<std::size_t>(line.port)];
    text += text_of(line.at) + " " + text_of(port) + " " + line.what + protocols_text(line.protocols) + " ";
    text += line.bytes.empty() ? line.text : text_of(read_wire(line.bytes));
    text += "\n";
  }
  return text;
}

}  // namespace simulation
