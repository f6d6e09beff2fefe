// SPDX-License-Identifier: MIT
// daemonize, in a child whenever it gets as far as to change the process.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "unit/runtime/runtime_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Daemonize : public RuntimeTest {
 protected:
  static void Run() { daemonize("/logged/directory", "/logged/file"); }

  // Whether all of these are in the process's mask.
  static bool AreBlocked(std::initializer_list<int> signals) {
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    for (int signal_number : signals) {
      if (sigismember(&mask, signal_number) == 0) {
        return false;
      }
    }
    return true;
  }
};

// As a matcher's text: what was called up to now, a call a line.
std::string CallsSoFar() {
  std::string text;
  for (const std::string& call : fake_process::calls()) {
    text += call + "\n";
  }
  return text;
}

}  // namespace

TEST_F(Daemonize, DoesNothingInAChildOfInit) {
  const ChildProcess child = run_in_child([this] {
    GivenHarmlessProcess();
    fake_process::always("getppid", 1);
    Run();
    EXPECT_THAT(fake_process::calls(), ElementsAre("getppid()"));
    EXPECT_THAT(Messages(), ElementsAre("daemonize(): aRundir = /logged/directory, aPIDfile = /logged/file ...",
                                        "daemonize(): checking if we're already a child process  ...",
                                        "daemonize(): getppid() returned 1, so already a child process."));
    EXPECT_THAT(Priorities(), ElementsAre(LOG_DEBUG));
    EXPECT_FALSE(directory_.has("pid"));
    EXPECT_EQ(gDaemonPID, 0);
    EXPECT_FALSE(AreBlocked({SIGCHLD}));
    EXPECT_FALSE(AreBlocked({SIGTERM}));
    EXPECT_EQ(wait_signal_mask(), nullptr);
    std::printf("came back");
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
  EXPECT_EQ(child.out, "came back");
}

TEST_F(Daemonize, GoesThroughItsStepsInOrder) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    Run();
    EXPECT_THAT(CallsSoFar(), HoldsInOrder({"getppid()\n", "sigaction(1)\n", "sigaction(2)\n", "sigaction(15)\n",
                                            "sigaction(3)\n", "sigaction(10)\n", "sigaction(12)\n",
                                            "sigaction(29)\nfork()\nsetsid()\n", "open(\"/dev/null\"", "dup2(", "dup2(",
                                            "dup2(", "close(", "chdir(", "open(", "write(", "fsync(", "close("}));
    EXPECT_EQ(fake_process::calls_of("sigaction").size(), 7u);
    EXPECT_EQ(gDaemonPID, 0);
    EXPECT_EQ(gSID, 77);
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, IsTracedStepByStepInTheChild) {
  const ChildProcess child = run_in_child([this] {
    GivenHarmlessProcess();
    Run();
    const std::string self = std::to_string(getpid());
    EXPECT_THAT(Messages(),
                ElementsAre("daemonize(): aRundir = /logged/directory, aPIDfile = /logged/file ...",
                            "daemonize(): checking if we're already a child process  ...",
                            "daemonize(): getppid() returned 4242, so NOT already a child process, fork()'ing now...",
                            "daemonize(): child process processing START (getpid() = " + self + ") ...",
                            "daemonize(): get new process group: gSID = setsid() = 77 ...",
                            "daemonize(): Route I/O connections: gDBG = 0 ...",
                            "daemonize(): change running directory to: " + run_directory_ + " ...",
                            "daemonize(): creating PID file ...",
                            "create_PID_file(): START: attempting to create aPIDfilename = " + pid_path_ + " ...",
                            HasSubstr("create_PID_file(): FINISH: ")));
    EXPECT_THAT(Priorities(), ElementsAre(LOG_DEBUG));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, EndsTheParentWithoutTheExitPath) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    GivenConnections();
    fake_process::always("fork", 9999);
    Run();
    ADD_FAILURE() << "came back";
  });
  EXPECT_EQ(child.exit_status, 0);
  EXPECT_THAT(child.err,
              testing::ContainsRegex("syslog\\(7\\): daemonize\\(\\): fork\\(\\) returned PID: 4242, child process "
                                     "created ok, so exit parent process \\(getpid\\(\\) = [0-9]+\\)\\.\\.\\.\n$"))
      << "with the parent's own parent where one expects the child, and as its last words";
  EXPECT_FALSE(directory_.has("status"));
  EXPECT_FALSE(directory_.has("pid"));
}

TEST_F(Daemonize, ReallyForksAndBecomesASessionLeader) {
  int life[2];  // until its second end is nobody's any more, somebody lives
  ASSERT_EQ(pipe(life), 0);
  const ChildProcess child = run_in_child([this] {
    const pid_t parent = getpid();
    Run();  // the parent exits in here
    EXPECT_NE(getpid(), parent);
    EXPECT_EQ(getsid(0), getpid());
    EXPECT_EQ(gSID, getpid());
    EXPECT_EQ(PidFile(), std::to_string(getpid()) + "\n");
    EXPECT_EQ(std::filesystem::current_path(), std::filesystem::canonical(run_directory_));
    for (int stream : {0, 1, 2}) {
      char target[64] = {};
      EXPECT_GT(readlink(("/proc/self/fd/" + std::to_string(stream)).c_str(), target, sizeof(target) - 1), 0);
      EXPECT_STREQ(target, "/dev/null");
    }
    directory_.write("result", testing::Test::HasFailure() ? "failed" : "fine");
    raise(SIGKILL);  // the scratch directory is the test's to remove
  });
  EXPECT_EQ(child.exit_status, 0) << "that is the parent";
  // The child lives on for a moment. Its standard error is /dev/null, so that it is this pipe that tells when it has
  // ended.
  close(life[1]);
  char nothing = 0;
  EXPECT_EQ(read(life[0], &nothing, sizeof(nothing)), 0);
  close(life[0]);
  EXPECT_EQ(directory_.read("result"), "fine") << describe(child);
}

