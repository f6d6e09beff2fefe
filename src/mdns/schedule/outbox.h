// SPDX-License-Identifier: MIT
// The queue of outgoing datagrams, their rate limit, and the recognition of own datagrams that the system loops back.
//
// The rate limit is about 950 datagrams a second and 27 in any 20 ms: the default buffer of a receiver holds about 90.
#pragma once

#include "mdns/state/link.h"
#include "mdns/wire/writer.h"

namespace mdns {

// An upper bound of the time at which a packet that is queued now will be sent.
Time outbox_send_time(const Link& link);

// Queues the writer's message, unless it is empty: for the multicast group over these protocols, or with kNoProtocol as
// a unicast reply to `to`. The writer begins its next message.
void outbox_add(Link& link, Writer& writer, Protocols protocols, const Endpoint& to = {});

// When the rate limit allows the next datagram over both protocols; a time that is past: now.
Time outbox_allowed_at(const Link& link);

// Hands the datagram to the caller (Outbox::ready), for those of its protocols that the link still has, and counts it.
void outbox_release(Link& link, Datagram&& datagram);

// Whether the datagram is one of ours that the system loops back. Each is recognised once only, since another program
// of this machine may send the same bytes, and that datagram must be received.
bool outbox_recognises(Link& link, Bytes bytes, Protocols protocol);

}  // namespace mdns
