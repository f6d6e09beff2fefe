// SPDX-License-Identifier: MIT
// Initialisation from the two files: the services list first, since a rule names a service of it.

#include <fcntl.h>

#include "config/config.h"
#include "config/messages.h"
#include "runtime/runtime.h"
#include "tables/tables.h"

namespace {

// Between the two files, so that whoever writes the rules list at boot gets it there.
constexpr unsigned kPauseBetweenFiles = 1;  // second

// Where a FIFO stands in the file's place, this waits for somebody who writes it. May end the process (10).
std::FILE* open_for_reading(const char* path) {
  const int file = open_letting_signals_through(path, O_RDONLY);
  return file != -1 ? fdopen(file, "r") : nullptr;
}

std::FILE* open_services(const char* path) {
  std::FILE* file = open_for_reading(path);
  if (file == nullptr) {
    if (gDBG != 0) {
      log_message(LOG_ERR, "cannot find services config file: %s", path);
    }
    fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kServicesNotFound, path);
  }
  return file;
}

std::FILE* open_rules(const char* path) {
  std::FILE* file = open_for_reading(path);
  if (file == nullptr) {
    if (gDBG != 0) {
      log_message(LOG_ERR, "cannot find rules config file: %s", path);
    }
    fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesNotFound, path);
  }
  return file;
}

}  // namespace

void InitFromConfigFiles(const char* aConfigServicesFilename, const char* aConfigRulesFilename) {
  log_message(LOG_DEBUG, "InitFromConfigFiles(): START: aConfigServicesFilename = %s, aConfigRulesFilename = %s",
              aConfigServicesFilename, aConfigRulesFilename);
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\n*************   Init: Config File Parsing: %s *******************************\n",
                aConfigServicesFilename);
  }
  parse_servicefile(open_services(aConfigServicesFilename), aConfigServicesFilename);
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\n\n\n*************   Init: Config File Parsing: %s *******************************\n",
                aConfigRulesFilename);
  }
  pause_seconds(kPauseBetweenFiles);
  parse_rulesfile(open_rules(aConfigRulesFilename), aConfigRulesFilename);
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\n\n\n\t ********************* DONE WITH RULES ******************\n\n");
    debug_printOutAllHashInfo();
  }
}
