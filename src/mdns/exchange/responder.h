// SPDX-License-Identifier: MIT
// The responder: answers to queries of other hosts (RFC 6762 sections 5.4, 6, 6.1 to 6.7, 7.1, 7.2 and 7.4).
//
// A query whose answers have to wait, for 20 to 120 ms or for further known answers, is kept; its answers are chosen
// when it is due, from the records that are live then. A record that answers by multicast gets a deadline: at once, or
// one second after its last multicast. Records that are due together share packets. Unicast replies are sent to QU
// questions, with records that were multicast recently, and to every query from a port other than 5353.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// Handles a query of another host: the parsed message, and how it was received.
void responder_receive(Link& link, Message&& message, const Received& received);

// A record of another host's response: it saves us the same answer, or calls for a correction (sections 7.4 and 6.6).
void responder_receive_record(Link& link, const Record& record, const Endpoint& from);

// Chooses the answers of the queries that are due, and queues the packets of the records that are due.
void responder_advance(Link& link);
Time responder_deadline(const Link& link);

}  // namespace mdns
