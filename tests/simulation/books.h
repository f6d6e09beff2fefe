// SPDX-License-Identifier: MIT
// What is held, claimed and true: kept in step with every call that a host makes and with every event that its engine reports.
//
// Lifecycle of what is true on a medium:
//   1. publish: the port holds the records; they are pending, and nobody may say them yet.
//   2. The engine reports `established`: they are true on the medium from then on, and must soon be known.
//   3. withdraw, or a conflict: they leave the holdings and the truth; the last holder's leaving makes them gone.
#pragma once

#include "simulation/world.h"

namespace simulation {

// The publication claims its name, or does so no more. Nothing for shared ones.
void claim_name(Port& port, const Publication& publication);
void unclaim_name(Port& port, const Publication& publication);

// The record at that place of the publication is held, or let go; `without_goodbye`: its caches are not told.
void hold(Port& port, const Publication& publication, std::size_t at);
void let_go(Port& port, Tag tag, const Publication& publication, std::size_t at, bool without_goodbye);

// The record is established.
void add_truth(Port& port, Tag tag, const Publication& publication, std::size_t at);

// Takes the publication out of the books; the engine has it no more.
void end(Port& port, Tag tag, bool without_goodbye);

// The port is cut off: the goodbye of what it has withdrawn lately, or the second announcement of what took its place, may not have gone out.
void cut_off(Port& port);

}  // namespace simulation
