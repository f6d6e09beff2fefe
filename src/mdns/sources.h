// SPDX-License-Identifier: MIT
// The hosts that are heard, each with an allowance: a token bucket of bytes, so that one that floods the link takes nothing
// from the others.
#pragma once

#include <unordered_map>

#include "mdns/heap.h"

namespace mdns {

struct Link;

struct Source {
  Endpoint endpoint;            // its port plays no part
  Time paid_until = kLongAgo;   // the token bucket: when all that it has sent is paid for
  std::uint32_t number = 0;     // of the host, never 0 once it is known
  std::uint32_t entries = 0;    // cache entries that it was the first to say
  Time asked_until = kLongAgo;  // the token bucket of its questions: when all answers that it wanted are paid for
  Deadline idle;
};

struct EndpointHash {
  std::uint64_t seed = 0;
  std::size_t operator()(const Endpoint& endpoint) const;
};

struct Sources {
  std::unordered_map<Endpoint, Source, EndpointHash> by_endpoint;
  Heap<Source, &Source::idle> idle;
  Source overflow;  // of all that there is no room for
};

// The host that the endpoint is of, whatever its port. Beyond a bound, all further ones are one.
Source& source_get(Link& link, Endpoint host);

// Whether the host may say so many bytes now; if so, they are counted.
bool source_allows(Link& link, Source& source, std::size_t bytes);

// A cache entry of the source is gone.
void source_drop_entry(Link& link, Source& source);

void sources_advance(Link& link);

}  // namespace mdns
