// SPDX-License-Identifier: MIT
// Rules about all hosts of a medium together: which records they have in their caches, and which names they own.
#pragma once

#include "simulation/world.h"

namespace simulation {

// How long an announcement, and a goodbye with its second, may take to be known everywhere on a calm medium.
inline constexpr Time kKnownWithin = 3 * kSecond;
// The same for a host that was disturbed: it probes or asks anew first.
inline constexpr Time kSettledWithin = 8 * kSecond;

// Whether everything that reaches one of the ports has reached the other for a while.
bool is_undisturbed(const Port& port, Time now, Time needed);

// Everything that has been published for long enough under this name and type is known to all who have asked for long
// enough; and nothing is that has not been published for so long. For calm media.
void check_set(Medium& medium, World& world, Hash set_hash);

// Plans check_set for when what changes now must be known.
void plan_check(Medium& medium, World& world, Hash set_hash);

// A record was reported to a query as removed: not allowed while a host has published it all the time, nor within the
// second after its goodbye (RFC 6762 section 10.1). `known`: what was reported of it before.
void check_removal(Port& port, const Query& query, const Known& known);

// A publication ends because its name is another's: not unless some other host has ever claimed the name as its own.
// That others borrow it is no reason.
void check_conflict(Port& port, const Publication& publication);

// For quiet times: no publication is undecided, each unique name has one owner, and nobody borrows one that has an
// owner.
void check_owners(World& world, Medium& medium);

// Whether the port itself has sent a goodbye for the record: it does not receive its own, so what it has received from
// another host counts on.
bool has_heard_no_goodbye(const Port& port, Hash hash);

// For quiet times: every query knows all that is published, and (`exactly`) nothing else. `only`: the queries of one
// port; null: of all.
void check_knowledge(World& world, Medium& medium, bool exactly, const Port* only);

// Counts what queries do not know of what has been published for that long.
void count_missing(World& world, Medium& medium, Time needed);

// After everything has been withdrawn and all TTLs are over: nothing is left of it.
void check_silence(World& world);

}  // namespace simulation
