// SPDX-License-Identifier: MIT
// The engine's random numbers: a sequence that its caller's seed decides, so that a run can be repeated.
#pragma once

#include <cstdint>

#include "mdns/types.h"

namespace mdns {

// xorshift64* (Vigna, "An experimental exploration of Marsaglia's xorshift generators, scrambled", 2014): for delays, not for
// secrets.
struct Random {
  std::uint64_t state = 1;
};

// Any seed will do.
void random_seed(Random& random, std::uint64_t seed);

std::uint64_t random_next(Random& random);

// A time from `least` to `most`, both included.
Time random_between(Random& random, Time least, Time most);

}  // namespace mdns
