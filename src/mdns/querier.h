// SPDX-License-Identifier: MIT
// The querier: which questions are sent, and when (RFC 6762 sections 5.2, 5.4, 7.1 to 7.3).
//
// Lifecycle of a question: the first query of a name and type makes it. It is sent after 20 to 120 ms, after a second
// more, and then at intervals that double up to an hour. It pauses while the answer is a unique record, which is asked
// for only to refresh it. The same question of another host counts as sent (duplicate question suppression). The
// question ends when its last query has stopped and it was last sent more than a second ago: kept until then, it is not
// sent again too soon if another query for it starts.
#pragma once

#include <unordered_map>
#include <vector>

#include "mdns/cache.h"
#include "mdns/mdns.h"
#include "mdns/reader.h"

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

// If a query asks for the RRset, has its question sent soon over these protocols, besides the regular times.
void rrset_ask_soon(Link& link, RRset& rrset, Protocols protocols);

// To be called when the known answers have changed: the question pauses when there is a unique answer, and restarts
// when there is none any more.
void question_review(Link& link, OpenQuestion& question);

// If a query asks, the question is sent again after 20 to 120 ms and its intervals begin anew.
void question_restart(Link& link, OpenQuestion& question);

// Restarts all questions, since other hosts may be on the link now.
void querier_restart(Link& link);

// Handles a query of another host that was received over `protocol`: duplicate question suppression (RFC 6762 section
// 7.3) and the passive observation of failures (section 10.5).
void querier_receive(Link& link, const Message& message, Protocols protocol);

// Handles an NSEC record of another host: the types that it denies are not asked for until its TTL is over (RFC 6762
// section 6.1).
void querier_receive_denial(Link& link, const Record& record);

// Appends a copy of the event to the link's events for each query of the RRset, with that query's id and tag.
void querier_report(Link& link, const RRset& rrset, const Event& event);

void querier_advance(Link& link);

}  // namespace mdns
