// SPDX-License-Identifier: MIT
// The times of questions: when each is sent next, when it pauses, restarts and ends (RFC 6762 section 5.2).
//
// Lifecycle of a question: the first query of a name and type makes it. It is sent after 20 to 120 ms, after a second
// more, and then at intervals that double up to an hour. It pauses while the answer is a unique record, which is asked
// for only to refresh it. The same question of another host counts as sent (duplicate question suppression). The
// question ends when its last query has stopped and it was last sent more than a second ago: kept until then, it is not
// sent again too soon if another query for it starts.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// RFC 6762 section 5.2: the first question is sent after a random delay, and no question twice within a second.
inline constexpr Time kFirstAskedAfterLeast = 20 * kMillisecond;
inline constexpr Time kFirstAskedAfterMost = 120 * kMillisecond;
inline constexpr Time kAskedApart = kSecond;

// The time from which on the question may be sent again over all protocols.
Time may_be_asked_at(const OpenQuestion& question);

// Sets the question's deadline from its other times.
void question_plan(Link& link, OpenQuestion& question);

// If a query asks for the RRset, has its question sent soon over these protocols, besides the regular times.
void rrset_ask_soon(Link& link, RRset& rrset, Protocols protocols);

// If a query asks, the question is sent again after 20 to 120 ms and its intervals begin anew.
void question_restart(Link& link, OpenQuestion& question);

// To be called when no query asks any more: without any query, listening ones included, the question ends as soon as it
// may be sent again.
void question_stop(Link& link, OpenQuestion& question);

// To be called when the records of the RRset or their question have changed: the question pauses when there is a unique
// answer, and restarts when there is none any more. Frees the RRset when it has neither entries nor a question, and
// then its name if that is unused.
void rrset_review(Link& link, RRset& rrset);

// Appends a copy of the event to the link's events for each query of the RRset, with that query's id and tag.
void question_report(Link& link, const RRset& rrset, const Event& event);

}  // namespace mdns
