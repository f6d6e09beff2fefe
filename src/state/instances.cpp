// SPDX-License-Identifier: MIT
// The instances.
//
// Lifecycle of a slot:
//   1. state_instance_found or state_instance_refused takes a free one for a rule and a name, and puts it into the
//      index;
//   2. the functions for resolve, address and registration replies change it; each change of its state or reason is
//      entered into the ring of events;
//   3. state_instance_gone frees it. Its generation is counted up for each instance, so that a reader can tell two
//      instances apart that have the slot one after the other.
// The daemon keeps nothing for an instance that it refuses for good. Such a slot stays in use until the browse reports
// the instance removed; the number of these slots is bounded, so that a slot is left for every instance that may live.

#include <arpa/inet.h>

#include <algorithm>

#include "state/record.h"
#include "state/state.h"

namespace {

constexpr std::uint32_t kBuckets = 4096;  // a power of two above the number of slots
constexpr std::uint32_t kNone = kStateInstances;

// What the writer keeps for a slot outside of the file.
struct Slot {
  const void* registration;  // null: none
  std::uint32_t next;        // in its bucket, or among the free ones; kNone: the last
  bool refused_for_good;     // the daemon keeps nothing for it
};

Slot gSlots[kStateInstances];
std::uint32_t gBuckets[kBuckets];
std::uint32_t gFree = kNone;
std::uint32_t gUsed = 0;
std::uint32_t gRefusedForGood = 0;

// Only while there is a file.
StateInstance& instance_at(std::uint32_t slot) { return gStateImage->instances[slot]; }

// FNV-1a, 32 bits (Fowler, Noll, Vo), over the part of the name that is stored. If somebody chooses names that share a
// bucket, each look-up walks over a few thousand entries at most.
std::uint32_t bucket_of(std::uint32_t rule, const char* name) {
  std::uint32_t hash = 2166136261U ^ rule;
  for (std::size_t i = 0; i + 1 < kStateNameSize && name[i] != '\0'; ++i) {
    hash = (hash ^ static_cast<unsigned char>(name[i])) * 16777619U;
  }
  return (hash ^ hash >> 16) % kBuckets;
}

std::uint32_t find_slot(std::uint32_t rule, const char* name) {
  std::uint32_t slot = gBuckets[bucket_of(rule, name)];
  while (slot != kNone &&
         (instance_at(slot).rule != rule || std::strncmp(instance_at(slot).name, name, kStateNameSize - 1) != 0)) {
    slot = gSlots[slot].next;
  }
  return slot;
}

// The slot of an instance; kNone when there is no file, no such instance, or no slot for its rule.
std::uint32_t find_instance_slot(const void* rule, const char* name) {
  if (gStateImage == nullptr || name == nullptr) {
    return kNone;
  }
  const std::uint32_t rule_slot = state_rule_slot(rule);
  return rule_slot != kStateRules ? find_slot(rule_slot, name) : kNone;
}

void write_event(const StateInstance& instance, StateOfInstance before, StateOfInstance after, StateReason reason) {
  StateGlobal& global = gStateImage->global;
  StateEvent& event = gStateImage->events[global.events % kStateEvents];
  {
    const RecordWriting writing(event);
    event.rule = instance.rule;
    event.number = global.events;
    event.time = instance.since;
    event.before = before;
    event.after = after;
    event.reason = reason;
    set_field(event.name, instance.name);
  }
  const RecordWriting writing(global);
  ++global.events;
}

void change(std::uint32_t slot, StateOfInstance state, StateReason reason) {
  StateInstance& instance = instance_at(slot);
  if (instance.state == state && instance.reason == reason) {
    return;
  }
  const StateOfInstance before = instance.state;
  {
    const RecordWriting writing(instance);
    instance.state = state;
    instance.reason = reason;
    instance.since = state_now();
  }
  write_event(instance, before, state, reason);
}

void note_high_water() {
  StateGlobal& global = gStateImage->global;
  std::uint64_t& most = global.counters[static_cast<std::size_t>(StateCounter::high_water)];
  const RecordWriting writing(global);
  most = std::max<std::uint64_t>(most, gUsed - gRefusedForGood);
}

// A free slot for an instance that is new; kNone, and counted, when there is none.
std::uint32_t take_slot(std::uint32_t rule, const char* name, bool refused_for_good) {
  if (gFree == kNone || (refused_for_good && gRefusedForGood == kStateInstances - kStateLiveInstances)) {
    state_count(StateCounter::left_out);
    return kNone;
  }
  const std::uint32_t slot = gFree;
  std::uint32_t& bucket = gBuckets[bucket_of(rule, name)];
  gFree = gSlots[slot].next;
  gSlots[slot] = {nullptr, bucket, refused_for_good};
  bucket = slot;
  ++gUsed;
  gRefusedForGood += refused_for_good ? 1 : 0;
  StateInstance& instance = instance_at(slot);
  const RecordWriting writing(instance);
  ++instance.generation;
  instance.rule = rule;
  instance.found = state_now();
  set_field(instance.name, name);
  return slot;
}

// The instance's slot, a new one when it has none.
std::uint32_t find_or_take(const void* rule, const char* name, bool refused_for_good) {
  if (gStateImage == nullptr || name == nullptr) {
    return kNone;
  }
  const std::uint32_t rule_slot = state_rule_slot(rule);
  if (rule_slot == kStateRules) {
    state_count(StateCounter::left_out);
    return kNone;
  }
  const std::uint32_t known = find_slot(rule_slot, name);
  return known != kNone ? known : take_slot(rule_slot, name, refused_for_good);
}

void give_back(std::uint32_t slot) {
  StateInstance& instance = instance_at(slot);
  std::uint32_t* link = &gBuckets[bucket_of(instance.rule, instance.name)];
  while (*link != slot) {
    link = &gSlots[*link].next;
  }
  *link = gSlots[slot].next;
  gRefusedForGood -= gSlots[slot].refused_for_good ? 1 : 0;
  --gUsed;
  gSlots[slot] = {nullptr, gFree, false};
  gFree = slot;
  const RecordWriting writing(instance);
  instance.state = StateOfInstance::none;
  instance.reason = StateReason::none;
  instance.port = 0;
  instance.found = 0;
  set_field(instance.name, "");
  set_field(instance.name_there, "");
  set_field(instance.host, "");
  std::memset(instance.address4, 0, sizeof instance.address4);
  std::memset(instance.address6, 0, sizeof instance.address6);
}

// Sets whether the instance is refused for good. If there are more of these than their share of the slots, its slot is
// freed again, and counted as left out.
void set_refused_for_good(std::uint32_t slot, bool refused) {
  if (gSlots[slot].refused_for_good == refused) {
    return;
  }
  gSlots[slot].refused_for_good = refused;
  gSlots[slot].registration = nullptr;
  gRefusedForGood = refused ? gRefusedForGood + 1 : gRefusedForGood - 1;
  if (gRefusedForGood > kStateInstances - kStateLiveInstances) {
    give_back(slot);
    state_count(StateCounter::left_out);
  }
}

bool is_for_good(StateReason reason) { return reason == StateReason::limit || reason == StateReason::through_gateway; }

StateCounter counter_of(StateReason reason) {
  switch (reason) {
    case StateReason::limit:
      return StateCounter::limit;
    case StateReason::through_gateway:
      return StateCounter::through_gateway;
    case StateReason::conflict:
      return StateCounter::conflict;
    default:
      return StateCounter::refused_otherwise;
  }
}

bool has_stored_address(const StateInstance& instance) {
  const auto is_set = [](std::uint8_t byte) { return byte != 0; };
  return std::ranges::any_of(instance.address4, is_set) || std::ranges::any_of(instance.address6, is_set);
}

std::uint32_t find_registration(const void* registration) {
  std::uint32_t slot = 0;
  while (slot != kNone && gSlots[slot].registration != registration) {
    ++slot;
  }
  return slot;
}

// The registration's instance: nearly always the one of the same name.
std::uint32_t find_registered(const void* rule, const void* registration, const char* name) {
  if (gStateImage == nullptr || registration == nullptr) {
    return kNone;
  }
  const std::uint32_t slot = find_instance_slot(rule, name);
  return slot != kNone && gSlots[slot].registration == registration ? slot : find_registration(registration);
}

}  // namespace

