// SPDX-License-Identifier: MIT
// Lifecycle of a taken signal: signals_review blocks it in the mask that the caller gets back, and adds it to the signalfd;
// when it arrives the watch notes it, and the engine's pass ends in signals_die_if_caught. It is given back as soon as
// nothing is registered any more.
#include "dnssd/signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <iterator>

#include "dnssd/engine.h"

namespace dnssd {
namespace {

// A fault in the library's own code must be seen at once, and blocked it would end the process without a handler.
constexpr int kFaults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP};

// What init, a terminal or a shell sends to end a process.
constexpr int kEndings[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

// Kills by the default action, in a shell's way of counting, should the signal raised again come back.
constexpr int kExitOfSignal = 128;

int gDepth = 0;       // frames
sigset_t gCallers;    // the mask to restore when the outermost frame ends
unsigned gTaken = 0;  // a bit for each of kEndings
Watch gWatch;         // on a signalfd, while any signal is taken
int gCaught = 0;      // a taken signal that has arrived, 0: none

constexpr std::size_t kEndingsCount = std::size(kEndings);

bool has_default_action(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

// Those that the program leaves to their default action and has not blocked itself.
unsigned to_be_taken() {
  unsigned wanted = 0;
  for (std::size_t i = 0; i < kEndingsCount; ++i) {
    const bool is_free = (gTaken >> i & 1) != 0 || sigismember(&gCallers, kEndings[i]) == 0;
    wanted |= is_free && has_default_action(kEndings[i]) ? 1u << i : 0;
  }
  return wanted;
}

void signal_arrived(void*) {
  signalfd_siginfo info{};
  if (read(gWatch.fd, &info, sizeof info) == sizeof info) {
    gCaught = static_cast<int>(info.ssi_signo);
  }
}

// Notes what is taken now: that is blocked in the callers' mask, and what was taken before no longer.
void note_taken(unsigned wanted) {
  for (std::size_t i = 0; i < kEndingsCount; ++i) {
    if (wanted >> i & 1) {
      sigaddset(&gCallers, kEndings[i]);
    } else if (gTaken >> i & 1) {
      sigdelset(&gCallers, kEndings[i]);
    }
  }
  gTaken = wanted;
}

void take(unsigned wanted) {
  sigset_t set;
  sigemptyset(&set);
  for (std::size_t i = 0; i < kEndingsCount; ++i) {
    if (wanted >> i & 1) {
      sigaddset(&set, kEndings[i]);
    }
  }
  const bool is_new = gWatch.fd < 0;
  const int fd = signalfd(gWatch.fd, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) {
    return;
  }
  gWatch = {fd, signal_arrived, nullptr};
  if (!is_new || poll_add(gEngine->poll, gWatch)) {
    note_taken(wanted);
  }
}

void give_back() {
  if (gTaken != 0) {
    note_taken(0);
    poll_remove(gEngine->poll, gWatch);
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
}

void signals_release() {
  if (--gDepth == 0) {
    const sigset_t callers = gCallers;
    pthread_sigmask(SIG_SETMASK, &callers, nullptr);
  }
}

void signals_review(bool publishing) {
  const bool is_init = getpid() == 1;
  const unsigned wanted = publishing && !is_init ? to_be_taken() : 0;
  if (wanted == 0) {
    give_back();
  } else if (wanted != gTaken) {
    take(wanted);
  }
}

void signals_die_if_caught() {
  if (gCaught == 0) {
    return;
  }
  const int signal = gCaught;
  gCaught = 0;
  const bool is_ours = has_default_action(signal);
  if (is_ours) {
    engine_close();
  }
  give_back();
  if (is_ours) {
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    kill(getpid(), signal);
    _exit(kExitOfSignal + signal);
  }
  kill(getpid(), signal);
}

void signals_forget() {
  note_taken(0);
  gWatch.fd = -1;  // closed with the other watches
  gCaught = 0;
}

}  // namespace dnssd
