// SPDX-License-Identifier: MIT
// mdnsproxy: start-up, then the event loop.

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>

#include "config/config.h"
#include "platform/platform.h"
#include "platform/program_name.h"
#include "platform/settings_reading.h"
#include "runtime/runtime.h"
#include "state/state.h"
#include "tables/tables.h"

namespace {

// A crash on a customer's device is worth its whole core file. Where the limit may not be raised, the old one stays.
void raise_core_limit() {
  const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
  setrlimit(RLIMIT_CORE, &unlimited);
}

void switch_to_debug_mode() {
  gDBG = 1;
  gDebugStream = stdout;
  gLogLevel = gLOG_DBG;
  log_message(LOG_DEBUG, "\n\n\t\tmain(): *** Got D -- using debug level gLOG_DBG ***\n\n");
  closelog();
  openlog(gProgramName, LOG_PID | LOG_CONS | LOG_NDELAY | LOG_PERROR, LOG_DAEMON);
}

// Only the first option counts. The banner ends the process; an option that is none has had getopt's own complaint.
void apply_option(int argc, char** argv) {
  int index = 0;
  gOptionChar = getfirstoption(argc, argv, "dDvV", &index);
  switch (gOptionChar) {
    case 'v':
    case 'V':
      std::printf("\n%s -- Zenmor Bonjour Gateway -- version %s\n\n", gProgramName, gSettings.version);
      std::exit(0);
    case 'd':
    case 'D':
      switch_to_debug_mode();
      break;
    default:
      break;
  }
}

// For programs that look at the daemon from outside; without it everything goes on as it would with it.
void open_state_file() {
  char path[kSettingsLineSize] = {};
  VcmXact xact = nullptr;
  vcm_beginXact(&xact);
  const bool configured = vcm_mdnsproxy_sget_state_file(xact, path, sizeof path) == 0;
  vcm_cancelXact(&xact);
  state_open(configured ? path : kStateDefaultPath,
             {gSettings.version, gSettings.rules_file, static_cast<std::uint32_t>(gSettings.responder_limit) + 1});
}

}  // namespace

int main(int argc, char** argv) {
  gDBG = 0;
  gDebugStream = stderr;
  gLogLevel = 2;
  crashdump_init(argv[0]);
  raise_core_limit();
  gProgramName = program_name(argv[0]);
  setlogmask(kSyslogMaskErrors);
  openlog(gProgramName, LOG_NDELAY, LOG_DAEMON);
  if (argc >= 2) {
    apply_option(argc, argv);
  }
  main_init();
  open_state_file();
  log_message(LOG_DEBUG, "%s (version %s) started in verbose debug logging mode...", gProgramName, gSettings.version);
  FindInterfaces();
  InitFromConfigFiles(gSettings.services_file, gSettings.rules_file);
  vupdate_status_file(MYSTATUS__RUNNING__OK,
                      "Finished startup, InitFromConfigFiles() processed without error, %s (%s) deamon PID = %d\n",
                      gProgramName, gSettings.version, gDaemonPID);
  state_runs();
  HandleEvents(0);
  return 0;
}
