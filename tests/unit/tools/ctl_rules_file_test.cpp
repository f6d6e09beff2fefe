// SPDX-License-Identifier: MIT
// A list is read as it is and replaced as a whole.
#include "mdnsproxyctl/rules_file.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "unit/scratch_directory.h"

namespace {

class RulesFileTest : public testing::Test {
 protected:
  std::string path() const { return directory_.path_of("rules"); }
  std::ptrdiff_t files() const {
    return std::distance(std::filesystem::directory_iterator(directory_.path()), std::filesystem::directory_iterator());
  }

  ScratchDirectory directory_;
};

TEST_F(RulesFileTest, WhatWasWrittenIsRead) {
  ASSERT_TRUE(replace_rules_file(path(), {"<!-- none -->\n", 0640, getuid(), getgid()}));
  const std::optional<RulesFile> read = read_rules_file(path());
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->text, "<!-- none -->\n");
  EXPECT_EQ(read->mode, 0640U);
  EXPECT_EQ(read->user, getuid());
  EXPECT_EQ(files(), 1);
}

TEST_F(RulesFileTest, TheFileIsAnotherOneAndWhoHasTheOldOneOpenKeepsIt) {
  directory_.write("rules", "old\n");
  struct stat before = {};
  ASSERT_EQ(stat(path().c_str(), &before), 0);
  ASSERT_TRUE(replace_rules_file(path(), {"new\n", 0644, getuid(), getgid()}));
  struct stat after = {};
  ASSERT_EQ(stat(path().c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);
}

TEST_F(RulesFileTest, AFullDiskLeavesTheOldOneAndNothingElse) {
  directory_.write("rules", "old\n");
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small = {4, limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool replaced = replace_rules_file(path(), {"something longer\n", 0644, getuid(), getgid()});
  const int why = errno;
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(replaced);
  EXPECT_EQ(why, EFBIG);
  EXPECT_EQ(read_rules_file(path())->text, "old\n");
  EXPECT_EQ(files(), 1);
}

TEST_F(RulesFileTest, WhatIsNoFileIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  EXPECT_FALSE(read_rules_file(path()).has_value());
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(read_rules_file(directory_.path_of("missing")).has_value());
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(RulesFileTest, OneAtATimeReplacesFilesInADirectory) {
  const DirectoryLock first(path());
  EXPECT_TRUE(first.held());
  const DirectoryLock second(path());
  EXPECT_FALSE(second.held());
}

}  // namespace
