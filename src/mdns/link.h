// SPDX-License-Identifier: MIT
// One link: the parts of the engine and what they share.
//
// A datagram's way in (link_receive): its source's allowance, the recognition of our own, the reader; then a response's
// records one by one to the prober (conflicts), the responder (duplicates and corrections) and the cache, and a query
// to the querier (duplicate questions), the prober (simultaneous probes) and the responder. A deadline's way
// (link_advance): cache, querier, prober, responder; at last the outbox writes what its pace allows. No part calls back
// into the caller; what it is to be told stands in `events`.
#pragma once

#include "mdns/announcer.h"
#include "mdns/cache.h"
#include "mdns/names.h"
#include "mdns/outbox.h"
#include "mdns/prober.h"
#include "mdns/querier.h"
#include "mdns/random.h"
#include "mdns/responder.h"
#include "mdns/sources.h"
#include "mdns/zone.h"

namespace mdns {

// Another host that says what is published here.
struct Sibling {
  Endpoint host;
  Time received_at = kLongAgo;
};

inline constexpr std::size_t kSiblingsMax = 4;  // that are remembered: those that were heard last

struct Link {
  Time now = 0;  // of the call in hand
  Protocols protocols = kNoProtocol;
  std::uint64_t hash_seed = 0;
  std::uint64_t last_id = 0;  // of queries and publications
  Random random;
  NameTable names;
  Cache cache;
  Querier querier;
  Zone zone;
  Prober prober;
  Announcer announcer;
  Responder responder;
  Outbox outbox;
  Sources sources;
  std::vector<Event> events;
  Time goodbyes_at = kLongAgo;  // goodbyes wait until then
  bool is_closing = false;      // everything has been withdrawn: only goodbyes are still to be sent
  std::uint64_t steps = 0;
  std::uint64_t received = 0;
  std::uint64_t ignored = 0;
  std::uint64_t sent = 0;
  std::uint64_t conflicts = 0;
  std::array<Sibling, kSiblingsMax> siblings;
};

}  // namespace mdns
