// SPDX-License-Identifier: MIT
// Queries of other hosts that wait for their answers, and the records that are due as answers.
#pragma once

#include <map>

#include "mdns/mdns.h"
#include "mdns/state/owned_record.h"
#include "mdns/wire/reader.h"

namespace mdns {

struct PendingQuery {
  Message message;  // further known answers join it (section 7.2)
  Received from;    // its `bytes` are empty
  Time received = 0;
};

// Whether the query is that of a legacy querier, an ordinary resolver (RFC 6762 section 6.7).
inline bool is_legacy(const PendingQuery& query) { return query.from.source.port != kPort; }

struct Responder {
  std::multimap<Time, PendingQuery> pending;  // by the time at which they are answered; bounded
  std::size_t pending_records = 0;            // known answers and proposed records in all of them
  Heap<OwnedRecord, &OwnedRecord::answer> due;
  Time together_at = kLongAgo;  // when the delayed answers are due that a further query may join
  Time rescue_at = kLongAgo;    // when the records are sent that other hosts have sent goodbyes or low TTLs for
  TokenBucket limited;          // of the answers to all queriers beyond their limit
  std::uint32_t queries = 0;    // answered so far; the number of the present one
  std::uint32_t batches = 0;    // of answers so far; the number of the present one
};

}  // namespace mdns
