// SPDX-License-Identifier: MIT
// The names of a link: one entry for each name that something is cached, asked or published under, so that everything about a
// name is found with one look-up.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mdns/name.h"

namespace mdns {

struct Link;
struct OwnedName;
struct RRset;

// Lives while it has an RRset or something published under it.
struct NameEntry {
  std::uint64_t id = 0;        // of the link's own counting
  std::string name;            // spelled as it was first
  std::vector<RRset*> rrsets;  // cached or asked for, one for each type; owned by the cache
  OwnedName* owned = nullptr;  // what is published under it; owned by the zone
};

struct FoldedHash {
  std::uint64_t seed = 0;
  std::size_t operator()(std::string_view name) const { return hash_folded(name, seed); }
};

struct FoldedEqual {
  bool operator()(std::string_view a, std::string_view b) const { return same_folded(a, b); }
};

// The keys are views of the entries' own names.
using NameTable = std::unordered_map<std::string_view, std::unique_ptr<NameEntry>, FoldedHash, FoldedEqual>;

// Null when nothing is known of the name.
NameEntry* name_find(const Link& link, std::string_view name);

NameEntry& name_get(Link& link, std::string_view name);

// Frees the entry if nothing is left of it.
void name_release(Link& link, NameEntry& entry);

}  // namespace mdns
