// SPDX-License-Identifier: MIT
// What a server takes in. Anybody on a link may send as much as the link carries, and each record costs Avahi a walk over all
// those of the last half second; a flood on one interface would leave no time for the others. So each socket has an allowance
// of records: beyond it, packets are read and thrown away before Avahi sees them. What is lost so is asked for again, by the
// rules for packets that the network loses.
#pragma once

#include <avahi-common/watch.h>

#include "dnssd/pacing.h"

namespace dnssd {

// Stands before one of Avahi's sockets.
struct Gate {
  AvahiWatchCallback callback = nullptr;  // Avahi's own
  void* userdata = nullptr;               // Avahi's own
  Allowance allowance;                    // records
  std::int64_t asked_at = 0;              // monotonic, microseconds; when Avahi last got a question, 0: never
};

// Makes `gate` the gate of a socket that Avahi watches with `callback` and `userdata`.
void gate_open(Gate& gate, AvahiWatchCallback callback, void* userdata);

// The callback to watch the socket with instead; its userdata is the gate.
void gate_pass(AvahiWatch* watch, int fd, AvahiWatchEvent events, void* userdata);

}  // namespace dnssd
