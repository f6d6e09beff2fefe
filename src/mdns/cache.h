// SPDX-License-Identifier: MIT
// What other hosts of the link have said: records by name and type, with their lifetimes (RFC 6762 sections 5.2 and 10).
//
// Lifecycle of a cache entry: a response makes it; the same record heard again renews it. A goodbye, or a cache-flush that
// leaves it out, gives it one more second (sections 10.1 and 10.2). While somebody asks for it, it is asked for anew from
// four fifths of its lifetime on. It is removed when its time is over, when others have asked for it in vain (section 10.5),
// when its link or protocol is gone, or to make room: what nobody asks for goes first.
#pragma once

#include <array>
#include <unordered_set>

#include "mdns/heap.h"
#include "mdns/names.h"
#include "mdns/record.h"

namespace mdns {

struct CacheEntry;
struct OpenQuestion;
struct Source;

// Questions of others that nobody answered, after which a record is given up (RFC 6762 section 10.5 asks for two or more; a
// link that loses packets loses several in a row).
inline constexpr std::size_t kVainQuestions = 4;

// The records of one name and type, and what is asked for them. Lives while it has an entry or a question, and for a second
// after its last question was sent.
struct RRset {
  NameEntry* name = nullptr;
  std::uint16_t type = 0;
  std::uint32_t count = 0;      // of entries
  CacheEntry* first = nullptr;  // entries, the newest last: those that came last, or unique ones that were said again last
  CacheEntry* last = nullptr;
  OpenQuestion* question = nullptr;                     // null: nobody asks for it
  std::array<Time, 2> asked_at = {kLongAgo, kLongAgo};  // when it was last asked over each protocol, by whomever
  Time flushed_at = kNever;                             // the cache-flush whose second is running; kNever: none
  Time flushed_again_at = kNever;                       // the latest one since
  std::array<Time, kVainQuestions> others_asked = {
      kLongAgo, kLongAgo, kLongAgo, kLongAgo};  // when others asked for it last, without known answers; the oldest first
  Time give_up_at = kNever;                     // what has been heard before all of `others_asked` is given up
  Deadline review;                              // of a flush, of what others asked in vain, or of its own end
};

struct CacheEntry {
  RRset* rrset = nullptr;
  std::string rdata;
  std::uint32_t ttl = 0;  // seconds, as the record said it
  Time received = 0;      // last
  Time expires = 0;
  Time check_at = kNever;                  // when the protocols that have not said goodbye are asked; kNever: they are not
  Protocols protocols = kNoProtocol;       // over which it was heard
  Protocols goodbyes = kNoProtocol;        // over which it was taken back
  std::uint8_t refreshes = 0;              // questions for it since it was heard last
  bool is_unique = false;                  // the cache-flush bit was set
  bool is_doubted = false;                 // it goes unless somebody confirms it
  bool is_leaving = false;                 // a goodbye or a cache-flush has limited it
  std::array<std::uint32_t, 2> said_by{};  // Source::number of who said it last over each protocol; 0: nobody
  Source* source = nullptr;                // who said it first
  CacheEntry* next = nullptr;              // in the RRset
  CacheEntry* previous = nullptr;
  CacheEntry* newer = nullptr;  // in Cache::unwanted
  CacheEntry* older = nullptr;
  Deadline due;  // a refresh, a check, or the end
};

// What a record is found by.
struct RecordKey {
  const NameEntry* name;
  std::uint16_t type;
  std::string_view rdata;
};

struct EntryHash {
  using is_transparent = void;
  std::uint64_t seed = 0;
  std::size_t operator()(const RecordKey& key) const;
  std::size_t operator()(const CacheEntry* entry) const;
};

struct EntryEqual {
  using is_transparent = void;
  bool operator()(const CacheEntry* a, const CacheEntry* b) const { return a == b; }
  bool operator()(const RecordKey& key, const CacheEntry* entry) const;
  bool operator()(const CacheEntry* entry, const RecordKey& key) const { return (*this)(key, entry); }
};

struct Cache {
  std::unordered_set<CacheEntry*, EntryHash, EntryEqual> entries;
  Heap<CacheEntry, &CacheEntry::due> due;
  Heap<RRset, &RRset::review> reviews;
  CacheEntry* newest_unwanted = nullptr;  // entries that nobody asks for, by their last arrival
  CacheEntry* oldest_unwanted = nullptr;
  std::size_t unwanted = 0;
};

// Null when there is none.
RRset* rrset_find(const NameEntry& name, std::uint16_t type);
RRset& rrset_get(Link& link, NameEntry& name, std::uint16_t type);

// Frees the RRset, and its name, if nothing is left of it.
void rrset_release(Link& link, RRset& rrset);

// The entry of that record; null when there is none.
CacheEntry* cache_find(const Link& link, const RecordKey& key);

// The link itself no longer publishes the record: for the second of its goodbye it stays, as for everybody else, unless the
// RRset is not asked for. Another host that has it as well says so within that time.
void cache_keep_for_goodbye(Link& link, RRset& rrset, std::uint32_t ttl, std::string_view rdata);

// Takes in a record of a response that came over `protocol`.
void cache_receive(Link& link, const Record& record, Protocols protocol, Source& source);

// Another host has asked over the link for the RRset, without known answers.
void cache_others_asked(Link& link, RRset& rrset);

// A question for the RRset has begun or ended: its entries are refreshed from now on, or no longer.
void cache_wanted_changed(Link& link, RRset& rrset);

// Whether a record with the cache-flush bit is known that is not about to go: then nothing needs to be asked.
bool cache_has_unique_answer(const RRset& rrset);

// Forgets what was heard only over other protocols than these.
void cache_keep_protocols(Link& link, Protocols protocols);

// Does what is due.
void cache_advance(Link& link);
Time cache_deadline(const Link& link);

void cache_free(Link& link);

}  // namespace mdns
