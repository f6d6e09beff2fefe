// SPDX-License-Identifier: MIT
// When the settings file is read, what counts as missing, and what is reported how often.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "platform/custom_services.h"
#include "platform/settings_file.h"
#include "platform/settings_reading.h"
#include "unit/platform/settings_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

namespace {

constexpr const char* kHopOne = "[fencing AirDisk]\nwireless_hop = 1\n";
constexpr const char* kMalformed = "[fencing AirDisk]\nwireless_hop = 1\nnonsense\n";

class SettingsFile : public SettingsTest {
 protected:
  static std::optional<std::int32_t> TheHop() { return Hop(0, kVcmFencingWireless); }

  // Asks until a question no longer opens the file: its last change is then old enough to be told from the next one.
  static void WaitUntilSettled() {
    fake_process::start();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int late = 0;
    std::size_t opened_before = 0;
    do {
      // However late, one more question finds the change old enough, and the next one nothing to read.
      late += std::chrono::steady_clock::now() > deadline ? 1 : 0;
      ASSERT_LE(late, 2);
      opened_before = fake_process::calls_of("open").size();
      TheHop();
    } while (fake_process::calls_of("open").size() != opened_before);
    fake_process::start();
  }
};

}  // namespace

TEST_F(SettingsFile, IsReadAgainOnlyWhenItHasChanged) {
  GivenFile(kHopOne);
  WaitUntilSettled();
  EXPECT_THAT(TheHop(), Optional(1));
  Custom("_custom._tcp");
  LogLevel();
  EXPECT_THAT(fake_process::calls_of("open"), IsEmpty());
  GivenFile("[fencing AirDisk]\nwireless_hop = 22\n");
  EXPECT_THAT(TheHop(), Optional(22));
  EXPECT_THAT(fake_process::calls_of("open"), SizeIs(1));
}

TEST_F(SettingsFile, ShowsEveryChangeAtTheNextQuestion) {
  // Of one size, in the same file, and faster than the kernel's clock ticks.
  for (int i = 0; i < 300; ++i) {
    GivenFile("[fencing AirDisk]\nwireless_hop = " + std::to_string(i % 10) + "\n");
    ASSERT_THAT(TheHop(), Optional(i % 10)) << i;
  }
}

TEST_F(SettingsFile, IsNoticedWhenItAppearsIsReplacedAndGoes) {
  EXPECT_EQ(TheHop(), std::nullopt);
  GivenFile(kHopOne);
  WaitUntilSettled();
  EXPECT_THAT(TheHop(), Optional(1));
  directory_.write("new", "[fencing AirDisk]\nwireless_hop = 2\n");
  std::filesystem::rename(directory_.path_of("new"), path());
  EXPECT_THAT(TheHop(), Optional(2));
  std::filesystem::remove(path());
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(SettingsFile, CountsAsMissingBelowSomethingThatIsNoDirectory) {
  directory_.write("file", "");
  const std::string below = directory_.path_of("file") + "/mdnsproxy.conf";
  gVcmSettingsFile = below.c_str();
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(fake_syslog::lines(), IsEmpty());
  gVcmSettingsFile = path();
}

TEST_F(SettingsFile, CountsAsMissingWhenItIsMalformedAndIsReportedOnce) {
  GivenFile(kMalformed);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_EQ(TheHop(), std::nullopt);
  WaitUntilSettled();
  EXPECT_THAT(Reports(), ElementsAre(":3: neither a section, a setting nor a comment"));
}

TEST_F(SettingsFile, MayHaveOneByteOnly) {
  GivenFile("x");
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(":1: neither a section, a setting nor a comment"));
}

TEST_F(SettingsFile, IsReportedByTheFirstMalformedLine) {
  GivenFile("\n; comment\n[fencing AirDisk\nwireless_hop = 1\nnonsense\n");
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(":3: neither a section, a setting nor a comment"));
}

