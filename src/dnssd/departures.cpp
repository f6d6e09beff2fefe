// SPDX-License-Identifier: MIT
// Lifecycle of a departure: a goodbye for a present instance makes it (waiting); a live record in time ends it; else it is
// told to the browse, stays until Avahi must have noticed too, and ends. A live record in that time brings the instance back,
// but only once what was cached of its former life is gone. Lifecycle of a listener: the first browse on its interface makes it, the last one ends it.
#include "dnssd/departures.h"

#include <map>
#include <memory>
#include <utility>

#include "dnssd/engine.h"
#include "dnssd/group_ear.h"
#include "dnssd/pointer_records.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// How long somebody may contradict a goodbye before it is believed. RFC 6762 section 10.1 gives one second; the rest of it is for
// the withdrawal to reach another link.
constexpr std::int64_t kBelievedAfter = 750'000;
// Until Avahi has dropped the record as well: its second, and as much again for a busy machine.
constexpr std::int64_t kForgottenAfter = 1'250'000;
// What a new life's records replace goes one second after them (RFC 6762 section 10.2): found earlier, the instance would be
// resolved to where it was.
constexpr std::int64_t kBackAfter = 1'050'000;

constexpr unsigned kIpv4 = 1;
constexpr unsigned kIpv6 = 2;

struct Watcher;

struct Departure {
  Watcher* watcher = nullptr;
  Name target;
  unsigned protocol = 0;
  bool told = false;
  bool is_back = false;           // heard alive since it was told
  AvahiTimeout* timer = nullptr;  // owned
};

// One browse. A departure's key: the folded target and the protocol.
struct Watcher {
  Operation* operation = nullptr;
  std::string asked;  // folded
  std::map<std::pair<std::string, unsigned>, std::unique_ptr<Departure>> departures;
};

struct Listener {
  GroupEar ear;
  std::map<const Browse*, std::unique_ptr<Watcher>> watchers;
};

// By interface index. Those of a parent's engine are forgotten in a forked child; their descriptors were closed with it. Never
// destroyed: a program that loads the library late destroys its static objects before the engine ends at exit.
std::map<std::uint32_t, std::unique_ptr<Listener>>& listeners = *new std::map<std::uint32_t, std::unique_ptr<Listener>>;
const Engine* listeners_owner = nullptr;

void forget_foreign_listeners() {
  if (listeners_owner == gEngine) {
    return;
  }
  for (auto& [index, listener] : listeners) {
    static_cast<void>(listener.release());
  }
  listeners.clear();
  listeners_owner = gEngine;
}

void end_departure(Watcher& watcher, const std::pair<std::string, unsigned>& key) {
  const auto found = watcher.departures.find(key);
  if (found == watcher.departures.end()) {
    return;
  }
  poll_timer_free(found->second->timer);
  watcher.departures.erase(found);
}

std::pair<std::string, unsigned> key_of(const Name& target, unsigned protocol) {
  return {fold_case(name_to_text(target)), protocol};
}

void departure_over(const Departure& departure) {
  Operation& operation = *departure.watcher->operation;
  const Name target = departure.target;
  const unsigned protocol = departure.protocol;
  const bool is_back = departure.is_back;
  end_departure(*departure.watcher, key_of(target, protocol));
  if (is_back) {
    browse_found(operation, protocol, target);
  }
}

void departure_due(AvahiTimeout*, void* userdata) {
  Departure& departure = *static_cast<Departure*>(userdata);
  if (departure.told) {
    departure_over(departure);
    return;
  }
  departure.told = true;
  poll_timer_start(departure.timer, kForgottenAfter);
  browse_lost(*departure.watcher->operation, departure.protocol, departure.target);
}

void begin_departure(Watcher& watcher, unsigned protocol, const Name& target) {
  auto departure = std::make_unique<Departure>();
  departure->watcher = &watcher;
  departure->target = target;
  departure->protocol = protocol;
  departure->timer = poll_timer_new(gEngine->poll, departure_due, departure.get());
  poll_timer_start(departure->timer, kBelievedAfter);
  watcher.departures.emplace(key_of(target, protocol), std::move(departure));
}

void heard_goodbye(Watcher& watcher, unsigned protocol, const Name& target) {
  const auto found = watcher.departures.find(key_of(target, protocol));
  if (found != watcher.departures.end()) {
    found->second->is_back = false;
  } else if (browse_has(part_of<Browse>(*watcher.operation), protocol, target)) {
    begin_departure(watcher, protocol, target);
  }
}

void heard_alive(Watcher& watcher, unsigned protocol, const Name& target) {
  if (watcher.departures.empty()) {
    return;
  }
  const auto key = key_of(target, protocol);
  const auto found = watcher.departures.find(key);
  if (found == watcher.departures.end()) {
    return;
  }
  if (!found->second->told) {
    end_departure(watcher, key);
  } else if (!found->second->is_back) {
    found->second->is_back = true;
    poll_timer_start(found->second->timer, kBackAfter);
  }
}

void heard(Listener& listener, unsigned protocol, const PointerRecord& record) {
  const std::string owner = fold_case(name_to_text(record.owner));
  for (const auto& [browse, watcher] : listener.watchers) {
    if (watcher->asked != owner) {
      continue;
    }
    if (record.ttl == 0) {
      heard_goodbye(*watcher, protocol, record.target);
    } else {
      heard_alive(*watcher, protocol, record.target);
    }
  }
}

void message_arrived(AvahiWatch*, int fd, AvahiWatchEvent, void* userdata) {
  Listener& listener = *static_cast<Listener*>(userdata);
  HeardMessage message;
  if (!group_ear_read(fd, message)) {
    return;
  }
  const unsigned protocol = message.is_ipv6 ? kIpv6 : kIpv4;
  for (const PointerRecord& record : read_pointer_records(message.span())) {
    heard(listener, protocol, record);
  }
}

}  // namespace

void departures_watch(Operation& operation, const Name& asked) {
  forget_foreign_listeners();
  const std::uint32_t interface_index = operation.server->interface_index;
  std::unique_ptr<Listener>& listener = listeners[interface_index];
  if (listener == nullptr) {
    listener = std::make_unique<Listener>();
    group_ear_open(listener->ear, interface_index, message_arrived, listener.get());
  }
  auto watcher = std::make_unique<Watcher>();
  watcher->operation = &operation;
  watcher->asked = fold_case(name_to_text(asked));
  listener->watchers[std::get_if<Browse>(&operation.part)] = std::move(watcher);
}

void departures_unwatch(const Browse& browse) {
  forget_foreign_listeners();
  for (auto listener = listeners.begin(); listener != listeners.end(); ++listener) {
    const auto found = listener->second->watchers.find(&browse);
    if (found == listener->second->watchers.end()) {
      continue;
    }
    for (auto& [key, departure] : found->second->departures) {
      poll_timer_free(departure->timer);
    }
    listener->second->watchers.erase(found);
    if (listener->second->watchers.empty()) {
      group_ear_close(listener->second->ear);
      listeners.erase(listener);
    }
    return;
  }
}

}  // namespace dnssd
