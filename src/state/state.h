// SPDX-License-Identifier: MIT
// The state file: what the daemon does at the moment, for programs that look at it from outside (see layout.h).
//
// Promises: nothing here logs, waits, allocates or ends the process. No function reports an error: without a file every
// function does nothing. After state_open the only system call is the reading of a clock. Names are stored as received,
// cut to the size of their field; a program that shows them must escape them. Everything runs on the daemon's one
// thread, and no handled signal interrupts it (runtime/held_signals.h), so that only a process that is killed leaves a
// record half-written. Needs: nothing of the daemon; rules and registrations are identified by addresses of the
// caller's data.
//
// Read in this order: layout.h, this header, file.cpp, rules.cpp, instances.cpp, links.cpp, and record.h for how a
// record is written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "state/layout.h"

// --- The file --------------------------------------------------------------------------------------------------------

// The daemon's own entries in the file. The texts are copied, cut to fit.
struct StateIdentity {
  const char* version;
  const char* rules_file;
  std::uint32_t limit;  // instances that may live at a time
};

// Creates the file under `path`, readable for everybody and in place of a former one, takes the lock that shows that
// its writer lives, and maps it. If any of that fails, there is no file, a former one stays as it was, and nothing is
// logged. To be called once, after the last fork; the lock and the mapping end with the process, the file stays.
void state_open(const char* path, const StateIdentity& identity);

// Start-up is over.
void state_runs();

// The process is about to end with this status.
void state_ends(int status);

// Around the wait of the event loop. The time of state_wakes is written once a second at most; it returns whether it
// was, which is when the figures of the links are due.
void state_waits();
bool state_wakes();

// What has passed over an interface. Beyond kStateLinks of them nothing happens.
void state_link(std::uint32_t index, const StateLinkFigures& figures);

// --- Rules -----------------------------------------------------------------------------------------------------------

// The rules that are installed from here on stand at this offset of the rules list's text, whose lines are counted by
// the newlines before it.
void state_rule_stands_at(const char* text, std::size_t offset);

// A rule has been installed. `rule` stands for it in what follows.
void state_rule_installed(const void* rule, const char* type, const char* from, std::int32_t from_index, const char* to,
                          std::int32_t to_index);

// --- Instances, each known by its rule and its name ------------------------------------------------------------------

// A browse has reported the instance, and it is being resolved. If it was refused before, that ends.
void state_instance_found(const void* rule, const char* name);

// The instance will not be forwarded, for this reason. It is added if it has no record yet.
void state_instance_refused(const void* rule, const char* name, StateReason reason);

// Its host and port (network byte order) are known.
void state_instance_resolved(const void* rule, const char* name, const char* host, std::uint16_t port);

// The host has a link-local address (4 or 16 bytes), which is not announced.
void state_instance_link_local(const void* rule, const char* name, const std::uint8_t* address, std::size_t size);

// The addresses that are announced for it, 4 and 16 bytes; all zero: none of that family.
void state_instance_addresses(const void* rule, const char* name, const std::uint8_t* address4,
                              const std::uint8_t* address6);

// It is being registered on the other link. `registration` stands for that in the next function; null: the attempt was
// refused.
void state_instance_registering(const void* rule, const char* name, const void* registration);

// The reply to a registration: under which name it is announced, or why not (`refused` is none when it is).
void state_instance_registered(const void* rule, const void* registration, const char* name_there, StateReason refused);

// The browse has reported the instance removed; its record is removed, also that of a refused one.
void state_instance_gone(const void* rule, const char* name);
