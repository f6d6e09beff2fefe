// SPDX-License-Identifier: MIT
// The way out, in reading order: handle_error and fatal_error, exit_clean, vexit_clean, update_status_file,
// close_and_delete_PID_file, exit_clean_no_update_status_file.
#include "runtime/status.h"

#include <dns_sd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdlib>

#include "runtime/connections.h"
#include "runtime/held_signals.h"
#include "runtime/log.h"
#include "runtime/settings.h"
#include "state/state.h"

std::FILE* gMyStatusFilehandle = nullptr;
sem_t gStatusFileSemaphore;
bool gStatusFileSemaphoreCreated = false;

namespace {

// The longest message format of the program is a fifth of this; what is shown of it without its values is hardly
// longer.
constexpr std::size_t kDetachedMessageSize = 1024;

void release_connection(DNSServiceRef connection) {
  if (connection != nullptr) {
    DNSServiceRefDeallocate(connection);
  }
}

void log_clean_exit(int status) {
  log_message(LOG_DEBUG, "%s (version %s) EXITING CLEAN with status = %d from verbose debug logging mode.",
              gProgramName, gSettings.version, status);
}

// As fopen's "w" opens a file; the process's mask narrows the mode.
constexpr int kStatusFileFlags = O_WRONLY | O_CREAT | O_TRUNC;
constexpr mode_t kStatusFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

// A FIFO stands in the status file's place, and an update waits until somebody reads it.
bool gReaderIsAwaited = false;

// -1 and ENXIO: a FIFO that nobody reads.
int open_without_waiting() {
  const int file = open(gSettings.status_file, kStatusFileFlags | O_NONBLOCK, kStatusFileMode);
  if (file != -1) {
    fcntl(file, F_SETFL, O_WRONLY);  // only the opening is not to wait
  }
  return file;
}

int open_when_read() {
  gReaderIsAwaited = true;
  const int file = open_letting_signals_through(gSettings.status_file, kStatusFileFlags, kStatusFileMode);
  gReaderIsAwaited = false;
  return file;
}

// False, with nothing open: a FIFO that nobody reads, at an end that a signal asked for and that therefore waits for
// nobody.
bool open_status_file(int status) {
  log_message(LOG_DEBUG, "update_status_file(): (gMyStatusFilehandle == NULL), attempting to open the file: %s ...",
              gSettings.status_file);
  int file = open_without_waiting();
  if (file == -1 && errno == ENXIO) {
    if (status == MYSTATUS__TERMINATED) {
      return false;
    }
    file = open_when_read();
  }
  gMyStatusFilehandle = file != -1 ? fdopen(file, "w") : nullptr;
  if (gMyStatusFilehandle == nullptr) {
    log_message(LOG_ERR, "ERROR 30130117011910: Could not open status file %s, exiting", gSettings.status_file);
    exit_clean_no_update_status_file(MYSTATUS__FILE_ERROR);
  }
  return true;
}

// A write to the stream only shows its error (a full disk, say) once the bytes are on their way, so each is sent off at
// once.
void end_unless_written(int result) {
  if (result < 0 || std::fflush(gMyStatusFilehandle) != 0) {
    log_message(LOG_ERR, "ERROR 30130117011911: Could not write to status file %s, exiting", gSettings.status_file);
    exit_clean_no_update_status_file(MYSTATUS__FILE_ERROR);
  }
}

// Before the semaphores are made there is nothing to wait for; the report of their failure comes this way.
void lock_status_file() {
  if (gStatusFileSemaphoreCreated) {
    sem_wait(&gStatusFileSemaphore);
  }
}

void unlock_status_file() {
  if (gStatusFileSemaphoreCreated) {
    sem_post(&gStatusFileSemaphore);
  }
}

// What handle_error and fatal_error log speaks of handle_error() in both cases: an interface, see docs/interface.md.

void report(int status, int syslog_level, const char* format, va_list args) __attribute__((format(printf, 3, 0)));

void report(int status, int syslog_level, const char* format, va_list args) {
  log_message(LOG_DEBUG, "handle_error(): aMyStatusCode = %d, aSyslogLevel = %d, (aFormat and va_list omitted) ...",
              status, syslog_level);
  vsyslog(syslog_level, format, args);
}

[[noreturn]] void end_after_report(int status, const char* format) {
  log_message(LOG_ERR, "handle_error(): aMyStatusCode = %d != MYSTATUS__RUNNING__OK, calling exit_clean()...", status);
  char message[kDetachedMessageSize];
  detached_message(message, sizeof(message), format);
  exit_clean(status, "%s", message);
}

}  // namespace

