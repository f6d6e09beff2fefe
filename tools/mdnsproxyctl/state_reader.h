// SPDX-License-Identifier: MIT
// Reads the state file of the daemon (state/layout.h). Nothing in it is trusted: it may be cut short, scribbled over,
// or somebody else's. The daemon notices nothing of a reader.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "state/layout.h"

enum class StateOutcome {
  ok,
  missing,       // there is no file
  unusable,      // it is not the daemon's file, is damaged, or cannot be read
  other_layout,  // of a version of the daemon that this program does not know
};

struct RuleView {
  std::uint32_t line;  // of the rules list; 0: not known
  std::string from;
  std::string to;
  int from_index;
  int to_index;
  std::string type;
  std::uint64_t since;
};

// Texts are as a stranger said them. Times are nanoseconds of CLOCK_BOOTTIME.
struct InstanceView {
  std::uint32_t rule;  // index into StateView::rules
  StateOfInstance state;
  StateReason reason;
  std::string name;
  std::string name_there;              // "": not known
  std::string host;                    // "": not known
  std::vector<std::string> addresses;  // IPv4 first
  std::uint16_t port;                  // 0: not known
  std::uint64_t found;
  std::uint64_t since;
};

struct EventView {
  std::uint64_t number;
  std::uint64_t time;
  std::uint32_t rule;
  StateOfInstance before;
  StateOfInstance after;
  StateReason reason;
  std::string name;
};

// What the DNS-SD library says of an interface; numbers count from when it began to use it.
struct LinkView {
  int index;
  std::uint64_t received;
  std::uint64_t ignored;
  std::uint64_t lost;
  std::uint64_t sent;
  std::uint64_t conflicts;
  std::vector<std::string> siblings;  // addresses of hosts that said within the last hour what the daemon announces
                                      // there
};

struct StateView {
  bool writer_lives = false;
  std::uint32_t pid = 0;
  std::uint64_t started = 0;
  std::uint64_t started_realtime = 0;
  std::uint64_t beat = 0;
  StatePhase phase = StatePhase::starting;
  bool waiting = false;
  std::uint32_t rules_left_out = 0;
  std::uint32_t limit = 0;
  std::uint32_t exit_status = 0;
  std::array<std::uint64_t, kStateCounterSlots> counters = {};
  std::string version;
  std::string rules_file;
  std::vector<RuleView> rules;
  std::vector<InstanceView> instances;  // in the order in which they were found
  std::vector<EventView> events;        // oldest first; those that the ring still holds
  std::uint64_t events_written = 0;
  std::vector<LinkView> links;  // empty: the daemon's library does not count
  bool torn = false;            // a record was left half-written by a process that is gone; it is not among the above
  unsigned changing = 0;        // records that were being written at each of many tries; they are not among the above

  std::uint64_t counter(StateCounter which) const { return counters[static_cast<std::size_t>(which)]; }
};

struct StateReading {
  StateOutcome outcome = StateOutcome::missing;
  std::string message;  // why the outcome is not `ok`, as a sentence without its full stop
  StateView view;       // valid when it is
};

// Reads the file at this path, which must be a regular file, no symbolic link, and belong to root, to the user
// "mdnsproxy" or to the owner of its directory.
StateReading read_state_file(const std::string& path);

// Reads an open file, whose owner and kind the caller has looked at.
StateReading read_state(int file);
