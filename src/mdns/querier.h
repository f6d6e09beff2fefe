// SPDX-License-Identifier: MIT
// What is asked for, and when (RFC 6762 sections 5.2, 5.4, 7.1 to 7.3).
//
// Lifecycle of a question: the first query of a name and type makes it. It is asked after 20 to 120 ms, after a second more,
// and then at intervals that double up to an hour. It rests while the answer is a unique record, which is asked for only when
// it grows old. What another host asks in the same words counts as asked. With its last query it ends, but for
// the second in which it may not be asked again.
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
  bool asks = true;  // or it listens only
};

// One name and type that is asked for.
struct OpenQuestion {
  RRset* rrset = nullptr;
  unsigned asking = 0;                                  // queries that ask; 0: nothing is asked
  std::vector<Query> queries;                           // when the last one has gone, the question ends within a second
  std::array<Time, 2> asked_at = {kLongAgo, kLongAgo};  // when it was last asked over each protocol, by whomever
  Time regular_at = kNever;                             // when its interval is over; kNever: it rests
  Time interval_since = kLongAgo;                       // its last regular time
  Protocols heard = kNoProtocol;                        // over which another host has asked in place of the next regular one
  Protocols urgent = kNoProtocol;                       // over which it is to be asked besides
  std::uint64_t unknown_in = 0;                         // the query of another host that knows an answer which we do not
  Deadline due;
};

struct Querier {
  std::unordered_map<QueryId, OpenQuestion*> by_id;
  Heap<OpenQuestion, &OpenQuestion::due> due;
  std::size_t questions = 0;   // open ones
  std::uint64_t received = 0;  // queries of other hosts so far; the number of the one in hand
};

// Whether the RRset is asked for, and not only listened to.
inline bool is_asked(const RRset& rrset) { return rrset.question != nullptr && rrset.question->asking > 0; }

// If the RRset is asked for, asks soon over these protocols, besides the regular times.
void rrset_ask_soon(Link& link, RRset& rrset, Protocols protocols);

// Something has changed in what is known: the question rests, or begins to be asked again.
void question_review(Link& link, OpenQuestion& question);

// If it is asked, it is asked as at first.
void question_restart(Link& link, OpenQuestion& question);

// All begin anew: what is on the link may have changed.
void querier_restart(Link& link);

// A query of another host, over `protocol`: what it asks as well need not be asked by us.
void querier_receive(Link& link, const Message& message, Protocols protocol);

// An NSEC record of another host: what it denies is not asked for while it holds (RFC 6762 section 6.1).
void querier_receive_denial(Link& link, const Record& record);

// Tells each query of the RRset that a record has come or gone. The event is of none of them as yet.
void querier_report(Link& link, const RRset& rrset, const Event& event);

void querier_advance(Link& link);

}  // namespace mdns
