// Each test lets a child process crash and looks at what it said and how it ended.
#include "platform/crashdump.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <string>

#include "fakes/fake_syslog.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

struct Crash {
  int ending_signal;  // 0: it did not end by one
  std::string output;
};

std::string ReadAll(int file) {
  std::string text;
  char piece[4096];
  for (ssize_t got = 0; (got = read(file, piece, sizeof(piece))) > 0;) {
    text.append(piece, static_cast<std::size_t>(got));
  }
  return text;
}

// The crashes are wanted, their core files are not.
[[noreturn]] void Child(int output, const std::function<void()>& act) {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  dup2(output, STDERR_FILENO);
  act();
  _exit(0);
}

Crash RunInChild(const std::function<void()>& act) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    Child(ends[1], act);
  }
  close(ends[1]);
  Crash crash = {0, ReadAll(ends[0])};
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  crash.ending_signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return crash;
}

// A page that nobody may touch.
char* ForbiddenPage() {
  void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return static_cast<char*>(page);
}

std::string Hexadecimal(const void* address) {
  char text[32];
  std::snprintf(text, sizeof(text), "address 0x%zx\n", reinterpret_cast<std::uintptr_t>(address));
  return text;
}

// Deeper than any stack; the page that each step writes keeps it from being made a loop.
int Descend(int depth) {
  volatile char page[4096];
  page[0] = static_cast<char>(depth);
  return depth == 0 ? page[0] : Descend(depth + 1) + page[0];
}

struct Fatal {
  int signal_number;
  const char* name;
};

class CrashReport : public testing::TestWithParam<Fatal> {};

}  // namespace

TEST_P(CrashReport, NamesProgramVersionAndSignalOnBothWays) {
  const Fatal fatal = GetParam();
  const Crash crash = RunInChild([&] {
    crashdump_init("/usr/sbin/mdnsproxy");
    raise(fatal.signal_number);
  });
  const std::string line =
      "mdnsproxy (version 1.0.0): fatal signal " + std::to_string(fatal.signal_number) + " (" + fatal.name + "), address 0x";
  EXPECT_THAT(crash.output, StartsWith(line));
  EXPECT_THAT(crash.output, HasSubstr("syslog(2): " + line)) << "at a priority that no mask of the daemon holds back";
  EXPECT_EQ(crash.ending_signal, fatal.signal_number) << "by the default action, which makes the core file";
}

INSTANTIATE_TEST_SUITE_P(EachFatalSignal, CrashReport,
                         testing::Values(Fatal{SIGSEGV, "SIGSEGV"}, Fatal{SIGBUS, "SIGBUS"}, Fatal{SIGFPE, "SIGFPE"},
                                         Fatal{SIGILL, "SIGILL"}, Fatal{SIGABRT, "SIGABRT"}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(CrashReportOfAFault, NamesTheAddress) {
  char* page = ForbiddenPage();
  const Crash crash = RunInChild([page] {
    crashdump_init("mdnsproxy");
    *static_cast<volatile char*>(page + 5) = 1;
  });
  EXPECT_THAT(crash.output, HasSubstr(Hexadecimal(page + 5)));
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportOfAFault, HoldsABacktraceOnBothWays) {
  const Crash crash = RunInChild([] {
    crashdump_init("mdnsproxy");
    raise(SIGSEGV);
  });
  EXPECT_THAT(crash.output, ContainsRegex("\n[^\n]*platform_test[^\n]*\\[0x[0-9a-f]+\\]\n"));
  EXPECT_THAT(crash.output, ContainsRegex("\nsyslog\\(2\\): [^\n]*platform_test[^\n]*\\[0x[0-9a-f]+\\]\n"));
}

TEST(CrashReportOfAFault, IsMadeOfAStackOverflowToo) {
  const Crash crash = RunInChild([] {
    crashdump_init("mdnsproxy");
    Descend(1);
  });
  EXPECT_THAT(crash.output, HasSubstr("fatal signal 11 (SIGSEGV), address 0x"));
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportOfAbort, EndsTheProcessByAbort) {
  const Crash crash = RunInChild([] {
    crashdump_init("mdnsproxy");
    std::abort();
  });
  EXPECT_THAT(crash.output, HasSubstr("fatal signal 6 (SIGABRT)"));
  EXPECT_EQ(crash.ending_signal, SIGABRT);
}

TEST(CrashReportWhileSyslogHangs, EndsAllTheSame) {
  const Crash crash = RunInChild([] {
    crashdump_init("mdnsproxy");
    fake_syslog::on_message([] {
      for (;;) {
        pause();
      }
    });
    raise(SIGSEGV);
  });
  EXPECT_THAT(crash.output, StartsWith("mdnsproxy (version 1.0.0): fatal signal 11"));
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportInItsOwnReport, EndsAtOnce) {
  char* page = ForbiddenPage();
  const Crash crash = RunInChild([page] {
    crashdump_init("mdnsproxy");
    fake_syslog::on_message([page] { *static_cast<volatile char*>(page) = 1; });
    raise(SIGSEGV);
  });
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportName, IsThatOfTheDaemonWithoutAnother) {
  const Crash crash = RunInChild([] {
    crashdump_init(nullptr);
    raise(SIGILL);
  });
  EXPECT_THAT(crash.output, StartsWith("mdnsproxy (version "));
}

TEST(CrashHook, CanBeInstalled) {
  const Crash quiet = RunInChild([] { _exit(crashdump_init("mdnsproxy") == 0 ? 0 : 1); });
  EXPECT_EQ(quiet.ending_signal, 0);
  EXPECT_THAT(quiet.output, Not(HasSubstr("fatal signal")));
}
