// SPDX-License-Identifier: MIT
// air-observer: which services of a link could be used by now, from the packets alone, and what those packets weigh.
//
//   air-observer --interface NAME --from ADDRESS,ADDRESS [--grace MILLISECONDS]
//
// It sends nothing. Only packets from the addresses of --from count as the gateway's; of these the responses tell about
// services. A service is there once its PTR, its SRV, its TXT and an address of its host have been seen with a TTL
// above 0, and gone at the goodbye of its PTR. With --grace it is gone when any of them has been taken back that long
// ago and not been said again meanwhile: RFC 6762 section 10.1 gives other hosts a second to do so. Commands, one a
// line on standard input, each answered by one line of JSON:
//
//   count     {"there": N, "listed": N (by their PTR alone), "at": T (last change)}
//   services  {"Device 1": [first there, last gone], ...}    0: not yet; seconds of the real-time clock
//   service NAME   the same for one: [first there, last gone]
//   absences  {"Device 1": [how often, longest, all together (seconds)], ...}: services that were gone and came back
//   lags      {"txt": [...], "address": [...]}: how long after its change each new TXT datum or address was first seen
//             (stamps.h)
//   traffic   {"gateway": {"packets", "bytes", "multicast", "queries", "unicast", "bytes4", "bytes6", "most_in_second",
//             "most_in_20ms"}, "others": {...}} since the last reset
//   reset     {}: forgets services and traffic
#include <algorithm>
#include <cstdio>
#include <limits>
#include <unordered_set>

#include "loop.h"
#include "pace.h"
#include "packet.h"
#include "services.h"
#include "sockets.h"
#include "stamps.h"

