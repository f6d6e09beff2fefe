// SPDX-License-Identifier: MIT
// The engine's random numbers: a sequence that its caller's seed decides, so that a run can be repeated.
#pragma once

#include <cstdint>

#include "mdns/wire/types.h"

namespace mdns {

// xorshift64* (Vigna, "An experimental exploration of Marsaglia's xorshift generators, scrambled", 2014): for delays,
// not for secrets.
struct Random {
  std::uint64_t state = 1;
};

// Any seed will do. One step of SplitMix64, which makes distant states of seeds that are close. The state must not be
// 0: zero stays zero.
inline void random_seed(Random& random, std::uint64_t seed) {
  std::uint64_t mixed = seed + 0x9E37'79B9'7F4A'7C15;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58'476D'1CE4'E5B9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D0'49BB'1331'11EB;
  mixed ^= mixed >> 31;
  random.state = mixed != 0 ? mixed : 1;
}

inline std::uint64_t random_next(Random& random) {
  random.state ^= random.state >> 12;
  random.state ^= random.state << 25;
  random.state ^= random.state >> 27;
  return random.state * 0x2545'F491'4F6C'DD1D;
}

// A time from `least` to `most`, both included.
inline Time random_between(Random& random, Time least, Time most) {
  const std::uint64_t count = static_cast<std::uint64_t>(most) - static_cast<std::uint64_t>(least) + 1;
  return most <= least ? least : least + static_cast<Time>(random_next(random) % count);
}

}  // namespace mdns
