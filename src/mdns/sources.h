// SPDX-License-Identifier: MIT
// The hosts that datagrams are received from, each with a token bucket of bytes: datagrams of a host that floods the
// link are dropped, those of the other hosts are not.
#pragma once

#include <unordered_map>

#include "mdns/heap.h"

namespace mdns {

struct Link;

struct Source {
  Endpoint endpoint;                // its port is 0: all ports of a host share one source
  Time tokens_since = kLongAgo;     // the token bucket: its tokens are the time since then, up to the burst
  std::uint32_t number = 0;         // identifies the host in the cache; 0 only for `overflow`
  std::uint32_t entries = 0;        // cache entries that were received from it first
  Time answers_full_at = kLongAgo;  // the token bucket of the answers to its queries: when it is full again
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

// The source for the endpoint's address, made if need be; `overflow` when there are too many of them.
Source& source_get(Link& link, Endpoint host);

// Whether the source's token bucket allows a datagram of that many bytes now; if so, its tokens are taken. If not,
// nothing has changed and the caller drops the datagram.
bool source_allows(Link& link, Source& source, std::size_t bytes);

// To be called when a cache entry of the source has been removed.
void source_drop_entry(Link& link, Source& source);

void sources_advance(Link& link);

}  // namespace mdns