TEST_F(SettingsFile, IsNotReportedAgainWhenItsContentIsTheSame) {
  GivenFile(kMalformed);
  TheHop();
  GivenFile(kMalformed);
  TheHop();
  std::filesystem::remove(path());
  TheHop();
  GivenFile(kMalformed);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), SizeIs(1));
}

TEST_F(SettingsFile, IsReportedAnewWhenItsContentIsAnother) {
  GivenFile(kMalformed);
  TheHop();
  GivenFile(kHopOne);
  EXPECT_THAT(TheHop(), Optional(1));
  GivenFile(std::string("; changed\n") + kMalformed);
  TheHop();
  EXPECT_THAT(Reports(), ElementsAre(":3: neither a section, a setting nor a comment",
                                     ":4: neither a section, a setting nor a comment"));
}

TEST_F(SettingsFile, ReportsAWrongValueOnceForEachContent) {
  GivenFile("[fencing AirDisk]\nwireless_hop = x\n");
  TheHop();
  TheHop();
  WaitUntilSettled();
  EXPECT_THAT(Reports(), SizeIs(1));
}

TEST_F(SettingsFile, NeedNotEndInANewline) {
  GivenFile("[fencing AirDisk]\nwireless_hop = 12");
  EXPECT_THAT(TheHop(), Optional(12));
}

TEST_F(SettingsFile, MayHaveTheLineEndsAndTheMarkOfOtherSystems) {
  GivenFile("\xEF\xBB\xBF[fencing AirDisk]\r\nwireless_hop = 13\r\n");
  EXPECT_THAT(TheHop(), Optional(13));
  EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(SettingsFile, IsMalformedByALineThatIsTooLong) {
  // 199 characters are the most; in pieces, a longer line would be taken for several.
  const std::string longest = "# [mdnsproxy]\n[mdnsproxy]\nlog_level = " + std::string(187, 'e');
  GivenFile(longest + "\n[fencing AirDisk]\nwireless_hop = 1\n");
  EXPECT_THAT(TheHop(), Optional(1));
  GivenFile(longest + "e\n[fencing AirDisk]\nwireless_hop = 1\n");
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(":3: the line is too long"));
}

TEST_F(SettingsFile, MayHaveCommentsOfAnyLength) {
  GivenFile("; " + std::string(5000, 'x') + "\n  # " + std::string(5000, '=') + "\n" + kHopOne);
  EXPECT_THAT(TheHop(), Optional(1));
  EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(SettingsFile, KeepsTheLineNumbersBehindALongComment) {
  GivenFile("; " + std::string(5000, 'x') + "\nnonsense\n");
  TheHop();
  EXPECT_THAT(Reports(), ElementsAre(":2: neither a section, a setting nor a comment"));
}

TEST_F(SettingsFile, IsMalformedByASectionNameThatWouldBeCut) {
  const std::string longest = "fencing _" + std::string(40, 'n');
  GivenFile("[" + longest + "]\nwireless_hop = 1\n" + kHopOne);
  EXPECT_THAT(Hop(Custom(longest.substr(8).c_str()), kVcmFencingWireless), Optional(1));
  GivenFile("\n[" + longest + "n]\nwireless_hop = 1\n" + kHopOne);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(":2: the section's name is too long"));
}

TEST_F(SettingsFile, IsMalformedByAZeroByte) {
  GivenFile(std::string("[fencing AirDisk]\nwireless_hop = 1\0\n", 36));
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(":2: a zero byte"));
}

TEST_F(SettingsFile, IsReportedByAMalformedLineBeforeAZeroByte) {
  GivenFile(std::string("nonsense\n\0\n", 11));
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(":1: neither a section, a setting nor a comment"));
}

TEST_F(SettingsFile, CountsAsMissingWhenItIsTooLarge) {
  const std::string fits = kHopOne + std::string(kSettingsFileLimit - 36, '\n');
  ASSERT_EQ(std::string(kHopOne).size(), 35u);
  GivenFile(fits + "\n");
  EXPECT_THAT(TheHop(), Optional(1));
  GivenFile(fits + "\n\n");
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(": cannot be read (it is too large), nothing is configured"));
}

