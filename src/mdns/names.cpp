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

void rrset_review(Link& link, RRset& rrset) {
  if (rrset.question != nullptr) {
    question_review(link, *rrset.question);
  } else if (rrset.entries.empty()) {
    if (rrset.watch != nullptr) {
      link.cache.watches.set(*rrset.watch, kNever);
    }
    NameEntry& name = *rrset.name;
    std::erase_if(name.rrsets, [&](const auto& each) { return each.get() == &rrset; });
    name_release(link, name);
  }
}

}  // namespace mdns
