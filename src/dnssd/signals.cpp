// SPDX-License-Identifier: MIT
// Lifecycle of a taken signal: signals_review blocks it in the mask that the caller gets back, and adds it to the signalfd;
// when it arrives the watch notes it, and the engine's pass ends in signals_die_if_caught. It is given back as soon as
// nothing is registered any more.
#include "dnssd/signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "dnssd/engine.h"

namespace dnssd {
namespace {

// A fault in the library's own code must be seen at once, and blocked it would end the process without a handler.
constexpr int kFaults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP};

// What init, a terminal or a shell sends to end a process.
constexpr int kEndings[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

// Kills by the default action, in a shell's way of counting, should the signal raised again come back.
constexpr int kExitOfSignal = 128;

int gDepth = 0;     // frames
sigset_t gCallers;  // the mask to restore when the outermost frame ends
sigset_t gTaken;    // valid while gAnyTaken
bool gAnyTaken = false;
AvahiWatch* gWatch = nullptr;  // on the signalfd, while any signal is taken
int gDescriptor = -1;
int gCaught = 0;  // a taken signal that has arrived, 0: none

bool has_default_action(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

bool is_taken(int signal) { return gAnyTaken && sigismember(&gTaken, signal) == 1; }

bool is_to_be_taken(int signal) {
  return has_default_action(signal) && (is_taken(signal) || sigismember(&gCallers, signal) == 0);
}

void signal_arrived(AvahiWatch*, int fd, AvahiWatchEvent, void*) {
  signalfd_siginfo info{};
  if (read(fd, &info, sizeof info) == sizeof info) {
    gCaught = static_cast<int>(info.ssi_signo);
  }
}

// Adds to the callers' mask what is in `set` (SIG_BLOCK), or takes it out (SIG_UNBLOCK).
void change_callers_mask(int how, const sigset_t& set) {
  for (const int signal : kEndings) {
    if (sigismember(&set, signal) != 1) {
      continue;
    }
    if (how == SIG_BLOCK) {
      sigaddset(&gCallers, signal);
    }
    if (how == SIG_UNBLOCK) {
      sigdelset(&gCallers, signal);
    }
  }
}

void give_back() {
  if (!gAnyTaken) {
    return;
  }
  change_callers_mask(SIG_UNBLOCK, gTaken);
  gAnyTaken = false;
  if (gWatch != nullptr) {
    poll_watch_free(gWatch);
  }
  if (gDescriptor >= 0) {
    close(gDescriptor);
  }
  gWatch = nullptr;
  gDescriptor = -1;
}

// Makes `wanted` what is taken, if it is not so already.
void take(const sigset_t& wanted) {
  const int fd = signalfd(gDescriptor, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) {
    return;
  }
  gDescriptor = fd;
  if (gWatch == nullptr) {
    const AvahiPoll api = poll_api(gEngine->poll);
    gWatch = poll_watch_new(&api, gDescriptor, AVAHI_WATCH_IN, signal_arrived, nullptr);
  }
  if (gAnyTaken) {
    change_callers_mask(SIG_UNBLOCK, gTaken);
  }
  change_callers_mask(SIG_BLOCK, wanted);
  gTaken = wanted;
  gAnyTaken = true;
}

bool differs_from_taken(const sigset_t& wanted) {
  for (const int signal : kEndings) {
    if ((sigismember(&wanted, signal) == 1) != is_taken(signal)) {
      return true;
    }
  }
  return false;
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
  if (!publishing || is_init) {
    give_back();
    return;
  }
  sigset_t wanted;
  sigemptyset(&wanted);
  bool any = false;
  for (const int signal : kEndings) {
    if (!is_to_be_taken(signal)) {
      continue;
    }
    sigaddset(&wanted, signal);
    any = true;
  }
  if (!any) {
    give_back();
  } else if (differs_from_taken(wanted)) {
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
  if (!gAnyTaken) {
    return;
  }
  change_callers_mask(SIG_UNBLOCK, gTaken);
  gAnyTaken = false;
  gWatch = nullptr;  // freed by nobody: it is part of the parent's engine
  gDescriptor = -1;  // closed with the watches
  gCaught = 0;
}

}  // namespace dnssd
