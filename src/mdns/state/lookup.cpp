// SPDX-License-Identifier: MIT
#include "mdns/state/lookup.h"

#include <algorithm>

namespace mdns {

NameEntry* name_find(const Link& link, std::string_view name) {
  const auto found = link.names.find(name);
  return found == link.names.end() ? nullptr : found->second.get();
}

OwnedName* owned_find(const Link& link, std::string_view name) {
  const NameEntry* entry = name_find(link, name);
  return entry == nullptr ? nullptr : entry->owned.get();
}

NameEntry& name_get(Link& link, std::string_view name) {
  if (NameEntry* known = name_find(link, name)) {
    return *known;
  }
  auto made = std::make_unique<NameEntry>();
  made->id = ++link.last_id;
  made->name = name;
  NameEntry& entry = *made;
  link.names.emplace(std::string_view(entry.name), std::move(made));
  return entry;
}

void name_release(Link& link, NameEntry& entry) {
  if (entry.rrsets.empty() && entry.owned == nullptr) {
    const auto erased = link.names.extract(entry.name);  // the key is a view of the entry's name: both go together
  }
}

RRset* rrset_find(const NameEntry& name, std::uint16_t type) {
  const auto found = std::ranges::find_if(name.rrsets, [type](const auto& rrset) { return rrset->type == type; });
  return found == name.rrsets.end() ? nullptr : found->get();
}

RRset& rrset_get(NameEntry& name, std::uint16_t type) {
  if (RRset* known = rrset_find(name, type)) {
    return *known;
  }
  RRset& rrset = *name.rrsets.emplace_back(std::make_unique<RRset>());
  rrset.name = &name;
  rrset.type = type;
  return rrset;
}

CacheEntry* cache_find(const Link& link, const RecordKey& key) {
  const auto none = link.cache.entries.end();
  const auto found = key.name == nullptr ? none : link.cache.entries.find(key);
  return found == none ? nullptr : &**found;
}

OwnedRecord* zone_find(const Link& link, const RecordKey& key) {
  const auto found = link.zone.records.find(key);
  return found == link.zone.records.end() ? nullptr : found->get();
}

bool zone_reports(const Link& link, const RecordKey& key) {
  const OwnedRecord* record = key.name->owned == nullptr ? nullptr : zone_find(link, key);
  return record != nullptr && record->is_reported;
}

}  // namespace mdns
