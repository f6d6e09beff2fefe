// SPDX-License-Identifier: MIT
// How fast things go out when there are many of them. What Avahi does for a record that it probes for grows with the number
// that are probed for at about the same time, so that their whole cost grows with its square; held to a steady rate, it
// grows with their number. The first ones, more than an ordinary link ever holds, go at once: nobody waits who need not.
#pragma once

#include <cstdint>
#include <deque>

struct AvahiTimeout;

namespace dnssd {

struct Server;
struct Publication;

struct Rate {
  double burst;       // that many go at once
  double per_second;  // that many follow
};

// What may go out now: spent as it does, growing back at a steady rate up to the burst.
struct Allowance {
  double left = 0;
  std::int64_t counted_at = 0;  // monotonic, microseconds
};

// What a socket may take in, as records. The burst: two thousand services of five records, announced twice, and once more in answer
// to a question. The rate: many times what such a link says in the long run.
inline constexpr Rate kIntakeRate{40'000, 2'000};

void allowance_grow(Allowance& allowance, const Rate& rate);

// Microseconds until something is left; 0: there is.
std::int64_t allowance_wait(const Allowance& allowance, const Rate& rate);

// A server's publications that wait to be committed, oldest first, by serial (an unknown one is gone meanwhile).
struct Pacing {
  Allowance allowance;
  std::deque<std::uintptr_t> waiting;
  AvahiTimeout* timer = nullptr;  // runs while any of them has to wait
};

void pacing_open(Server& server);
void pacing_close(Server& server);

// Puts a publication in the queue and commits at once what may be. Not to be called from Avahi's code.
void pacing_commit(Publication& publication);

}  // namespace dnssd
