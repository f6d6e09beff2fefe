// SPDX-License-Identifier: MIT
// handle_error, the exit paths and the status file.
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "unit/runtime/runtime_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Status : public RuntimeTest {
 protected:
  static void VUpdate(int status, const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    update_status_file(status, format, args);
    va_end(args);
  }

  // An unwritable directory, also for root.
  void GivenStatusFileThatCannotBeOpened() {
    missing_ = directory_.path_of("no/such/directory");
    gSettings.status_file = missing_.c_str();
  }

  std::string missing_;
};

using ExitPath = Status;
using HandleError = Status;

constexpr const char* kFull = "/dev/full";  // opens, but takes no byte

}  // namespace

TEST_F(HandleError, ReturnsWithStatusZeroAndSaysSoInOrder) {
  handle_error(0, LOG_WARNING, "WARNING 1: %s %d", "text", 5);
  EXPECT_THAT(fake_syslog::lines(),
              ElementsAre(fake_syslog::Line{LOG_DEBUG,
                                            "handle_error(): aMyStatusCode = 0, aSyslogLevel = 4, (aFormat and va_list "
                                            "omitted) ..."},
                          fake_syslog::Line{LOG_WARNING, "WARNING 1: text 5"},
                          fake_syslog::Line{LOG_DEBUG,
                                            "handle_error(): aMyStatusCode = 0 == MYSTATUS__RUNNING__OK, continuing "
                                            "execution..."}));
  EXPECT_FALSE(directory_.has("status"));
}

TEST_F(HandleError, PassesItsLevelOn) {
  handle_error(0, LOG_ERR, "text");
  EXPECT_THAT(fake_syslog::texts(LOG_ERR), ElementsAre("text"));
  EXPECT_THAT(Messages()[0], HasSubstr("aSyslogLevel = 3,"));
}

TEST_F(HandleError, GoesToSyslogAloneInDebugModeToo) {
  GivenDebugMode();
  handle_error(0, LOG_WARNING, "WARNING 1: text");
  EXPECT_THAT(Messages(), ElementsAre("WARNING 1: text"));
  EXPECT_THAT(DebugStream(), Not(HasSubstr("WARNING 1")));
  EXPECT_THAT(DebugStream(),
              HoldsInOrder({":handle_error(): aMyStatusCode = 0, aSyslogLevel = 4, (aFormat and va_list omitted) ...\n",
                            ":handle_error(): aMyStatusCode = 0 == MYSTATUS__RUNNING__OK, continuing execution...\n"}));
}

TEST_F(HandleError, IsInvisibleUnlessTheMaskIsWidened) {
  setlogmask(kSyslogMaskErrors);
  handle_error(0, LOG_WARNING, "WARNING 1: text");
  EXPECT_THAT(fake_syslog::visible_lines(), IsEmpty());
  setlogmask(kSyslogMaskEverything);
  handle_error(0, LOG_WARNING, "WARNING 2: text");
  EXPECT_EQ(fake_syslog::visible_lines().size(), 3u);
}

TEST_F(HandleError, EndsTheProcessWithAnyOtherStatusStepByStep) {
  GivenPidFile("1\n");
  const ChildProcess child = run_in_child([] {
    GivenConnections();
    handle_error(30, LOG_WARNING, "ERROR 9: file %s, number %d", "name", 5);
  });
  EXPECT_EQ(child.exit_status, 30) << describe(child);
  EXPECT_EQ(
      child.err,
      debug_line("handle_error(): aMyStatusCode = 30, aSyslogLevel = 4, (aFormat and va_list omitted) ...") +
          warning_line("ERROR 9: file name, number 5") +
          error_line("handle_error(): aMyStatusCode = 30 != MYSTATUS__RUNNING__OK, calling exit_clean()...") +
          debug_line("exit_clean(): exit_status = 30 ...") + debug_line("vexit_clean(): exit_status = 30 ...") +
          debug_line("update_status_file(): aNewMYSTATUS = 30 ...") +
          debug_line("update_status_file(): (gMyStatusFilehandle == NULL), attempting to open the file: " +
                     status_path_ + " ...") +
          debug_line("exit_clean_no_update_status_file(): exit_status = 30 ...") +
          debug_line("mdnsproxy (version 1.0.0) EXITING CLEAN with status = 30 from verbose debug logging mode.") +
          debug_line("close_and_delete_PID_file(): aPIDfilename = " + pid_path_ + " ...") +
          debug_line("close_and_delete_PID_file(): " + pid_path_ + " unlocked and remove()'d.") +
          debug_line("mdnsproxy (version 1.0.0) EXITING CLEAN with status = 30 from verbose debug logging mode."));
  EXPECT_FALSE(directory_.has("pid"));
}

