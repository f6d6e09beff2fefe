// SPDX-License-Identifier: MIT
// The hosts that datagrams are received from, each with its token buckets.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "mdns/state/heap.h"
#include "mdns/state/token_bucket.h"

namespace mdns {

struct Source {
  Endpoint endpoint;          // its port is 0: all ports of a host share one source
  TokenBucket datagrams;      // received from it
  std::uint32_t number = 0;   // identifies the host in the cache; 0 only for `overflow`
  std::uint32_t entries = 0;  // cache entries that were received from it first
  TokenBucket answers;        // to its queries
  Deadline idle;
};

struct EndpointHash {
  std::uint64_t seed = 0;
  std::size_t operator()(const Endpoint& endpoint) const;
};

struct Sources {
  std::unordered_map<Endpoint, Source, EndpointHash> by_endpoint;
  Heap<Source, &Source::idle> idle;
  Source overflow;  // stands for all hosts beyond the bound
};

}  // namespace mdns
