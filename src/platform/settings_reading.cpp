// SPDX-License-Identifier: MIT
#include "platform/settings_reading.h"

#include <ini.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/custom_services.h"
#include "platform/fencing_catalog.h"
#include "platform/zmk.h"

namespace {

// The INI library keeps this much of a section's name and cuts the rest off without a word; two names would become one.
constexpr std::size_t kLongestSectionName = 49;

constexpr std::string_view kDaemonSection = "mdnsproxy";
constexpr std::string_view kFencingPrefix = "fencing ";

// A text on its way through the INI library.
struct Parsing {
  const char* next;  // the first byte of the next line
  const char* end;
  int line;            // the one that the library has, from 1
  int malformed_line;  // found by the line reader; 0: none
  const char* malformed_message;
  SettingsReading* reading;
  SettingsReport report;
  void* context;
  bool no_memory;
  bool reported_too_many;
};

bool is_comment(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t\r");
  return first != std::string_view::npos && (line[first] == ';' || line[first] == '#');
}

bool has_long_section_name(std::string_view line) {
  const std::size_t open = line.find_first_not_of(" \t");
  if (open == std::string_view::npos || line[open] != '[') {
    return false;
  }
  return line.substr(open + 1, line.find(']') - open - 1).size() > kLongestSectionName;
}

// What the INI library would misread in silence; null when the line may be handed to it.
const char* mistake_in(std::string_view line, std::size_t room) {
  if (line.find('\0') != std::string_view::npos) {
    return "a zero byte";
  }
  if (line.size() >= room && !is_comment(line)) {
    return "the line is too long";
  }
  return has_long_section_name(line) ? "the section's name is too long" : nullptr;
}

// The INI library's line source, like fgets but without the newline. A long line is never handed over in pieces, since
// each piece would count as a line; of a long comment the rest is dropped.
char* read_line(char* buffer, int size, void* stream) {
  Parsing& parsing = *static_cast<Parsing*>(stream);
  if (parsing.next == parsing.end) {
    return nullptr;
  }
  const std::string_view rest(parsing.next, static_cast<std::size_t>(parsing.end - parsing.next));
  const std::string_view line = rest.substr(0, rest.find('\n'));
  ++parsing.line;
  parsing.next += line.size() < rest.size() ? line.size() + 1 : line.size();
  const std::size_t room = static_cast<std::size_t>(size < kSettingsLineSize ? size : kSettingsLineSize);
  parsing.malformed_message = mistake_in(line, room);
  if (parsing.malformed_message != nullptr) {
    parsing.malformed_line = parsing.line;
    return nullptr;
  }
  const std::size_t kept = line.size() < room ? line.size() : room - 1;
  std::memcpy(buffer, line.data(), kept);
  buffer[kept] = '\0';
  return buffer;
}

void report_value(const Parsing& parsing, const char* key, const char* mistake, const char* value) {
  char message[2 * kSettingsLineSize];
  std::snprintf(message, sizeof(message), "%s %s: \"%s\", not configured", key, mistake, value);
  parsing.report(parsing.line, message, parsing.context);
}

// Not only strtol's idea of a number: the whole text has to be one, and it has to fit.
bool parse_hop(const char* text, std::int32_t* hop) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno != 0 || value < INT32_MIN || value > INT32_MAX) {
    return false;
  }
  *hop = static_cast<std::int32_t>(value);
  return true;
}

void set_hop(const Parsing& parsing, HopSetting& hop, const char* key, const char* value) {
  hop.configured = parse_hop(value, &hop.value);
  if (!hop.configured) {
    report_value(parsing, key, "is no number", value);
  }
}

void set_anchor(const Parsing& parsing, FencingSettings& settings, const char* value) {
  const std::size_t size = std::strlen(value) + 1;
  settings.anchor_ap[0] = '\0';
  if (size > sizeof(settings.anchor_ap)) {
    report_value(parsing, "anchor_ap", "is no MAC address", value);
    return;
  }
  std::memcpy(settings.anchor_ap, value, size);
}

// The record of a service, made when the file names it first; null when there is no memory. `reading` may move its
// records.
FencingSettings* fencing_record(SettingsReading& reading, int index) {
  if (index >= reading.fencing_count) {
    const int count = index + kFencingCatalogSize;
    void* grown =
        zmk_realloc(reading.fencing, static_cast<std::size_t>(count) * sizeof(FencingSettings), __FILE__, __LINE__);
    if (grown == nullptr) {
      return nullptr;
    }
    reading.fencing = static_cast<FencingSettings*>(grown);
    for (; reading.fencing_count < count; ++reading.fencing_count) {
      reading.fencing[reading.fencing_count] = FencingSettings{};
    }
  }
  return &reading.fencing[index];
}

