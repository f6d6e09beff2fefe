// SPDX-License-Identifier: MIT
// Lifecycle of a lookup: lookup_start makes its browser; begin_rest ends that, and wake makes the next one, which confirms what
// was told or has it taken back; lookup_end puts it among the ended ones, of which the next settling is the last.
#include "dnssd/lookups.h"

#include <algorithm>
#include <optional>

#include "dnssd/operations.h"
#include "dnssd/repeats.h"
#include "dnssd/rests.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// Half of what Avahi waits before it sends a question.
constexpr std::int64_t kSettledAfter = 50'000;  // microseconds

// What a brief lookup rests: longer than anybody needs who only wants the answer.
constexpr std::int64_t kBriefRest = 1'000'000;  // microseconds

Lookups& lookups_of(const Lookup& lookup) { return lookup.server->lookups_there; }

void set_waking(Lookups& lookups) {
  if (!lookups.resting.empty()) {
    poll_timer_start(lookups.waking, std::max<std::int64_t>(lookups.resting.begin()->first - monotonic_now(), 1));
  }
}

void set_settling(Lookups& lookups) {
  if (lookups.ended.size() + lookups.reviewed.size() == 1) {
    poll_timer_start(lookups.settling, kSettledAfter);
  }
}

void review_soon(Lookup& lookup) {
  if (lookup.is_reviewed || lookup.kind == LookupKind::steady) {
    return;
  }
  lookup.is_reviewed = true;
  lookups_of(lookup).reviewed.push_back(&lookup);
  set_settling(lookups_of(lookup));
}

void leave_rest(Lookup& lookup) {
  auto [first, last] = lookups_of(lookup).resting.equal_range(lookup.wakes_at);
  const auto found = std::find_if(first, last, [&](const auto& entry) { return entry.second == &lookup; });
  if (found != last) {
    lookups_of(lookup).resting.erase(found);
  }
}

void rest(Lookup& lookup, std::int64_t until) {
  lookup.wakes_at = until;
  const auto place = lookups_of(lookup).resting.emplace(until, &lookup);
  if (place == lookups_of(lookup).resting.begin()) {
    set_waking(lookups_of(lookup));
  }
}

void begin_rest(Lookup& lookup, std::int64_t until) {
  avahi_s_record_browser_free(lookup.browser);
  lookup.browser = nullptr;
  rest(lookup, until);
}

// --- What has been told

void take_back(Lookup& lookup, const ToldRecord& gone) {
  lookup.callback(*lookup.operation, gone.protocol, AVAHI_BROWSER_REMOVE, gone.record);
  avahi_record_unref(gone.record);
}

void tell_new(Lookup& lookup, AvahiProtocol protocol, AvahiRecord* record) {
  if (lookup.kind != LookupKind::steady) {
    if (told_confirm(lookup.told, protocol, record)) {
      return;
    }
    if (const std::optional<ToldRecord> gone = told_add(lookup.told, protocol, record)) {
      lookup.has_dropped = true;
      take_back(lookup, *gone);
    }
  }
  lookup.callback(*lookup.operation, protocol, AVAHI_BROWSER_NEW, record);
}

// Found in the cache: told when the browser has been through it.
void note_scanned(Lookup& lookup, AvahiProtocol protocol, AvahiRecord* record) {
  ToldRecords& scanned = lookups_of(lookup).scanned;
  if (told_confirm(lookup.told, protocol, record)) {
    return;
  }
  if (told_is_full(scanned, protocol)) {
    lookup.has_dropped = true;
    return;
  }
  static_cast<void>(told_add(scanned, protocol, record));
}

void tell_scanned(Lookup& lookup) {
  ToldRecords scanned;
  scanned.swap(lookups_of(lookup).scanned);
  for (auto found = scanned.rbegin(); found != scanned.rend(); ++found) {
    tell_new(lookup, found->protocol, found->record);
  }
  told_forget(scanned);
}

void tell_gone(Lookup& lookup, AvahiProtocol protocol, AvahiRecord* record) {
  if (lookup.kind == LookupKind::steady || told_remove(lookup.told, protocol, record)) {
    lookup.callback(*lookup.operation, protocol, AVAHI_BROWSER_REMOVE, record);
  }
}

