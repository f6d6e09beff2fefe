// SPDX-License-Identifier: MIT
// The two configuration files: what the scanners accept, and initialisation from them.
//
// Promises: InitFromConfigFiles returns only when both files were processed without an error; a configuration error
// ends the process with 110 (services list) or 120 (rules list). The files look like XML but are not: the accepted
// format is exactly what the scanners accept, and other programs may rely on the same scanners (services_scanner.h,
// rules_scanner.h need nothing of the daemon). Needs: the tables, add_proxy_rule.
//
// Sources, in reading order: quoted_value, services_scanner, rules_scanner, rule_values; messages; config_text,
// services_file, rules_file, init_config.
#pragma once

#include <cstdio>

// Reads the services list into the service name table and closes the stream. Returns the result of closing it. Ends the
// process on any error (20, 110, 800).
int parse_servicefile(std::FILE* file, const char* path);

// Reads the rules list, installs every rule and closes the stream. Returns the result of closing it. Ends the process
// on any error (20, 120, and those of add_proxy_rule); rules before the error have been installed by then.
int parse_rulesfile(std::FILE* file, const char* path);

// Both files in order, with the pause between them. Ends the process when one cannot be opened (110, 120). Where a FIFO
// stands in the place of one, that waits for a writer, and the FIFO then counts as an empty file. May end the process
// by signal (10).
void InitFromConfigFiles(const char* aConfigServicesFilename, const char* aConfigRulesFilename);
