// SPDX-License-Identifier: MIT
// Programs that are run without a shell.
#include "mdnsproxyctl/program.h"

#include <gmock/gmock.h>

#include <csignal>

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr std::chrono::seconds kLong(60);

ProgramRun run_shell(const char* text, bool keeps_errors = false) {
  return run_program({.paths = {"/nowhere/sh", "/bin/sh"},
                      .arguments = {"sh", "-c", text},
                      .keeps_errors = keeps_errors,
                      .longest = kLong});
}

TEST(RunProgram, TakesTheFirstOfItsPathsThatIsThere) {
  const ProgramRun run = run_shell("echo well");
  EXPECT_STREQ(run.path, "/bin/sh");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(run.is_whole);
  EXPECT_EQ(run.output, "well\n");
}

TEST(RunProgram, SaysThatThereIsNone) {
  const ProgramRun run = run_program({.paths = {"/nowhere/sh"}, .arguments = {"sh"}, .longest = kLong});
  EXPECT_EQ(run.path, nullptr);
  EXPECT_EQ(run.status, 127);
  EXPECT_FALSE(run.is_whole);
}

TEST(RunProgram, GivesTheExitStatusAndForASignalNone) {
  EXPECT_EQ(run_shell("exit 3").status, 3);
  EXPECT_EQ(run_shell("kill -9 $$").status, -1);
}

TEST(RunProgram, KeepsErrorsOnlyWhereTheyAreWanted) {
  EXPECT_THAT(run_shell("echo bad >&2").output, IsEmpty());
  EXPECT_EQ(run_shell("echo bad >&2", true).output, "bad\n");
}

TEST(RunProgram, HandsOverNothingOfTheCallers) {
  setenv("MDNSPROXY_LEAK", "yes", 1);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  const ProgramRun run = run_shell("env; read line || echo nothing to read; grep SigBlk /proc/self/status");
  sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
  unsetenv("MDNSPROXY_LEAK");
  EXPECT_THAT(run.output, HasSubstr("PATH=/usr/sbin:/usr/bin:/sbin:/bin\n"));
  EXPECT_THAT(run.output, Not(HasSubstr("MDNSPROXY_LEAK")));
  EXPECT_THAT(run.output, HasSubstr("nothing to read\n"));
  EXPECT_THAT(run.output, HasSubstr("SigBlk:\t0000000000000000\n"));
}

TEST(RunProgram, DropsWhatIsBeyondTheMostOutput) {
  const ProgramRun run = run_program({.paths = {"/bin/sh"},
                                      .arguments = {"sh", "-c", "for i in 1 2 3 4; do echo 1234567; done"},
                                      .longest = kLong,
                                      .most_output = 10});
  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(run.is_whole);
  EXPECT_EQ(run.output, "1234567\n12");
}

TEST(RunProgram, KillsWhatTakesTooLong) {
  const ProgramRun run = run_program({.paths = {"/bin/sh"},
                                      .arguments = {"sh", "-c", "echo begun; exec sleep 60"},
                                      .longest = std::chrono::milliseconds(200)});
  EXPECT_EQ(run.status, -1);
  EXPECT_FALSE(run.is_whole);
}

}  // namespace