TEST_F(HandleError, LeavesTheCodeAndTheFormatWithoutTheCallersValuesInTheStatusFile) {
  const ChildProcess child =
      run_in_child([] { handle_error(30, LOG_WARNING, "ERROR 9: file %s, number %d, code %ld", "name", 5, -65537L); });
  EXPECT_EQ(child.exit_status, 30);
  EXPECT_EQ(StatusFile(), "30\nERROR 9: file (list), number 2147483647, code 2147483647\n");
}

TEST_F(HandleError, KeepsALongFormatWhole) {
  const std::string format = std::string(900, 'x') + "%s";
  run_in_child([&] { handle_error(20, LOG_WARNING, format.c_str(), "y"); });
  EXPECT_EQ(StatusFile(), "20\n" + std::string(900, 'x') + "(list)\n");
}

TEST_F(HandleError, LeavesTheWholeStatusInTheFileThoughTheKernelKeepsEightBits) {
  EXPECT_EQ(run_in_child([] { handle_error(600, LOG_WARNING, "six hundred"); }).exit_status, 600 % 256);
  EXPECT_EQ(StatusFile(), "600\nsix hundred\n");
  EXPECT_EQ(run_in_child([] { handle_error(999, LOG_WARNING, "more"); }).exit_status, 999 % 256);
  EXPECT_EQ(StatusFile(), "999\nmore\n");
}

TEST_F(HandleError, EndsTheProcessWithANegativeStatusToo) {
  EXPECT_EQ(run_in_child([] { handle_error(-1, LOG_WARNING, "text"); }).exit_status, 255);
  EXPECT_EQ(StatusFile(), "-1\ntext\n");
}

TEST_F(HandleError, SaysWhatAFatalErrorSays) {
  const ChildProcess fatal =
      run_in_child([] { fatal_error(30, LOG_WARNING, "ERROR 9: file %s, number %d", "name", 5); });
  EXPECT_EQ(fatal.exit_status, 30);
  EXPECT_EQ(StatusFile(), "30\nERROR 9: file (list), number 2147483647\n");
  const ChildProcess handled =
      run_in_child([] { handle_error(30, LOG_WARNING, "ERROR 9: file %s, number %d", "name", 5); });
  EXPECT_EQ(fatal.err, handled.err);
}

TEST_F(ExitPath, ReleasesBothConnectionsBeforeItsLastMessagesAndThePidFileBetweenThem) {
  GivenPidFile("1\n");
  // After each message: what has been released, closed and removed by then.
  const ChildProcess child = run_in_child([this] {
    GivenConnections();
    fake_syslog::on_message([this] {
      std::fprintf(stderr, "[released %zu, closelog %u, pid file %d]\n",
                   fake_dns_sd::calls("DNSServiceRefDeallocate").size(), fake_syslog::closings(),
                   directory_.has("pid"));
    });
    exit_clean_no_update_status_file(10);
  });
  EXPECT_EQ(child.exit_status, 10);
  EXPECT_THAT(
      child.err,
      HoldsInOrder(
          {"exit_clean_no_update_status_file(): exit_status = 10 ...\n[released 0, closelog 0, pid file 1]",
           "EXITING CLEAN with status = 10 from verbose debug logging mode.\n[released 2, closelog 0, pid file 1]",
           "close_and_delete_PID_file(): aPIDfilename = " + pid_path_ + " ...\n[released 2, closelog 1, pid file 1]",
           " unlocked and remove()'d.\n[released 2, closelog 1, pid file 0]",
           "EXITING CLEAN with status = 10 from verbose debug logging mode.\n[released 2, closelog 1, pid file 0]"}));
}

TEST_F(ExitPath, ReleasesTheSharedConnectionFirst) {
  const ChildProcess child = run_in_child([] {
    GivenConnections();
    std::atexit([] {
      const auto released = fake_dns_sd::calls("DNSServiceRefDeallocate");
      const bool in_order = released.size() == 2 && released[0].ref == gDNSServiceRef_Shared &&
                            released[1].ref == gDNSServiceRef_RegisterRecord;
      std::printf("in order: %d, globals kept: %d", in_order, gDNSServiceRef_Shared != nullptr);
    });
    exit_clean_no_update_status_file(0);
  });
  EXPECT_EQ(child.out, "in order: 1, globals kept: 1");
}

