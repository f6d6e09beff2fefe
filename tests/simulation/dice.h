// SPDX-License-Identifier: MIT
// The random numbers of a simulated world: everything that happens in it follows from one seed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace simulation {

struct Dice {
  std::uint64_t state = 0;

  // splitmix64: any seed gives a good sequence.
  std::uint64_t next() {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15U);
    z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31U);
  }

  // From 0 to `count` - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }

  // From `least` to `most`, both included.
  std::int64_t between(std::int64_t least, std::int64_t most) {
    return least + static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(most - least + 1));
  }

  bool chance(std::size_t percent) { return below(100) < percent; }
};

}  // namespace simulation
