// SPDX-License-Identifier: MIT
#include "mdns/names.h"

#include "mdns/link.h"

namespace mdns {

NameEntry* name_find(const Link& link, std::string_view name) {
  const auto found = link.names.find(name);
  return found == link.names.end() ? nullptr : found->second.get();
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

}  // namespace mdns
