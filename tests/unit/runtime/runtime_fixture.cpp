// SPDX-License-Identifier: MIT
#include "unit/runtime/runtime_fixture.h"

#include <syslog.h>

#include <cstdio>

#include "platform/vcm.h"

namespace {

void reset_globals() {
  gSettings = initial_state().settings;
  gVcmSettingsFile = initial_state().vcm_settings_file;
  gDBG = 0;
  gLogLevel = 2;
  gDebugStream = stderr;
  gProgramName = "mdnsproxy";
  gDNSServiceRef_Shared = nullptr;
  gDNSServiceRef_RegisterRecord = nullptr;
  gStatusFileSemaphoreCreated = false;
  gSelectTimeout = 100000000;
  gDaemonPID = gSID = stopNow = gOptionChar = gConfigPIDFilehandle = 0;
}

std::string line_of(int priority, const std::string& text) {
  return "syslog(" + std::to_string(priority) + "): " + text + "\n";
}

}  // namespace

// Before the first test changes any of it.
const InitialState& initial_state() {
  static const InitialState the_state = {gSettings,
                                         gVcmSettingsFile,
                                         gDBG,
                                         gLogLevel,
                                         gDebugStream,
                                         gDaemonPID,
                                         gSID,
                                         stopNow,
                                         gSelectTimeout,
                                         gOptionChar,
                                         gStatusFileSemaphoreCreated,
                                         gDNSServiceRef_Shared != nullptr || gDNSServiceRef_RegisterRecord != nullptr,
                                         gMyStatusFilehandle};
  return the_state;
}

RuntimeTest::RuntimeTest() {
  initial_state();
  reset_globals();
  gSettings.status_file = status_path_.c_str();
  gSettings.pid_file = pid_path_.c_str();
  gSettings.run_directory = run_directory_.c_str();
  gVcmSettingsFile = settings_path_.c_str();
  fake_dns_sd::reset();
  fake_syslog::reset();
}

RuntimeTest::~RuntimeTest() {
  fake_process::stop();
  if (gDebugStream != stderr) {
    std::fclose(gDebugStream);
  }
  EXPECT_THAT(fake_dns_sd::misuses(), testing::IsEmpty());
  fake_dns_sd::reset();
  reset_globals();
}

void RuntimeTest::GivenSharedConnection() { DNSServiceCreateConnection(&gDNSServiceRef_Shared); }

void RuntimeTest::GivenRegisterRecordConnection() { DNSServiceCreateConnection(&gDNSServiceRef_RegisterRecord); }

void RuntimeTest::GivenConnections() {
  GivenSharedConnection();
  GivenRegisterRecordConnection();
}

void RuntimeTest::GivenDebugMode(int log_level) {
  gDBG = 1;
  gLogLevel = log_level;
  gDebugStream = std::fopen(directory_.path_of("debug").c_str(), "w");
}

void RuntimeTest::GivenHeldSignals() {
  hold_handled_signals();
  install_signal_handler();
}

void RuntimeTest::GivenHarmlessProcess() {
  fake_process::start();
  fake_process::always("fork", 0);
  fake_process::always("setsid", 77);
  fake_process::always("getppid", 4242);
  fake_process::always("dup2", 0);
}

std::vector<std::string> RuntimeTest::Messages() {
  std::vector<std::string> texts;
  for (const fake_syslog::Line& line : fake_syslog::lines()) {
    texts.push_back(line.text);
  }
  return texts;
}

std::set<int> RuntimeTest::Priorities() {
  std::set<int> priorities;
  for (const fake_syslog::Line& line : fake_syslog::lines()) {
    priorities.insert(line.priority);
  }
  return priorities;
}

std::string debug_line(const std::string& text) { return line_of(LOG_DEBUG, text); }
std::string error_line(const std::string& text) { return line_of(LOG_ERR, text); }
std::string warning_line(const std::string& text) { return line_of(LOG_WARNING, text); }
std::string critical_line(const std::string& text) { return line_of(LOG_CRIT, text); }

namespace {

MATCHER_P(HoldsEachAfterTheOther, texts, "") {
  std::size_t from = 0;
  for (const std::string& text : texts) {
    const std::size_t found = arg.find(text, from);
    if (found == std::string::npos) {
      *result_listener << "lacks, after what precedes it: " << text;
      return false;
    }
    from = found + text.size();
  }
  return true;
}

}  // namespace

testing::Matcher<const std::string&> HoldsInOrder(std::vector<std::string> texts) {
  return HoldsEachAfterTheOther(texts);
}
