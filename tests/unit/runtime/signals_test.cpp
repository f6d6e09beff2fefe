// SPDX-License-Identifier: MIT
// The handler, and when it runs. Signals are real ones, in a child.
#include "runtime/signals.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ostream>

#include "runtime/held_signals.h"
#include "unit/runtime/runtime_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Ending {
  int signal_number;
  const char* name;
  const char* message;  // with the number
  const char* status_line;

  friend void PrintTo(const Ending& ending, std::ostream* out) { *out << ending.name; }
};

class SignalHandler : public RuntimeTest {};

class EndingSignal : public RuntimeTest, public testing::WithParamInterface<Ending> {};

class HeldSignals : public RuntimeTest {
 protected:
  static bool IsHeld(int signal_number) {
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal_number) == 1;
  }
};

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

}  // namespace

TEST_P(EndingSignal, EndsTheProcessThroughTheWholeExitPath) {
  GivenPidFile("1\n");
  const ChildProcess child = run_in_child([] {
    GivenConnections();
    signal_handler(GetParam().signal_number);
  });
  EXPECT_EQ(child.exit_status, 10);
  EXPECT_THAT(
      child.err,
      HoldsInOrder({debug_line("signal_handler(): aSignal = " + std::to_string(GetParam().signal_number) + " ..."),
                    warning_line(GetParam().message),
                    error_line("handle_error(): aMyStatusCode = 10 != MYSTATUS__RUNNING__OK, calling "
                               "exit_clean()..."),
                    "EXITING CLEAN with status = 10"}));
  EXPECT_EQ(StatusFile(), std::string("10\n") + GetParam().status_line + "\n");
  EXPECT_FALSE(directory_.has("pid"));
}

