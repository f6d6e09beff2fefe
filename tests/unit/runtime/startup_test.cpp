// SPDX-License-Identifier: MIT
// main_init and the one option.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/vcm.h"
#include "platform/zmk.h"
#include "unit/runtime/runtime_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class MainInit : public RuntimeTest {
 protected:
  // In a child: with a harmless process, after `given`, then `look` at what came of it.
  template <typename Given, typename Look>
  static ChildProcess Run(Given given, Look look) {
    return run_in_child([&] {
      GivenHarmlessProcess();
      given();
      main_init();
      look();
    });
  }

  template <typename Given>
  static ChildProcess Run(Given given) {
    return Run(given, [] {});
  }

  // The masks that main_init sets with this settings file.
  std::string MasksWith(const std::string& settings) const {
    GivenSettings(settings);
    return Run([] {}, [] { std::printf("%s", testing::PrintToString(fake_syslog::masks()).c_str()); }).out;
  }
};

class Option : public RuntimeTest {
 protected:
  // What one call of getfirstoption makes of a command line.
  int FirstOption(std::vector<const char*> arguments) {
    arguments.push_back(nullptr);
    optind = 0;  // glibc: from the very beginning
    opterr = 0;
    return getfirstoption(static_cast<int>(arguments.size()) - 1, const_cast<char**>(arguments.data()), "dDvV",
                          &index_);
  }

  int index_ = -1;
};

std::string Address(const void* semaphore) {
  char text[32];
  std::snprintf(text, sizeof(text), "%p", semaphore);
  return text;
}

constexpr const char* kTrywaitFailed =
    "ERROR 99913011403: sem_trywait() FAILED, are POSIX semaphores available on this system?  Unrecoverable error, "
    "exiting.";
constexpr const char* kSecondTrywaitSucceeded =
    "ERROR 99913011402: sem_trywait() FAILED to error on second attempt to lock, are POSIX semaphores available on "
    "this system?  "
    "Unrecoverable error, exiting.";
constexpr const char* kSemInitFailed =
    "ERROR 99913011401: sem_init returned -1, are POSIX semaphores available on this system?  Unrecoverable error, "
    "exiting.";

}  // namespace

