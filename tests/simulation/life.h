// SPDX-License-Identifier: MIT
// A whole life from one seed: its hosts, their acts, faults of hosts and media; then a quiet time, and the checks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulation/world.h"

namespace simulation {

struct Outcome {
  std::string story;  // the breach and what led to it; empty: every invariant held
  Hash digest = 0;    // of all that was sent and reported
  Time duration = 0;
  Sums sums;
};

// The same seed gives the same outcome. `lines`: how many lines of story are kept. `overlooked`: how the invariants
// begin that are not to be looked at, so that others are seen behind them.
Outcome run_life(std::uint64_t seed, std::size_t lines = 60, const std::vector<std::string>& overlooked = {});

}  // namespace simulation
