// SPDX-License-Identifier: MIT
// Where answers go.
#include "mdnsproxyctl/output_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "mdnsproxyctl/json.h"
#include "unit/scratch_directory.h"

using testing::HasSubstr;

namespace {

class OutputFile : public testing::Test {
 protected:
  int Write(const std::string& file, const std::string& text) {
    return write_answer(session_, file, {{"schema", 1}}, text, kWorthALook);
  }
  std::ptrdiff_t Files() const { return std::distance(std::filesystem::directory_iterator(directory_.path()), {}); }

  ScratchDirectory directory_;
  Session session_;
};

}  // namespace

TEST_F(OutputFile, IsReplacedAsAWhole) {
  directory_.write("page", "a text that was longer");
  const std::filesystem::path old = directory_.path_of("old");
  std::filesystem::create_hard_link(directory_.path_of("page"), old);
  EXPECT_EQ(Write(directory_.path_of("page"), "new"), kWorthALook) << "the status as it came";
  EXPECT_EQ(directory_.read("page"), "new");
  EXPECT_EQ(directory_.read("old"), "a text that was longer") << "whoever had it open reads on";
  EXPECT_EQ(Files(), 2);
  struct stat status = {};
  ASSERT_EQ(stat(directory_.path_of("page").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(OutputFile, HoldsJsonWhenThatWasAskedFor) {
  session_.options.json = true;
  Write(directory_.path_of("page"), "text");
  EXPECT_EQ(directory_.read("page"), "{\n  \"schema\": 1\n}\n");
}

TEST_F(OutputFile, IsStandardOutputWithoutAName) {
  for (const char* file : {"", "-"}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Write(file, "text"), kWorthALook);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "text") << file;
  }
}

TEST_F(OutputFile, ThatCannotBeWrittenIsToldAndLeavesNothing) {
  std::filesystem::create_directory(directory_.path_of("taken"));
  for (const char* file : {"nowhere/page", "taken"}) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(Write(directory_.path_of(file), "text"), kUnwell);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(directory_.path_of(file) + ": "));
  }
  EXPECT_EQ(Files(), 1) << "no temporary file is left";
}