TEST_F(Daemonize, FailsWithoutAChild) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    fake_process::always("fork", -1, EAGAIN);
    Run();
  });
  EXPECT_EQ(child.exit_status, 999 % 256);
  EXPECT_THAT(
      child.err,
      HoldsInOrder(
          {warning_line("ERROR 9991301141911: fork(): returned PID = -1, could not start the child process, exiting."),
           critical_line("ERROR 301903: Could not unlink (delete) PID lock file " + pid_path_ +
                         ", (did you run sudo or as root?), exiting")}));
  EXPECT_EQ(
      StatusFile(),
      "999\nERROR 9991301141911: fork(): returned PID = 2147483647, could not start the child process, exiting.\n");
}

TEST_F(Daemonize, FailsWithoutASession) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    fake_process::always("setsid", -1, EPERM);
    Run();
  });
  EXPECT_EQ(child.exit_status, 999 % 256);
  EXPECT_THAT(child.err,
              HoldsInOrder({debug_line("daemonize(): get new process group: gSID = setsid() = -1 ..."),
                            warning_line("ERROR 99901141905: setsid(): returned -1, this is unhandled, exiting.")}));
  EXPECT_EQ(StatusFile(), "999\nERROR 99901141905: setsid(): returned 2147483647, this is unhandled, exiting.\n");
}

TEST_F(Daemonize, PutsTheStandardStreamsOnTheNullDeviceInTheirOrder) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    fake_process::next("open", 55);
    fake_process::next("close", 0);
    Run();
    char flags[16];
    std::snprintf(flags, sizeof(flags), "%#o", static_cast<unsigned>(O_RDWR));
    EXPECT_THAT(CallsSoFar(), HasSubstr("open(\"/dev/null\", " + std::string(flags) +
                                        ", 0000)\ndup2(55, 0)\ndup2(55, 1)\ndup2(55, 2)\nclose(55)\n"));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, LeavesTheStreamsButClosesWithoutANullDevice) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    fake_process::fail_call("open", 1, ENOENT);
    Run();
    EXPECT_THAT(fake_process::calls_of("dup2"), IsEmpty());
    EXPECT_THAT(CallsSoFar(), HasSubstr("close(-1)\nchdir("));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, LeavesTheStreamsAloneInDebugMode) {
  const ChildProcess child = run_in_child([this] {
    GivenHarmlessProcess();
    GivenDebugMode();
    Run();
    EXPECT_THAT(CallsSoFar(), Not(HasSubstr("/dev/null")));
    EXPECT_THAT(DebugStream(), HasSubstr(":daemonize(): Route I/O connections: gDBG = 1 ...\n"));
    EXPECT_THAT(fake_process::calls_of("close"), testing::SizeIs(1)) << "the PID file's";
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, ChangesToTheRunDirectoryOfTheSettingsIfItCan) {
  const ChildProcess child = run_in_child([this] {
    GivenHarmlessProcess();
    fake_process::always("chdir", -1, ENOENT);
    Run();
    EXPECT_THAT(fake_process::calls(), Contains("chdir(\"" + run_directory_ + "\")"));
    EXPECT_TRUE(directory_.has("pid")) << "and goes on";
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, BlocksTheJobControlSignalsAndHoldsTheHandledOnes) {
  const ChildProcess child = run_in_child([] {
    GivenHarmlessProcess();
    fake_syslog::on_message([] { EXPECT_TRUE(AreBlocked({SIGCHLD}) || fake_process::calls_of("fork").empty()); });
    fake_process::on_call("sigaction", [] {
      EXPECT_TRUE(AreBlocked({SIGCHLD, SIGTSTP, SIGTTOU, SIGTTIN}));
      EXPECT_TRUE(AreBlocked({SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO}))
          << "before any has its handler";
    });
    Run();
    EXPECT_TRUE(AreBlocked({SIGCHLD, SIGTSTP, SIGTTOU, SIGTTIN}));
    EXPECT_TRUE(AreBlocked({SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO}));
    EXPECT_FALSE(AreBlocked({SIGALRM})) << "nor anything else";
    EXPECT_FALSE(AreBlocked({SIGPIPE}));
    ASSERT_NE(wait_signal_mask(), nullptr);
    EXPECT_EQ(sigismember(wait_signal_mask(), SIGTERM), 0);
    EXPECT_EQ(sigismember(wait_signal_mask(), SIGCHLD), 1) << "blocked for the daemon's life";
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Daemonize, LeavesTheFileModeMaskAsItIs) {
  const ChildProcess child = run_in_child([] {
    umask(027);
    GivenHarmlessProcess();
    Run();
    EXPECT_EQ(umask(0), 027u);
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}
