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

struct Source;

// What has cut a lifetime short; whoever says the record again makes it whole.
enum class Limit : std::uint8_t {
  none,
  doubt,    // it goes unless somebody confirms it
  goodbye,  // it has been taken back over one protocol at least
};

struct CacheEntry {
  RRset* rrset = nullptr;
  Source* source = nullptr;  // who said it first
  std::string rdata;
  Time received = 0;  // last
  Time expires = 0;
  Deadline due;           // a refresh, or where something limits it the check of what has not said goodbye; or the end
  std::uint32_t ttl = 0;  // seconds, as the record said it
  std::array<std::uint32_t, 2> said_by{};  // Source::number of who said it last over each protocol; 0: nobody
  Protocols protocols = kNoProtocol;       // over which it was heard
  Protocols goodbyes = kNoProtocol;        // over which it was taken back
  std::uint8_t refreshes = 0;              // questions for it since it was heard last
  bool is_unique = false;                  // the cache-flush bit was set
  Limit limit = Limit::none;
};

// Questions of others that nobody answered, after which a record is given up (RFC 6762 section 10.5 asks for two or more; a
// link that loses packets loses several in a row).
inline constexpr std::size_t kVainQuestions = 4;

// An RRset's entries that are not said again are to go. Lives while a cache-flush or questions of others may lead to that.
struct Watch {
  RRset* rrset = nullptr;
  Time flush_ends = kNever;         // when the second of a cache-flush is over; kNever: none is running
  Time last_flush_ends = kLongAgo;  // when that of the latest one is
  Time give_up_at = kNever;         // when what was heard before all of `others_asked` goes
  std::array<Time, kVainQuestions> others_asked = {
      kLongAgo, kLongAgo, kLongAgo, kLongAgo};  // when others asked for it last, without known answers; the oldest first
  Deadline due;
};

struct Cache {
  std::unordered_set<std::list<CacheEntry>::iterator, RecordHash, RecordEqual> entries;
  Heap<CacheEntry, &CacheEntry::due> asked;  // those that somebody asks for,
  Heap<CacheEntry, &CacheEntry::due> other;  // and all others
  Heap<Watch, &Watch::due> watches;
};

inline RecordKey key_of(const CacheEntry& entry) { return {entry.rrset->name, entry.rrset->type, entry.rdata}; }

// The entry of that record; null when there is none, or nothing is known of its name.
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

}  // namespace mdns