void handle_error(int aMyStatusCode, int aSyslogLevel, const char* aFormat, ...) {
  va_list args;
  va_start(args, aFormat);
  report(aMyStatusCode, aSyslogLevel, aFormat, args);
  va_end(args);
  if (aMyStatusCode != MYSTATUS__RUNNING__OK) {
    end_after_report(aMyStatusCode, aFormat);
  }
  log_message(LOG_DEBUG, "handle_error(): aMyStatusCode = %d == MYSTATUS__RUNNING__OK, continuing execution...",
              aMyStatusCode);
}

void fatal_error(int aMyStatusCode, int aSyslogLevel, const char* aFormat, ...) {
  assert(aMyStatusCode != MYSTATUS__RUNNING__OK);
  va_list args;
  va_start(args, aFormat);
  report(aMyStatusCode, aSyslogLevel, aFormat, args);
  va_end(args);
  end_after_report(aMyStatusCode, aFormat);
}

void exit_clean(int status, const char* format, ...) {
  log_message(LOG_DEBUG, "exit_clean(): exit_status = %d ...", status);
  va_list args;
  va_start(args, format);
  vexit_clean(status, format, args);
}

void vexit_clean(int status, const char* format, va_list args) {
  log_message(LOG_DEBUG, "vexit_clean(): exit_status = %d ...", status);
  update_status_file(status, format, args);
  exit_clean_no_update_status_file(status);
}

void update_status_file(int status, const char* format, va_list args) {
  log_message(LOG_DEBUG, "update_status_file(): aNewMYSTATUS = %d ...", status);
  if (gReaderIsAwaited) {  // by an update that a signal has interrupted, and that holds the semaphore
    return;
  }
  lock_status_file();
  if (open_status_file(status)) {
    end_unless_written(std::fprintf(gMyStatusFilehandle, "%d\n", status));
    end_unless_written(std::vfprintf(gMyStatusFilehandle, format, args));
    std::fputc('\n', gMyStatusFilehandle);
    std::fclose(gMyStatusFilehandle);
    gMyStatusFilehandle = nullptr;
  }
  unlock_status_file();
}

void vupdate_status_file(int status, const char* format, ...) {
  log_message(LOG_DEBUG, "vupdate_status_file(): aNewMYSTATUS = %d ...", status);
  va_list args;
  va_start(args, format);
  update_status_file(status, format, args);
  va_end(args);
}

void close_and_delete_PID_file(const char* aPIDfilename) {
  log_message(LOG_DEBUG, "close_and_delete_PID_file(): aPIDfilename = %s ...", aPIDfilename);
  if (unlink(aPIDfilename) != 0) {
    syslog(LOG_CRIT,
           "ERROR 301903: Could not unlink (delete) PID lock file %s, (did you run sudo or as root?), exiting",
           aPIDfilename);
  }
  log_message(LOG_DEBUG, "close_and_delete_PID_file(): %s unlocked and remove()'d.", aPIDfilename);
}

void exit_clean_no_update_status_file(int status) {
  log_message(LOG_DEBUG, "exit_clean_no_update_status_file(): exit_status = %d ...", status);
  state_ends(status);
  release_connection(gDNSServiceRef_Shared);
  release_connection(gDNSServiceRef_RegisterRecord);
  log_clean_exit(status);
  closelog();
  close_and_delete_PID_file(gSettings.pid_file);
  log_clean_exit(status);
  std::exit(status);
}
