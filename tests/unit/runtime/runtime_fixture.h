// SPDX-License-Identifier: MIT
// The runtime with files of the test's own, no syslog, and a DNS-SD library that talks to nobody.
#pragma once

#include <gmock/gmock.h>

#include <cstdio>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "fakes/fake_dns_sd.h"
#include "fakes/fake_process.h"
#include "fakes/fake_syslog.h"
#include "runtime/runtime.h"
#include "unit/child_process.h"
#include "unit/scratch_directory.h"

class RuntimeTest : public testing::Test {
 protected:
  RuntimeTest();
  ~RuntimeTest() override;

  // Both DNS-SD connections, or one.
  static void GivenSharedConnection();
  static void GivenRegisterRecordConnection();
  static void GivenConnections();

  // Messages go to a debug stream of the test's own, at the highest verbosity.
  void GivenDebugMode(int log_level = gLOG_DBG);
  void GivenPidFile(const std::string& content) const { directory_.write("pid", content); }
  void GivenSettings(const std::string& content) const { directory_.write("settings", content); }

  // As daemonize leaves them.
  static void GivenHeldSignals();

  // A fork that returns in the "child", a new session, a parent that is not init, standard streams that stay, and no
  // sleeps.
  static void GivenHarmlessProcess();

  // What the files and the debug stream hold now.
  std::string StatusFile() const { return directory_.read("status"); }
  std::string PidFile() const { return directory_.read("pid"); }
  std::string DebugStream() const { return directory_.read("debug"); }

  // Every syslog message's text so far, in order.
  static std::vector<std::string> Messages();

  // The priorities of all syslog messages so far, each once.
  static std::set<int> Priorities();

  ScratchDirectory directory_;
  const std::string status_path_ = directory_.path_of("status");
  const std::string pid_path_ = directory_.path_of("pid");
  const std::string run_directory_ = directory_.path();
  const std::string settings_path_ = directory_.path_of("settings");
};

// The globals as the program starts with them.
struct InitialState {
  Settings settings;
  const char* vcm_settings_file;
  int dbg;
  int log_level;
  std::FILE* debug_stream;
  int daemon_pid;
  int sid;
  int stop_now;
  int select_timeout;
  int option_char;
  bool semaphore_created;
  bool has_connection;
  std::FILE* status_file;
};
const InitialState& initial_state();

// "syslog(7): text", as the fake shows a message on standard error.
std::string debug_line(const std::string& text);
std::string error_line(const std::string& text);
std::string warning_line(const std::string& text);
std::string critical_line(const std::string& text);

// A text that holds these texts, each after the end of the one before.
testing::Matcher<const std::string&> HoldsInOrder(std::vector<std::string> texts);