FencingSettings* fencing_record_by_name(SettingsReading& reading, std::string_view name) {
  const int standard = fencing_catalog_find_name(name);
  const int index = standard != -1 ? standard : custom_service_find_or_add(name);
  return index != -1 ? fencing_record(reading, index) : nullptr;
}

// A custom service that got no index: one report tells of all of them, a lack of memory is the caller's to report.
void leave_out_service(Parsing& parsing) {
  if (!custom_services_are_full()) {
    parsing.no_memory = true;
  } else if (!parsing.reported_too_many) {
    parsing.reported_too_many = true;
    parsing.report(parsing.line, "too many custom service types since the program began, not configured",
                   parsing.context);
  }
}

void take_fencing_setting(Parsing& parsing, std::string_view service, std::string_view key, const char* value) {
  FencingSettings* settings = fencing_record_by_name(*parsing.reading, service);
  if (settings == nullptr) {
    leave_out_service(parsing);
    return;
  }
  settings->present = true;
  if (key == "wireless_hop") {
    set_hop(parsing, settings->wireless, "wireless_hop", value);
  } else if (key == "wired_hop") {
    set_hop(parsing, settings->wired, "wired_hop", value);
  } else if (key == "anchor_ap") {
    set_anchor(parsing, *settings, value);
  }
}

// The INI library's handler. Returns 1: a setting is never an error of the file's form.
int take_setting(void* user, const char* section_text, const char* key, const char* value) {
  Parsing& parsing = *static_cast<Parsing*>(user);
  const std::string_view section = section_text;
  if (section == kDaemonSection && std::strcmp(key, "log_level") == 0) {
    std::snprintf(parsing.reading->log_level, sizeof(parsing.reading->log_level), "%s", value);
  } else if (section == kDaemonSection && std::strcmp(key, "state_file") == 0) {
    std::snprintf(parsing.reading->state_file, sizeof(parsing.reading->state_file), "%s", value);
  } else if (section.starts_with(kFencingPrefix) && section.size() > kFencingPrefix.size()) {
    take_fencing_setting(parsing, section.substr(kFencingPrefix.size()), key, value);
  }
  return 1;
}

SettingsReading* new_reading() {
  SettingsReading* reading = static_cast<SettingsReading*>(zmk_malloc(sizeof(SettingsReading), __FILE__, __LINE__));
  if (reading != nullptr) {
    *reading = SettingsReading{};
    reading->holders = 1;
  }
  return reading;
}

// Runs the library over the text. False when the text is malformed, which is reported.
bool parse(Parsing& parsing) {
  const int result = ini_parse_stream(read_line, &parsing, take_setting, &parsing);
  if (result > 0) {
    parsing.report(result, "neither a section, a setting nor a comment", parsing.context);
  } else if (parsing.malformed_line != 0) {
    parsing.report(parsing.malformed_line, parsing.malformed_message, parsing.context);
  } else if (result < 0) {
    parsing.no_memory = true;
  }
  return result == 0 && parsing.malformed_line == 0;
}

}  // namespace

SettingsReading* settings_read(const char* text, std::size_t size, SettingsReport report, void* context,
                               bool* no_memory) {
  Parsing parsing = {text, text + size, 0, 0, nullptr, new_reading(), report, context, false, false};
  *no_memory = parsing.reading == nullptr;
  if (*no_memory) {
    return nullptr;
  }
  const bool well_formed = parse(parsing);
  *no_memory = parsing.no_memory;
  if (well_formed && !parsing.no_memory) {
    return parsing.reading;
  }
  settings_release(parsing.reading);
  return nullptr;
}

SettingsReading* settings_hold(SettingsReading* reading) {
  if (reading != nullptr) {
    ++reading->holders;
  }
  return reading;
}

void settings_release(SettingsReading* reading) {
  if (reading != nullptr && --reading->holders == 0) {
    zmk_free(reading->fencing, __FILE__, __LINE__);
    zmk_free(reading, __FILE__, __LINE__);
  }
}

const FencingSettings* settings_fencing(const SettingsReading* reading, int index) {
  if (reading == nullptr || index < 0 || index >= reading->fencing_count || !reading->fencing[index].present) {
    return nullptr;
  }
  return &reading->fencing[index];
}