namespace {

struct Traffic {
  long packets = 0, bytes = 0, multicast = 0, queries = 0, bytes4 = 0, bytes6 = 0;
  air::Pace pace;
};

struct Watcher {
  int ear = -1;
  std::vector<std::string> gateway = {};
  air::Services services = {};
  Traffic from_gateway = {}, from_others = {};
  std::unordered_set<std::string> stamps_seen = {};
  std::vector<double> txt_lags = {}, address_lags = {};
};

// --- Changes

void note_stamp(Watcher& watcher, const air::Record& record, double at) {
  if (record.ttl == 0 || (record.type != air::kTypeTxt && record.type != air::kTypeAaaa))
    return;
  const bool is_txt = record.type == air::kTypeTxt;
  const std::optional<double> stamp = is_txt ? air::stamp_in_txt(record.rdata) : air::stamp_in_address(record.rdata);
  if (stamp && watcher.stamps_seen.insert(record.name + record.rdata).second)
    (is_txt ? watcher.txt_lags : watcher.address_lags).push_back(at - *stamp);
}

// --- Packets

void weigh(Traffic& traffic, const air::Heard& heard) {
  ++traffic.packets;
  traffic.pace.note(heard.at);
  traffic.bytes += static_cast<long>(heard.size);
  (heard.ipv6 ? traffic.bytes6 : traffic.bytes4) += static_cast<long>(heard.size);
  if (heard.multicast)
    ++traffic.multicast;
  if (heard.payload.size() > 2 && (heard.payload[2] & 0x80) == 0)
    ++traffic.queries;
}

void take_in(Watcher& watcher, const air::Record& record, double at) {
  note_stamp(watcher, record, at);
  air::note_record(watcher.services, record, at);
}

void handle_packets(Watcher& watcher) {
  for (air::Heard heard; air::hear(watcher.ear, heard);) {
    air::forget_what_is_due(watcher.services, heard.at);
    const bool ours = std::find(watcher.gateway.begin(), watcher.gateway.end(), heard.source) != watcher.gateway.end();
    weigh(ours ? watcher.from_gateway : watcher.from_others, heard);
    const auto message = ours ? air::read_message(heard.payload) : std::nullopt;
    if (!message || (message->flags & 0x8000) == 0)
      continue;
    for (const air::Record& record : message->answers)
      take_in(watcher, record, heard.at);
    for (const air::Record& record : message->additionals)
      take_in(watcher, record, heard.at);
  }
}

std::string text_of(const Traffic& traffic) {
  char text[320];
  std::snprintf(text, sizeof text,
                R"({"packets": %ld, "bytes": %ld, "multicast": %ld, "unicast": %ld, "queries": %ld, )"
                R"("bytes4": %ld, "bytes6": %ld, "most_in_second": %ld, "most_in_20ms": %ld})",
                traffic.packets, traffic.bytes, traffic.multicast, traffic.packets - traffic.multicast, traffic.queries,
                traffic.bytes4, traffic.bytes6, traffic.pace.second.most, traffic.pace.moment.most);
  return text;
}

// {"label": what `values` makes of the service, ...} of every listed service for which that is not "".
std::string text_of_each(const Watcher& watcher, std::string (*values)(const air::Service&)) {
  std::string text = "{";
  for (const auto& [name, service] : watcher.services.by_name) {
    const auto label = watcher.services.labels.find(name);
    const std::string said = label == watcher.services.labels.end() ? "" : values(service);
    if (!said.empty())
      text += (text.size() > 1 ? ", \"" : "\"") + label->second + "\": " + said;
  }
  return text + "}";
}

std::string times_of(const air::Service& service) {
  char text[96];
  std::snprintf(text, sizeof text, "[%.6f, %.6f]", service.there_at, service.gone_at);
  return text;
}

std::string absences_of(const air::Service& service) {
  char text[96];
  std::snprintf(text, sizeof text, "[%ld, %.6f, %.6f]", service.absences, service.longest_absence, service.absent);
  return service.absences > 0 ? text : "";
}

std::string text_of_lags(const std::vector<double>& lags) {
  std::string text = "[";
  for (const double lag : lags) {
    char number[32];
    std::snprintf(number, sizeof number, "%s%.6f", text.size() > 1 ? ", " : "", lag);
    text += number;
  }
  return text + "]";
}

// The times of the first service with that label; zeros for an unknown one.
std::string text_of_service(const Watcher& watcher, const std::string& wanted) {
  for (const auto& [name, label] : watcher.services.labels) {
    if (label == wanted)
      return times_of(watcher.services.by_name.at(name));
  }
  return "[0, 0]";
}

void obey(Watcher& watcher, const std::string& line) {
  air::forget_what_is_due(watcher.services, air::now());
  constexpr char kService[] = "service ";
  if (line.starts_with(kService)) {
    air::say(text_of_service(watcher, line.substr(sizeof kService - 1)));
  } else if (line == "count") {
    char text[128];
    std::snprintf(text, sizeof text, R"({"there": %ld, "listed": %ld, "at": %.6f})", watcher.services.there,
                  watcher.services.listed, watcher.services.changed_at);
    air::say(text);
  } else if (line == "services") {
    air::say(text_of_each(watcher, times_of));
  } else if (line == "absences") {
    air::say(text_of_each(watcher, absences_of));
  } else if (line == "lags") {
    air::say("{\"txt\": " + text_of_lags(watcher.txt_lags) + ", \"address\": " + text_of_lags(watcher.address_lags) +
             "}");
  } else if (line == "traffic") {
    air::say("{\"gateway\": " + text_of(watcher.from_gateway) + ", \"others\": " + text_of(watcher.from_others) + "}");
  } else if (line == "reset") {
    watcher = Watcher{watcher.ear, watcher.gateway, {watcher.services.grace}};
    air::say("{}");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "from", "grace"});
  Watcher watcher{air::open_ear(options.text("interface")), options.list("from")};
  watcher.services.grace = static_cast<double>(options.number("grace", 0)) / 1000;
  air::Loop loop;
  loop.watches.push_back({watcher.ear, [&] { handle_packets(watcher); }});
  loop.command = [&](const std::string& line) { obey(watcher, line); };
  loop.next_due = [] { return std::numeric_limits<double>::infinity(); };
  loop.due = [] {};
  air::say("ready");
  air::run(loop);
}
