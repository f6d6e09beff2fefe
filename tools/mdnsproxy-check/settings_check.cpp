// SPDX-License-Identifier: MIT
// The settings file: the daemon's own reading of it, and the settings that the daemon would pass over.

#include <ini.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>

#include "mdnsproxy-check/service_type.h"
#include "mdnsproxy-check/source_text.h"
#include "mdnsproxy-check/verdict.h"
#include "platform/fencing_catalog.h"
#include "platform/settings_file.h"

namespace {

constexpr std::string_view kDaemonSection = "mdnsproxy";
constexpr std::string_view kFencingPrefix = "fencing ";
constexpr std::string_view kEnable = "enable";
constexpr std::string_view kDisable = "disable";
constexpr std::array<std::string_view, 3> kFencingKeys = {"wireless_hop", "wired_hop", "anchor_ap"};

// What a fencing section has been seen to set.
struct FencingSection {
  unsigned first_line = 0;
  bool wireless = false;
  bool wired = false;
};

// One run over one file.
struct SettingsCheck {
  SourceText source;
  std::size_t next = 0;  // offset of the line that is handed over next
  unsigned line = 0;     // the line that the INI library has
  std::map<std::string, FencingSection> fencing;
  Findings& findings;
};

std::size_t offset_of_line(const SettingsCheck& check, unsigned line) {
  const std::size_t last = check.source.line_starts.size();
  const std::size_t begin = check.source.line_starts[std::min<std::size_t>(line > 0 ? line - 1 : 0, last - 1)];
  const std::size_t first = check.source.text.find_first_not_of(" \t\r", begin);
  return first != std::string::npos && check.source.text[first] != '\n' ? first : begin;
}

void warn(SettingsCheck& check, unsigned line, const std::string& message, const std::string& cure) {
  const Position position = position_of(check.source, offset_of_line(check, line));
  check.findings.push_back({Severity::warning, check.source.path, position, message, cure, 0});
}

// --- What the daemon reports -----------------------------------------------------------------------------------------

struct Mistake {
  unsigned line;
  std::string message;
};

void collect_mistake(int line, const char* message, void* context) {
  static_cast<std::vector<Mistake>*>(context)->push_back({static_cast<unsigned>(line), message});
}

// Whether the daemon takes anything from the file. A malformed line makes it take nothing, and its mistake is the last
// one.
bool report_reading(SettingsCheck& check) {
  std::vector<Mistake> mistakes;
  bool no_memory = false;
  SettingsReading* reading =
      settings_read(check.source.text.data(), check.source.text.size(), collect_mistake, &mistakes, &no_memory);
  const bool accepted = reading != nullptr;
  settings_release(reading);
  for (std::size_t i = 0; i < mistakes.size(); ++i) {
    const bool malformed = !accepted && i + 1 == mistakes.size();
    warn(check, mistakes[i].line, mistakes[i].message + (malformed ? ": the daemon takes nothing from this file" : ""),
         malformed ? "write [section], name = value, or a comment that begins with # or ;" : "write a valid value");
  }
  return accepted;
}

// --- What it passes over ---------------------------------------------------------------------------------------------

bool is_mac_address(std::string_view text) {
  constexpr std::string_view kShape = "xx:xx:xx:xx:xx:xx";
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  return std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(), [&](char c, char shape) {
    return shape == ':' ? c == ':' : kHexDigits.find(c) != std::string_view::npos;
  });
}

void look_at_log_level(SettingsCheck& check, std::string_view value) {
  if (!value.starts_with(kEnable) && value != kDisable) {
    warn(check, check.line, "log_level \"" + std::string(value) + "\" leaves the log level as it is",
         "write enable or disable");
  }
}

void look_at_state_file(SettingsCheck& check, std::string_view value) {
  if (!value.starts_with('/')) {
    warn(check, check.line,
         "state_file \"" + std::string(value) + "\" is no absolute path: there will be no state file",
         "write a path that begins with /, in a directory of the daemon's user");
  }
}

void look_at_section_name(SettingsCheck& check, const std::string& service) {
  const bool is_standard = fencing_catalog_find_name(service) != -1;
  if (!is_standard && find_type_fault(without_local(service))) {
    warn(check, check.line,
         "\"" + service + "\" is neither a standard service nor a service type: this section has no effect",
         "see mdnsproxy.conf(5) for the names, or write a service type such as _ipp._tcp");
  }
}

