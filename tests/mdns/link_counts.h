// SPDX-License-Identifier: MIT
// The sizes of a link's tables, and counts of what it has done so far.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

struct LinkCounts {
  std::size_t cached = 0;                             // cache entries
  std::size_t questions = 0;                          // names and types that are asked for
  std::size_t published = 0;                          // records
  std::size_t names = 0;                              // names of any of these
  std::size_t sources = 0;                            // hosts that have an allowance
  std::size_t waiting = 0;                            // datagrams in the queue
  std::uint64_t steps = 0;                            // records looked at so far: the work done
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
