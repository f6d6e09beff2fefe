// SPDX-License-Identifier: MIT
// The handler runs in a process that is broken: it takes no memory, and first says on standard error, with plain
// writes, what it has to say. syslog comes last, since the crash may have happened in the middle of it; an alarm ends a
// wait for its lock.
#include "platform/crashdump.h"

#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>

#include "platform/backtrace.h"
#include "platform/program_name.h"

namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// Enough for backtrace's unwinder and syslog's own line buffer; SIGSTKSZ is too small for the two.
constexpr std::size_t kStackSize = 64 * 1024;

// A backtrace that is longer than this is not for syslog.
constexpr std::size_t kTextSize = 16 * 1024;

// How long syslog may keep the core file waiting.
constexpr unsigned kSyslogSeconds = 2;

const char* gCrashProgram = "mdnsproxy";
alignas(16) char gStack[kStackSize];
char gText[kTextSize];
volatile std::sig_atomic_t gCrashSignal;

const char* name_of(int signal_number) {
  switch (signal_number) {
    case SIGSEGV:
      return "SIGSEGV";
    case SIGBUS:
      return "SIGBUS";
    case SIGFPE:
      return "SIGFPE";
    case SIGILL:
      return "SIGILL";
    default:
      return "SIGABRT";
  }
}

void write_all(int file, const char* text, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, text, size);
    if (written <= 0) {
      return;
    }
    text += written;
    size -= static_cast<std::size_t>(written);
  }
}

// A text under construction that is cut where its room ends. No printf: it may take memory.
struct Line {
  char text[256];
  std::size_t length;
};

void append(Line& line, const char* text) {
  const std::size_t room = sizeof(line.text) - 1 - line.length;
  const std::size_t size = strnlen(text, room);
  std::memcpy(line.text + line.length, text, size);
  line.length += size;
  line.text[line.length] = '\0';
}

void append_number(Line& line, std::uintptr_t number, unsigned base) {
  char digits[24];
  char* first = digits + sizeof(digits) - 1;
  *first = '\0';
  do {
    *--first = "0123456789abcdef"[number % base];
    number /= base;
  } while (number != 0);
  append(line, first);
}

// Only a fault has one: where a process sent the signal (abort does, too) si_addr shows the sender, and the kernel
// knows none for a fault that is not one of a page.
bool has_address(const siginfo_t& info) {
  return info.si_code > 0 && info.si_code != SI_KERNEL && info.si_signo != SIGABRT;
}

// "mdnsproxy (version 1.0.0): fatal signal 11 (SIGSEGV), address 0x0", without the address where there is none.
void describe(Line& line, int signal_number, const siginfo_t& info) {
  line.length = 0;
  append(line, gCrashProgram);
  append(line, " (version " MDNSPROXY_VERSION "): fatal signal ");
  append_number(line, static_cast<unsigned>(signal_number), 10);
  append(line, " (");
  append(line, name_of(signal_number));
  append(line, ")");
  if (has_address(info)) {
    append(line, ", address 0x");
    append_number(line, reinterpret_cast<std::uintptr_t>(info.si_addr), 16);
  }
}

// One message a line: a syslog daemon may cut what is longer.
void log_lines(const char* text, std::size_t size) {
  const char* const end = text + size;
  while (text != end) {
    const void* newline = std::memchr(text, '\n', static_cast<std::size_t>(end - text));
    const char* line_end = newline != nullptr ? static_cast<const char*>(newline) : end;
    syslog(LOG_CRIT, "%.*s", static_cast<int>(line_end - text), text);
    text = newline != nullptr ? line_end + 1 : end;
  }
}

// Ends the process by the default action of the signal, which makes the core file: at once if the signal is not
// blocked, else as soon as the handler returns.
void end_by(int signal_number) {
  std::signal(signal_number, SIG_DFL);
  std::raise(signal_number);
}

// syslog did not come back.
void syslog_takes_too_long(int) {
  const int signal_number = gCrashSignal;
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, signal_number);
  std::signal(signal_number, SIG_DFL);
  sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
  std::raise(signal_number);
}

void let_alarm_through() {
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  std::signal(SIGALRM, syslog_takes_too_long);
  sigprocmask(SIG_UNBLOCK, &alarms, nullptr);
}

void report(int signal_number, const siginfo_t& info) {
  Line line;
  describe(line, signal_number, info);
  write_all(STDERR_FILENO, line.text, line.length);
  write_all(STDERR_FILENO, "\n", 1);
  const std::size_t size = backtrace_text(gText, sizeof(gText));
  write_all(STDERR_FILENO, gText, size);
  let_alarm_through();
  alarm(kSyslogSeconds);
  syslog(LOG_CRIT, "%s", line.text);
  log_lines(gText, size);
  alarm(0);
}

void crash_handler(int signal_number, siginfo_t* info, void*) {
  gCrashSignal = signal_number;
  report(signal_number, *info);
  end_by(signal_number);
}

// A crash in the handler itself then meets the default action (SA_RESETHAND), or nothing is left to report.
bool install(int signal_number) {
  struct sigaction action = {};
  action.sa_sigaction = crash_handler;
  action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  return sigaction(signal_number, &action, nullptr) == 0;
}

}  // namespace

int crashdump_init(const char* argv0) {
  gCrashProgram = program_name(argv0);
  backtrace_prime();
  stack_t stack = {};
  stack.ss_sp = gStack;
  stack.ss_size = sizeof(gStack);
  int result = sigaltstack(&stack, nullptr);
  for (int signal_number : kFatalSignals) {
    result = install(signal_number) ? result : -1;
  }
  return result;
}
