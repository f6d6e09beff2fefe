// SPDX-License-Identifier: MIT
// What must hold of every datagram that an engine sends.
#pragma once

#include "simulation/world.h"

namespace simulation {

// All datagrams that one port sends at one instant.
struct Batch {
  std::vector<mdns::Datagram> datagrams;
  std::vector<WireMessage> messages;  // the same, read
};

// Checks them and keeps what later ones are checked against.
void check_sent(Port& port, const Batch& batch);

// The port sends so many datagrams now: at most 1000 in any second, and 32 in any 20 ms.
void check_pace(Port& port, std::size_t datagrams);

// The record is multicast over these protocols now: whether it may be, so soon after the last time over each of them.
bool is_record_spaced(Port& port, mdns::Protocols protocols, const WireRecord& record);

// The records that the engine looked at to take in one datagram of that size must be in proportion to it.
// `published`: on the link before it.
void check_cost(Port& port, std::uint64_t steps, std::size_t bytes, std::size_t published);

}  // namespace simulation
