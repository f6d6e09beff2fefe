// SPDX-License-Identifier: MIT
// What the cache holds: records received from other hosts of the link, by name and type.
#pragma once

#include <array>
#include <unordered_set>

#include "mdns/state/heap.h"
#include "mdns/state/names.h"

namespace mdns {

struct Source;

// Why an entry expires before its TTL is over. The same record received again sets it back to `none`.
enum class Limit : std::uint8_t {
  none,
  reconfirm,  // link_reconfirm: it expires unless a host sends it again
  goodbye,    // a goodbye was received over one protocol at least
};

struct CacheEntry {
  RRset* rrset = nullptr;
  Source* source = nullptr;  // the host that sent it first
  std::string rdata;
  Time received = 0;  // when it was received last
  Time expires = 0;
  Deadline due;                            // next refresh, or question over the protocol without a goodbye; or
                                           // `expires`
  std::uint32_t ttl = 0;                   // seconds, as received
  std::array<std::uint32_t, 2> sent_by{};  // Source::number of the host that sent it last over each protocol; 0: none
  Protocols protocols = kNoProtocol;       // over which it was received
  Protocols goodbyes = kNoProtocol;        // over which a goodbye was received
  std::uint8_t refreshes = 0;              // questions for it since it was received last
  bool is_unique = false;                  // the cache-flush bit was set
  Limit limit = Limit::none;
};

// Number of queries of other hosts without an answer after which a record is removed (passive observation of failures,
// RFC 6762 section 10.5). The RFC asks for two or more; it is four here because links that lose packets lose several in
// a row.
inline constexpr std::size_t kUnansweredQueries = 4;

// Pending removal of the entries of an RRset that are not received again: because of a cache-flush bit, or because
// queries of other hosts stay without an answer. Lives while one of both may still remove entries.
struct Watch {
  RRset* rrset = nullptr;
  Time flush_ends = kNever;         // when the second after a cache-flush bit is over; kNever: none is running
  Time last_flush_ends = kLongAgo;  // the same for the latest cache-flush bit
  Time give_up_at = kNever;         // when entries received before all of `others_asked` are removed
  std::array<Time, kUnansweredQueries> others_asked = {kLongAgo, kLongAgo, kLongAgo,
                                                       kLongAgo};  // the last queries without known answers, oldest
                                                                   // first
  Deadline due;
};

struct Cache {
  std::unordered_set<std::list<CacheEntry>::iterator, RecordHash, RecordEqual> entries;
  Heap<CacheEntry, &CacheEntry::due> asked;  // entries of RRsets that a query asks for
  Heap<CacheEntry, &CacheEntry::due> other;  // all other entries
  Heap<Watch, &Watch::due> watches;
};

inline RecordKey key_of(const CacheEntry& entry) { return {entry.rrset->name, entry.rrset->type, entry.rdata}; }

// Whether the RRset has a record with the cache-flush bit for which no goodbye was received: then no question is
// needed.
bool cache_has_unique_answer(const RRset& rrset);

}  // namespace mdns
