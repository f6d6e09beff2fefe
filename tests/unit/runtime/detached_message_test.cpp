// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>

#include "unit/runtime/runtime_fixture.h"

namespace {

std::string Detached(const char* format) {
  char buffer[512];
  std::memset(buffer, '#', sizeof(buffer));
  const int length = detached_message(buffer, sizeof(buffer), format);
  EXPECT_EQ(static_cast<std::size_t>(length), std::strlen(buffer));
  return buffer;
}

}  // namespace

TEST(DetachedMessage, KeepsATextWithoutConversions) {
  EXPECT_EQ(Detached("ERROR 102046: malloc failed, exiting."), "ERROR 102046: malloc failed, exiting.");
  EXPECT_EQ(Detached(""), "");
}

TEST(DetachedMessage, ShowsOneNumberForEveryNumber) {
  EXPECT_EQ(Detached("%d %i %u %ld %lu %lld %zu %hhd"),
            "2147483647 2147483647 2147483647 2147483647 2147483647 2147483647 2147483647 2147483647");
  EXPECT_EQ(Detached("%x %X %o"), "7fffffff 7FFFFFFF 17777777777");
}

TEST(DetachedMessage, ShowsOneTextForTextsAndPointers) { EXPECT_EQ(Detached("<%s> <%p>"), "<(list)> <(list)>"); }

TEST(DetachedMessage, PassesOverWhatShapesAValue) {
  EXPECT_EQ(
      Detached("%5d|%-5d|%05d|%+d|% d|%#x|%.3d|%*d|%.*s|%-20s|%'d"),
      "2147483647|2147483647|2147483647|2147483647|2147483647|7fffffff|2147483647|2147483647|(list)|(list)|2147483647");
}

TEST(DetachedMessage, ShowsAPercentSignAsOne) { EXPECT_EQ(Detached("100%% of %d"), "100% of 2147483647"); }

TEST(DetachedMessage, FollowsNoPointerAndWritesThroughNone) {
  EXPECT_EQ(Detached("%n%m%c%f%g%e%a%Q"), "(list)(list)(list)(list)(list)(list)(list)(list)");
}

TEST(DetachedMessage, EndsWithAnUnfinishedConversion) {
  EXPECT_EQ(Detached("half a %"), "half a %");
  EXPECT_EQ(Detached("half a %-5l"), "half a %");
}

TEST(DetachedMessage, IsCutWhereTheBufferEndsAndTellsItsWholeLength) {
  char buffer[8] = "#######";
  EXPECT_EQ(detached_message(buffer, 5, "abc%sdef"), 12);
  EXPECT_STREQ(buffer, "abc(");
  EXPECT_EQ(buffer[5], '#') << "past the buffer nothing is written";
  EXPECT_EQ(detached_message(buffer, 1, "abc"), 3);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(detached_message(buffer, 4, "abc"), 3);
  EXPECT_STREQ(buffer, "abc");
  buffer[0] = '#';
  EXPECT_EQ(detached_message(buffer, 0, "abc"), 3);
  EXPECT_EQ(buffer[0], '#');
}
