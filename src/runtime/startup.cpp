// SPDX-License-Identifier: MIT
// main_init's steps in reading order; the event loop has a file of its own.
#include "runtime/startup.h"

#include <unistd.h>

#include <cstring>

#include "platform/vcm.h"
#include "runtime/connections.h"
#include "runtime/daemon_control.h"
#include "runtime/log.h"
#include "runtime/settings.h"
#include "runtime/status.h"

int gOptionChar = 0;
sem_t gIfNameToIndexSemaphore;
sem_t gServiceTypeToIdSemaphore;
sem_t gRulesSemaphore;

namespace {

constexpr int kLogLevelSize = 64;

// Only the beginning of the level's text counts: "enabled" and "enable1" do as well.
constexpr const char* kLogLevelEnable = "enable";

void apply_configured_log_level() {
  char level[kLogLevelSize] = {};
  VcmXact xact = nullptr;
  vcm_beginXact(&xact);
  if (vcm_mdnsproxy_sget_log_level(xact, level, kLogLevelSize) == 0 &&
      std::strncmp(level, kLogLevelEnable, std::strlen(kLogLevelEnable)) == 0) {
    setlogmask(kSyslogMaskEverything);
  }
  vcm_cancelXact(&xact);
}

bool create_semaphore(sem_t* semaphore) { return sem_init(semaphore, 0, 1) != -1; }

void create_semaphores() {
  if (!create_semaphore(&gIfNameToIndexSemaphore) || !create_semaphore(&gServiceTypeToIdSemaphore) ||
      !create_semaphore(&gRulesSemaphore) || !create_semaphore(&gStatusFileSemaphore)) {
    fatal_error(
        MYSTATUS__SYSTEM_ERROR, LOG_WARNING,
        "ERROR 99913011401: sem_init returned -1, are POSIX semaphores available on this system?  Unrecoverable error, "
        "exiting.");
  }
  gStatusFileSemaphoreCreated = true;
}

void test_first_trywait() {
  log_message(LOG_DEBUG, "main_init(): testing semaphores...  ");
  if (sem_trywait(&gIfNameToIndexSemaphore) != 0) {
    if (gDBG != 0) {
      log_message(LOG_DEBUG, "main_init(): sem_trywait() FAIL, exiting.");
    }
    fatal_error(
        MYSTATUS__SYSTEM_ERROR, LOG_WARNING,
        "ERROR 99913011403: sem_trywait() FAILED, are POSIX semaphores available on this system?  Unrecoverable error, "
        "exiting.");
  }
  log_message(LOG_DEBUG, "main_init(): sem_trywait() works...  testing if sem_trywait() fails now...  ");
}

void test_second_trywait() {
  if (sem_trywait(&gIfNameToIndexSemaphore) == 0) {
    fatal_error(
        MYSTATUS__SYSTEM_ERROR, LOG_WARNING,
        "ERROR 99913011402: sem_trywait() FAILED to error on second attempt to lock, are POSIX semaphores available on "
        "this system?  Unrecoverable error, exiting.");
  }
  log_message(LOG_DEBUG, "main_init(): sem_trywait() failed second time (correctly)...  ");
}

void test_wait_and_post() {
  log_message(LOG_DEBUG, "main_init(): calling sem_post()...  ");
  sem_post(&gIfNameToIndexSemaphore);
  log_message(LOG_DEBUG, "main_init(): trying sem_wait()... ");
  sem_wait(&gIfNameToIndexSemaphore);
  log_message(LOG_DEBUG, "main_init(): sem_wait() succeded, calling sem_post()... ");
  sem_post(&gIfNameToIndexSemaphore);
  log_message(LOG_DEBUG, "main_init(): semaphore testing complete.");
}

// The second message shows the first connection's result, which is 0 whenever it is reached.
void connect_to_responder() {
  const DNSServiceErrorType shared = DNSServiceCreateConnection(&gDNSServiceRef_Shared);
  if (shared != kDNSServiceErr_NoError) {
    fatal_error(
        MYSTATUS__DNSSD_ERROR, LOG_WARNING,
        "ERROR 1301181516: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: %ld, CRITICAL ERROR, exiting.",
        static_cast<long>(shared));
  }
  const DNSServiceErrorType register_record = DNSServiceCreateConnection(&gDNSServiceRef_RegisterRecord);
  if (register_record != kDNSServiceErr_NoError) {
    fatal_error(
        MYSTATUS__DNSSD_ERROR, LOG_WARNING,
        "ERROR 1301301624: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: %ld, CRITICAL ERROR, exiting.",
        static_cast<long>(shared));
  }
}

}  // namespace

void main_init() {
  apply_configured_log_level();
  log_message(LOG_DEBUG, "main_init...");
  create_semaphores();
  daemonize(gSettings.run_directory, gSettings.pid_file);
  vupdate_status_file(MYSTATUS__STARTING_UP, "Starting up, deamon PID = %d", gDaemonPID);
  test_first_trywait();
  test_second_trywait();
  test_wait_and_post();
  connect_to_responder();
  log_message(LOG_DEBUG, "main_init(): FINISHED.\n\n");
}

int getfirstoption(int argc, char** argv, const char* optstring, int* index) {
  log_message(LOG_DEBUG, "getfirstoption(): START: else (! NOT_HAVE_GETOPT) ...\n");
  const int option = getopt(argc, argv, optstring);
  *index = optind;
  return option;
}
