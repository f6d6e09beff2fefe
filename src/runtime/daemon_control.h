// SPDX-License-Identifier: MIT
// Becoming a daemon, the PID file, and signals.
#pragma once

#include <csignal>

// Turns the started program into a background daemon: signal handling, fork, session, streams, directory, PID file. A
// process whose parent is init returns at once, with nothing of that done. The arguments are logged only; the settings hold
// the directory and the file that are used. May end the process (30, 999), and always ends the parent (0).
void daemonize(const char* aRundir, const char* aPIDfile);

// The one handler of every signal that daemonize installs. Ends the process with status 10 for SIGHUP, SIGINT, SIGQUIT and
// SIGTERM. Runs only where held signals are let through (see below), so it may use what is not async-signal-safe.
void signal_handler(int aSignal);

// Makes the PID file with this process's id, killing (SIGKILL) the process that an existing one names. May end the process (30).
void create_PID_file(const char* aPIDfilename);

// Removes the PID file; a failure is reported to syslog at LOG_CRIT and changes nothing else.
void close_and_delete_PID_file(const char* aPIDfilename);

// The handled signals are held back while the daemon works and let through only where it waits: in the event loop's pselect
// (with the mask of wait_signal_mask) and in the two pauses. So the handler never runs in the middle of malloc, syslog or a
// status update. Before daemonize has installed the handler nothing is held, and these do nothing special.

// The mask to wait with: the one the process had before its handled signals were held back. Null before that.
const sigset_t* wait_signal_mask();

// Lets the handler run for the held signals that are pending now. May end the process (10).
void deliver_held_signals();

// Sleeps with the held signals let through. A signal cuts the pause short, as it does sleep's and usleep's; one that was pending
// already does so before the pause begins. May end the process (10).
void pause_microseconds(unsigned microseconds);
void pause_seconds(unsigned seconds);

extern int gDaemonPID;            // what fork returned in the process that goes on: 0
extern int gSID;                  // session id, as setsid returned it
extern int gConfigPIDFilehandle;  // descriptor of the PID file while it is written; -1 after a failed open
