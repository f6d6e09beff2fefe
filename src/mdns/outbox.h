// SPDX-License-Identifier: MIT
// What goes out: its order and its pace, and how it is recognised when the system loops it back.
//
// Packets that answer or ask go first, then goodbyes, probes and announcements, which are written only when their turn comes.
// At most about 950 datagrams go out in a second, and no more than 27 in any 20 ms: a receiver's default buffer holds about
// 90.
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

// How many sent datagrams are remembered for each protocol, and for how long. The system loops a datagram back at once; the
// rest is for a busy machine.
inline constexpr std::size_t kSentRemembered = 256;
inline constexpr Time kSentFor = 3 * kSecond;

struct Outbox {
  std::deque<Datagram> urgent;                   // written already
  std::vector<Datagram> ready;                   // to be taken by the caller
  Time paid_until = kLongAgo;                    // the token bucket: when all that was sent so far is paid for
  std::array<std::deque<SentDatagram>, 2> sent;  // by protocol
};

// By when a packet that is queued now will have been sent.
Time outbox_send_time(const Link& link);

// Queues what has been written, if anything, for the group, over these protocols; or with kNoProtocol as a reply to one host. The
// writer begins its next packet.
void outbox_add(Link& link, Writer& writer, Protocols protocols, const Endpoint& to = {});

// Moves to `ready` what the pace allows.
void outbox_advance(Link& link);

// When outbox_advance can do something; kNever when nothing waits.
Time outbox_deadline(const Link& link);

// Whether the datagram is one of ours that comes back. Each is recognised once: another program of this machine may say the same.
bool outbox_recognises(Link& link, Bytes bytes, Protocols protocol);

}  // namespace mdns
