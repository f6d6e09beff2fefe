// SPDX-License-Identifier: MIT
// The seed of a random test.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

namespace support {

// MDNSPROXY_TEST_SEED, which repeats a run, or one of its own; printed either way.
inline std::uint64_t chosen_seed() {
  const char* given = std::getenv("MDNSPROXY_TEST_SEED");
  const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
  std::cout << "seed: MDNSPROXY_TEST_SEED=" << seed << "\n";
  return seed;
}

}  // namespace support
