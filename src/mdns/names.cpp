// SPDX-License-Identifier: MIT
#include "mdns/names.h"

#include <algorithm>

#include "mdns/link.h"

namespace mdns {

NameEntry* name_find(const Link& link, std::string_view name) {
  const auto found = link.names.find(name);
  return found == link.names.end() ? nullptr : found->second.get();
}

OwnedName* owned_find(const Link& link, std::string_view name) {
  const NameEntry* entry = name_find(link, name);
  return entry == nullptr ? nullptr : entry->owned;
}

NameEntry& name_get(Link& link, std::string_view name) {
  NameEntry* known = name_find(link, name);
  if (known != nullptr) {
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
    const auto found = link.names.find(entry.name);
    const auto erased = link.names.extract(found);  // the key is a view of the entry's name: both go together
  }
}

RRset* rrset_find(const NameEntry& name, std::uint16_t type) {
  const auto found = std::ranges::find_if(name.rrsets, [type](const auto& rrset) { return rrset->type == type; });
  return found == name.rrsets.end() ? nullptr : found->get();
}

RRset& rrset_get(NameEntry& name, std::uint16_t type) {
  RRset* known = rrset_find(name, type);
  if (known != nullptr) {
    return *known;
  }
  RRset& rrset = *name.rrsets.emplace_back(std::make_unique<RRset>());
  rrset.name = &name;
  rrset.type = type;
  return rrset;
}

void rrset_review(Link& link, RRset& rrset) {
  if (rrset.question != nullptr) {
    question_review(link, *rrset.question);
    return;
  }
  if (!rrset.entries.empty()) {
    return;
  }
  if (rrset.watch != nullptr) {
    link.cache.watches.set(*rrset.watch, kNever);
  }
  NameEntry& name = *rrset.name;
  std::erase_if(name.rrsets, [&](const auto& each) { return each.get() == &rrset; });
  name_release(link, name);
}

std::size_t RecordHash::operator()(const RecordKey& key) const {
  return hash_folded(key.rdata, seed + (key.name->id << 16) + key.type);
}

bool RecordKey::operator==(const RecordKey& other) const {
  return name == other.name && type == other.type && same_rdata(type, rdata, other.rdata);
}

}  // namespace mdns
