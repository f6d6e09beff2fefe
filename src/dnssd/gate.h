// SPDX-License-Identifier: MIT
// What a server takes in. Anybody on a link may send as much as the link carries: a flood on one interface would leave no time for
// the others.
//
//   - Each socket has an allowance of records: beyond it, packets are read and thrown away before Avahi sees them. What is
//     lost so is asked for again, by the rules for packets that the network loses. Repeats count too: they have to be read.
//   - Responses that hold an alias (a CNAME record) go no further, nor do those that are too long to be looked through.
//   - Where nothing is published, what only repeats what was just heard goes no further (repeats.h), and of the rest Avahi notes
//     no more than it needs (withheld.h).
#pragma once

#include <avahi-common/watch.h>

#include "dnssd/pacing.h"
#include "dnssd/repeats.h"

namespace dnssd {

struct Server;

// Stands before one of Avahi's sockets.
struct Gate {
  AvahiWatchCallback callback = nullptr;  // Avahi's own
  void* userdata = nullptr;               // Avahi's own
  bool is_publishing = false;             // the server publishes something
  Allowance allowance;                    // records that may be taken in
  Repeats repeats;                        // while nothing is published
  Server* server = nullptr;               // whose socket it is
  std::int64_t asked_at = 0;              // monotonic, microseconds; when Avahi last got a question, 0: never
};

// Makes `gate` the gate of one of the server's sockets (null: of nobody's), which Avahi watches with `callback` and `userdata`, when
// nothing is published.
void gate_open(Gate& gate, Server* server, AvahiWatchCallback callback, void* userdata);

// Something is published now, or nothing any more.
void gate_set_publishing(Gate& gate, bool is_publishing);

// The callback to watch the socket with instead; its userdata is the gate.
void gate_pass(AvahiWatch* watch, int fd, AvahiWatchEvent events, void* userdata);

}  // namespace dnssd