TEST_F(ExitPath, PassesOverAConnectionThatDoesNotExist) {
  const auto tell_releases = [] {
    std::atexit([] {
      for (const auto& call : fake_dns_sd::calls("DNSServiceRefDeallocate")) {
        std::printf("%s ", call.ref == gDNSServiceRef_Shared ? "shared" : "records");
      }
    });
    exit_clean_no_update_status_file(0);
  };
  EXPECT_EQ(run_in_child(tell_releases).out, "");
  EXPECT_EQ(run_in_child([&] {
              GivenSharedConnection();
              tell_releases();
            }).out,
            "shared ");
  EXPECT_EQ(run_in_child([&] {
              GivenRegisterRecordConnection();
              tell_releases();
            }).out,
            "records ");
}

TEST_F(ExitPath, ReportsThatThereIsNoPidFileAndEndsAllTheSame) {
  const ChildProcess child = run_in_child([] { exit_clean_no_update_status_file(7); });
  EXPECT_EQ(child.exit_status, 7);
  EXPECT_THAT(child.err, HasSubstr(critical_line("ERROR 301903: Could not unlink (delete) PID lock file " + pid_path_ +
                                                 ", (did you run sudo or as root?), exiting")));
}

TEST_F(ExitPath, LeavesTheStatusFileAloneWhenToldSo) {
  directory_.write("status", "0\nrunning\n");
  run_in_child([] { exit_clean_no_update_status_file(7); });
  EXPECT_EQ(StatusFile(), "0\nrunning\n");
}

TEST_F(ExitPath, FormatsItsMessageWithItsOwnArguments) {
  const ChildProcess child = run_in_child([] { exit_clean(40, "%s %d", "text", 5); });
  EXPECT_EQ(child.exit_status, 40);
  EXPECT_EQ(StatusFile(), "40\ntext 5\n");
  EXPECT_THAT(child.err, Not(HasSubstr("handle_error")));
}

TEST_F(Status, IsWrittenAsTwoLinesOverWhatWasThere) {
  directory_.write("status", "99\na much longer message than the new one\nand more\n");
  vupdate_status_file(1, "Starting up, deamon PID = %d", 0);
  EXPECT_EQ(StatusFile(), "1\nStarting up, deamon PID = 0\n");
  EXPECT_EQ(gMyStatusFilehandle, nullptr);
}

TEST_F(Status, HasAThirdEmptyLineBehindAMessageWithItsOwnNewline) {
  vupdate_status_file(0, "Finished startup\n");
  EXPECT_EQ(StatusFile(), "0\nFinished startup\n\n");
}

TEST_F(Status, MayHaveAnEmptyMessage) {
  const ChildProcess child = run_in_child([] { vupdate_status_file(1, "%s", ""); });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
  EXPECT_EQ(StatusFile(), "1\n\n");
}

TEST_F(Status, IsTracedInOrder) {
  vupdate_status_file(1, "text");
  EXPECT_THAT(fake_syslog::lines(),
              ElementsAre(fake_syslog::Line{LOG_DEBUG, "vupdate_status_file(): aNewMYSTATUS = 1 ..."},
                          fake_syslog::Line{LOG_DEBUG, "update_status_file(): aNewMYSTATUS = 1 ..."},
                          fake_syslog::Line{LOG_DEBUG,
                                            "update_status_file(): (gMyStatusFilehandle == NULL), attempting to open "
                                            "the file: " +
                                                status_path_ + " ..."}));
}

