// SPDX-License-Identifier: MIT
// Lists that root can read and the daemon's user cannot. Root's tests ask as nobody; for other users there is nothing
// to try, and everything counts as readable.
#include "mdnsproxy-check/reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include "unit/tools/check_test.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr Reader kNobody = {65534, 65534};

class ReaderTest : public CheckTest {
 protected:
  ReaderTest() { request_.reader = kNobody; }
  void GivenMode(const char* file, mode_t mode) { ASSERT_EQ(chmod(directory_.path_of(file).c_str(), mode), 0); }
  bool is_root() const { return geteuid() == 0; }
};

TEST_F(ReaderTest, ListsForEverybodyAreInOrder) {
  GivenMode("rules", 0644);
  GivenMode("services", 0644);
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(ReaderTest, ARulesListForRootAloneEndsTheDaemon) {
  GivenMode("rules", 0600);
  if (is_root()) {
    EXPECT_THAT(Findings(),
                ElementsAre(HasSubstr("rules:1:1: error: ERROR 12013011401: cannot find rules config file")));
    EXPECT_EQ(Check().end->status, 120);
  } else {
    EXPECT_THAT(Findings(), IsEmpty());
  }
}

TEST_F(ReaderTest, SoDoesAServicesList) {
  GivenMode("services", 0640);
  const std::vector<std::string> findings = Findings();
  ASSERT_EQ(findings.size(), is_root() ? 1U : 0U);
  if (is_root()) {
    EXPECT_THAT(findings[0], HasSubstr("make it readable for the daemon's user"));
  }
}

TEST_F(ReaderTest, ADraftMayLieWhereNobodyElseMayGo) {
  ASSERT_EQ(chmod(directory_.path().c_str(), 0700), 0);
  GivenMode("rules", 0644);
  EXPECT_TRUE(can_read(directory_.path_of("rules"), kNobody));
}

TEST_F(ReaderTest, WhatIsNotThereIsForTheReadingToReport) {
  EXPECT_TRUE(can_read(directory_.path_of("missing"), kNobody));
  request_.rules_file = directory_.path_of("missing");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("cannot find rules config file")));
}

}  // namespace
