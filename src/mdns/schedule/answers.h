// SPDX-License-Identifier: MIT
// The times of answers: when a record that answers by multicast is due (RFC 6762 sections 6, 6.6 and 10.1).
#pragma once

#include "mdns/state/link.h"

namespace mdns {

inline constexpr Time kMulticastApart = kSecond;            // RFC 6762 section 6
inline constexpr Time kDefencesApart = 250 * kMillisecond;  // the same, to defend a name

// The earliest time at which the record may be multicast over the protocol, by what it is due for there.
Time may_be_sent_at(const Link& link, const OwnedRecord& record, Protocols protocol);

// The earliest time at which the record may be multicast over one of these protocols.
Time next_answer_at(const Link& link, const OwnedRecord& record, Protocols protocols);

// Plans to multicast the record at `at`, or sooner if it is due sooner already, but not before it may be.
void answer_at(Link& link, OwnedRecord& record, Protocols protocols, Time at);

// Cancels the answers with the record that are due over these protocols.
void answer_cancel(Link& link, OwnedRecord& record, Protocols protocols);

// To be called when the record has been multicast over these protocols, or is queued and will have been at that time:
// it is no longer due there as an answer.
void record_was_multicast(Link& link, OwnedRecord& record, Protocols protocols, Time at);

}  // namespace mdns
