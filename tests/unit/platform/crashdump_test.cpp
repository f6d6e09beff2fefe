// SPDX-License-Identifier: MIT
// Each test lets a child process crash and looks at what it said and how it ended.
#include "platform/crashdump.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

#include "fakes/fake_syslog.h"
#include "platform/program_name.h"
#include "unit/child_process.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

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

  friend void PrintTo(const Fatal& fatal, std::ostream* out) { *out << fatal.name; }
};

class CrashReport : public testing::TestWithParam<Fatal> {};

}  // namespace

TEST_P(CrashReport, NamesProgramVersionAndSignalOnBothWays) {
  const Fatal fatal = GetParam();
  const ChildProcess crash = run_in_child([&] {
    crashdump_init("/usr/sbin/mdnsproxy");
    raise(fatal.signal_number);
  });
  const std::string line =
      "mdnsproxy (version 1.0.0): fatal signal " + std::to_string(fatal.signal_number) + " (" + fatal.name + ")\n";
  EXPECT_THAT(crash.err, StartsWith(line)) << "without an address: the signal is no fault";
  EXPECT_THAT(crash.err, HasSubstr("syslog(2): " + line)) << "at a priority that no mask of the daemon holds back";
  EXPECT_EQ(crash.ending_signal, fatal.signal_number) << "by the default action, which makes the core file";
}

INSTANTIATE_TEST_SUITE_P(EachFatalSignal, CrashReport,
                         testing::Values(Fatal{SIGSEGV, "SIGSEGV"}, Fatal{SIGBUS, "SIGBUS"}, Fatal{SIGFPE, "SIGFPE"},
                                         Fatal{SIGILL, "SIGILL"}, Fatal{SIGABRT, "SIGABRT"}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(CrashReportOfAFault, NamesTheAddress) {
  char* page = ForbiddenPage();
  const ChildProcess crash = run_in_child([page] {
    crashdump_init("mdnsproxy");
    *static_cast<volatile char*>(page + 5) = 1;
  });
  EXPECT_THAT(crash.err, HasSubstr(Hexadecimal(page + 5)));
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportOfAFault, HoldsABacktraceOnBothWaysIfThereIsOne) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init("mdnsproxy");
    raise(SIGSEGV);
  });
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
  if (!MDNSPROXY_HAVE_BACKTRACE) {
    EXPECT_THAT(crash.err, Not(HasSubstr("platform_test"))) << "two lines and no more";
    return;
  }
  EXPECT_THAT(crash.err, ContainsRegex("\n[^\n]*platform_test[^\n]*\\[0x[0-9a-f]+\\]\n"));
  EXPECT_THAT(crash.err, ContainsRegex("\nsyslog\\(2\\): [^\n]*platform_test[^\n]*\\[0x[0-9a-f]+\\]\n"));
}

TEST(CrashReportOfAFault, GoesWithoutABacktraceWhenNoPipeCanBeMade) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init("mdnsproxy");
    const rlimit none_left = {0, 0};
    setrlimit(RLIMIT_NOFILE, &none_left);
    raise(SIGSEGV);
  });
  const std::string line = "mdnsproxy (version 1.0.0): fatal signal 11 (SIGSEGV)\n";
  EXPECT_EQ(crash.err, line + "syslog(2): " + line);
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportOfAFault, IsMadeOfAStackOverflowToo) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init("mdnsproxy");
    Descend(1);
  });
  EXPECT_THAT(crash.err, HasSubstr("fatal signal 11 (SIGSEGV), address 0x"));
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportOfAbort, EndsTheProcessByAbort) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init("mdnsproxy");
    std::abort();
  });
  EXPECT_THAT(crash.err, HasSubstr("fatal signal 6 (SIGABRT)"));
  EXPECT_EQ(crash.ending_signal, SIGABRT);
}

TEST(CrashReportWhileSyslogHangs, EndsAllTheSame) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init("mdnsproxy");
    fake_syslog::on_message([] {
      for (;;) {
        pause();
      }
    });
    raise(SIGSEGV);
  });
  EXPECT_THAT(crash.err, StartsWith("mdnsproxy (version 1.0.0): fatal signal 11"));
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportInItsOwnReport, EndsAtOnce) {
  char* page = ForbiddenPage();
  const ChildProcess crash = run_in_child([page] {
    crashdump_init("mdnsproxy");
    fake_syslog::on_message([page] { *static_cast<volatile char*>(page) = 1; });
    raise(SIGSEGV);
  });
  EXPECT_EQ(crash.ending_signal, SIGSEGV);
}

TEST(CrashReportOfAbort, HasNoAddress) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init("mdnsproxy");
    std::abort();
  });
  EXPECT_THAT(crash.err, StartsWith("mdnsproxy (version 1.0.0): fatal signal 6 (SIGABRT)\n"));
}

TEST(ProgramName, IsWhatStandsBehindTheLastSlash) {
  EXPECT_STREQ(program_name("/usr/sbin/mdnsproxy"), "mdnsproxy");
  EXPECT_STREQ(program_name("gateway"), "gateway");
  EXPECT_STREQ(program_name("./"), "");
  EXPECT_STREQ(program_name(""), "");
}

TEST(ProgramName, IsTheDaemonsWithoutAny) { EXPECT_STREQ(program_name(nullptr), "mdnsproxy"); }

TEST(CrashReportName, IsThatOfTheDaemonWithoutAnother) {
  const ChildProcess crash = run_in_child([] {
    crashdump_init(nullptr);
    raise(SIGILL);
  });
  EXPECT_THAT(crash.err, StartsWith("mdnsproxy (version "));
}

TEST(CrashHook, CanBeInstalled) {
  const ChildProcess quiet = run_in_child([] { EXPECT_EQ(crashdump_init("mdnsproxy"), 0); });
  EXPECT_EQ(quiet.exit_status, 0);
  EXPECT_THAT(quiet.err, Not(HasSubstr("fatal signal")));
}