TEST_F(Status, InAFifoWaitsForItsReader) {
  ASSERT_EQ(mkfifo(status_path_.c_str(), 0600), 0);
  const ChildProcess child = run_in_child([this] {
    GivenHeldSignals();
    in_helper_process([this, waiting = getpid()] {
      wait_until_asleep(waiting);
      directory_.write("read", StatusFile());
    });
    vupdate_status_file(1, "text");
    EXPECT_EQ(gMyStatusFilehandle, nullptr);
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
  EXPECT_EQ(directory_.wait_for("read"), "1\ntext\n");
}

TEST_F(Status, InAFifoThatNobodyReadsIsGivenUpWhenASignalEndsTheProcess) {
  ASSERT_EQ(mkfifo(status_path_.c_str(), 0600), 0);
  GivenPidFile("1\n");
  const ChildProcess child = run_in_child([] {
    sem_init(&gStatusFileSemaphore, 0, 1);
    gStatusFileSemaphoreCreated = true;
    GivenHeldSignals();
    in_helper_process([waiting = getpid()] {
      wait_until_asleep(waiting);
      kill(waiting, SIGTERM);
    });
    vupdate_status_file(1, "text");
  });
  EXPECT_EQ(child.exit_status, 10) << describe(child);
  EXPECT_FALSE(directory_.has("pid"));
}

TEST_F(Status, InAFifoThatNobodyReadsHoldsNoSignalBack) {
  ASSERT_EQ(mkfifo(status_path_.c_str(), 0600), 0);
  GivenPidFile("1\n");
  const ChildProcess child = run_in_child([] {
    GivenHeldSignals();
    raise(SIGTERM);
    deliver_held_signals();
  });
  EXPECT_EQ(child.exit_status, 10) << describe(child);
  EXPECT_FALSE(directory_.has("pid"));
}

TEST_F(Status, TakesAnArgumentListToo) {
  VUpdate(5, "%s", "list");
  EXPECT_EQ(StatusFile(), "5\nlist\n");
}

TEST_F(Status, IsWrittenUnderItsSemaphore) {
  sem_init(&gStatusFileSemaphore, 0, 1);
  gStatusFileSemaphoreCreated = true;
  int value = -1;
  fake_syslog::on_message([&] {
    if (fake_syslog::lines().back().text.find("attempting to open") != std::string::npos) {
      sem_getvalue(&gStatusFileSemaphore, &value);
    }
  });
  vupdate_status_file(1, "text");
  EXPECT_EQ(value, 0);
  sem_getvalue(&gStatusFileSemaphore, &value);
  EXPECT_EQ(value, 1);
}

TEST_F(Status, WaitsForNoSemaphoreThatHasNotBeenMade) {
  sem_init(&gStatusFileSemaphore, 0, 0);
  vupdate_status_file(1, "text");
  EXPECT_EQ(StatusFile(), "1\ntext\n");
}

TEST_F(Status, ThatCannotBeOpenedEndsTheProcessWithoutOne) {
  GivenPidFile("1\n");
  GivenStatusFileThatCannotBeOpened();
  const ChildProcess child = run_in_child([] { vupdate_status_file(1, "text"); });
  EXPECT_EQ(child.exit_status, 30);
  EXPECT_THAT(child.err,
              HoldsInOrder({error_line("ERROR 30130117011910: Could not open status file " + missing_ + ", exiting"),
                            debug_line("exit_clean_no_update_status_file(): exit_status = 30 ...")}));
  EXPECT_THAT(child.err, Not(HasSubstr(" exit_clean(): ")));
  EXPECT_FALSE(directory_.has("pid"));
}

TEST_F(Status, ThatCannotBeOpenedEndsAFatalErrorWithItsOwnStatus) {
  GivenStatusFileThatCannotBeOpened();
  EXPECT_EQ(run_in_child([] { handle_error(600, LOG_WARNING, "text"); }).exit_status, 30);
}

TEST_F(Status, ThatCannotBeWrittenEndsTheProcessWithoutOne) {
  gSettings.status_file = kFull;
  const ChildProcess child = run_in_child([] { vupdate_status_file(1, "text"); });
  EXPECT_EQ(child.exit_status, 30);
  EXPECT_THAT(child.err,
              HoldsInOrder({error_line("ERROR 30130117011911: Could not write to status file /dev/full, exiting"),
                            debug_line("exit_clean_no_update_status_file(): exit_status = 30 ...")}));
}

TEST_F(Status, WhoseMessageCannotBeWrittenEndsTheProcessToo) {
  // The code fits the file, the message does not.
  const ChildProcess child = run_in_child([] {
    const rlimit two_bytes = {2, 2};
    setrlimit(RLIMIT_FSIZE, &two_bytes);
    signal(SIGXFSZ, SIG_IGN);
    vupdate_status_file(1, "text");
  });
  EXPECT_EQ(child.exit_status, 30) << describe(child);
  EXPECT_THAT(child.err, HasSubstr("ERROR 30130117011911: "));
  EXPECT_EQ(StatusFile(), "1\n");
}
