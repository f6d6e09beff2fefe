// SPDX-License-Identifier: MIT
// The way of a datagram: carried through the weather to every other port of the medium, and looped back to the one that sent it.
#pragma once

#include "simulation/wire_rules.h"
#include "simulation/world.h"

namespace simulation {

// Sends all of it.
void transmit(Port& from, const Batch& batch);

// A flight has arrived once more; after its last arrival its slot is free.
void release(World& world, std::uint32_t flight);

// Keeps what the rules about later datagrams and events of this port need.
void note_heard(Port& port, const Flight& flight);

}  // namespace simulation