TEST_F(MainInit, GoesThroughItsStepsInOrder) {
  const ChildProcess child = Run(
      [] {},
      [] {
        EXPECT_THAT(
            testing::PrintToString(Messages()),
            HoldsInOrder({"\"main_init...\"", "\"daemonize(): aRundir = ", "\"create_PID_file(): FINISH",
                          "\"vupdate_status_file(): aNewMYSTATUS = 1 ...\"", "\"main_init(): testing semaphores...  \"",
                          "\"main_init(): sem_trywait() works...  testing if sem_trywait() fails now...  \"",
                          "\"main_init(): sem_trywait() failed second time (correctly)...  \"",
                          "\"main_init(): calling sem_post()...  \"", "\"main_init(): trying sem_wait()... \"",
                          "\"main_init(): sem_wait() succeded, calling sem_post()... \"",
                          "\"main_init(): semaphore testing complete.\"", "\"main_init(): FINISHED.\\n\\n\""}));
        EXPECT_EQ(Messages().front(), "main_init...");
        EXPECT_THAT(Priorities(), ElementsAre(LOG_DEBUG));
      });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(MainInit, DaemonizesWithTheSettings) {
  const ChildProcess child =
      Run([] {},
          [this] {
            EXPECT_EQ(Messages()[1], "daemonize(): aRundir = " + run_directory_ + ", aPIDfile = " + pid_path_ + " ...");
          });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(MainInit, LeavesStatusOneAndTheDaemonsPidAsForkReturnedIt) {
  Run([] {});
  EXPECT_EQ(StatusFile(), "1\nStarting up, deamon PID = 0\n");
  EXPECT_TRUE(directory_.has("pid"));
}

TEST_F(MainInit, CreatesTheFourSemaphoresInOrderBeforeItForks) {
  const ChildProcess child =
      Run([] {},
          [] {
            EXPECT_THAT(fake_process::calls_of("sem_init"),
                        ElementsAre("sem_init(" + Address(&gIfNameToIndexSemaphore) + ", 0, 1)",
                                    "sem_init(" + Address(&gServiceTypeToIdSemaphore) + ", 0, 1)",
                                    "sem_init(" + Address(&gRulesSemaphore) + ", 0, 1)",
                                    "sem_init(" + Address(&gStatusFileSemaphore) + ", 0, 1)"));
            EXPECT_THAT(fake_process::calls()[4], "getppid()");
            EXPECT_TRUE(gStatusFileSemaphoreCreated);
            for (sem_t* semaphore :
                 {&gIfNameToIndexSemaphore, &gServiceTypeToIdSemaphore, &gRulesSemaphore, &gStatusFileSemaphore}) {
              int value = -1;
              sem_getvalue(semaphore, &value);
              EXPECT_EQ(value, 1) << "at the end as at the beginning";
            }
          });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(MainInit, TestsTheInterfaceTablesSemaphore) {
  const ChildProcess child = Run([] {},
                                 [] {
                                   const std::string call = "sem_trywait(" + Address(&gIfNameToIndexSemaphore) + ")";
                                   EXPECT_THAT(fake_process::calls_of("sem_trywait"), ElementsAre(call, call));
                                 });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(MainInit, FailsWhenAnyOfTheSemaphoresCannotBeMade) {
  for (unsigned nth = 1; nth <= 4; ++nth) {
    const ChildProcess child = Run([nth] { fake_process::fail_call("sem_init", nth, ENOSYS); });
    EXPECT_EQ(child.exit_status, 999 % 256) << nth;
    EXPECT_THAT(child.err, HasSubstr(warning_line(kSemInitFailed)));
    EXPECT_THAT(child.err, Not(HasSubstr("daemonize()"))) << "no daemon yet";
    EXPECT_EQ(StatusFile(), std::string("999\n") + kSemInitFailed + "\n");
  }
}

TEST_F(MainInit, MakesNoFurtherSemaphoreAfterOneFailed) {
  const ChildProcess child = Run([] {
    fake_process::fail_call("sem_init", 2, ENOSYS);
    std::atexit([] { std::printf("%zu", fake_process::calls_of("sem_init").size()); });
  });
  EXPECT_EQ(child.out, "2");
}

TEST_F(MainInit, FailsWhenASemaphoreCannotBeTaken) {
  const ChildProcess child = Run([] { fake_process::fail_call("sem_trywait", 1, EAGAIN); });
  EXPECT_EQ(child.exit_status, 999 % 256);
  EXPECT_THAT(child.err, HasSubstr(warning_line(kTrywaitFailed)));
  EXPECT_THAT(child.err, Not(HasSubstr("sem_trywait() FAIL, exiting."))) << "which is for debug mode";
  EXPECT_EQ(StatusFile(), std::string("999\n") + kTrywaitFailed + "\n");
}

TEST_F(MainInit, SaysSoOnceMoreInDebugMode) {
  const ChildProcess child = Run([this] {
    GivenDebugMode();
    fake_process::fail_call("sem_trywait", 1, EAGAIN);
  });
  EXPECT_EQ(child.exit_status, 999 % 256);
  EXPECT_THAT(DebugStream(),
              HoldsInOrder({":main_init(): testing semaphores...  \n", ":main_init(): sem_trywait() FAIL, exiting.\n",
                            ":handle_error(): aMyStatusCode = 999"}));
}

TEST_F(MainInit, ShowsOnlyTheErrorBelowTheHighestVerbosity) {
  Run([this] {
    GivenDebugMode(4);
    fake_process::fail_call("sem_trywait", 1, EAGAIN);
  });
  EXPECT_THAT(DebugStream(), testing::MatchesRegex("mdnsproxy.c:[0-9]+:handle_error\\(\\): aMyStatusCode = 999 != "
                                                   "MYSTATUS__RUNNING__OK, calling exit_clean\\(\\)\\.\\.\\.\n"));
}

TEST_F(MainInit, FailsWhenASemaphoreCanBeTakenTwice) {
  const ChildProcess child = Run([] { fake_process::always("sem_trywait", 0); });
  EXPECT_EQ(child.exit_status, 999 % 256);
  EXPECT_THAT(child.err, HasSubstr(warning_line(kSecondTrywaitSucceeded)));
  EXPECT_EQ(StatusFile(), std::string("999\n") + kSecondTrywaitSucceeded + "\n");
}

TEST_F(MainInit, TestsTheSemaphoreBetweenItsMessages) {
  const ChildProcess child = Run([] {
    fake_syslog::on_message([] {
      if (Messages().back().starts_with("main_init(): ")) {
        int value = -1;
        sem_getvalue(&gIfNameToIndexSemaphore, &value);
        std::printf("%d", value);
      }
    });
  });
  EXPECT_EQ(child.out, "10001011") << "its count at each message, from the first to the last";
}

TEST_F(MainInit, BeginsAfterTheSettingsAndFinishesAfterTheConnections) {
  GivenSettings("[mdnsproxy]\nlog_level = enable\n");
  const ChildProcess child = Run([] {
    fake_syslog::on_message([] {
      if (Messages().back() == "main_init...") {
        EXPECT_THAT(fake_syslog::masks(), ElementsAre(255));
        EXPECT_THAT(fake_process::calls_of("sem_init"), IsEmpty());
        std::printf("began ");
      } else if (Messages().back() == "main_init(): FINISHED.\n\n") {
        EXPECT_THAT(fake_dns_sd::calls("DNSServiceCreateConnection"), testing::SizeIs(2));
        std::printf("finished");
      }
    });
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
  EXPECT_EQ(child.out, "began finished");
}

TEST_F(MainInit, MakesNoConnectionBeforeItsSemaphoresAreTested) {
  const ChildProcess child = Run([] {
    fake_syslog::on_message([] {
      if (Messages().back() == "main_init(): semaphore testing complete.") {
        EXPECT_THAT(fake_dns_sd::calls(), IsEmpty());
        std::printf("looked");
      }
    });
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
  EXPECT_EQ(child.out, "looked");
}

TEST_F(MainInit, MakesTheSharedConnectionAndThenTheOther) {
  const ChildProcess child = Run([] {},
                                 [] {
                                   const auto made = fake_dns_sd::calls("DNSServiceCreateConnection");
                                   ASSERT_THAT(made, testing::SizeIs(2));
                                   EXPECT_EQ(made[0].ref, gDNSServiceRef_Shared);
                                   EXPECT_EQ(made[1].ref, gDNSServiceRef_RegisterRecord);
                                   EXPECT_NE(gDNSServiceRef_Shared, nullptr);
                                 });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(MainInit, FailsWithoutTheResponderAfterThePidFileAndStatusOne) {
  const ChildProcess child = Run([this] {
    fake_dns_sd::fail_call("DNSServiceCreateConnection", 1, -65563);
    fake_syslog::on_message([this] {
      if (fake_syslog::lines().back().text.starts_with("ERROR 1301181516")) {
        EXPECT_TRUE(directory_.has("pid"));
        EXPECT_THAT(StatusFile(), testing::StartsWith("1\n"));
        std::printf("looked");
      }
    });
  });
  EXPECT_EQ(child.out, "looked");
  EXPECT_EQ(child.exit_status, 600 % 256);
  EXPECT_THAT(child.err, HasSubstr(warning_line(
                             "ERROR 1301181516: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: -65563, "
                             "CRITICAL ERROR, exiting.")));
  EXPECT_EQ(StatusFile(),
            "600\nERROR 1301181516: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: 2147483647, CRITICAL "
            "ERROR, exiting.\n");
  EXPECT_FALSE(directory_.has("pid"));
}

TEST_F(MainInit, FailsWithoutTheSecondConnectionAndShowsTheResultOfTheFirst) {
  const ChildProcess child = Run([] { fake_dns_sd::fail_call("DNSServiceCreateConnection", 2, -65537); });
  EXPECT_EQ(child.exit_status, 600 % 256);
  EXPECT_THAT(child.err,
              HasSubstr(warning_line("ERROR 1301301624: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: 0, "
                                     "CRITICAL ERROR, exiting.")));
  EXPECT_EQ(StatusFile(),
            "600\nERROR 1301301624: INTERNAL ERROR:  DNSServiceCreateConnection() call failed: 2147483647, CRITICAL "
            "ERROR, exiting.\n");
}

TEST_F(MainInit, WidensTheMaskWhenTheSettingsEnableIt) {
  EXPECT_EQ(MasksWith("[mdnsproxy]\nlog_level = enable\n"), "{ 255 }");
}

TEST_F(MainInit, LooksAtTheFirstSixCharactersOfTheLevelAlone) {
  EXPECT_EQ(MasksWith("[mdnsproxy]\nlog_level = enabled\n"), "{ 255 }");
  EXPECT_EQ(MasksWith("[mdnsproxy]\nlog_level = enable1\n"), "{ 255 }");
  EXPECT_EQ(MasksWith("[mdnsproxy]\nlog_level = enable" + std::string(100, 'x') + "\n"), "{ 255 }");
}

TEST_F(MainInit, LeavesTheMaskWithAnyOtherLevelOrNone) {
  for (const char* settings :
       {"[mdnsproxy]\nlog_level = enabl\n", "[mdnsproxy]\nlog_level = Enable\n", "[mdnsproxy]\nlog_level = disable\n",
        "[mdnsproxy]\nlog_level =\n", "[other]\nlog_level = enable\n", ""}) {
    EXPECT_EQ(MasksWith(settings), "{}") << settings;
  }
}

TEST_F(MainInit, LeavesTheMaskWithoutASettingsFileAndSaysNothing) {
  const ChildProcess child = Run([] {},
                                 [] {
                                   EXPECT_THAT(fake_syslog::masks(), IsEmpty());
                                   EXPECT_EQ(Messages().front(), "main_init...");
                                 });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(MainInit, EndsItsTransactionOverTheSettings) {
  for (const char* settings : {"[mdnsproxy]\nlog_level = enable\n", "[mdnsproxy]\nlog_level = disable\n", ""}) {
    GivenSettings(settings);
    const ChildProcess child = run_in_child([] {
      GivenHarmlessProcess();
      VcmXact xact = nullptr;
      vcm_beginXact(&xact);  // so that the store holds its reading already
      vcm_cancelXact(&xact);
      const ZmkUsage before = zmk_usage();
      main_init();
      EXPECT_TRUE(zmk_usage() == before);
    });
    EXPECT_EQ(child.exit_status, 0) << settings << describe(child);
  }
}

TEST_F(Option, IsTheFirstOne) {
  EXPECT_EQ(FirstOption({"mdnsproxy", "-d"}), 'd');
  EXPECT_EQ(index_, 2);
  EXPECT_EQ(FirstOption({"mdnsproxy", "-V", "-d"}), 'V');
  EXPECT_EQ(FirstOption({"mdnsproxy", "-d", "-v"}), 'd');
  EXPECT_EQ(FirstOption({"mdnsproxy", "-Dv"}), 'D');
  EXPECT_EQ(index_, 1) << "more of the same word is to come";
}

TEST_F(Option, IsAQuestionMarkWhenItIsUnknown) { EXPECT_EQ(FirstOption({"mdnsproxy", "-x"}), '?'); }

TEST_F(Option, IsMinusOneWhenThereIsNone) { EXPECT_EQ(FirstOption({"mdnsproxy", "word"}), -1); }

TEST_F(Option, IsTraced) {
  FirstOption({"mdnsproxy", "-d"});
  EXPECT_THAT(fake_syslog::lines(),
              ElementsAre(fake_syslog::Line{LOG_DEBUG, "getfirstoption(): START: else (! NOT_HAVE_GETOPT) ...\n"}));
}

TEST_F(Option, HasGetoptsComplaintWhenItIsUnknown) {
  const ChildProcess child = run_in_child([this] {
    const char* arguments[] = {"mdnsproxy", "-x", nullptr};
    optind = 0;  // glibc: from the very beginning
    opterr = 1;
    getfirstoption(2, const_cast<char**>(arguments), "dDvV", &index_);
  });
  EXPECT_THAT(child.err, HasSubstr("mdnsproxy: invalid option -- 'x'\n"));
}
