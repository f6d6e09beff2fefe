// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstring>

#include "runtime/status.h"

namespace {

// The text under construction: what fits is written, what does not is counted.
struct Output {
  char* buffer;
  std::size_t size;
  std::size_t length;  // of the whole text so far

  void put(char byte) {
    if (length + 1 < size) {
      buffer[length] = byte;
    }
    ++length;
  }

  void put(const char* text) {
    for (; *text != '\0'; ++text) {
      put(*text);
    }
  }
};

void put_number(Output& output, const char* format) {
  char text[16];
  std::snprintf(text, sizeof(text), format, kDetachedNumber);
  output.put(text);
}

// Shows one conversion. No argument stands behind it: a number is always the same one, whatever its length, and
// everything else, pointers and conversions that printf does not know among them, is the same text.
void put_conversion(Output& output, char conversion) {
  switch (conversion) {
    case 'd':
    case 'i':
    case 'u':
      put_number(output, "%d");
      break;
    case 'x':
      put_number(output, "%x");
      break;
    case 'X':
      put_number(output, "%X");
      break;
    case 'o':
      put_number(output, "%o");
      break;
    case '%':
      output.put('%');
      break;
    default:
      output.put(kDetachedText);
      break;
  }
}

// Flags, width, precision and length of a conversion: passed over, since they shape a value that is not there.
const char* skip_modifiers(const char* format) { return format + std::strspn(format, "-+ #0123456789.*'hlLqjzt"); }

}  // namespace

int detached_message(char* buffer, std::size_t size, const char* format) {
  Output output = {buffer, size, 0};
  for (; *format != '\0'; ++format) {
    if (*format != '%') {
      output.put(*format);
      continue;
    }
    format = skip_modifiers(format + 1);
    if (*format == '\0') {
      output.put('%');
      break;
    }
    put_conversion(output, *format);
  }
  if (size > 0) {
    buffer[output.length < size ? output.length : size - 1] = '\0';
  }
  return static_cast<int>(output.length);
}
