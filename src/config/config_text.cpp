// SPDX-License-Identifier: MIT
#include "config/config_text.h"

#include <sys/stat.h>

#include <cstring>

#include "platform/zmk.h"

ConfigText load_config_text(std::FILE* file, const char* path) {
  ConfigText text = {LoadOutcome::stat_invalid, file, nullptr, 0};
  struct stat info = {};
  if (stat(path, &info) != 0 || info.st_size <= 0) {
    return text;
  }
  text.size = static_cast<std::size_t>(info.st_size);
  text.buffer = static_cast<char*>(zmk_malloc(text.size + 1, __FILE__, __LINE__));
  if (text.buffer == nullptr) {
    text.outcome = LoadOutcome::no_memory;
    return text;
  }
  std::memset(text.buffer, 0, text.size + 1);
  const std::size_t read = std::fread(text.buffer, 1, text.size, file);
  text.outcome = read == text.size ? LoadOutcome::loaded : LoadOutcome::short_read;
  return text;
}

int close_config_text(ConfigText& text) {
  zmk_free(text.buffer, __FILE__, __LINE__);
  text.buffer = nullptr;
  const int result = std::fclose(text.file);
  text.file = nullptr;
  return result;
}

const char* copy_for_message(const char* text) {
  return text != nullptr ? zmk_strdup(text, __FILE__, __LINE__) : nullptr;
}
