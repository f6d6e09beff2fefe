// SPDX-License-Identifier: MIT
// Lifecycle of a taken signal: signals_review adds it to the signalfd, and it is blocked in the mask that the caller
// gets back; when it arrives the watch notes it, and the engine's pass asks for it (signals_fatal_caught). It is given
// back as soon as nothing is registered any more.
#include "dnssd/base/signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <utility>

namespace dnssd {
namespace {

// Signals of faults are not held back: a blocked one would end the process without calling the program's handler.
constexpr int kFaults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP};

// The signals that init, a terminal or a shell sends to end a process.
constexpr int kEndings[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

// Added to the signal's number for the exit status, as a shell does, if raising the signal again does not end the
// process.
constexpr int kExitOfSignal = 128;

constexpr sigset_t kNone{};

int gDepth = 0;     // nested frames (signals_hold)
sigset_t gCallers;  // the caller's mask, without what is taken
sigset_t gTaken{};  // of kEndings
Watch gWatch;       // on a signalfd, from the first signal that is taken until the engine ends
int gCaught = 0;    // a taken signal that has arrived, 0: none

bool has_default_action(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
         action.sa_handler == SIG_DFL;
}

// Those that the program leaves to their default action and has not blocked itself.
sigset_t to_be_taken() {
  sigset_t wanted{};
  for (const int signal : kEndings) {
    if (sigismember(&gCallers, signal) == 0 && has_default_action(signal)) {
      sigaddset(&wanted, signal);
    }
  }
  return wanted;
}

void signal_arrived(void*) {
  signalfd_siginfo info{};
  if (read(gWatch.fd, &info, sizeof info) == sizeof info) {
    gCaught = static_cast<int>(info.ssi_signo);
  }
}

}  // namespace

void signals_hold() {
  if (gDepth++ > 0) {
    return;
  }
  sigset_t held;
  sigfillset(&held);
  for (const int fault : kFaults) {
    sigdelset(&held, fault);
  }
  pthread_sigmask(SIG_BLOCK, &held, &gCallers);
  for (const int signal : kEndings) {
    if (sigismember(&gTaken, signal) == 1) {
      sigdelset(&gCallers, signal);
    }
  }
}

void signals_release() {
  if (--gDepth == 0) {
    sigset_t mask;
    sigorset(&mask, &gCallers, &gTaken);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  }
}

void signals_review(Poll& poll, bool publishing) {
  const bool is_init = getpid() == 1;
  const sigset_t wanted = publishing && !is_init ? to_be_taken() : kNone;
  if (std::memcmp(&wanted, &gTaken, sizeof wanted) == 0) {
    return;
  }
  const bool is_new = gWatch.fd < 0;
  const int fd = signalfd(gWatch.fd, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) {
    return;
  }
  gWatch = {fd, signal_arrived, nullptr};
  if (!is_new || poll_add(poll, gWatch)) {
    gTaken = wanted;
  }
}

int signals_fatal_caught(Poll& poll) {
  const int signal = std::exchange(gCaught, 0);
  if (signal != 0 && !has_default_action(signal)) {  // the program has installed a handler since
    signals_review(poll, false);
    kill(getpid(), signal);
    return 0;
  }
  return signal;
}

void signals_die_of(int signal) {
  sigset_t only{};
  sigaddset(&only, signal);
  pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  kill(getpid(), signal);
  _exit(kExitOfSignal + signal);
}

void signals_forget() {
  gTaken = kNone;
  gCaught = 0;
}

}  // namespace dnssd
