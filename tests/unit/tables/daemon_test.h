// SPDX-License-Identifier: MIT
// What a test of the tables or of the files needs around it: empty tables, working semaphores, a status file of its
// own, and both log streams in view.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "unit/scratch_directory.h"

// Empties all tables and frees what they own; only a test ever does.
void clear_tables();

class DaemonTest : public testing::Test {
 protected:
  DaemonTest();
  ~DaemonTest() override;

  // From here on messages go to the debug stream at its highest verbosity.
  void switch_to_debug_mode();

  // The debug stream's messages so far, each without its "mdnsproxy.c:LINE:" and closing newline. A message that has
  // not that form, or that spans lines, is joined as it was written.
  std::vector<std::string> debug_messages() const;

  // Holds the status file as "status", the debug stream as "debug", and whatever a test puts there.
  const ScratchDirectory& directory() const { return directory_; }

 private:
  ScratchDirectory directory_;
  std::string status_file_;
  std::string pid_file_;
};

// For EXPECT_EXIT's statement: an exit out of it says on standard error, as "status file: LINE", what its first line
// has become.
void tell_status_at_exit();

// Kernel's view of a status code, for testing::ExitedWithCode.
constexpr int exit_status(int status) { return status & 0xff; }

// A death test's standard error that holds this text.
inline auto says(const std::string& text) { return testing::HasSubstr(text); }
