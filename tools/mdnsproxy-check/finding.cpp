// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/finding.h"

#include <cstdarg>
#include <cstdio>

namespace {

// A list in a message is a hint, not a report.
constexpr std::size_t kLongestList = 10;

}  // namespace

std::string formatted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

std::string joined(const std::vector<std::string>& texts, const char* none) {
  if (texts.empty()) {
    return none;
  }
  std::string list;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i == kLongestList) {
      return list + ", ...";
    }
    list += (i == 0 ? "" : ", ") + texts[i];
  }
  return list;
}
