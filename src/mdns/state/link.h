// SPDX-License-Identifier: MIT
// One link: all that is known, asked and published there. What acts upon it stands in the folders above this one.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "mdns/state/cache_entry.h"
#include "mdns/state/outgoing.h"
#include "mdns/state/pending_query.h"
#include "mdns/state/question.h"
#include "mdns/state/random.h"
#include "mdns/state/source.h"

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
