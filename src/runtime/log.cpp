// SPDX-License-Identifier: MIT
#include "runtime/log.h"

#include <sys/time.h>

#include <cstdarg>
#include <ctime>

int gDBG = 0;
int gLogLevel = 2;
std::FILE* gDebugStream = stderr;
const char* gProgramName = "mdnsproxy";

namespace {

// Every message bears this name, whichever source it comes from: an interface, see docs/interface.md.
constexpr const char* kSourceName = "mdnsproxy.c";

constexpr int kMicrosecondsPerMillisecond = 1000;

// gLogLevel has to exceed this for a message of the priority to be written.
int threshold_of(int priority) {
  switch (priority) {
    case LOG_ERR:
      return 1;
    case LOG_WARNING:
      return 2;
    default:
      return 4;
  }
}

void write_to_debug_stream(int line, const char* format, va_list args) {
  std::fprintf(gDebugStream, "%s:%d:", kSourceName, line);
  std::vfprintf(gDebugStream, format, args);
  std::fputc('\n', gDebugStream);
  std::fflush(gDebugStream);
}

}  // namespace

void log_message_at(int line, int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (gDBG == 0) {
    vsyslog(priority, format, args);
  } else if (gLogLevel > threshold_of(priority)) {
    write_to_debug_stream(line, format, args);
  }
  va_end(args);
}

void print_timestamp() {
  timeval now = {};
  tm local = {};
  gettimeofday(&now, nullptr);
  localtime_r(&now.tv_sec, &local);
  std::printf("%2d:%02d:%02d.%03d  ", local.tm_hour, local.tm_min, local.tm_sec,
              static_cast<int>(now.tv_usec / kMicrosecondsPerMillisecond));
}