void state_forget_instances() {
  std::ranges::fill(gBuckets, kNone);
  for (std::uint32_t slot = 0; slot < kStateInstances; ++slot) {
    gSlots[slot] = {nullptr, slot + 1, false};
  }
  gFree = 0;
  gUsed = 0;
  gRefusedForGood = 0;
}

void state_instance_found(const void* rule, const char* name) {
  const std::uint32_t slot = find_or_take(rule, name, false);
  if (slot != kNone) {
    set_refused_for_good(slot, false);
    change(slot, StateOfInstance::waiting, StateReason::resolving);
    state_count(StateCounter::found);
    note_high_water();
  }
}

void state_instance_refused(const void* rule, const char* name, StateReason reason) {
  if (gStateImage == nullptr) {
    return;
  }
  state_count(counter_of(reason));
  const std::uint32_t slot = find_or_take(rule, name, is_for_good(reason));
  if (slot != kNone) {
    change(slot, StateOfInstance::refused, reason);
    set_refused_for_good(slot, is_for_good(reason));
  }
}

void state_instance_resolved(const void* rule, const char* name, const char* host, std::uint16_t port) {
  const std::uint32_t slot = find_instance_slot(rule, name);
  if (slot != kNone) {
    {
      const RecordWriting writing(instance_at(slot));
      instance_at(slot).port = ntohs(port);
      set_field(instance_at(slot).host, host);
    }
    change(slot, StateOfInstance::waiting, StateReason::no_address);
  }
}

