// SPDX-License-Identifier: MIT
// What strangers say, made harmless and lined up.
#include "mdnsproxyctl/text.h"

#include <gmock/gmock.h>

TEST(Shown, LeavesPlainTextAsItIs) {
  for (const char* text : {"", "Office Printer", "Drücker im Büro ☕", "プリンタ", "a.b", "<script>", "$(reboot)"}) {
    EXPECT_EQ(shown(text), text);
  }
}

TEST(Shown, EscapesWhatMovesTheCursorOrHides) {
  EXPECT_EQ(shown("a\nb\x1b[31m\x7f"), "a\\010b\\027[31m\\127");
  EXPECT_EQ(shown("\xc2\x9b"), "\\194\\155") << "a control character of eight bits";
  EXPECT_EQ(shown("\u202e\u2066\u200b\ufeff\u2028"),
            "\\226\\128\\174\\226\\129\\166\\226\\128\\139\\239\\187\\191\\226\\128\\168");
  EXPECT_EQ(shown("\\010"), "\\\\010") << "no name looks like an escape";
  EXPECT_EQ(shown(std::string("a\0b", 3)), "a\\000b");
}

TEST(Shown, EscapesBytesThatAreNoUtf8) {
  EXPECT_EQ(shown("\xff"), "\\255");
  EXPECT_EQ(shown("\xc3"), "\\195") << "cut short";
  EXPECT_EQ(shown("\xc0\xaf"), "\\192\\175") << "longer than it need be";
  EXPECT_EQ(shown("\xe0\x80\xaf"), "\\224\\128\\175");
  EXPECT_EQ(shown("\xed\xa0\x80"), "\\237\\160\\128") << "half of a pair";
  EXPECT_EQ(shown("\xf4\x90\x80\x80"), "\\244\\144\\128\\128") << "above the last code point";
}

TEST(InQuotes, EscapesTheQuoteItself) {
  EXPECT_EQ(in_quotes("12\" screen"), "\"12\\\" screen\"");
  EXPECT_EQ(in_quotes("\\"), "\"\\\\\"");
}

TEST(DisplayWidth, CountsColumns) {
  EXPECT_EQ(display_width("abc"), 3U);
  EXPECT_EQ(display_width("プリンタ"), 8U);
  EXPECT_EQ(display_width("u\u0308"), 1U) << "a mark above the letter";
}

TEST(Table, LinesUpInAnyScript) {
  EXPECT_EQ(table({{"NAME", "TYPE"}, {"プリンタ", "x"}, {"abc", "y"}}),
            "NAME      TYPE\n"
            "プリンタ  x\n"
            "abc       y\n");
}

TEST(Duration, ShowsTheTwoLargestUnits) {
  constexpr std::uint64_t kSecond = 1'000'000'000;
  EXPECT_EQ(duration(0), "0 s");
  EXPECT_EQ(duration(59 * kSecond), "59 s");
  EXPECT_EQ(duration(60 * kSecond), "1 min");
  EXPECT_EQ(duration(3661 * kSecond), "1 h 1 min");
  EXPECT_EQ(duration((3 * 86400 + 4 * 3600 + 59 * 60) * kSecond), "3 d 4 h");
}

TEST(UtcTime, GoesBackFromNow) {
  const Clocks clocks = {100'000'000'000, 1'000'000'100'000'000'000};
  EXPECT_EQ(utc_time(0, clocks), "2001-09-09T01:46:40Z");
  EXPECT_EQ(utc_time(100'000'000'000, clocks), "2001-09-09T01:48:20Z");
  EXPECT_EQ(utc_time(999'000'000'000, clocks), "2001-09-09T01:48:20Z") << "the future counts as now";
}
