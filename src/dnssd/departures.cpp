// SPDX-License-Identifier: MIT
// Lifecycle of a departure: a goodbye for a present instance makes it (waiting); a live record in time ends it; else it is
// told to the browse, and stays until its lookup has noticed too. A live record in that time brings the instance back, but only
// once what was cached of its former life is gone. What is missed may have been such a record, and counts as one for every
// departure: then it is the lookup's word that holds.
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
  }
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
      is_alive(departure);
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

void departures_confirm(Operation& operation, unsigned protocol, const Name& target) {
  Watcher* watcher = watcher_of(operation);
  if (watcher != nullptr) {
    end_departure(*watcher, key_of(target, protocol));
  }
}

}  // namespace dnssd
