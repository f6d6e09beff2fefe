// SPDX-License-Identifier: MIT
// simulate FIRST COUNT [LINES [OVERLOOKED...]]: lives of so many seeds, one after another. Prints each breach with its
// story of LINES lines (0: only in the sums), and sums at the end. Invariants that begin with one of OVERLOOKED are not
// looked at. 1: one was broken.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "simulation/life.h"

namespace {

using simulation::Outcome;

struct Totals {
  std::uint64_t lives = 0, datagrams = 0, deliveries = 0, expected = 0, missing = 0, worst_steps = 0;
  double hours = 0, slowest = 0;
  std::uint64_t slowest_seed = 0;
  std::map<std::string, std::vector<std::uint64_t>> failed;  // by invariant
};

void add(Totals& totals, std::uint64_t seed, const Outcome& outcome, double seconds) {
  ++totals.lives;
  totals.datagrams += outcome.sums.datagrams;
  totals.deliveries += outcome.sums.deliveries;
  totals.expected += outcome.sums.expected;
  totals.missing += outcome.sums.missing;
  totals.worst_steps = std::max(totals.worst_steps, outcome.sums.worst_steps);
  totals.hours += static_cast<double>(outcome.duration) / 3.6e9;
  if (seconds > totals.slowest) {
    totals.slowest = seconds;
    totals.slowest_seed = seed;
  }
  if (!outcome.story.empty()) {
    totals.failed[outcome.story.substr(0, outcome.story.find(':'))].push_back(seed);
  }
}

void print(const Totals& totals, double seconds) {
  std::printf("%llu lives, %.1f virtual hours, %.1f s (slowest %.0f ms: seed %llu)\n",
              static_cast<unsigned long long>(totals.lives), totals.hours, seconds, totals.slowest * 1e3,
              static_cast<unsigned long long>(totals.slowest_seed));
  std::printf("%llu datagrams, %llu deliveries, dearest datagram %.1f %% of what is allowed\n",
              static_cast<unsigned long long>(totals.datagrams), static_cast<unsigned long long>(totals.deliveries),
              static_cast<double>(totals.worst_steps) / 10);
  std::printf("after two minutes of loss %llu of %llu records not known\n",
              static_cast<unsigned long long>(totals.missing), static_cast<unsigned long long>(totals.expected));
  for (const auto& [invariant, seeds] : totals.failed) {
    std::printf("%6zu  %s:", seeds.size(), invariant.c_str());
    for (std::size_t each = 0; each < seeds.size() && each < 8; ++each) {
      std::printf(" %llu", static_cast<unsigned long long>(seeds[each]));
    }
    std::printf("\n");
  }
}

double seconds_since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "simulate FIRST COUNT [LINES [OVERLOOKED...]]\n");
    return 2;
  }
  const std::uint64_t first = std::strtoull(argv[1], nullptr, 10), count = std::strtoull(argv[2], nullptr, 10);
  const std::size_t lines = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 60;
  const std::vector<std::string> overlooked(argv + std::min(argc, 4), argv + argc);
  const auto begin = std::chrono::steady_clock::now();
  Totals totals;
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    const auto life_begin = std::chrono::steady_clock::now();
    const Outcome outcome = simulation::run_life(seed, lines, overlooked);
    add(totals, seed, outcome, seconds_since(life_begin));
    if (!outcome.story.empty() && lines > 0) {
      std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed), outcome.story.c_str());
      std::fflush(stdout);
    }
  }
  print(totals, seconds_since(begin));
  return totals.failed.empty() ? 0 : 1;
}
