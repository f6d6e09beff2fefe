// SPDX-License-Identifier: MIT
// A daemon that was started by hand has this handler. Under init, and so as a unit, it is not installed (daemonize):
// there the DNS-SD library sends the goodbyes before a signal ends the process (dnssd/base/signals.cpp).
//
// Lifecycle of a handled signal:
// 1. It arrives while the daemon works: the kernel keeps it pending.
// 2. The daemon comes to a wait (pselect, a pause, the open of what may be a FIFO) and lets it through: signal_handler
//    runs, and nothing else is under way.
// 3. signal_handler holds all of them again first, so that a second one cannot nest into its exit path. One that the
//    kernel had started to deliver together with the first runs its handler before or after, never within.
#include "runtime/signals.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "runtime/held_signals.h"
#include "runtime/log.h"
#include "runtime/status.h"

void install_signal_handler() {
  struct sigaction action = {};
  action.sa_handler = signal_handler;
  sigemptyset(&action.sa_mask);
  for (int signal_number : kHandledSignals) {
    sigaction(signal_number, &action, nullptr);
  }
}

void signal_handler(int aSignal) {
  const int error = errno;  // of the wait that it interrupts
  hold_signals_again();
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
