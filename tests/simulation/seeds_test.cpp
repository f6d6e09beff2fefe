// SPDX-License-Identifier: MIT
// Lives from seeds. MDNSPROXY_TEST_SEED chooses the first, MDNSPROXY_TEST_LIVES their number; without them they are
// always the same. `tests/simulate FIRST COUNT` runs more.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "simulation/life.h"

namespace simulation {
namespace {

constexpr std::uint64_t kFirst = 1, kCount = 1000;

// Seeds whose lives have broken an invariant once, and how.
constexpr std::array<std::uint64_t, 21> kKeptSeeds = {
    1046,    // a second answer to probes less than 250 ms after the first, which had waited for its turn
    1161,    // many forged addresses of one host, each compared with all of them that a gateway publishes
    1337,    // an update right after the first announcement: caches kept the old data
    1351,    // a name that a gateway had borrowed and not given back, since it knew one of its owner's addresses
    1381,    // an answer less than a second after the last one, which had waited behind many replies
    1715,    // a question less than a second after the last time, which had waited for its turn
    1804,    // a second announcement without the record of its RRset that had changed in the meantime
    2028,    // a goodbye for what had been published again in the same instant
    2350,    // a question that began anew less than a second after it had been asked
    2913,    // an NSEC record of a name that was being probed for
    2944,    // a reply to one host over a protocol that the link had lost
    4698,    // withdrawn and published again right after an update: the second announcement was forgotten
    3323,    // very many addresses of one host, each looked up for what goes along with all of them
    6288,    // a record withdrawn without a goodbye, and published again within a second, was announced too soon
    52107,   // replies of a name that was no longer its host's still waited for their turn
    54648,   // the same, of a host that had slept meanwhile
    55683,   // a rescued record took along the rest of its RRset, which had been sent half a second before
    82921,   // a rule was wrong: a silent host's address stays in caches when who has borrowed it has not said it yet
    87811,   // a rule was wrong: an address may be known elsewhere as soon as it is published, and not 8 s later
    106531,  // a rule was wrong: a query that begins with a cache-flush bit knows what goes because of it
    124068,  // a rule was wrong: who probes anew for a name after a conflict rescues none of its records
};

// The records that are not known after two minutes of loss, among all that should be.
constexpr double kMissingMost = 0.01;

std::uint64_t number_of(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::uint64_t first_seed() { return number_of("MDNSPROXY_TEST_SEED", kFirst); }

TEST(Seeds, EveryInvariantHoldsInEachLife) {
  std::uint64_t expected = 0, missing = 0;
  const std::uint64_t end = first_seed() + number_of("MDNSPROXY_TEST_LIVES", kCount);
  for (std::uint64_t seed = first_seed(); seed < end; ++seed) {
    const Outcome outcome = run_life(seed);
    ASSERT_EQ(outcome.story, "") << "seed " << seed;
    expected += outcome.sums.expected;
    missing += outcome.sums.missing;
  }
  EXPECT_GT(expected, 0U);
  EXPECT_LE(static_cast<double>(missing), kMissingMost * static_cast<double>(expected));
}

TEST(Seeds, EveryInvariantHoldsWhereOneWasBrokenOnce) {
  for (const std::uint64_t seed : kKeptSeeds) {
    EXPECT_EQ(run_life(seed).story, "") << "seed " << seed;
  }
}

TEST(Seeds, TheSameSeedGivesTheSameLifeByteForByte) {
  for (std::uint64_t seed = first_seed(); seed < first_seed() + 20; ++seed) {
    EXPECT_EQ(run_life(seed).digest, run_life(seed).digest) << "seed " << seed;
  }
}

}  // namespace
}  // namespace simulation