void state_instance_link_local(const void* rule, const char* name, const std::uint8_t* address, std::size_t size) {
  const std::uint32_t slot = find_instance_slot(rule, name);
  if (slot == kNone ||
      (has_stored_address(instance_at(slot)) && instance_at(slot).reason != StateReason::link_local_only)) {
    return;
  }
  {
    StateInstance& instance = instance_at(slot);
    const RecordWriting writing(instance);
    std::uint8_t* const field = size == sizeof instance.address4 ? instance.address4 : instance.address6;
    std::memcpy(field, address, size == sizeof instance.address4 ? size : sizeof instance.address6);
  }
  change(slot, StateOfInstance::refused, StateReason::link_local_only);
  state_count(StateCounter::link_local_only);
}

void state_instance_addresses(const void* rule, const char* name, const std::uint8_t* address4,
                              const std::uint8_t* address6) {
  const std::uint32_t slot = find_instance_slot(rule, name);
  if (slot == kNone) {
    return;
  }
  StateInstance& instance = instance_at(slot);
  const auto is_set = [](std::uint8_t byte) { return byte != 0; };
  const bool any = std::any_of(address4, address4 + sizeof instance.address4, is_set) ||
                   std::any_of(address6, address6 + sizeof instance.address6, is_set);
  const bool same = std::equal(address4, address4 + sizeof instance.address4, instance.address4) &&
                    std::equal(address6, address6 + sizeof instance.address6, instance.address6);
  if (!any || same) {
    return;
  }
  {
    const RecordWriting writing(instance);
    std::memcpy(instance.address4, address4, sizeof instance.address4);
    std::memcpy(instance.address6, address6, sizeof instance.address6);
  }
  state_count(StateCounter::addresses);
  if (instance.reason == StateReason::link_local_only) {
    change(slot, StateOfInstance::waiting, StateReason::no_address);
  }
}

void state_instance_registering(const void* rule, const char* name, const void* registration) {
  const std::uint32_t slot = find_instance_slot(rule, name);
  if (slot == kNone) {
    return;
  }
  gSlots[slot].registration = registration;
  if (registration != nullptr) {
    change(slot, StateOfInstance::waiting, StateReason::probing);
  } else {
    change(slot, StateOfInstance::refused, StateReason::none);
    state_count(StateCounter::refused_otherwise);
  }
}

void state_instance_registered(const void* rule, const void* registration, const char* name_there,
                               StateReason refused) {
  const std::uint32_t slot = find_registered(rule, registration, name_there);
  if (slot == kNone) {
    return;
  }
  if (refused != StateReason::none) {
    change(slot, StateOfInstance::refused, refused);
    state_count(counter_of(refused));
    return;
  }
  {
    const RecordWriting writing(instance_at(slot));
    set_field(instance_at(slot).name_there, name_there);
  }
  if (instance_at(slot).state != StateOfInstance::forwarded) {
    state_count(StateCounter::forwarded);
    if (std::strcmp(instance_at(slot).name, instance_at(slot).name_there) != 0) {
      state_count(StateCounter::renamed);
    }
  }
  change(slot, StateOfInstance::forwarded, StateReason::none);
}

void state_instance_gone(const void* rule, const char* name) {
  const std::uint32_t slot = find_instance_slot(rule, name);
  if (slot == kNone) {
    return;
  }
  StateInstance& instance = instance_at(slot);
  {
    const RecordWriting writing(instance);
    instance.since = state_now();
  }
  write_event(instance, instance.state, StateOfInstance::none, StateReason::none);
  give_back(slot);
  state_count(StateCounter::gone);
}
