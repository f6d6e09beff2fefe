// SPDX-License-Identifier: MIT
// Lifecycle of a departure: a goodbye for a present instance makes it (waiting); a live record in time ends it; else it is
// told to the browse, and stays until its lookup has noticed too, which takes a while where a crowd waits (gate.h). A live record
// in that time brings the instance back, but only once what was cached of its former life is gone. What is missed may have been
// such a record, and counts as one for every departure: then it is the lookup's word that holds.
// A goodbye for what the lookup may yet find, since the gate is behind, makes one that need not be told any more; it ends as others do,
// or when whatever arrived before the goodbye has been taken in.
// The ear listens from the first browse on its interface to the last one.
#include "dnssd/departures.h"

#include <optional>

#include "dnssd/pointer_records.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// How long somebody may contradict a goodbye before it is believed. RFC 6762 section 10.1 gives one second; the rest of it is for
// the withdrawal to reach another link.
constexpr std::int64_t kBelievedAfter = 750'000;
// What a new life's records replace goes one second after them (RFC 6762 section 10.2): found earlier, the instance would be
// resolved to where it was.
constexpr std::int64_t kBackAfter = 1'050'000;

// What waited in front of the goodbye, and the goodbye too, has been taken in, and the lookup has believed it.
constexpr std::int64_t kTakenInAfter = kGatePatience + 2'000'000;
// So many of those: more than the instances that any browser takes. Beyond it, one may be found for a moment.
constexpr std::size_t kHeldBackMax = 4096;

constexpr unsigned kIpv4 = 1;
constexpr unsigned kIpv6 = 2;

void end_departure(Watcher& watcher, const DepartureKey& key) {
  const auto found = watcher.departures.find(key);
  if (found == watcher.departures.end()) {
    return;
  }
  poll_timer_free(found->second->timer);
  watcher.departures.erase(found);
}

DepartureKey key_of(const Name& target, unsigned protocol) { return {fold_case(name_to_text(target)), protocol}; }

void come_back(const Departure& departure) {
  Operation& operation = *departure.watcher->operation;
  const Name target = departure.target;
  const unsigned protocol = departure.protocol;
  end_departure(*departure.watcher, key_of(target, protocol));
  browse_found(operation, protocol, target);
}

void departure_due(AvahiTimeout*, void* userdata) {
  Departure& departure = *static_cast<Departure*>(userdata);
  if (!departure.told) {
    departure.told = true;
    browse_lost(*departure.watcher->operation, departure.protocol, departure.target);
  } else if (departure.is_back) {
    come_back(departure);
  } else if (departure.may_be_found) {
    end_departure(*departure.watcher, key_of(departure.target, departure.protocol));
  }
}

void begin_departure(Watcher& watcher, unsigned protocol, const Name& target, bool is_present) {
  auto departure = std::make_unique<Departure>();
  departure->watcher = &watcher;
  departure->target = target;
  departure->protocol = protocol;
  departure->told = departure->may_be_found = !is_present;
  departure->timer = poll_timer_new(gEngine->poll, departure_due, departure.get());
  poll_timer_start(departure->timer, is_present ? kBelievedAfter : kTakenInAfter);
  watcher.departures.emplace(key_of(target, protocol), std::move(departure));
}

bool may_yet_be_found(const Watcher& watcher, unsigned protocol) {
  const Gate* gates = watcher.operation->server->gates;
  return gate_is_behind(gates[protocol == kIpv6 ? AVAHI_PROTO_INET6 : AVAHI_PROTO_INET]) &&
         watcher.departures.size() < kHeldBackMax;
}

void heard_goodbye(Watcher& watcher, unsigned protocol, const Name& target) {
  const auto found = watcher.departures.find(key_of(target, protocol));
  if (found != watcher.departures.end()) {
    found->second->is_back = false;
    if (found->second->may_be_found) {
      poll_timer_start(found->second->timer, kTakenInAfter);
    }
  } else if (browse_has(part_of<Browse>(*watcher.operation), protocol, target)) {
    begin_departure(watcher, protocol, target, true);
  } else if (may_yet_be_found(watcher, protocol)) {
    begin_departure(watcher, protocol, target, false);
  }
}

