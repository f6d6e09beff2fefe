// SPDX-License-Identifier: MIT
// The definitions here are the functions' plain ones, which that feature's inline wrappers would collide with.
#undef _FORTIFY_SOURCE

#include "fakes/fake_syslog.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace {

constexpr int kAllPriorities = LOG_UPTO(LOG_DEBUG);

struct Record {
  std::vector<fake_syslog::Line> lines;
  std::vector<fake_syslog::Line> visible;
  std::vector<int> masks;
  std::vector<fake_syslog::Opening> openings;
  std::vector<std::string> calls;
  unsigned closings = 0;
  int mask = kAllPriorities;
  std::function<void()> action;
};

Record& record() {
  static Record& the_record = *new Record;  // never destroyed: the process logs to its very end
  return the_record;
}

std::string formatted(const char* format, va_list args) {
  va_list measured;
  va_copy(measured, args);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, args);
  return text;
}

void take(int priority, const char* format, va_list args) {
  const fake_syslog::Line line = {priority, formatted(format, args)};
  record().calls.emplace_back("syslog");
  record().lines.push_back(line);
  if ((record().mask & LOG_MASK(LOG_PRI(priority))) != 0) {
    record().visible.push_back(line);
  }
  std::fprintf(stderr, "syslog(%d): %s\n", priority, line.text.c_str());
  if (record().action) {
    record().action();
  }
}

}  // namespace

extern "C" {

void openlog(const char* identity, int option, int facility) {
  record().calls.emplace_back("openlog");
  record().openings.push_back({identity != nullptr ? identity : "", option, facility});
}

void closelog() {
  record().calls.emplace_back("closelog");
  ++record().closings;
}

int setlogmask(int mask) {
  const int previous = record().mask;
  record().calls.emplace_back("setlogmask");
  if (mask != 0) {
    record().mask = mask;
    record().masks.push_back(mask);
  }
  return previous;
}

void vsyslog(int priority, const char* format, va_list args) { take(priority, format, args); }

void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  take(priority, format, args);
  va_end(args);
}

// What the two become in a build with _FORTIFY_SOURCE.
void __vsyslog_chk(int priority, int, const char* format, va_list args) { take(priority, format, args); }

void __syslog_chk(int priority, int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  take(priority, format, args);
  va_end(args);
}

}  // extern "C"

namespace fake_syslog {

const std::vector<Line>& lines() { return record().lines; }
std::vector<Line> visible_lines() { return record().visible; }
int mask() { return record().mask; }
const std::vector<int>& masks() { return record().masks; }
const std::vector<Opening>& openings() { return record().openings; }
unsigned closings() { return record().closings; }
const std::vector<std::string>& calls() { return record().calls; }
void on_message(std::function<void()> action) { record().action = std::move(action); }
void reset() { record() = Record{}; }

std::vector<std::string> texts(int priority) {
  std::vector<std::string> found;
  for (const Line& line : lines()) {
    if (line.priority == priority) {
      found.push_back(line.text);
    }
  }
  return found;
}

}  // namespace fake_syslog
