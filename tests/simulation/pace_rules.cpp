// SPDX-License-Identifier: MIT
// What a host may cost others, and others it.
#include <algorithm>

#include "simulation/wire_rules.h"

namespace simulation {
namespace {

constexpr std::size_t kPerSecond = 1000, kPer20Ms = 32;

}  // namespace

void check_pace(Port& port, std::size_t datagrams) {
  std::deque<Time>& times = port.ledger.sent;
  const Time now = port.world->now;
  while (!times.empty() && times.front() <= now - kSecond) {
    times.pop_front();
  }
  times.insert(times.end(), datagrams, now);
  if (times.size() > kPerSecond) {
    fail(*port.world, &port, "too many datagrams in a second", std::to_string(times.size()));
  }
  if (times.size() > kPer20Ms && times[times.size() - 1 - kPer20Ms] > now - 20 * kMillisecond) {
    fail(*port.world, &port, "too many datagrams in 20 ms", "more than 32");
  }
}

void check_cost(Port& port, std::uint64_t steps, std::size_t bytes) {
  // A record takes 11 bytes at least. Each may be compared with the few others of its name and type; and a question may be for
  // everything that is published.
  constexpr std::uint64_t kPerRecord = 8, kPerDatagram = 64, kPerPublished = 2;
  const std::uint64_t allowed =
      kPerDatagram + kPerRecord * (bytes / 11) + kPerPublished * mdns::link_counts(*port.link).published;
  port.world->sums.worst_steps = std::max(port.world->sums.worst_steps, steps * 1000 / allowed);
  if (steps > allowed) {
    fail(*port.world, &port, "a datagram costs more than its length",
         std::to_string(steps) + " steps for " + std::to_string(bytes) + " bytes");
  }
}

}  // namespace simulation
