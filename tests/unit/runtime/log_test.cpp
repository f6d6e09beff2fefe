// SPDX-License-Identifier: MIT
#include "runtime/log.h"

#include <sys/time.h>

#include <cstdlib>
#include <ctime>

#include "unit/runtime/runtime_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

extern "C" int __wrap_gettimeofday(timeval* now, void* zone);

namespace {

timeval gNow;

class Log : public RuntimeTest {
 protected:
  // Whether a message of this priority reaches the debug stream.
  bool IsWritten(int priority) {
    const std::string before = DebugStream();
    log_message(priority, "text");
    return DebugStream() != before;
  }
};

}  // namespace

int __wrap_gettimeofday(timeval* now, void*) {
  *now = gNow;
  return 0;
}

TEST_F(Log, GoesToSyslogWithItsPriorityInNormalMode) {
  log_message(LOG_DEBUG, "number %d and text %s", 7, "seven");
  log_message(LOG_ERR, "constant");
  EXPECT_THAT(fake_syslog::lines(), ElementsAre(fake_syslog::Line{LOG_DEBUG, "number 7 and text seven"},
                                                fake_syslog::Line{LOG_ERR, "constant"}));
}

TEST_F(Log, GoesToSyslogInNormalModeWhateverTheLogLevel) {
  gLogLevel = 0;
  log_message(LOG_DEBUG, "text");
  EXPECT_THAT(Messages(), ElementsAre("text"));
}

TEST_F(Log, GoesToTheDebugStreamAloneInDebugMode) {
  GivenDebugMode();
  log_message(LOG_ERR, "text");
  EXPECT_THAT(fake_syslog::lines(), IsEmpty());
}

TEST_F(Log, PrefixesADebugMessageWithSourceNameAndLine) {
  GivenDebugMode();
  log_message(LOG_DEBUG, "START: %s...", "x");
  const int line = __LINE__ - 1;
  EXPECT_EQ(DebugStream(), "mdnsproxy.c:" + std::to_string(line) + ":START: x...\n") << "and is flushed";
}

TEST_F(Log, KeepsANewlineAtTheEndOfAMessage) {
  GivenDebugMode();
  log_message(LOG_DEBUG, "FINISHED.\n\n");
  EXPECT_THAT(DebugStream(), MatchesRegex("mdnsproxy.c:[0-9]+:FINISHED.\n\n\n"));
}

TEST_F(Log, WritesErrorsAboveLevelOne) {
  GivenDebugMode(1);
  EXPECT_FALSE(IsWritten(LOG_ERR));
  gLogLevel = 2;
  EXPECT_TRUE(IsWritten(LOG_ERR));
}

TEST_F(Log, WritesWarningsAboveLevelTwo) {
  GivenDebugMode(2);
  EXPECT_FALSE(IsWritten(LOG_WARNING));
  gLogLevel = 3;
  EXPECT_TRUE(IsWritten(LOG_WARNING));
}

TEST_F(Log, WritesTracesAboveLevelFour) {
  GivenDebugMode(4);
  EXPECT_FALSE(IsWritten(LOG_DEBUG));
  gLogLevel = 5;
  EXPECT_TRUE(IsWritten(LOG_DEBUG));
  EXPECT_EQ(gLOG_DBG, 5);
}

TEST_F(Log, HasTheTwoMasksOfSyslog) {
  EXPECT_EQ(kSyslogMaskErrors, 15);
  EXPECT_EQ(kSyslogMaskEverything, 255);
}

TEST_F(Log, ShowsAMissingTextAsOne) {
  EXPECT_STREQ(text_or_null(nullptr), "(null)");
  EXPECT_STREQ(text_or_null("text"), "text");
}

TEST_F(Log, PrintsATimestampInLocalTime) {
  const ChildProcess child = run_in_child([] {
    setenv("TZ", "XYZ-2", 1);  // two hours east
    tzset();
    gNow = {5 * 3600 + 6 * 60 + 9, 4000};
    print_timestamp();
    gNow = {20 * 3600 + 59 * 60 + 58, 999999};
    print_timestamp();
  });
  EXPECT_EQ(child.out, " 7:06:09.004  22:59:58.999  ");
}

TEST_F(Log, StartsInNormalModeWithErrorsOnStandardError) {
  EXPECT_EQ(initial_state().dbg, 0);
  EXPECT_EQ(initial_state().log_level, 2);
  EXPECT_EQ(initial_state().debug_stream, stderr);
}

TEST(FixedSettings, AreTheOnesOfTheManual) {
  const Settings& settings = initial_state().settings;
  EXPECT_STREQ(settings.version, "1.0.0");
  EXPECT_STREQ(settings.run_directory, "/tmp");
  EXPECT_STREQ(settings.pid_file, "/var/run/mdnsproxy.pid");
  EXPECT_STREQ(settings.services_file, "/etc/mdnsservice-list.xml");
  EXPECT_STREQ(settings.rules_file, "/tmp/mdnsproxyrule-list.xml");
  EXPECT_STREQ(settings.domain, "local");
  EXPECT_STREQ(settings.status_file, "/tmp/mdnsproxy.out");
  EXPECT_EQ(settings.responder_limit, 2000);
}

TEST(InitialState, HasNothingStarted) {
  EXPECT_EQ(initial_state().daemon_pid, 0);
  EXPECT_EQ(initial_state().sid, 0);
  EXPECT_EQ(initial_state().stop_now, 0);
  EXPECT_EQ(initial_state().select_timeout, 100000000);
  EXPECT_EQ(initial_state().option_char, 0);
  EXPECT_FALSE(initial_state().semaphore_created);
  EXPECT_FALSE(initial_state().has_connection);
  EXPECT_EQ(initial_state().status_file, nullptr);
}
