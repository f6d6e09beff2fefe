// SPDX-License-Identifier: MIT
// The signal handler. held_signals.h says where it may run.
#pragma once

// Installs signal_handler for the seven handled signals. No SA_RESTART: a signal ends a wait.
void install_signal_handler();

// The one handler of every signal that daemonize installs. Ends the process with status 10 for SIGHUP, SIGINT, SIGQUIT
// and SIGTERM. Runs only where held signals are let through, so it may use what is not async-signal-safe.
void signal_handler(int aSignal);
