// SPDX-License-Identifier: MIT
// The records that ports hold, the names that they claim, and the records that are true on a medium: updated with every
// call of a host and every event of its engine.
//
// Lifecycle of what is true on a medium:
//   1. publish: the port holds the records; they are pending, and no host may send them yet.
//   2. The engine reports `established`: they are true on the medium from then on, and must soon be in caches.
//   3. withdraw, or a conflict: they leave the holdings and the truth; without a holder they are gone.
#pragma once

#include "simulation/world.h"

namespace simulation {

// The publication claims its name, or does so no more. Nothing for shared ones.
void claim_name(Port& port, const Publication& publication);
void unclaim_name(Port& port, const Publication& publication);

// Adds or removes the publication as a holder of its record at that place; `without_goodbye`: none will be sent.
void hold(Port& port, const Publication& publication, std::size_t at);
void let_go(Port& port, Tag tag, const Publication& publication, std::size_t at, bool without_goodbye);

// The record is established.
void add_truth(Port& port, Tag tag, const Publication& publication, std::size_t at);

// Takes the publication out of the books; the engine has it no more.
void end(Port& port, Tag tag, bool without_goodbye);

// The port is cut off: the goodbye of what it has withdrawn lately, or the second announcement of what took its place,
// may not have gone out.
void cut_off(Port& port);

}  // namespace simulation
