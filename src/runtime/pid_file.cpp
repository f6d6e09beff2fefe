// SPDX-License-Identifier: MIT
// Nothing holds a lock on the PID file; one instance a device rests on O_EXCL and on killing the process that an
// existing file names.
#include "runtime/pid_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "runtime/held_signals.h"
#include "runtime/log.h"
#include "runtime/settings.h"
#include "runtime/status.h"

int gConfigPIDFilehandle = 0;

namespace {

constexpr mode_t kPidFileMode = S_IRUSR | S_IWUSR;

// The longest int, a newline and the zero take 13.
constexpr std::size_t kPidTextSize = 16;

// Reads one number as fscanf's "%d" does, leading blanks and what follows the number included, but for one that no int
// holds: that is no number, where "%d" would make another one of it, -1 among them. A number that no long long holds is
// read as the nearest.
bool read_pid(std::FILE* stream, int* pid) {
  long long number = 0;
  if (std::fscanf(stream, "%lld", &number) != 1 || number < INT_MIN || number > INT_MAX) {
    return false;
  }
  *pid = static_cast<int>(number);
  return true;
}

void kill_previous_instance(std::FILE* stream, const char* aPIDfilename) {
  int previous_pid = 0;
  if (read_pid(stream, &previous_pid)) {
    log_message(LOG_DEBUG, "create_PID_file(): successfully read previous PID = %d, trying to kill now...",
                previous_pid);
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "WARNING 301803: Found existing PID file %s with PID - %d, calling kill(%d).", aPIDfilename,
                 previous_pid, previous_pid);
    kill(previous_pid, SIGKILL);
    return;
  }
  log_message(LOG_DEBUG, "create_PID_file(): could successfully read previous PID = %d, trying to kill now...",
              previous_pid);
  handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
               "WARNING 301804: Found existing PID file %s, but could not read PID from it, ignoring.", aPIDfilename);
}

void take_over_from_previous_instance(const char* aPIDfilename) {
  const int file = open_letting_signals_through(aPIDfilename, O_RDONLY);
  std::FILE* stream = file != -1 ? fdopen(file, "r") : nullptr;
  if (stream == nullptr) {
    fatal_error(MYSTATUS__FILE_ERROR, LOG_WARNING,
                "ERROR 301801: PID lock file %s found, but could not fopen for reading, exiting.", aPIDfilename);
  }
  handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
               "WARNING 301802: PID lock file %s exists -- reading for PID and then will try to issue kill signal....",
               aPIDfilename);
  wait_until_readable(file);
  kill_previous_instance(stream, aPIDfilename);
  std::fclose(stream);
}

void open_PID_file(const char* aPIDfilename) {
  gConfigPIDFilehandle = open(aPIDfilename, O_WRONLY | O_CREAT | O_EXCL, kPidFileMode);
  if (gConfigPIDFilehandle != -1) {
    return;
  }
  log_message(
      LOG_DEBUG,
      "create_PID_file(): attempting to create PID file: %s: ( gConfigPIDFilehandle == -1 ) -- so couldn't open file "
      "with O_WRONLY|O_CREAT|O_EXCL, so checking if the file already exists...",
      gSettings.pid_file);
  take_over_from_previous_instance(aPIDfilename);
  gConfigPIDFilehandle = open_letting_signals_through(aPIDfilename, O_WRONLY | O_CREAT | O_TRUNC, kPidFileMode);
  if (gConfigPIDFilehandle == -1) {
    fatal_error(MYSTATUS__FILE_ERROR, LOG_WARNING,
                "ERROR 301901: PID lock file could not be open for writing, exiting.");
  }
}

void write_PID_text(const char* text, const char* aPIDfilename) {
  if (write(gConfigPIDFilehandle, text, std::strlen(text)) == -1) {
    fatal_error(MYSTATUS__FILE_ERROR, LOG_WARNING, "ERROR: 301909: Could not write PID: %s to file %s, exiting", text,
                aPIDfilename);
  }
}

void sync_and_close(const char* aPIDfilename) {
  if (fsync(gConfigPIDFilehandle) != 0) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "WARNING 301910: Could not fsync PID file: %s, ignoring error and continuing execution.",
                 aPIDfilename);
  }
  if (close(gConfigPIDFilehandle) != 0) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "ERROR 301911: Could not close status file: %s, ignoring error and continuing execution.",
                 aPIDfilename);
  }
}

}  // namespace

void create_PID_file(const char* aPIDfilename) {
  log_message(LOG_DEBUG, "create_PID_file(): START: attempting to create aPIDfilename = %s ...", aPIDfilename);
  open_PID_file(aPIDfilename);
  char text[kPidTextSize];
  std::snprintf(text, sizeof(text), "%d\n", getpid());
  write_PID_text(text, aPIDfilename);
  sync_and_close(aPIDfilename);
  log_message(LOG_DEBUG, "create_PID_file(): FINISH: wrote PID: %s to aPIDfilename: %s.", text, aPIDfilename);
}
