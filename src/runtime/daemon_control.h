// SPDX-License-Identifier: MIT
// Becoming a daemon.
#pragma once

// Turns the started program into a background daemon: signal handling, fork, session, streams, directory, PID file. A
// process whose parent is init returns at once, with nothing of that done. The arguments are logged only; the settings
// hold the directory and the file that are used. May end the process (10, 30, 999), and always ends the parent (0).
void daemonize(const char* aRundir, const char* aPIDfile);

extern int gDaemonPID;  // what fork returned in the process that goes on: 0
extern int gSID;        // session id, as setsid returned it
