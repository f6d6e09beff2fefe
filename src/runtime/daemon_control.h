// SPDX-License-Identifier: MIT
// Becoming a daemon, and the PID file.
#pragma once

// Turns the started program into a background daemon: signal handling, fork, session, streams, directory, PID file. A
// process whose parent is init returns at once, with nothing of that done. The arguments are logged only; the settings
// hold the directory and the file that are used. May end the process (10, 30, 999), and always ends the parent (0).
void daemonize(const char* aRundir, const char* aPIDfile);

// Makes the PID file with this process's id, killing (SIGKILL) the process that an existing one names. Where a FIFO
// stands in its place, that waits for a writer and then for a reader. May end the process (10, 30).
void create_PID_file(const char* aPIDfilename);

// Removes the PID file; a failure is reported to syslog at LOG_CRIT and changes nothing else.
void close_and_delete_PID_file(const char* aPIDfilename);

extern int gDaemonPID;            // what fork returned in the process that goes on: 0
extern int gSID;                  // session id, as setsid returned it
extern int gConfigPIDFilehandle;  // descriptor of the PID file while it is written; -1 after a failed open
