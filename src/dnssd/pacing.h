// How fast publications are committed and withdrawn. Avahi compares each record that it is about to send with all those it
// has sent within the last half second, so the work grows with the square of what is announced at about the same time:
// most of it went there when 2000 services were committed at once. Held to a steady rate, it grows with their number.
// The first ones, more than an ordinary link ever holds, go out at once, so that nobody waits who need not.
#pragma once

#include <cstdint>
#include <deque>

struct AvahiTimeout;

namespace dnssd {

struct Server;
struct Publication;

// An allowance of records: spent as they are sent, growing back at a steady rate up to its size.
struct Allowance {
  double records = 0;
  std::int64_t counted_at = 0;  // monotonic, microseconds
};

// A server's publications that wait for their turn, oldest first, by serial (0 or unknown: gone meanwhile).
struct Pacing {
  Allowance commits;
  Allowance withdrawals;
  std::deque<std::uintptr_t> waiting;
  std::deque<std::uintptr_t> leaving;
  AvahiTimeout* timer = nullptr;  // runs while any of them has to wait
};

void pacing_open(Server& server);
void pacing_close(Server& server);

// Puts a publication in the queue and does at once what the allowance permits. Not to be called from Avahi's code.
void pacing_commit(Publication& publication);
void pacing_withdraw(Publication& publication);

}  // namespace dnssd
