// SPDX-License-Identifier: MIT
#include "runtime/held_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace {

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

void hold_signals_again() { block_handled_signals(nullptr); }

void hold_handled_signals() {
  block_handled_signals(&gWaitMask);
  gSignalsAreHeld = true;
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
