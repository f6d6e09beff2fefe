// SPDX-License-Identifier: MIT
// The chief header of mdnsproxyctl: what every command starts from, and how it answers.
//
// Promises: but for `apply`, which only root may, nothing is changed on the machine or in the daemon, and whoever may
// log in may ask. Every text of a stranger (names of services and hosts) goes through text.h or the JSON library before
// it is printed. In JSON every answer is one object with "schema", 1, and "daemon"; the schema is in mdnsproxyctl(1).
//
// Read in this order: this header, state_reader.h, text.h, machine.h, health.h, commands.h and the source of each
// command; for `why` then case.h, why.cpp, case_known.cpp, case_there.cpp, case_unknown.cpp, case_filter.cpp, and
// question.h, dns_message.h, reflectors.h, census.h, reach.h and filter.h; for `doctor` doctor.h and its sources; for
// `report` report.h; for `what-if` checked_file.h, forecast.h and discovery.h; for `apply` checked_file.h,
// rules_file.h, difference.h and unit.h.
#pragma once

#include <string>

#include "mdnsproxyctl/json_fwd.h"
#include "mdnsproxyctl/state_reader.h"
#include "mdnsproxyctl/text.h"

enum ExitStatus : int {
  kWell = 0,
  kWorthALook = 1,  // something waits, is refused or deserves a warning
  kUnwell = 2,
  kNotRunning = 3,
  kNoState = 4,  // no state file, or one that cannot be used
  kUsage = 64,
};

struct Options {
  std::string state_file;
  std::string services_file;
  std::string rules_file;
  std::string settings_file;
  bool json = false;
  bool no_network = false;
};

// One run of the program.
struct Session {
  Options options;
  StateReading state;
  Clocks clocks;

  bool has_state() const { return state.outcome == StateOutcome::ok; }
  bool is_running() const { return has_state() && state.view.writer_lives; }
};

// Reads the state file and the clocks.
Session begin_session(const Options& options);

// The answer that every command begins with: "schema" and "daemon".
Json new_answer(const Session& session);

// The services of the state file, as the schema has them. `instance` must be one of the session's.
Json service_json(const Session& session, const InstanceView& instance);

// Why nothing can be said, for a person: no state file, or a daemon that is gone. Empty: it runs.
std::string absence(const Session& session);

// kWell, kNotRunning or kNoState, by the state file alone.
int base_status(const Session& session);

// What is written of an answer: JSON when that was asked for, else the text. In JSON all but ASCII is escaped, so that
// nothing in a name reaches a terminal as it is.
std::string answer_output(const Session& session, const Json& answer, const std::string& text);

// Writes a JSON answer, or the text, to standard output. `status` as it comes, or kUnwell when the output could not be
// written.
int print_answer(const Session& session, const Json& answer, const std::string& text, int status);

// The words of the schema.
const char* state_word(StateOfInstance state);
const char* reason_word(StateReason reason);      // "" for none
const char* reason_sentence(StateReason reason);  // for a person, "" for none

// What the daemon's DNS-SD library has counted on the link that the daemon holds by this index; null: it does not
// count.
const LinkView* link_figures(const Session& session, int index);

// The same as the schema has it, each null when there is nothing.
Json link_figures_json(const Session& session, int index);
