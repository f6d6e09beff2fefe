// SPDX-License-Identifier: MIT
// Status codes, the error reporter, the exit paths and the status file.
#pragma once

#include <semaphore.h>

#include <cstdarg>
#include <cstdio>

// One signed int is both the daemon's state in the status file and its exit status (of which the kernel keeps eight
// bits).
enum MyStatus : int {
  MYSTATUS__RUNNING__OK = 0,  // running; a warning that continues
  MYSTATUS__STARTING_UP = 1,
  MYSTATUS__TERMINATED = 10,  // by SIGHUP, SIGINT, SIGQUIT or SIGTERM
  MYSTATUS__NO_MEMORY = 20,
  MYSTATUS__FILE_ERROR = 30,       // status file or PID file
  MYSTATUS__INTERFACE_ERROR = 40,  // lookup failed, or two of one name
  MYSTATUS__SERVICES_FILE = 110,
  MYSTATUS__RULES_FILE = 120,
  MYSTATUS__DNSSD_ERROR = 600,  // a call that must not fail, or an internal consistency check
  MYSTATUS__ARRAY_ERROR = 800,
  MYSTATUS__SYSTEM_ERROR = 999,  // semaphores, fork, setsid
};

// Reports one error: always to syslog at aSyslogLevel, whatever the mode. Status 0 returns; any other ends the process
// as fatal_error does. For warnings, and where the status is known only at run time.
void handle_error(int aMyStatusCode, int aSyslogLevel, const char* aFormat, ...) __attribute__((format(printf, 3, 4)));

// The same for an error that always ends the process: reports it and goes through exit_clean. The message line of the
// status file is aFormat with every conversion showing one value that is none of the caller's (see detached_message).
// A status of 0 is our own bug; the process ends all the same.
[[noreturn]] void fatal_error(int aMyStatusCode, int aSyslogLevel, const char* aFormat, ...)
    __attribute__((format(printf, 3, 4)));

// Writes status and formatted message to the status file (see update_status_file), releases and exits with `status`.
// Never return.
[[noreturn]] void exit_clean(int status, const char* format, ...) __attribute__((format(printf, 2, 3)));
[[noreturn]] void vexit_clean(int status, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

// Removes the PID file; a failure is reported to syslog at LOG_CRIT and changes nothing else.
void close_and_delete_PID_file(const char* aPIDfilename);

// Releases both DNS-SD connections that exist, closes syslog, removes the PID file, exits. The status file stays as it
// is.
[[noreturn]] void exit_clean_no_update_status_file(int status);

// Rewrites the status file: "%d\n" of the status, the formatted message, "\n". A file that cannot be opened or written
// ends the process with status 30 and without a status file. Where a FIFO stands in its place, the update waits until
// somebody reads it, with the held signals let through (may end the process with 10); the update of an end by signal
// does not wait and is left out.
void update_status_file(int status, const char* format, va_list args) __attribute__((format(printf, 2, 0)));
void vupdate_status_file(int status, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Renders `format` into buffer[size] without any of the caller's arguments: an integer conversion shows
// kDetachedNumber, a text conversion kDetachedText. No argument is read, so every format is safe. Returns the length
// that the whole text has, as snprintf does.
int detached_message(char* buffer, std::size_t size, const char* format);

// The largest int: no signal, status, size, process id or DNS-SD error of this program has it, so it shows no caller's
// value.
inline constexpr int kDetachedNumber = 2147483647;
inline constexpr const char* kDetachedText = "(list)";

extern std::FILE* gMyStatusFilehandle;    // open while one update is being written, else null
extern sem_t gStatusFileSemaphore;        // created by main_init; one update at a time
extern bool gStatusFileSemaphoreCreated;  // false: not created yet, updates do not wait for it
