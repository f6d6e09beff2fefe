// SPDX-License-Identifier: MIT
// What is asked for on the link: one question for all queries of one name and type.
#pragma once

#include <array>
#include <unordered_map>
#include <vector>

#include "mdns/mdns.h"
#include "mdns/state/heap.h"
#include "mdns/state/names.h"

namespace mdns {

struct Query {
  QueryId id = 0;
  std::uint64_t tag = 0;
  bool asks = true;  // false: it only listens (Interest::listening)
};

// One name and type that is asked for.
struct OpenQuestion {
  RRset* rrset = nullptr;
  unsigned asking = 0;                                  // queries that ask; 0: the question is not sent
  std::vector<Query> queries;                           // empty: the question ends within a second
  std::array<Time, 2> asked_at = {kLongAgo, kLongAgo};  // last time over each protocol, by anybody
  Time regular_at = kNever;                             // when its interval is over; kNever: it pauses
  Time interval_since = kLongAgo;                       // when its interval began: the former regular_at
  Protocols asked_by_others = kNoProtocol;              // over which another host has sent a duplicate
  Protocols urgent = kNoProtocol;                       // over which it is also to be sent as soon as possible
  std::uint64_t unknown_in = 0;                         // the last query that lists an unknown answer
  Deadline due;
};

struct Querier {
  std::unordered_map<QueryId, OpenQuestion*> by_id;
  Heap<OpenQuestion, &OpenQuestion::due> due;
  std::size_t questions = 0;   // that have a query
  std::uint64_t received = 0;  // queries of other hosts so far; the number of the present one
};

// Whether a query asks for the RRset, and not only listens to it.
inline bool is_asked(const RRset& rrset) { return rrset.question != nullptr && rrset.question->asking > 0; }

}  // namespace mdns
