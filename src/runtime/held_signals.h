// SPDX-License-Identifier: MIT
// The handled signals, and the waits that let them through.
//
// The seven handled signals are held back while the daemon works and let through only where it waits: in the event
// loop's pselect (with the mask of wait_signal_mask), in the two pauses, and while a FIFO's other end is awaited. So
// the handler (signals.h) never runs in the middle of malloc or syslog, and of a status update only where that waits.
// Before daemonize has held them back nothing is held, and these functions do nothing special.
#pragma once

#include <sys/types.h>

#include <csignal>

inline constexpr int kHandledSignals[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO};

// The first steps of daemonize, in its order. They come before the handler, so that it cannot run before it is wanted.

// Blocks SIGCHLD, SIGTSTP, SIGTTOU and SIGTTIN for the life of the process.
void block_job_control_signals();

// Blocks the seven handled signals from here on, and remembers the mask to wait with.
void hold_handled_signals();

// Blocks them again, for a handler that has been let through; the mask to wait with stays.
void hold_signals_again();

// The mask to wait with: the one the process had before its handled signals were held back. Null before that.
const sigset_t* wait_signal_mask();

// Lets the handler run for the held signals that are pending now. May end the process (10).
void deliver_held_signals();

// Sleeps with the held signals let through. One that arrives during the pause and does not end the process cuts it
// short, as it does sleep's and usleep's; one that is pending already is handled first, and the pause then takes its
// whole time. May end the process (10).
void pause_microseconds(unsigned microseconds);
void pause_seconds(unsigned seconds);

// As open(2), with the held signals let through: a FIFO lets it wait for its other end. A signal that does not end the
// process does not end the wait. Returns the descriptor, or -1 and errno. May end the process (10).
int open_letting_signals_through(const char* path, int flags, mode_t mode = 0);

// Waits, with the held signals let through, until `file` has something to read or is at its end; a regular file always
// is ready. May end the process (10).
void wait_until_readable(int file);
