// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <utility>

#include "unit/runtime/runtime_fixture.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

class PidFileTest : public RuntimeTest {
 protected:
  PidFileTest() { fake_process::start(); }

  void Create() const { create_PID_file(pid_path_.c_str()); }

  static std::string OwnPid() { return std::to_string(getpid()) + "\n"; }

  static std::vector<std::string> Kills() { return fake_process::calls_of("kill"); }
  static std::vector<std::string> Warnings() { return fake_syslog::texts(LOG_WARNING); }

  std::string Warning301802() const {
    return "WARNING 301802: PID lock file " + pid_path_ +
           " exists -- reading for PID and then will try to issue kill signal....";
  }
  std::string Warning301803(const std::string& pid) const {
    return "WARNING 301803: Found existing PID file " + pid_path_ + " with PID - " + pid + ", calling kill(" + pid +
           ").";
  }
  std::string Warning301804() const {
    return "WARNING 301804: Found existing PID file " + pid_path_ + ", but could not read PID from it, ignoring.";
  }
};

}  // namespace

TEST_F(PidFileTest, HoldsTheOwnProcessIdForTheOwnerAlone) {
  Create();
  EXPECT_EQ(PidFile(), OwnPid());
  struct stat status = {};
  ASSERT_EQ(stat(pid_path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(PidFileTest, IsTracedFromStartToFinish) {
  Create();
  EXPECT_THAT(
      Messages(),
      ElementsAre("create_PID_file(): START: attempting to create aPIDfilename = " + pid_path_ + " ...",
                  "create_PID_file(): FINISH: wrote PID: " + OwnPid() + " to aPIDfilename: " + pid_path_ + "."));
}

TEST_F(PidFileTest, IsSilentInNormalModeUnlessSomethingIsWrong) {
  setlogmask(kSyslogMaskErrors);
  Create();
  close_and_delete_PID_file(pid_path_.c_str());
  EXPECT_THAT(fake_syslog::visible_lines(), IsEmpty());
}

TEST_F(PidFileTest, IsCreatedOnlyIfThereIsNoneWrittenAtOnceSyncedAndClosed) {
  Create();
  const std::string file = std::to_string(gConfigPIDFilehandle);
  char flags[16];
  std::snprintf(flags, sizeof(flags), "%#o", static_cast<unsigned>(O_WRONLY | O_CREAT | O_EXCL));
  EXPECT_THAT(fake_process::calls(),
              ElementsAre("open(\"" + pid_path_ + "\", " + flags + ", 0600)",
                          "write(" + file + ", \"" + OwnPid() + "\")", "fsync(" + file + ")", "close(" + file + ")"));
}

TEST_F(PidFileTest, OfARunningInstanceHasItKilledAndIsOverwritten) {
  GivenPidFile("123456789\n");
  Create();
  EXPECT_THAT(Kills(), ElementsAre("kill(123456789, 9)"));
  EXPECT_THAT(Warnings(), ElementsAre(Warning301802(), Warning301803("123456789")));
  EXPECT_EQ(PidFile(), OwnPid());
}

TEST_F(PidFileTest, OfAnEarlierInstanceIsTakenOverInThisOrder) {
  GivenPidFile("4321\n");
  std::size_t warnings_before_kill = 0;
  fake_process::on_call("kill", [&] { warnings_before_kill = Warnings().size(); });
  Create();
  EXPECT_EQ(warnings_before_kill, 2u);
  EXPECT_THAT(Priorities(), ElementsAre(LOG_WARNING, LOG_DEBUG));
  EXPECT_THAT(
      testing::PrintToString(Messages()),
      HoldsInOrder(
          {"\"create_PID_file(): attempting to create PID file: " + pid_path_ +
               ": ( gConfigPIDFilehandle == -1 ) -- so couldn't open file with O_WRONLY|O_CREAT|O_EXCL, so checking if "
               "the file already exists...\"",
           "WARNING 301802", "\"create_PID_file(): successfully read previous PID = 4321, trying to kill now...\"",
           "WARNING 301803", "create_PID_file(): FINISH"}));
}

TEST_F(PidFileTest, LeavesNoDescriptorBehindWhetherItExistedOrNot) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = descriptors();
  Create();
  EXPECT_EQ(descriptors(), before);
  Create();
  EXPECT_EQ(descriptors(), before);
}

TEST_F(PidFileTest, NamesThePidFileSettingWhereItExists) {
  // The trace shows the setting, the rest the argument.
  GivenPidFile("1\n");
  gSettings.pid_file = "/setting";
  Create();
  EXPECT_THAT(Messages()[1], HasSubstr("attempting to create PID file: /setting: ("));
}

TEST_F(PidFileTest, GoesOnWhenTheKillFails) {
  GivenPidFile("4321\n");
  fake_process::always("kill", -1, ESRCH);
  Create();
  EXPECT_EQ(PidFile(), OwnPid());
  EXPECT_THAT(Warnings(), SizeIs(2));
}

TEST_F(PidFileTest, WithoutANumberKillsNobodyAndIsOverwritten) {
  for (const char* content : {"no number\n", "", "\n", "-", "x12\n", "99999999999\n", "-99999999999\n",
                              "99999999999999999999999999999999999999999\n"}) {
    GivenPidFile(content);
    fake_syslog::reset();
    Create();
    EXPECT_THAT(Kills(), IsEmpty()) << content;
    EXPECT_THAT(Warnings(), ElementsAre(Warning301802(), Warning301804())) << content;
    EXPECT_THAT(
        fake_syslog::texts(LOG_DEBUG),
        testing::Contains("create_PID_file(): could successfully read previous PID = 0, trying to kill now..."));
    EXPECT_THAT(Priorities(), ElementsAre(LOG_WARNING, LOG_DEBUG));
    EXPECT_EQ(PidFile(), OwnPid());
  }
}

TEST_F(PidFileTest, HasItsNumberTakenAsItIs) {
  const std::pair<const char*, const char*> kContents[] = {{"0\n", "0"},
                                                           {"-1\n", "-1"},
                                                           {"-42", "-42"},
                                                           {"  7 8\n", "7"},
                                                           {"12 monkeys", "12"},
                                                           {"13abc\n", "13"},
                                                           {"+5\n", "5"},
                                                           {"2147483647\n", "2147483647"},
                                                           {"-2147483648\n", "-2147483648"},
                                                           {"0000000000000000000000000000000000000000123\n", "123"}};
  for (const auto& [content, pid] : kContents) {
    GivenPidFile(content);
    fake_process::start();
    fake_syslog::reset();
    Create();
    EXPECT_THAT(Kills(), ElementsAre("kill(" + std::string(pid) + ", 9)")) << content;
    EXPECT_THAT(Warnings(), ElementsAre(Warning301802(), Warning301803(pid)));
  }
}

TEST_F(PidFileTest, WithTheOwnIdIsNoException) {
  GivenPidFile(OwnPid());
  Create();
  EXPECT_THAT(Kills(), ElementsAre("kill(" + std::to_string(getpid()) + ", 9)"));
}

TEST_F(PidFileTest, ThatIsLongerThanTheNewOneIsCut) {
  GivenPidFile("1\n" + std::string(100, 'x'));
  Create();
  EXPECT_EQ(PidFile(), OwnPid());
}

TEST_F(PidFileTest, ThatCannotBeReadEndsTheProcess) {
  const std::string missing = directory_.path_of("no/such/directory");
  const ChildProcess child = run_in_child([&] { create_PID_file(missing.c_str()); });
  EXPECT_EQ(child.exit_status, 30);
  EXPECT_THAT(child.err, HasSubstr(warning_line("ERROR 301801: PID lock file " + missing +
                                                " found, but could not fopen for reading, exiting.")));
  EXPECT_THAT(child.err, Not(HasSubstr("WARNING 301802")));
  EXPECT_EQ(StatusFile(), "30\nERROR 301801: PID lock file (list) found, but could not fopen for reading, exiting.\n");
}

TEST_F(PidFileTest, ThatCannotBeReopenedEndsTheProcess) {
  GivenPidFile("4321\n");
  const ChildProcess child = run_in_child([this] {
    fake_process::start();
    fake_process::fail_call("open", 3, EROFS);
    Create();
  });
  EXPECT_EQ(child.exit_status, 30);
  EXPECT_THAT(child.err,
              HoldsInOrder({"WARNING 301803",
                            warning_line("ERROR 301901: PID lock file could not be open for writing, exiting.")}));
  EXPECT_EQ(StatusFile(), "30\nERROR 301901: PID lock file could not be open for writing, exiting.\n");
}

TEST_F(PidFileTest, IsReopenedToBeCut) {
  GivenPidFile("4321\n");
  Create();
  char flags[16];
  std::snprintf(flags, sizeof(flags), "%#o", static_cast<unsigned>(O_WRONLY | O_CREAT | O_TRUNC));
  EXPECT_THAT(fake_process::calls_of("open"), SizeIs(3)) << "to make it, to read it, to cut it";
  EXPECT_EQ(fake_process::calls_of("open").back(), "open(\"" + pid_path_ + "\", " + flags + ", 0600)");
}

TEST_F(PidFileTest, ThatIsAFifoIsWaitedForUntilASignalEndsTheProcess) {
  ASSERT_EQ(mkfifo(pid_path_.c_str(), 0600), 0);
  for (const bool has_writer : {false, true}) {  // one that writes nothing
    const int writer = has_writer ? open(pid_path_.c_str(), O_RDWR) : -1;
    const ChildProcess child = run_in_child([this] {
      fake_process::stop();
      GivenHeldSignals();
      in_helper_process([waiting = getpid()] {
        wait_until_asleep(waiting);
        kill(waiting, SIGTERM);
      });
      Create();
    });
    EXPECT_EQ(child.exit_status, 10) << describe(child);
    EXPECT_EQ(StatusFile(), "10\nReceived SIGTERM signal (2147483647), exiting.\n");
    if (writer != -1) {
      close(writer);
    }
    EXPECT_FALSE(directory_.has("pid"));
    mkfifo(pid_path_.c_str(), 0600);
  }
}

TEST_F(PidFileTest, ThatCannotBeWrittenEndsTheProcess) {
  const ChildProcess child = run_in_child([this] {
    fake_process::start();
    fake_process::fail_call("write", 1, ENOSPC);
    Create();
  });
  EXPECT_EQ(child.exit_status, 30);
  EXPECT_THAT(child.err, testing::ContainsRegex("syslog\\(4\\): ERROR: 301909: Could not write PID: [0-9]+\n to file " +
                                                pid_path_ + ", exiting\n"));
  EXPECT_EQ(StatusFile(), "30\nERROR: 301909: Could not write PID: (list) to file (list), exiting\n");
}

TEST_F(PidFileTest, ThatIsWrittenShortIsNotNoticed) {
  fake_process::always("write", 1);
  Create();
  EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(PidFileTest, ThatCannotBeSyncedIsReported) {
  fake_process::always("fsync", -1, EIO);
  Create();
  EXPECT_THAT(Warnings(), ElementsAre("WARNING 301910: Could not fsync PID file: " + pid_path_ +
                                      ", ignoring error and continuing execution."));
  EXPECT_THAT(Messages().back(), HasSubstr("FINISH"));
}

TEST_F(PidFileTest, ThatCannotBeClosedIsReportedAsTheStatusFile) {
  fake_process::on_call("fsync", [] { fake_process::always("close", -1, EIO); });
  Create();
  EXPECT_THAT(Warnings(), ElementsAre("ERROR 301911: Could not close status file: " + pid_path_ +
                                      ", ignoring error and continuing execution."));
  fake_process::stop();
  close(gConfigPIDFilehandle);
}

TEST_F(PidFileTest, IsRemoved) {
  GivenPidFile("1\n");
  close_and_delete_PID_file(pid_path_.c_str());
  EXPECT_FALSE(directory_.has("pid"));
  EXPECT_THAT(Messages(), ElementsAre("close_and_delete_PID_file(): aPIDfilename = " + pid_path_ + " ...",
                                      "close_and_delete_PID_file(): " + pid_path_ + " unlocked and remove()'d."));
}

TEST_F(PidFileTest, ThatCannotBeRemovedIsReportedToSyslogInBothModes) {
  const fake_syslog::Line error = {LOG_CRIT, "ERROR 301903: Could not unlink (delete) PID lock file " + pid_path_ +
                                                 ", (did you run sudo or as root?), exiting"};
  close_and_delete_PID_file(pid_path_.c_str());
  EXPECT_THAT(fake_syslog::lines(), ElementsAre(testing::_, error, testing::_));
  EXPECT_THAT(Messages().back(), EndsWith(" unlocked and remove()'d."));
  fake_syslog::reset();
  GivenDebugMode();
  close_and_delete_PID_file(pid_path_.c_str());
  EXPECT_THAT(fake_syslog::lines(), ElementsAre(error));
  EXPECT_THAT(DebugStream(), HasSubstr(" unlocked and remove()'d.\n"));
}