void look_at_fencing(SettingsCheck& check, const std::string& service, std::string_view key, std::string_view value) {
  const auto [section, first] = check.fencing.emplace(service, FencingSection{check.line, false, false});
  if (first) {
    look_at_section_name(check, service);
  }
  section->second.wireless |= key == "wireless_hop";
  section->second.wired |= key == "wired_hop";
  if (std::find(kFencingKeys.begin(), kFencingKeys.end(), key) == kFencingKeys.end()) {
    warn(check, check.line, "unknown setting \"" + std::string(key) + "\"",
         "write wireless_hop, wired_hop or anchor_ap");
  }
  if (key == "anchor_ap" && !is_mac_address(value)) {
    warn(check, check.line, "anchor_ap \"" + std::string(value) + "\" equals no interface's MAC address",
         "write it in small letters, as in 02:00:00:00:00:01");
  }
}

// The INI library's handler.
int look_at_setting(void* user, const char* section_text, const char* key, const char* value) {
  SettingsCheck& check = *static_cast<SettingsCheck*>(user);
  const std::string_view section = section_text;
  if (section == kDaemonSection) {
    if (std::strcmp(key, "log_level") == 0) {
      look_at_log_level(check, value);
    } else if (std::strcmp(key, "state_file") == 0) {
      look_at_state_file(check, value);
    } else {
      warn(check, check.line, formatted("unknown setting \"%s\"", key),
           "delete it; this section has log_level and state_file only");
    }
  } else if (section.starts_with(kFencingPrefix) && section.size() > kFencingPrefix.size()) {
    look_at_fencing(check, std::string(section.substr(kFencingPrefix.size())), key, value);
  } else {
    warn(check, check.line, formatted("unknown section \"%s\": its settings have no effect", section_text),
         "write [mdnsproxy] or [fencing NAME]");
  }
  return 1;
}

// The INI library's line source. It only runs over a text that the daemon accepts, so that every line fits but for
// comments, of which the rest is dropped.
char* next_line(char* buffer, int size, void* stream) {
  SettingsCheck& check = *static_cast<SettingsCheck*>(stream);
  const std::string& text = check.source.text;
  if (check.next >= text.size()) {
    return nullptr;
  }
  const std::size_t end = std::min(text.find('\n', check.next), text.size());
  const std::size_t length = std::min(end - check.next, static_cast<std::size_t>(size) - 1);
  std::memcpy(buffer, text.data() + check.next, length);
  buffer[length] = '\0';
  check.next = end + 1;
  ++check.line;
  return buffer;
}

void look_at_sections(SettingsCheck& check) {
  for (const auto& [service, section] : check.fencing) {
    if (section.wired && !section.wireless) {
      warn(check, section.first_line, "wired_hop of \"" + service + "\" has no effect without wireless_hop",
           "add wireless_hop to the section");
    }
  }
}

// Whether there is a text to look at.
bool read_settings(SettingsCheck& check, const std::string& path, bool required) {
  switch (read_source(path, std::nullopt, check.source)) {
    case ReadOutcome::ok:
      break;
    case ReadOutcome::not_found:
      if (required) {
        warn(check, 1, "the settings file cannot be read: nothing is configured",
             "create it, or make it readable for the daemon's user");
      }
      return false;
    case ReadOutcome::stat_invalid:
      return false;
    case ReadOutcome::read_error:
      warn(check, 1, "the settings are no regular file: nothing is configured", "give the path of an ordinary file");
      return false;
  }
  if (check.source.file_size > kSettingsFileLimit) {
    warn(check, 1, "the settings file is too large: nothing is configured", "shorten it to 64 KiB at most");
    return false;
  }
  if (check.source.has_zero_byte) {
    const unsigned last = static_cast<unsigned>(check.source.line_starts.size());
    warn(check, last, "a zero byte: the daemon takes nothing from this file", "save the file as plain text in UTF-8");
    return false;
  }
  return true;
}

}  // namespace

void check_settings(const std::string& path, bool required, Findings& findings) {
  SettingsCheck check = {{}, 0, 0, {}, findings};
  if (read_settings(check, path, required) && report_reading(check)) {
    ini_parse_stream(next_line, &check, look_at_setting, &check);
    look_at_sections(check);
  }
}
