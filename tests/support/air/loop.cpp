// SPDX-License-Identifier: MIT
#include "loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "sockets.h"

namespace air {
namespace {

constexpr double kLongestWait = 60;  // seconds; nothing depends on it

int milliseconds_until(double due) {
  const double wait = std::clamp(due - now(), 0.0, kLongestWait);
  return static_cast<int>(std::ceil(wait * 1000));
}

// Reads what waits on standard input and hands over each whole line. False at its end, or after "quit".
bool read_commands(std::string& pending, const Loop& loop) {
  std::array<char, 4096> buffer{};
  const ssize_t size = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (size <= 0)
    return size < 0 && errno == EINTR;
  pending.append(buffer.data(), static_cast<std::size_t>(size));
  for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
    const std::string line = pending.substr(0, end);
    pending.erase(0, end + 1);
    if (line == "quit")
      return false;
    loop.command(line);
  }
  return true;
}

}  // namespace

void run(const Loop& loop) {
  std::vector<pollfd> polled{{STDIN_FILENO, POLLIN, 0}};
  for (const Watch& watch : loop.watches)
    polled.push_back({watch.descriptor, POLLIN, 0});
  for (std::string pending;;) {
    if (poll(polled.data(), polled.size(), milliseconds_until(loop.next_due())) < 0 && errno != EINTR)
      fail("poll");
    for (std::size_t index = 0; index < loop.watches.size(); ++index) {
      if (polled[index + 1].revents != 0)
        loop.watches[index].ready();
    }
    if (polled[0].revents != 0 && !read_commands(pending, loop))
      return;
    if (loop.next_due() <= now())
      loop.due();
  }
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

void say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

Options::Options(int argc, char** argv, std::vector<std::string> known)
    : names_(std::move(known)), values_(names_.size()) {
  for (int index = 1; index < argc; index += 2) {
    const std::string option = argv[index];
    const auto name =
        std::find_if(names_.begin(), names_.end(), [&](const std::string& it) { return "--" + it == option; });
    if (name == names_.end() || index + 1 >= argc) {
      std::fprintf(stderr, "%s: bad option %s\n", argv[0], argv[index]);
      std::exit(2);
    }
    values_[static_cast<std::size_t>(name - names_.begin())] = argv[index + 1];
  }
}

const std::string& Options::text(const std::string& name) const {
  return values_[static_cast<std::size_t>(std::find(names_.begin(), names_.end(), name) - names_.begin())];
}

long Options::number(const std::string& name, long otherwise) const {
  return text(name).empty() ? otherwise : std::atol(text(name).c_str());
}

std::vector<std::string> Options::list(const std::string& name) const {
  std::istringstream stream(text(name));
  std::vector<std::string> items;
  for (std::string item; std::getline(stream, item, ',');)
    items.push_back(item);
  return items;
}

}  // namespace air
