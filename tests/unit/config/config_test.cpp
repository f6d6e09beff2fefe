// SPDX-License-Identifier: MIT
#include "unit/config/config_test.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "config/config.h"
#include "fakes/fake_add_proxy_rule.h"
#include "fakes/fake_process.h"
#include "runtime/runtime.h"
#include "tables/tables.h"

namespace {

int gStreamDescriptor = -1;

void tell_what_is_left() {
  std::fprintf(stderr, "stream %s\n", fcntl(gStreamDescriptor, F_GETFD) == -1 ? "closed" : "open");
  std::fprintf(stderr, "text %s\n", zmk_usage().bytes > 2000 ? "kept" : "freed");
  for (const std::string& pause : pauses()) {
    std::fprintf(stderr, "paused: %s\n", pause.c_str());
  }
}

// An exit while this stream is read says on standard error whether it is open still and the text in memory still, and
// which pauses there were.
std::FILE* watched(std::FILE* stream) {
  gStreamDescriptor = fileno(stream);
  static const int registered = std::atexit([] {
    if (gStreamDescriptor != -1) {
      tell_what_is_left();
    }
  });
  EXPECT_EQ(registered, 0);
  return stream;
}

// So that a text that is still in memory stands out among what the tables hold.
std::string padded(const std::string& content) { return content + std::string(4000, ' '); }

int unwatched(int result) {
  gStreamDescriptor = -1;
  return result;
}

// Its first byte is read and put back: the rest of so small a file is in the stream's buffer then.
std::FILE* stream_that_does_not_close(const std::string& path) {
  std::FILE* stream = std::fopen(path.c_str(), "r");
  std::ungetc(std::fgetc(stream), stream);
  close(fileno(stream));
  return stream;
}

}  // namespace

ConfigTest::ConfigTest() {
  fake_add_proxy_rule::reset();
  fake_process::start();
}

ConfigTest::~ConfigTest() { fake_process::stop(); }

int ConfigTest::parse_services(const std::string& content) {
  directory().write("services.xml", padded(content));
  return unwatched(parse_servicefile(watched(std::fopen(services_path().c_str(), "r")), services_path().c_str()));
}

int ConfigTest::parse_rules(const std::string& content) {
  directory().write("rules.xml", padded(content));
  return unwatched(parse_rulesfile(watched(std::fopen(rules_path().c_str(), "r")), rules_path().c_str()));
}

int ConfigTest::parse_services_stream(const std::string& content, const std::string& content_of_path) {
  directory().write("stream", content);
  directory().write("services.xml", content_of_path);
  std::FILE* stream = watched(std::fopen(directory().path_of("stream").c_str(), "r"));
  return unwatched(parse_servicefile(stream, services_path().c_str()));
}

int ConfigTest::parse_rules_stream(const std::string& content, const std::string& content_of_path) {
  directory().write("stream", content);
  directory().write("rules.xml", content_of_path);
  std::FILE* stream = watched(std::fopen(directory().path_of("stream").c_str(), "r"));
  return unwatched(parse_rulesfile(stream, rules_path().c_str()));
}

int ConfigTest::parse_services_from_a_stream_that_does_not_close(const std::string& content) {
  directory().write("services.xml", content);
  return parse_servicefile(stream_that_does_not_close(services_path()), services_path().c_str());
}

int ConfigTest::parse_rules_from_a_stream_that_does_not_close(const std::string& content) {
  directory().write("rules.xml", content);
  return parse_rulesfile(stream_that_does_not_close(rules_path()), rules_path().c_str());
}

int ConfigTest::parse_services_of_missing_path() {
  directory().write("stream", "any");
  std::FILE* stream = watched(std::fopen(directory().path_of("stream").c_str(), "r"));
  return unwatched(parse_servicefile(stream, services_path().c_str()));
}

int ConfigTest::parse_rules_of_missing_path() {
  directory().write("stream", "any");
  std::FILE* stream = watched(std::fopen(directory().path_of("stream").c_str(), "r"));
  return unwatched(parse_rulesfile(stream, rules_path().c_str()));
}

std::vector<std::string> catalog() {
  std::vector<std::string> lines;
  for (const auto* record = gHashServiceNameToServiceTypesArray; record != nullptr;
       record = static_cast<const ServiceNameToServiceTypesArray_t*>(record->hh.next)) {
    std::string line = std::string(record->service_name) + ":";
    for (unsigned i = 0; i < array_count(record->service_types); ++i) {
      line += std::string(" ") + text_array_at(record->service_types, i);
    }
    lines.push_back(line);
  }
  return lines;
}

std::size_t live_blocks_of_config() {
  std::size_t blocks = 0;
  zmk_visit_lines(
      [](const char* file, int, ZmkUsage usage, void* sum) {
        const std::string_view path(file);
        if (path.ends_with("config_text.cpp") || path.ends_with("rules_file.cpp") ||
            path.ends_with("services_file.cpp")) {
          *static_cast<std::size_t*>(sum) += usage.blocks;
        }
      },
      &blocks);
  return blocks;
}

std::string rule(const std::string& service, const std::string& rule_type, const std::string& if_from,
                 const std::string& if_to, const std::string& bidirectional) {
  return "<mdnsproxyrule mdnsservice=\"" + service + "\" rule_type=\"" + rule_type + "\" if_from=\"" + if_from +
         "\" if_to=\"" + if_to + "\" bidirectional=\"" + bidirectional + "\"/>\n";
}

std::vector<std::string> pauses() {
  std::vector<std::string> found = fake_process::calls_of("sleep");
  for (const std::string& call : fake_process::calls_of("usleep")) {
    found.push_back(call);
  }
  return found;
}
