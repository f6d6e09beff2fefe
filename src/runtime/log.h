// SPDX-License-Identifier: MIT
// The one way of saying anything: log_message, and the syslog masks.
#pragma once

#include <syslog.h>

#include <cstdio>

// Verbosity that shows everything in debug mode.
inline constexpr int gLOG_DBG = 5;

// The two syslog masks: up to LOG_ERR, and everything.
inline constexpr int kSyslogMaskErrors = LOG_UPTO(LOG_ERR);        // 15
inline constexpr int kSyslogMaskEverything = LOG_UPTO(LOG_DEBUG);  // 255

// All written by start-up (main), and gDBG for a moment by the table dump.
extern int gDBG;                  // 0: messages go to syslog; else to gDebugStream
extern int gLogLevel;             // verbosity in debug mode
extern std::FILE* gDebugStream;   // never null once main has begun
extern const char* gProgramName;  // argv[0] after its last '/'

// Logs one message: in normal mode through syslog; in debug mode to gDebugStream as "mdnsproxy.c:LINE:message\n",
// flushed, when gLogLevel is above the priority's threshold (LOG_ERR 1, LOG_WARNING 2, everything else 4). Never ends
// the process. It is a macro because the line is the caller's.
#define log_message(priority, ...) log_message_at(__LINE__, (priority), __VA_ARGS__)

void log_message_at(int line, int priority, const char* format, ...) __attribute__((format(printf, 3, 4)));

// For "%s" of a text that may be missing.
inline const char* text_or_null(const char* text) { return text != nullptr ? text : "(null)"; }

// Writes the local wall-clock time to standard output as "%2d:%02d:%02d.%03d  ". No newline, no flush.
void print_timestamp();
