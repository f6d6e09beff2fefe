// SPDX-License-Identifier: MIT
// Other programs, run without a shell: by fixed paths and with an environment of their own, so that nothing of the
// caller's decides what runs as root.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

struct Program {
  std::vector<const char*> paths;      // where it may be; the first that can be executed is run
  std::vector<const char*> arguments;  // its name first
  std::vector<const char*> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8"};
  bool keeps_errors = false;             // what it writes to standard error is part of the output; else it is dropped
  std::chrono::milliseconds longest{};   // it is killed then
  std::size_t most_output = 64U * 1024;  // bytes; what is beyond is read and dropped
};

struct ProgramRun {
  const char* path = nullptr;  // that was run; null: there is none
  int status = -1;             // its exit status; -1: it could not be run, or a signal has ended it; 127: there is none
  bool is_whole = false;       // it has closed its output in time, and all of that is here
  std::string output;
};

// Runs it to its end, with nothing to read, no signal blocked and no other file open.
ProgramRun run_program(const Program& program);
