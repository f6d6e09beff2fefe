// SPDX-License-Identifier: MIT
// Datagrams on their way out, and those that have been sent.
#pragma once

#include <array>
#include <deque>
#include <vector>

#include "mdns/mdns.h"
#include "mdns/state/token_bucket.h"

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
  TokenBucket tokens;                            // of the rate limit
  std::array<std::deque<SentDatagram>, 2> sent;  // by protocol
};

}  // namespace mdns