// Ends the departure, or lets it end in good time.
void is_alive(Departure& departure) {
  if (!departure.told) {
    end_departure(*departure.watcher, key_of(departure.target, departure.protocol));
  } else if (!departure.is_back) {
    departure.is_back = true;
    poll_timer_start(departure.timer, kBackAfter);
  }
}

void heard_alive(const Watcher& watcher, unsigned protocol, const Name& target) {
  const auto found = watcher.departures.find(key_of(target, protocol));
  if (found != watcher.departures.end()) {
    is_alive(*found->second);
  }
}

// Most records are live ones, and mostly nothing departs: then nothing more is done with them.
void heard_record(Watcher& watcher, const HeardMessage& message, const PointerRecord& record) {
  const bool is_goodbye = record.ttl == 0;
  if ((!is_goodbye && watcher.departures.empty()) || !is_name_at(message.bytes, record.owner_at, watcher.asked)) {
    return;
  }
  MessageReader reader{message.bytes, record.target_at};
  const std::optional<Name> target = read_name(reader);
  if (!target) {
    return;
  }
  const unsigned protocol = message.is_ipv6 ? kIpv6 : kIpv4;
  if (is_goodbye) {
    heard_goodbye(watcher, protocol, *target);
  } else {
    heard_alive(watcher, protocol, *target);
  }
}

void heard(const HeardMessage& message, void* userdata) {
  const Departures& departures = *static_cast<Departures*>(userdata);
  PointerRecords records = pointer_records_of(message.bytes);
  while (const std::optional<PointerRecord> record = next_pointer_record(records)) {
    for (const auto& [browse, watcher] : departures.watchers) {
      heard_record(*watcher, message, *record);
    }
  }
}

Watcher* watcher_of(const Operation& operation) {
  const auto& watchers = operation.server->departures.watchers;
  const auto found = watchers.find(std::get_if<Browse>(&operation.part));
  return found == watchers.end() ? nullptr : found->second.get();
}

void missed(void* userdata) {
  for (const auto& [browse, watcher] : static_cast<Departures*>(userdata)->watchers) {
    for (auto next = watcher->departures.begin(); next != watcher->departures.end();) {
      Departure& departure = *next->second;
      ++next;
      if (departure.may_be_found) {
        end_departure(*watcher, key_of(departure.target, departure.protocol));
      } else {
        is_alive(departure);
      }
    }
  }
}

}  // namespace

void departures_watch(Operation& operation, const Name& asked) {
  Server& server = *operation.server;
  Departures& departures = server.departures;
  if (departures.watchers.empty()) {
    group_ear_listen(server.group_ear, server.interface_index, {Heeds::responses, heard, missed, &departures});
  }
  auto watcher = std::make_unique<Watcher>();
  watcher->operation = &operation;
  watcher->asked = asked;
  departures.watchers[&part_of<Browse>(operation)] = std::move(watcher);
}

void departures_unwatch(const Browse& browse) {
  if (browse.lookup == nullptr) {
    return;
  }
  Server& server = *browse.lookup->server;
  const auto found = server.departures.watchers.find(&browse);
  if (found == server.departures.watchers.end()) {
    return;
  }
  for (const auto& [key, departure] : found->second->departures) {
    poll_timer_free(departure->timer);
  }
  server.departures.watchers.erase(found);
  if (server.departures.watchers.empty()) {
    group_ear_leave(server.group_ear, &server.departures);
  }
}

bool departures_hold_back(const Operation& operation, unsigned protocol, const Name& target) {
  const Watcher* watcher = watcher_of(operation);
  if (watcher == nullptr || watcher->departures.empty()) {
    return false;
  }
  const auto found = watcher->departures.find(key_of(target, protocol));
  return found != watcher->departures.end() && found->second->told;
}

void departures_confirm(Operation& operation, unsigned protocol, const Name& target) {
  Watcher* watcher = watcher_of(operation);
  if (watcher != nullptr) {
    end_departure(*watcher, key_of(target, protocol));
  }
}

}  // namespace dnssd
