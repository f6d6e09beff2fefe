// SPDX-License-Identifier: MIT
// The steps of daemonize that concern signals. What the rest of the program needs of signals is in daemon_control.h.
#pragma once

// Blocks SIGCHLD, SIGTSTP, SIGTTOU and SIGTTIN for the life of the process.
void block_job_control_signals();

// Installs signal_handler for the seven handled signals. No SA_RESTART: a signal ends a wait.
void install_signal_handler();

// Blocks the seven handled signals from here on, and remembers the mask to wait with.
void hold_handled_signals();
