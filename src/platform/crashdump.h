// SPDX-License-Identifier: MIT
// The crash report of last resort.
#pragma once

// Installs, for SEGV, BUS, FPE, ILL and ABRT, a handler that writes program, version, signal, the address of a fault
// and a backtrace (where the C library can tell it) to standard error and syslog and then lets the default action end
// the process and make the core file. Works on a stack of its own, so that a stack overflow is reported too. `argv0`
// names the program (null: "mdnsproxy"); its text must live as long as the process. 0, or -1 when a handler could not
// be installed.
int crashdump_init(const char* argv0);