// The browser has been through the cache: what it has not found there is gone.
void take_back_unconfirmed(Lookup& lookup) {
  for (const ToldRecord& gone : told_take_unconfirmed(lookup.told)) {
    take_back(lookup, gone);
  }
}

// --- Rest

void rest_if_possible(Lookup& lookup) {
  if (lookup.kind == LookupKind::steady || lookup.browser == nullptr) {
    return;
  }
  const std::int64_t until = rest_until(lookup);
  if (until != 0) {
    begin_rest(lookup, until);
  }
}

// Older records, for which there was no room, may be there still: a new browser has to go through the cache, in a moment.
void look_again_if_bare(Lookup& lookup) {
  if (lookup.has_dropped && lookup.told.empty() && lookup.browser != nullptr) {
    begin_rest(lookup, monotonic_now());
  }
}

// --- Avahi's side

void record_found(Lookup& lookup, AvahiProtocol protocol, AvahiRecord* record, AvahiLookupResultFlags flags) {
  if (lookup.kind == LookupKind::lasting && lookup.is_scanning) {
    note_scanned(lookup, protocol, record);
    return;
  }
  tell_new(lookup, protocol, record);
  if (lookup.kind == LookupKind::brief && (flags & AVAHI_LOOKUP_RESULT_CACHED) != 0) {
    lookup.kind = LookupKind::lasting;
    begin_rest(lookup, monotonic_now() + kBriefRest);
  }
}

void record_seen(AvahiSRecordBrowser* browser, AvahiIfIndex, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record,
                 AvahiLookupResultFlags flags, void* userdata) {
  Lookup& lookup = *static_cast<Lookup*>(userdata);
  if (lookup.operation == nullptr || lookup.browser != browser) {
    return;
  }
  switch (event) {
    case AVAHI_BROWSER_NEW:
      record_found(lookup, protocol, record, flags);
      break;
    case AVAHI_BROWSER_REMOVE:
      tell_gone(lookup, protocol, record);
      review_soon(lookup);
      look_again_if_bare(lookup);
      break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
      lookup.is_scanning = false;
      tell_scanned(lookup);
      take_back_unconfirmed(lookup);
      rest_if_possible(lookup);
      break;
    case AVAHI_BROWSER_FAILURE:
      told_forget(lookups_of(lookup).scanned);
      lookup.callback(*lookup.operation, protocol, event, nullptr);
      break;
    case AVAHI_BROWSER_ALL_FOR_NOW:
      break;
  }
}

bool open_browser(Lookup& lookup) {
  const Server& server = *lookup.server;
  lookup.is_scanning = true;
  lookup.has_dropped = false;
  lookup.browser = avahi_s_record_browser_new(server.avahi, static_cast<AvahiIfIndex>(server.interface_index), AVAHI_PROTO_UNSPEC,
                                              lookup.key, AVAHI_LOOKUP_USE_MULTICAST, record_seen, &lookup);
  return lookup.browser != nullptr;
}

void wake(Lookup& lookup) {
  leave_rest(lookup);
  told_doubt(lookup.told);
  if (!open_browser(lookup)) {
    lookup.callback(*lookup.operation, AVAHI_PROTO_UNSPEC, AVAHI_BROWSER_FAILURE, nullptr);
  }
}

void waking_fired(AvahiTimeout*, void* userdata) {
  Lookups& lookups = *static_cast<Lookups*>(userdata);
  const std::int64_t now = monotonic_now();
  while (!lookups.resting.empty() && lookups.resting.begin()->first <= now) {
    wake(*lookups.resting.begin()->second);
  }
  set_waking(lookups);
}

// Something was said of what the lookup has told; `repeats` is of the socket that heard it.
void heard(Lookup& lookup, const Repeats& repeats) {
  if (lookup.browser != nullptr) {
    review_soon(lookup);
    return;
  }
  const std::int64_t until = repeats_knows(repeats, lookup.heard_as) ? rest_until(lookup) : 0;
  if (until == 0) {
    wake(lookup);
    return;
  }
  leave_rest(lookup);
  rest(lookup, until);
}

// --- What has been said long ago

void forgetting_fired(AvahiTimeout*, void* userdata) {
  Server& server = *static_cast<Server*>(userdata);
  bool is_any_left = false;
  for (Gate& gate : server.gates) {
    is_any_left = repeats_age(gate.repeats, monotonic_now()) || is_any_left;
  }
  server.lookups_there.will_forget = is_any_left;
  if (is_any_left) {
    poll_timer_start(server.lookups_there.forgetting, kRepeatsForgottenAfter);
  }
}

