// SPDX-License-Identifier: MIT
// Fixed paths, names and limits of the program, in one record, so that a unit test can point them elsewhere. The
// program itself takes none of them from outside.
#pragma once

#include <cstdint>

// The value of Settings::responder_limit outside tests.
inline constexpr std::int32_t kResponderLimit = 2000;

struct Settings {
  const char* version;           // shown in the banner, the status file and the exit traces
  const char* run_directory;     // the daemon's working directory
  const char* pid_file;          // one line: the daemon's process id
  const char* services_file;     // the services list
  const char* rules_file;        // the rules list
  const char* domain;            // browse and registration domain
  const char* status_file;       // two lines: status code and message
  std::int32_t responder_limit;  // a resolve starts only while gResponderCount is this or less
};

// Constant while the program runs; written by tests alone.
extern Settings gSettings;
