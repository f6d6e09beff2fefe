// SPDX-License-Identifier: MIT
// What a test of the two files needs beside the tables: files of its own, rules that are only recorded, and pauses that
// are over at once.
#pragma once

#include <string>
#include <vector>

#include "unit/tables/daemon_test.h"

class ConfigTest : public DaemonTest {
 protected:
  ConfigTest();
  ~ConfigTest() override;

  // Writes the file and reads it with parse_servicefile or parse_rulesfile; the result is what they return.
  int parse_services(const std::string& content);
  int parse_rules(const std::string& content);

  // Reads a stream that holds `content` under the name of a file that holds `content_of_path`.
  int parse_services_stream(const std::string& content, const std::string& content_of_path);
  int parse_rules_stream(const std::string& content, const std::string& content_of_path);

  // Reads a stream that holds the whole content already and whose descriptor is gone, so that closing it fails.
  int parse_services_from_a_stream_that_does_not_close(const std::string& content);
  int parse_rules_from_a_stream_that_does_not_close(const std::string& content);

  // Reads a stream under the name of a file that is not there.
  int parse_services_of_missing_path();
  int parse_rules_of_missing_path();

  std::string services_path() const { return directory().path_of("services.xml"); }
  std::string rules_path() const { return directory().path_of("rules.xml"); }
};

// The service name table, one line a service: "AirPlay: _airplay._tcp _raop._tcp".
std::vector<std::string> catalog();

// Blocks that the files' own code has allocated and not freed.
std::size_t live_blocks_of_config();

// One rule tag.
std::string rule(const std::string& service, const std::string& rule_type, const std::string& if_from,
                 const std::string& if_to, const std::string& bidirectional);

// The pauses so far, "usleep(500000)" each.
std::vector<std::string> pauses();
