// SPDX-License-Identifier: MIT
#include "config/quoted_value.h"

#include <cstring>

namespace {

constexpr const char* kQuote = "\"";

}  // namespace

QuotedValue take_quoted_value(char* from, const char* text_end) {
  char* split = nullptr;
  strtok_r(from, kQuote, &split);
  char* value = strtok_r(nullptr, kQuote, &split);
  const bool closed = value != nullptr && value + std::strlen(value) != text_end;
  return {closed ? value : nullptr, split};
}
