// SPDX-License-Identifier: MIT
// The way of a datagram: delivered to every other port of the medium, with the loss and delay of its weather, and
// looped back to the port that sent it.
#pragma once

#include "simulation/wire_rules.h"
#include "simulation/world.h"

namespace simulation {

// Sends all datagrams of the batch.
void transmit(Port& from, const Batch& batch);

// A flight has arrived once more; after its last arrival its slot is free.
void release(World& world, std::uint32_t flight);

// Keeps what the rules about later datagrams and events of this port need.
void note_received(Port& port, const Flight& flight);

}  // namespace simulation
