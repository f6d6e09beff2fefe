// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/settings_file.h"
#include "platform/settings_reading.h"
#include "state/layout.h"

namespace {

// The file's text when it is a regular file of a size that the daemon takes; else nothing. A pipe is not waited for.
std::string settings_text(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (file == -1) {
    return "";
  }
  struct stat status = {};
  std::string text;
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kSettingsFileLimit) {
    text.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t got = read(file, text.data(), text.size());
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  }
  close(file);
  return text;
}

void pass_over(int, const char*, void*) {}

}  // namespace

std::string configured_state_file(const std::string& settings_file) {
  const std::string text = settings_text(settings_file);
  bool no_memory = false;
  SettingsReading* const reading = settings_read(text.data(), text.size(), pass_over, nullptr, &no_memory);
  const std::string path = reading != nullptr ? reading->state_file : "";
  settings_release(reading);
  return path.empty() ? kStateDefaultPath : path;
}