INSTANTIATE_TEST_SUITE_P(EachOfThem, EndingSignal,
                         testing::Values(Ending{SIGHUP, "SIGHUP",
                                                "Received SIGHUP signal (1) -- currently unhandled, exiting.",
                                                "Received SIGHUP signal (2147483647) -- currently unhandled, exiting."},
                                         Ending{SIGINT, "SIGINT", "Received SIGINT signal (2), exiting.",
                                                "Received SIGINT signal (2147483647), exiting."},
                                         Ending{SIGQUIT, "SIGQUIT", "Received SIGQUIT signal (3), exiting.",
                                                "Received SIGQUIT signal (2147483647), exiting."},
                                         Ending{SIGTERM, "SIGTERM", "Received SIGTERM signal (15), exiting.",
                                                "Received SIGTERM signal (2147483647), exiting."}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(SignalHandler, WidensTheMaskOnUsr1AndRestoresItOnUsr2) {
  const ChildProcess child = run_in_child([] {
    signal_handler(SIGUSR1);
    EXPECT_EQ(fake_syslog::mask(), 255);
    signal_handler(SIGUSR2);
    EXPECT_EQ(fake_syslog::mask(), 15);
    EXPECT_THAT(fake_syslog::masks(), ElementsAre(255, 15));
    EXPECT_THAT(Messages(), ElementsAre("signal_handler(): aSignal = 10 ...", "signal_handler(): aSignal = 12 ..."));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
  EXPECT_EQ(child.out, "mdnsproxy open the syslog!\nmdnsproxy close the syslog!\n");
}

TEST_F(SignalHandler, GoesOnAfterSigio) {
  const ChildProcess child = run_in_child([] {
    signal_handler(SIGIO);
    EXPECT_THAT(Messages(),
                ElementsAre("signal_handler(): aSignal = 29 ...", "sig_sigpoll(): GOT SIGNAL: 29",
                            HasSubstr("handle_error(): aMyStatusCode = 0"),
                            "Received SIGPOLL signal (29), unhandled, ignoring and continuing execution as normal.",
                            HasSubstr("continuing execution...")));
    EXPECT_THAT(fake_syslog::texts(LOG_WARNING), testing::SizeIs(1));
    EXPECT_THAT(Priorities(), ElementsAre(LOG_WARNING, LOG_DEBUG));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(SignalHandler, GoesOnAfterASignalThatItDoesNotKnow) {
  const ChildProcess child = run_in_child([] {
    signal_handler(SIGALRM);
    EXPECT_THAT(fake_syslog::texts(LOG_WARNING),
                ElementsAre("WARNING 9991001151036: Received Unhandled signal (14), ignoring."));
    EXPECT_THAT(fake_syslog::texts(LOG_DEBUG), testing::SizeIs(3));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(SignalHandler, HoldsEverySignalBeforeItDoesAnythingElse) {
  const ChildProcess child = run_in_child([] {
    fake_syslog::on_message([] {
      sigset_t mask;
      sigprocmask(SIG_BLOCK, nullptr, &mask);
      for (int signal_number : {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO}) {
        EXPECT_EQ(sigismember(&mask, signal_number), 1) << signal_number;
      }
    });
    signal_handler(SIGUSR1);
    EXPECT_THAT(Messages(), testing::SizeIs(1));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(SignalHandler, IsInstalledWithAnEmptyMaskAndWithoutFlags) {
  const ChildProcess child = run_in_child([] {
    install_signal_handler();
    constexpr unsigned kFlags = SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_RESETHAND | SA_ONSTACK;
    for (int signal_number : {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO}) {
      struct sigaction action = {};
      sigaction(signal_number, nullptr, &action);
      EXPECT_EQ(action.sa_handler, signal_handler) << signal_number;
      EXPECT_EQ(static_cast<unsigned>(action.sa_flags) & kFlags, 0u);
      for (int other = 1; other < SIGRTMIN; ++other) {
        EXPECT_EQ(sigismember(&action.sa_mask, other), 0) << other;
      }
    }
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, WaitWhileTheDaemonWorks) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    for (int signal_number : {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO}) {
      raise(signal_number);
    }
    EXPECT_THAT(Messages(), IsEmpty());
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, AreDeliveredAtTheNextPauseOfMicroseconds) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    raise(SIGTERM);
    fake_process::start();
    pause_microseconds(250000);
  });
  EXPECT_EQ(child.exit_status, 10);
}

TEST_F(HeldSignals, AreDeliveredAtTheNextPauseOfSeconds) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    raise(SIGTERM);
    fake_process::start();
    pause_seconds(1);
  });
  EXPECT_EQ(child.exit_status, 10);
}

TEST_F(HeldSignals, AreDeliveredWhenAskedFor) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    raise(SIGUSR1);
    deliver_held_signals();
    EXPECT_EQ(fake_syslog::mask(), 255);
    EXPECT_TRUE(IsHeld(SIGUSR1)) << "and held again";
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, AreLetThroughDuringAPauseAndHeldAgainAfterIt) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    fake_process::start();
    bool held_in_pause = true;
    for (const char* function : {"sleep", "usleep"}) {
      fake_process::on_call(function, [&] { held_in_pause = IsHeld(SIGTERM); });
    }
    pause_seconds(3);
    EXPECT_FALSE(held_in_pause);
    EXPECT_TRUE(IsHeld(SIGTERM));
    held_in_pause = true;
    pause_microseconds(500);
    EXPECT_FALSE(held_in_pause);
    EXPECT_TRUE(IsHeld(SIGTERM));
    EXPECT_THAT(fake_process::calls(), ElementsAre("sleep(3)", "usleep(500)"));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, ThatArePendingDoNotCutAPauseShort) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    raise(SIGUSR1);
    fake_process::start();
    int mask_at_pause = 0;
    fake_process::on_call("sleep", [&] { mask_at_pause = fake_syslog::mask(); });
    pause_seconds(2);
    EXPECT_EQ(mask_at_pause, 255) << "handled before the pause begins";
    EXPECT_THAT(fake_process::calls(), ElementsAre("sleep(2)"));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, EndTheWaitForTheOtherEndOfAFifo) {
  const std::string fifo = directory_.path_of("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const int flags : {O_RDONLY, O_WRONLY}) {
    const ChildProcess child = run_in_child([&] {
      GivenHeldSignals();
      in_helper_process([waiting = getpid()] {
        wait_until_asleep(waiting);
        kill(waiting, SIGTERM);
      });
      open_letting_signals_through(fifo.c_str(), flags);
    });
    EXPECT_EQ(child.exit_status, 10) << describe(child);
  }
}

TEST_F(HeldSignals, ThatDoNotEndTheProcessDoNotEndTheWaitForAFifo) {
  const std::string fifo = directory_.path_of("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const ChildProcess child = run_in_child([&] {
    GivenHeldSignals();
    in_helper_process([&, waiting = getpid()] {
      wait_until_asleep(waiting);
      kill(waiting, SIGUSR1);
      wait_until_asleep(waiting);
      close(open(fifo.c_str(), O_WRONLY));
    });
    EXPECT_GE(open_letting_signals_through(fifo.c_str(), O_RDONLY), 0);
    EXPECT_EQ(fake_syslog::mask(), 255) << "it was handled";
    EXPECT_TRUE(IsHeld(SIGUSR1)) << "and is held again";
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, AnErrorOfAnOpenIsKept) {
  errno = 0;
  EXPECT_EQ(open_letting_signals_through(directory_.path_of("nothing").c_str(), O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(SignalHandler, LeavesTheErrorOfTheWaitThatItInterrupts) {
  const ChildProcess child = run_in_child([] {
    fake_syslog::on_message([] { errno = ENOSPC; });
    errno = EINTR;
    signal_handler(SIGIO);
    EXPECT_EQ(errno, EINTR);
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(HeldSignals, CutARealPauseShort) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    const pid_t self = getpid();
    if (fork() == 0) {
      // Whenever it comes, before the pause or in it, it ends the daemon at once and not after ten minutes.
      kill(self, SIGTERM);
      _exit(0);
    }
    pause_seconds(600);
  });
  EXPECT_EQ(child.exit_status, 10);
}

TEST_F(HeldSignals, DoNotNestIntoTheExitPath) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    for (int signal_number : {SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGIO}) {
      raise(signal_number);
    }
    deliver_held_signals();
  });
  EXPECT_EQ(child.exit_status, 10);
  EXPECT_EQ(CountOf(child.err, "EXITING CLEAN with status = 10"), 2u) << "one exit path says it twice";
  EXPECT_EQ(CountOf(child.err, "calling exit_clean()"), 1u);
  EXPECT_THAT(StatusFile(), testing::StartsWith("10\n"));
}

TEST_F(HeldSignals, DoNotInterruptAFatalErrorOnItsWayOut) {
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    fake_syslog::on_message([] { raise(SIGTERM); });
    handle_error(600, LOG_WARNING, "fatal");
  });
  EXPECT_EQ(child.exit_status, 600 % 256);
  EXPECT_EQ(StatusFile(), "600\nfatal\n");
}

TEST_F(HeldSignals, AreNoneBeforeTheHandlerIsThere) {
  EXPECT_EQ(wait_signal_mask(), nullptr);
  fake_process::start();
  deliver_held_signals();
  pause_seconds(1);
  pause_microseconds(2);
  EXPECT_FALSE(IsHeld(SIGTERM));
  EXPECT_THAT(fake_process::calls(), ElementsAre("sleep(1)", "usleep(2)"));
}
