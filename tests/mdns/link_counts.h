// SPDX-License-Identifier: MIT
// What a link holds, and what it has done so far.
#pragma once

#include "mdns/link.h"

namespace mdns {

struct LinkCounts {
  std::size_t cached = 0;                             // records that others have said
  std::size_t questions = 0;                          // names and types that are asked for
  std::size_t published = 0;                          // records
  std::size_t names = 0;                              // known for any of these reasons
  std::size_t sources = 0;                            // hosts that have an allowance
  std::size_t waiting = 0;                            // datagrams that wait for their turn
  std::uint64_t steps = 0;                            // records looked at so far: what the work has cost, without a clock
  std::uint64_t received = 0, ignored = 0, sent = 0;  // datagrams so far; ignored: beyond a source's allowance
};

inline LinkCounts link_counts(const Link& link) {
  return {.cached = link.cache.entries.size(),
          .questions = link.querier.questions,
          .published = link.zone.records.size(),
          .names = link.names.size(),
          .sources = link.sources.by_endpoint.size(),
          .waiting = link.outbox.urgent.size(),
          .steps = link.steps,
          .received = link.received,
          .ignored = link.ignored,
          .sent = link.sent};
}

}  // namespace mdns
