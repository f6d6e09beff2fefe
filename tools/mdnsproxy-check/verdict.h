// SPDX-License-Identifier: MIT
// The chief header of mdnsproxy-check: what the daemon would make of its files.
//
// Promises: a file is accepted here exactly when the daemon accepts it, and the rules come out in the daemon's order,
// because both read it with the same scanners (config/services_scanner.h, config/rules_scanner.h). Everything else here
// only explains.
//
// Read in this order: this header, finding.h, source_text.h, reader.h, interfaces.h, services_check.cpp,
// rules_check.cpp, settings_check.cpp, report.cpp, main.cpp.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mdnsproxy-check/finding.h"
#include "mdnsproxy-check/interfaces.h"
#include "mdnsproxy-check/reader.h"

// One service of the services list.
struct NamedService {
  std::string name;
  std::vector<std::string> types;  // in file order
};

struct ServiceCatalog {
  std::vector<NamedService> services;
  bool readable = true;  // false: the file could not be read, so that nothing can be said of a name that it lacks
};

// One rule as the daemon installs it: for one service type, in one direction.
struct Installation {
  std::string service_type;
  std::string if_from;
  std::string if_to;
  std::string service;    // its name in the services list; empty for a rule that gives the type itself
  Position position;      // of the rule's tag
  bool inverse = false;   // the other direction of a bidirectional rule
  bool repeated = false;  // there already: the daemon skips it
};

struct CheckRequest {
  std::string services_file;
  std::string rules_file;
  std::string settings_file;
  bool settings_required = false;                      // asked for by name, so that a missing file is worth a word
  std::optional<std::vector<std::string>> interfaces;  // nothing: any interface is taken as existing
  std::vector<InterfaceFault> interface_faults = {};   // of those; a rule that names such a one is warned of
  std::optional<Reader> reader = std::nullopt;         // who has to be able to read the lists; nothing: this process
};

struct Verdict {
  Findings findings;                        // by file and position
  std::optional<Finding> end;               // the error that the daemon would meet first
  std::vector<Installation> installations;  // in the daemon's order; complete only when there is no error
};

// Checks all three files.
Verdict check_files(const CheckRequest& request);

// 0: nothing found, 1: warnings, 2: errors.
int exit_status(const Verdict& verdict);

// The checks of one file each. They append what they find in the order in which the daemon would meet it.
ServiceCatalog check_services(const std::string& path, Findings& findings,
                              const std::optional<Reader>& reader = std::nullopt);
std::vector<Installation> check_rules(const CheckRequest& request, const ServiceCatalog& catalog, Findings& findings);
void check_settings(const std::string& path, bool required, Findings& findings);
