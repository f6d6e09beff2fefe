// SPDX-License-Identifier: MIT
// air-observer: which services of a link could be used by now, from the packets alone, and what those packets weigh.
//
//   air-observer --interface NAME --from ADDRESS,ADDRESS
//
// It sends nothing. Only packets from the addresses of --from count as the gateway's; of these the responses tell about
// services. A service is there once its PTR, its SRV, its TXT and an address of its host have been seen with a TTL above 0, and
// gone at the goodbye of its PTR. Commands, one a line on standard input, each answered by one line of JSON:
//
//   count     {"there": N, "listed": N (by their PTR alone), "at": T (last change)}
//   services  {"Device 1": [first there, last gone], ...}    0: not yet; seconds of the real-time clock
//   service NAME   the same for one: [first there, last gone]
//   traffic   {"gateway": {"packets", "bytes", "multicast", "queries", "unicast", "bytes4", "bytes6"}, "others": {...}} since
//             the last reset
//   reset     {}: forgets services and traffic
#include <algorithm>
#include <cstdio>
#include <limits>
#include <unordered_map>

#include "loop.h"
#include "packet.h"
#include "sockets.h"

namespace {

// What has been seen of one instance.
struct Service {
  bool listed = false, txt = false;
  std::string host;  // folded target of its SRV; empty: none
  double there_at = 0, gone_at = 0;
};

struct Traffic {
  long packets = 0, bytes = 0, multicast = 0, queries = 0, bytes4 = 0, bytes6 = 0;
};

struct Watcher {
  int ear;
  std::vector<std::string> gateway;
  std::unordered_map<std::string, Service> services;                  // by the folded instance name
  std::unordered_map<std::string, std::string> labels;                // its first label as written
  std::unordered_map<std::string, bool> hosts;                        // has an address; folded
  std::unordered_map<std::string, std::vector<std::string>> waiting;  // host without an address: the instances on it
  long there = 0, listed = 0;
  double changed_at = 0;
  Traffic from_gateway, from_others;
};

bool is_there(const Service& service) { return service.there_at > service.gone_at; }

void review(Watcher& watcher, const std::string& name, double at) {
  Service& service = watcher.services[name];
  if (!service.listed || !service.txt || service.host.empty() || is_there(service))
    return;
  if (!watcher.hosts[service.host]) {
    watcher.waiting[service.host].push_back(name);
    return;
  }
  service.there_at = at;
  watcher.changed_at = at;
  ++watcher.there;
}

void set_listed(Watcher& watcher, const air::Record& record, double at) {
  const std::string name = air::folded(record.target);
  Service& service = watcher.services[name];
  watcher.labels.try_emplace(name, air::first_label(record.target));
  const bool listed = record.ttl > 0;
  if (service.listed != listed)
    watcher.listed += listed ? 1 : -1;
  service.listed = listed;
  if (listed)
    return review(watcher, name, at);
  if (is_there(service))
    --watcher.there;
  service.gone_at = at;
  service.txt = false;
  service.host.clear();
  watcher.changed_at = at;
}

void set_address(Watcher& watcher, const air::Record& record, double at) {
  watcher.hosts[record.name] = record.ttl > 0;
  const auto waiting = watcher.waiting.find(record.name);
  if (record.ttl == 0 || waiting == watcher.waiting.end())
    return;
  const std::vector<std::string> names = std::move(waiting->second);
  watcher.waiting.erase(waiting);
  for (const std::string& name : names)
    review(watcher, name, at);
}

void note(Watcher& watcher, const air::Record& record, double at) {
  switch (record.type) {
    case air::kTypePtr:
      // A pointer to a service type, or from an address, lists no service.
      if (record.target.find("\x09_services\x07_dns-sd") == std::string::npos && record.name[1] == '_' &&
          record.name.find("\x09_services") == std::string::npos) {
        set_listed(watcher, record, at);
      }
      return;
    case air::kTypeSrv:
      watcher.services[record.name].host = record.ttl > 0 ? air::folded(record.target) : "";
      return review(watcher, record.name, at);
    case air::kTypeTxt:
      watcher.services[record.name].txt = record.ttl > 0;
      return review(watcher, record.name, at);
    case air::kTypeA:
    case air::kTypeAaaa:
      return set_address(watcher, record, at);
    default:
      return;
  }
}

void weigh(Traffic& traffic, const air::Heard& heard) {
  ++traffic.packets;
  traffic.bytes += static_cast<long>(heard.size);
  (heard.ipv6 ? traffic.bytes6 : traffic.bytes4) += static_cast<long>(heard.size);
  if (heard.multicast)
    ++traffic.multicast;
  if (heard.payload.size() > 2 && (heard.payload[2] & 0x80) == 0)
    ++traffic.queries;
}

void handle_packets(Watcher& watcher) {
  for (air::Heard heard; air::hear(watcher.ear, heard);) {
    const bool ours = std::find(watcher.gateway.begin(), watcher.gateway.end(), heard.source) != watcher.gateway.end();
    weigh(ours ? watcher.from_gateway : watcher.from_others, heard);
    const auto message = ours ? air::read_message(heard.payload) : std::nullopt;
    if (!message || (message->flags & 0x8000) == 0)
      continue;
    for (const air::Record& record : message->answers)
      note(watcher, record, heard.at);
    for (const air::Record& record : message->additionals)
      note(watcher, record, heard.at);
  }
}

std::string text_of(const Traffic& traffic) {
  char text[256];
  std::snprintf(
      text, sizeof text,
      R"({"packets": %ld, "bytes": %ld, "multicast": %ld, "unicast": %ld, "queries": %ld, "bytes4": %ld, "bytes6": %ld})",
      traffic.packets, traffic.bytes, traffic.multicast, traffic.packets - traffic.multicast, traffic.queries, traffic.bytes4,
      traffic.bytes6);
  return text;
}

std::string text_of_services(const Watcher& watcher) {
  std::string text = "{";
  for (const auto& [name, service] : watcher.services) {
    const auto label = watcher.labels.find(name);
    if (label == watcher.labels.end())
      continue;
    char times[96];
    std::snprintf(times, sizeof times, "\": [%.6f, %.6f]", service.there_at, service.gone_at);
    text += (text.size() > 1 ? ", \"" : "\"") + label->second + times;
  }
  return text + "}";
}

// The times of the first service with that label; zeros for an unknown one.
std::string text_of_service(const Watcher& watcher, const std::string& wanted) {
  char times[64] = "[0, 0]";
  for (const auto& [name, label] : watcher.labels) {
    if (label != wanted)
      continue;
    const Service& service = watcher.services.at(name);
    std::snprintf(times, sizeof times, "[%.6f, %.6f]", service.there_at, service.gone_at);
  }
  return times;
}

void obey(Watcher& watcher, const std::string& line) {
  constexpr char kService[] = "service ";
  if (line.starts_with(kService)) {
    air::say(text_of_service(watcher, line.substr(sizeof kService - 1)));
  } else if (line == "count") {
    char text[128];
    std::snprintf(text, sizeof text, R"({"there": %ld, "listed": %ld, "at": %.6f})", watcher.there, watcher.listed,
                  watcher.changed_at);
    air::say(text);
  } else if (line == "services") {
    air::say(text_of_services(watcher));
  } else if (line == "traffic") {
    air::say("{\"gateway\": " + text_of(watcher.from_gateway) + ", \"others\": " + text_of(watcher.from_others) + "}");
  } else if (line == "reset") {
    watcher = Watcher{watcher.ear, watcher.gateway, {}, {}, {}, {}, 0, 0, 0, {}, {}};
    air::say("{}");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const air::Options options(argc, argv, {"interface", "from"});
  Watcher watcher{air::open_ear(options.text("interface")), options.list("from"), {}, {}, {}, {}, 0, 0, 0, {}, {}};
  air::Loop loop;
  loop.watches.push_back({watcher.ear, [&] { handle_packets(watcher); }});
  loop.command = [&](const std::string& line) { obey(watcher, line); };
  loop.next_due = [] { return std::numeric_limits<double>::infinity(); };
  loop.due = [] {};
  air::say("ready");
  air::run(loop);
}
