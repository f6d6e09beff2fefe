// SPDX-License-Identifier: MIT
// What a server takes in, and when. Anybody on a link may send as much as the link carries, and each record costs Avahi a walk
// over all those of the last half second; a flood on one interface would leave no time for the others.
//
//   - Each socket has an allowance of records: beyond it, packets are read and thrown away before Avahi sees them. What is
//     lost so is asked for again, by the rules for packets that the network loses. Repeats count too: they have to be read.
//   - Where nothing is published, nobody waits for an answer, and what is heard need not be taken in at once: after the first
//     hundreds of services the rest waits in the socket and follows at a steady rate, so that those walks are short. What only
//     repeats what was just heard goes no further (repeats.h).
#pragma once

#include <avahi-common/watch.h>

#include "dnssd/pacing.h"
#include "dnssd/repeats.h"

namespace dnssd {

struct Server;

// No datagram waits longer than this; then there are so many that the pace would only make them be late.
inline constexpr std::int64_t kGatePatience = 11'000'000;  // microseconds

// Stands before one of Avahi's sockets.
struct Gate {
  AvahiWatchCallback callback = nullptr;  // Avahi's own
  void* userdata = nullptr;               // Avahi's own
  AvahiWatch* watch = nullptr;            // the socket's, known while it is not listened to
  AvahiTimeout* timer = nullptr;          // runs while it is not
  bool at_leisure = true;                 // nothing is published
  bool has_room = false;                  // much may wait in the socket
  Allowance allowance;                    // records that may be taken in at all
  Allowance pace;                         // records that may be taken in now; used at leisure
  Repeats repeats;                        // at leisure
  Server* server = nullptr;               // whose socket it is
  std::int64_t asked_at = 0;              // monotonic, microseconds; when Avahi last got a question, 0: never
};

// Makes `gate` the gate of the server's socket `fd` (null: of nobody's), which Avahi watches with `callback` and `userdata`, when nothing is published.
void gate_open(Gate& gate, Server* server, int fd, AvahiWatchCallback callback, void* userdata);

// Whether what has arrived may still be waiting: Avahi does not know it yet.
bool gate_is_behind(const Gate& gate);

// Before Avahi frees the socket's watch.
void gate_close(Gate& gate);

// Something is published now, or nothing any more.
void gate_hurry(Gate& gate, bool at_leisure);

// The callback to watch the socket with instead; its userdata is the gate.
void gate_pass(AvahiWatch* watch, int fd, AvahiWatchEvent events, void* userdata);

}  // namespace dnssd
