// SPDX-License-Identifier: MIT
// The names of a link: one entry for each name that has cached records, questions or published records, so that one
// look-up finds everything about a name.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mdns/wire/name.h"
#include "mdns/wire/record.h"

namespace mdns {

struct CacheEntry;
struct NameEntry;
struct OpenQuestion;
struct OwnedName;
struct Watch;

// The cached records of one name and type, and the question for them. Lives while it has an entry or a question.
struct RRset {
  NameEntry* name = nullptr;
  std::uint16_t type = 0;
  std::list<CacheEntry> entries;           // the newest last: new ones, and unique ones that were received again
  std::unique_ptr<OpenQuestion> question;  // null: no query asks for it
  std::unique_ptr<Watch> watch;            // null: no removal is pending
};

// Lives while it has an RRset or something published under it.
struct NameEntry {
  std::uint64_t id = 0;                        // a number that no other name of the link has
  std::string name;                            // in the upper and lower case in which it was used first
  std::vector<std::unique_ptr<RRset>> rrsets;  // cached or asked for, one for each type
  std::unique_ptr<OwnedName> owned;            // what is published under it; null: nothing
};

// The keys are views of the entries' own names.
using NameTable = std::unordered_map<std::string_view, std::unique_ptr<NameEntry>, FoldedHash, FoldedEqual>;

// The key of a record in the tables of the cache and of the zone.
struct RecordKey {
  const NameEntry* name;
  std::uint16_t type;
  std::string_view rdata;

  bool operator==(const RecordKey& other) const {
    return name == other.name && type == other.type && same_rdata(type, rdata, other.rdata);
  }
};

// For tables of pointers or iterators to records; key_of gives the RecordKey of each.
struct RecordHash {
  using is_transparent = void;
  std::uint64_t seed = 0;
  std::size_t operator()(const RecordKey& key) const {
    return static_cast<std::size_t>(hash_folded(key.rdata, seed + (key.name->id << 16) + key.type));
  }
  std::size_t operator()(const auto& place) const { return (*this)(key_of(*place)); }
};

struct RecordEqual {
  using is_transparent = void;
  bool operator()(const auto& a, const auto& b) const { return a == b; }
  bool operator()(const RecordKey& key, const auto& place) const { return key == key_of(*place); }
  bool operator()(const auto& place, const RecordKey& key) const { return key == key_of(*place); }
};

}  // namespace mdns