TEST_F(SettingsFile, CountsAsMissingWhenItIsADirectory) {
  std::filesystem::create_directory(path());
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(": cannot be read (it is no regular file), nothing is configured"));
}

TEST_F(SettingsFile, DoesNotHoldUpTheDaemonWhenItIsAPipe) {
  ASSERT_EQ(mkfifo(path(), 0600), 0);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), SizeIs(1));
}

TEST_F(SettingsFile, CountsAsMissingWhenItMayNotBeRead) {
  GivenFile(kHopOne);
  fake_process::start();
  fake_process::always("open", -1, EACCES);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(Reports(), ElementsAre(": cannot be read (Permission denied), nothing is configured"));
  fake_process::always("open", -1, EMFILE);
  GivenFile("; changed\n");
  TheHop();
  EXPECT_THAT(Reports(), SizeIs(2)) << "another cause is another report";
}

TEST_F(SettingsFile, IsReportedWhenItsDirectoryMayNotBeSearched) {
  std::string endless(300, 'n');  // stands for every other failure of stat
  gVcmSettingsFile = endless.c_str();
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_EQ(TheHop(), std::nullopt);
  EXPECT_THAT(fake_syslog::lines(), SizeIs(1));
  gVcmSettingsFile = path();
}

TEST_F(SettingsFile, IsTriedAgainAfterALackOfMemory) {
  GivenFile(kHopOne);
  TheHop();  // the allocator knows the lines from here on
  std::filesystem::remove(path());
  TheHop();
  GivenFile(kHopOne);
  bool found = false;
  for (unsigned nth = 1; nth < 20 && !found; ++nth) {
    VcmXact xact = nullptr;
    failing_memory::fail_call(nth);
    found = vcm_beginXact(&xact) == 0 && settings_current() != nullptr;
    failing_memory::reset();
    vcm_cancelXact(&xact);
    EXPECT_THAT(TheHop(), Optional(1)) << "failure at " << nth;
    std::filesystem::remove(path());
    TheHop();
    GivenFile(kHopOne);
  }
  EXPECT_TRUE(found);
}

TEST_F(SettingsFile, IsNotTakenWithoutMemoryForACustomService) {
  custom_service_find_or_add("_first._tcp");  // the table has its own memory from here on
  bool no_memory = true;
  for (unsigned nth = 1; nth < 20 && no_memory; ++nth) {
    const std::string type = "_memory" + std::to_string(nth) + "._tcp";
    const std::string text = "[fencing " + type + "]\nwireless_hop = 1\n";
    failing_memory::fail_call(nth);
    SettingsReading* reading = settings_read(text.data(), text.size(), nullptr, nullptr, &no_memory);
    failing_memory::reset();
    ASSERT_EQ(reading == nullptr, no_memory) << "failure at " << nth;
    EXPECT_TRUE(no_memory || custom_service_find(type) != -1) << "failure at " << nth;
    settings_release(reading);
  }
  EXPECT_FALSE(no_memory);
}

TEST_F(SettingsFile, IsReadFromMemoryWithoutAFile) {
  bool no_memory = true;
  SettingsReading* reading = settings_read("[mdnsproxy]\nlog_level = x\n", 26, nullptr, nullptr, &no_memory);
  ASSERT_NE(reading, nullptr);
  EXPECT_FALSE(no_memory);
  EXPECT_STREQ(reading->log_level, "x");
  EXPECT_EQ(settings_hold(reading), reading);
  settings_release(reading);
  EXPECT_STREQ(reading->log_level, "x") << "one holder is left";
  settings_release(reading);
  settings_release(nullptr);
  EXPECT_EQ(settings_hold(nullptr), nullptr);
}

TEST(SettingsFileName, IsTheOneOfTheManual) { EXPECT_STREQ(gVcmSettingsFile, "/etc/mdnsproxy.conf"); }
