// SPDX-License-Identifier: MIT
// Lifecycle of a handled signal:
// 1. It arrives while the daemon works: the kernel keeps it pending.
// 2. The daemon comes to a wait (pselect, a pause, the open of what may be a FIFO) and lets it through: signal_handler
//    runs, and nothing else is under way.
// 3. signal_handler holds all of them again first, so that a second one cannot nest into its exit path. One that the
//    kernel had started to deliver together with the first runs its handler before or after, never within.
#include "runtime/signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "runtime/log.h"
#include "runtime/status.h"

namespace {

constexpr int kHandledSignals[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO};
constexpr int kJobControlSignals[] = {SIGCHLD, SIGTSTP, SIGTTOU, SIGTTIN};

sigset_t gWaitMask;
bool gSignalsAreHeld = false;

template <std::size_t kCount>
sigset_t set_of(const int (&signals)[kCount]) {
  sigset_t set;
  sigemptyset(&set);
  for (int signal_number : signals) {
    sigaddset(&set, signal_number);
  }
  return set;
}

void block_handled_signals(sigset_t* previous) {
  const sigset_t handled = set_of(kHandledSignals);
  sigprocmask(SIG_BLOCK, &handled, previous);
}

// Lets the held signals through while it lives.
class HeldSignalsLetThrough {
 public:
  HeldSignalsLetThrough() {
    if (gSignalsAreHeld) {
      sigprocmask(SIG_SETMASK, &gWaitMask, nullptr);
    }
  }
  ~HeldSignalsLetThrough() {
    if (gSignalsAreHeld) {
      block_handled_signals(nullptr);
    }
  }
  HeldSignalsLetThrough(const HeldSignalsLetThrough&) = delete;
  HeldSignalsLetThrough& operator=(const HeldSignalsLetThrough&) = delete;
};

}  // namespace

void block_job_control_signals() {
  const sigset_t job_control = set_of(kJobControlSignals);
  sigprocmask(SIG_BLOCK, &job_control, nullptr);
}

void hold_handled_signals() {
  block_handled_signals(&gWaitMask);
  gSignalsAreHeld = true;
}

void install_signal_handler() {
  struct sigaction action = {};
  action.sa_handler = signal_handler;
  sigemptyset(&action.sa_mask);
  for (int signal_number : kHandledSignals) {
    sigaction(signal_number, &action, nullptr);
  }
}

const sigset_t* wait_signal_mask() { return gSignalsAreHeld ? &gWaitMask : nullptr; }

// The kernel delivers what is pending before the call that lets it through returns.
void deliver_held_signals() { const HeldSignalsLetThrough let_through; }

void pause_microseconds(unsigned microseconds) {
  const HeldSignalsLetThrough let_through;
  usleep(microseconds);
}

void pause_seconds(unsigned seconds) {
  const HeldSignalsLetThrough let_through;
  sleep(seconds);
}

int open_letting_signals_through(const char* path, int flags, mode_t mode) {
  int file = -1;
  do {
    const HeldSignalsLetThrough let_through;
    file = open(path, flags, mode);
  } while (file == -1 && errno == EINTR);
  return file;
}

void wait_until_readable(int file) {
  pollfd wanted = {file, POLLIN, 0};
  while (ppoll(&wanted, 1, nullptr, wait_signal_mask()) == -1 && errno == EINTR) {
  }
}

void signal_handler(int aSignal) {
  const int error = errno;  // of the wait that it interrupts
  block_handled_signals(nullptr);
  log_message(LOG_DEBUG, "signal_handler(): aSignal = %d ...", aSignal);
  switch (aSignal) {
    case SIGHUP:
      fatal_error(MYSTATUS__TERMINATED, LOG_WARNING, "Received SIGHUP signal (%d) -- currently unhandled, exiting.",
                  aSignal);
    case SIGINT:
      fatal_error(MYSTATUS__TERMINATED, LOG_WARNING, "Received SIGINT signal (%d), exiting.", aSignal);
    case SIGQUIT:
      fatal_error(MYSTATUS__TERMINATED, LOG_WARNING, "Received SIGQUIT signal (%d), exiting.", aSignal);
    case SIGTERM:  // fatal_error releases the connections: exit_clean_no_update_status_file
      fatal_error(MYSTATUS__TERMINATED, LOG_WARNING, "Received SIGTERM signal (%d), exiting.", aSignal);
    case SIGUSR1:
      setlogmask(kSyslogMaskEverything);
      std::fputs("mdnsproxy open the syslog!\n", stdout);
      break;
    case SIGUSR2:
      setlogmask(kSyslogMaskErrors);
      std::fputs("mdnsproxy close the syslog!\n", stdout);
      break;
    case SIGIO:
      log_message(LOG_DEBUG, "sig_sigpoll(): GOT SIGNAL: %d", aSignal);
      handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                   "Received SIGPOLL signal (%d), unhandled, ignoring and continuing execution as normal.", aSignal);
      break;
    default:
      handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                   "WARNING 9991001151036: Received Unhandled signal (%d), ignoring.", aSignal);
      break;
  }
  errno = error;
}
