// SPDX-License-Identifier: MIT
// The queue of outgoing datagrams: their order, their rate limit, and the recognition of own datagrams that the system
// loops back.
//
// Responses and queries are sent first, then goodbyes, probes and announcements. The latter are written only when they
// can be sent. The rate limit is about 950 datagrams a second and 27 in any 20 ms: the default buffer of a receiver
// holds about 90.
#pragma once

#include <array>
#include <deque>
#include <vector>

#include "mdns/mdns.h"
#include "mdns/writer.h"

namespace mdns {

struct SentDatagram {
  std::uint64_t hash = 0;
  Time at = kLongAgo;
};

// How many sent datagrams are remembered for each protocol, and for how long. The system loops a datagram back at once;
// on a busy machine it is read some time later.
inline constexpr std::size_t kSentRemembered = 256;
inline constexpr Time kSentFor = 3 * kSecond;

struct Outbox {
  std::deque<Datagram> urgent;                   // complete responses and queries, the oldest first
  std::vector<Datagram> ready;                   // to be taken by the caller
  Time tokens_since = kLongAgo;                  // the token bucket: its tokens are the time since then
  std::array<std::deque<SentDatagram>, 2> sent;  // by protocol
};

// An upper bound of the time at which a packet that is queued now will be sent.
Time outbox_send_time(const Link& link);

// Queues the writer's message, unless it is empty: for the multicast group over these protocols, or with kNoProtocol as
// a unicast reply to `to`. The writer begins its next message.
void outbox_add(Link& link, Writer& writer, Protocols protocols, const Endpoint& to = {});

// Moves datagrams to `ready` as far as the rate limit allows.
void outbox_advance(Link& link);

// When outbox_advance can do something; kNever when nothing waits.
Time outbox_deadline(const Link& link);

// Whether the datagram is one of ours that the system loops back. Each is recognised once only, since another program
// of this machine may send the same bytes, and that datagram must be received.
bool outbox_recognises(Link& link, Bytes bytes, Protocols protocol);

}  // namespace mdns