void forget_by_and_by(Lookups& lookups) {
  if (!lookups.will_forget) {
    lookups.will_forget = true;
    poll_timer_start(lookups.forgetting, kRepeatsForgottenAfter);
  }
}

// --- The end

void free_lookup(Lookup* lookup) {
  if (lookup->browser != nullptr) {
    avahi_s_record_browser_free(lookup->browser);
  }
  told_forget(lookup->told);
  avahi_key_unref(lookup->key);
  delete lookup;
}

void settle(Lookups& lookups) {
  std::vector<Lookup*> reviewed;
  reviewed.swap(lookups.reviewed);
  for (Lookup* lookup : reviewed) {
    lookup->is_reviewed = false;
    if (lookup->operation != nullptr) {
      rest_if_possible(*lookup);
    }
  }
  for (Lookup* lookup : lookups.ended) {
    free_lookup(lookup);
  }
  lookups.ended.clear();
}

void forget_key(Lookup& lookup) {
  auto [first, last] = lookups_of(lookup).by_key.equal_range(lookup.heard_as);
  const auto found = std::find_if(first, last, [&](const auto& entry) { return entry.second == &lookup; });
  if (found != last) {
    lookups_of(lookup).by_key.erase(found);
  }
}

}  // namespace

void lookups_open(Server& server) {
  Lookups& lookups = server.lookups_there;
  lookups.waking = poll_timer_new(gEngine->poll, waking_fired, &lookups);
  lookups.settling = poll_timer_new(
      gEngine->poll, [](AvahiTimeout*, void* userdata) { settle(*static_cast<Lookups*>(userdata)); }, &lookups);
  lookups.forgetting = poll_timer_new(gEngine->poll, forgetting_fired, &server);
}

void lookups_close(Server& server) {
  Lookups& lookups = server.lookups_there;
  settle(lookups);
  poll_timer_free(lookups.waking);
  poll_timer_free(lookups.settling);
  poll_timer_free(lookups.forgetting);
  lookups.waking = nullptr;
  lookups.settling = nullptr;
  lookups.forgetting = nullptr;
}

void lookups_heard(Server& server, const Repeats& repeats, std::span<const std::uint64_t> keys) {
  if (!keys.empty()) {
    forget_by_and_by(server.lookups_there);
  }
  for (const std::uint64_t key : keys) {
    const auto [first, last] = server.lookups_there.by_key.equal_range(key);
    for (auto entry = first; entry != last; ++entry) {
      heard(*entry->second, repeats);
    }
  }
}

void lookups_wake(Server& server) {
  std::multimap<std::int64_t, Lookup*>& resting = server.lookups_there.resting;
  while (!resting.empty()) {
    wake(*resting.begin()->second);
  }
}

Lookup* lookup_start(Operation& operation, const Name& name, std::uint16_t rrtype, LookupKind kind, LookupCallback callback) {
  AvahiKey* key = avahi_key_new(name_to_avahi(name).c_str(), AVAHI_DNS_CLASS_IN, rrtype);
  if (key == nullptr) {
    return nullptr;
  }
  auto* lookup = new Lookup;
  lookup->operation = &operation;
  lookup->server = operation.server;
  lookup->callback = callback;
  lookup->kind = kind;
  lookup->key = key;
  if (rrtype == AVAHI_DNS_TYPE_PTR) {
    pointers_follow(*lookup, name);
    return lookup;
  }
  if (!open_browser(*lookup)) {
    free_lookup(lookup);
    return nullptr;
  }
  if (kind != LookupKind::steady) {
    lookup->heard_as = repeats_key(name, rrtype);
    lookups_of(*lookup).by_key.emplace(lookup->heard_as, lookup);
  }
  return lookup;
}

void lookup_end(Lookup* lookup) {
  if (lookup == nullptr) {
    return;
  }
  lookup->operation = nullptr;
  Lookups& lookups = lookups_of(*lookup);
  pointers_leave(*lookup);
  if (lookup->browser == nullptr) {
    leave_rest(*lookup);
  }
  forget_key(*lookup);
  lookups.ended.push_back(lookup);
  set_settling(lookups);
}

}  // namespace dnssd
