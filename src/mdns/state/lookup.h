// SPDX-License-Identifier: MIT
// Finding what a link knows, and making and freeing its names.
#pragma once

#include <string_view>

#include "mdns/state/link.h"

namespace mdns {

// Null when nothing is known of the name.
NameEntry* name_find(const Link& link, std::string_view name);

// What is published under the name; null when nothing is.
OwnedName* owned_find(const Link& link, std::string_view name);

NameEntry& name_get(Link& link, std::string_view name);

// Frees the entry if nothing is left of it.
void name_release(Link& link, NameEntry& entry);

// Null when there is none.
RRset* rrset_find(const NameEntry& name, std::uint16_t type);

RRset& rrset_get(NameEntry& name, std::uint16_t type);

// The entry of that record; null when there is none, or key.name is null.
CacheEntry* cache_find(const Link& link, const RecordKey& key);

// Null when the record is not published.
OwnedRecord* zone_find(const Link& link, const RecordKey& key);

// Whether the link has reported its own record to its own queries as added.
bool zone_reports(const Link& link, const RecordKey& key);

}  // namespace mdns
