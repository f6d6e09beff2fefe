// SPDX-License-Identifier: MIT
// From a program to a daemon, in reading order: daemonize and its steps. Signals and the PID file have files of their
// own.
#include "runtime/daemon_control.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>

#include "runtime/held_signals.h"
#include "runtime/log.h"
#include "runtime/pid_file.h"
#include "runtime/settings.h"
#include "runtime/signals.h"
#include "runtime/status.h"

int gDaemonPID = 0;
int gSID = 0;

namespace {

constexpr pid_t kInit = 1;

// Ends the parent. Its trace shows the parent's own parent where one expects the child; log readers know it so.
[[noreturn]] void end_parent(pid_t parent_of_parent) {
  log_message(
      LOG_DEBUG,
      "daemonize(): fork() returned PID: %d, child process created ok, so exit parent process (getpid() = %d)...",
      parent_of_parent, getpid());
  std::exit(0);
}

void go_on_in_child(pid_t parent) {
  gDaemonPID = fork();
  if (gDaemonPID < 0) {
    fatal_error(MYSTATUS__SYSTEM_ERROR, LOG_WARNING,
                "ERROR 9991301141911: fork(): returned PID = %d, could not start the child process, exiting.",
                gDaemonPID);
  }
  if (gDaemonPID > 0) {
    end_parent(parent);
  }
  log_message(LOG_DEBUG, "daemonize(): child process processing START (getpid() = %d) ...", getpid());
}

void start_session() {
  gSID = setsid();
  log_message(LOG_DEBUG, "daemonize(): get new process group: gSID = setsid() = %d ...", gSID);
  if (gSID < 0) {
    fatal_error(MYSTATUS__SYSTEM_ERROR, LOG_WARNING,
                "ERROR 99901141905: setsid(): returned %d, this is unhandled, exiting.", gSID);
  }
}

// In debug mode the streams stay: the debug stream is one of them.
void detach_standard_streams() {
  log_message(LOG_DEBUG, "daemonize(): Route I/O connections: gDBG = %d ...", gDBG);
  if (gDBG != 0) {
    return;
  }
  const int null_device = open("/dev/null", O_RDWR);
  if (null_device != -1) {
    dup2(null_device, STDIN_FILENO);
    dup2(null_device, STDOUT_FILENO);
    dup2(null_device, STDERR_FILENO);
  }
  close(null_device);
}

void change_to_run_directory() {
  log_message(LOG_DEBUG, "daemonize(): change running directory to: %s ...", gSettings.run_directory);
  [[maybe_unused]] const int ignored = chdir(gSettings.run_directory);  // no file of ours is named relative to it
}

}  // namespace

void daemonize(const char* aRundir, const char* aPIDfile) {
  log_message(LOG_DEBUG, "daemonize(): aRundir = %s, aPIDfile = %s ...", aRundir, aPIDfile);
  log_message(LOG_DEBUG, "daemonize(): checking if we're already a child process  ...");
  const pid_t parent = getppid();
  if (parent == kInit) {
    log_message(LOG_DEBUG, "daemonize(): getppid() returned %d, so already a child process.", parent);
    return;
  }
  log_message(LOG_DEBUG, "daemonize(): getppid() returned %d, so NOT already a child process, fork()'ing now...",
              parent);
  block_job_control_signals();
  hold_handled_signals();
  install_signal_handler();
  go_on_in_child(parent);
  start_session();
  detach_standard_streams();
  change_to_run_directory();
  log_message(LOG_DEBUG, "daemonize(): creating PID file ...");
  create_PID_file(gSettings.pid_file);
}
