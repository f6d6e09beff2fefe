// SPDX-License-Identifier: MIT
// syslog that formats every message, so that an argument which does not suit its format is found, and drops it.

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace {

void format_and_drop(const char* format, va_list args) {
  char text[4096];
  std::vsnprintf(text, sizeof(text), format, args);
}

}  // namespace

extern "C" {

void openlog(const char*, int, int) {}
void closelog() {}
int setlogmask(int mask) { return mask; }

void vsyslog(int, const char* format, va_list args) { format_and_drop(format, args); }

void syslog(int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  format_and_drop(format, args);
  va_end(args);
}

// What the two become in a build with _FORTIFY_SOURCE.
void __vsyslog_chk(int, int, const char* format, va_list args) { format_and_drop(format, args); }

void __syslog_chk(int, int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  format_and_drop(format, args);
  va_end(args);
}

}  // extern "C"
