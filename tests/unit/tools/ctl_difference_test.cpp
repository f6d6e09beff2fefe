// SPDX-License-Identifier: MIT
// The lines in which two lists differ.
#include "mdnsproxyctl/difference.h"

#include <gmock/gmock.h>

#include <random>

#include "support/seed.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> Changes(std::string_view before, std::string_view after) {
  std::vector<std::string> texts;
  for (const LineChange& each : line_changes(before, after)) {
    texts.push_back((each.added ? "+" : "-") + std::to_string(each.number) + " " + each.line);
  }
  return texts;
}

// The new text, made of the old one and the changes.
std::string Applied(const std::vector<std::string>& before, const std::vector<LineChange>& changes) {
  std::vector<std::string> lines = before;
  std::size_t removed = 0;
  for (const LineChange& each : changes) {
    if (!each.added) {
      lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(each.number - 1 - removed));
      ++removed;
    }
  }
  std::string text;
  for (const LineChange& each : changes) {
    if (each.added) {
      lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(each.number - 1), each.line);
    }
  }
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

TEST(LineChanges, TheSameTextHasNone) {
  EXPECT_THAT(Changes("a\nb\n", "a\nb\n"), IsEmpty());
  EXPECT_THAT(Changes("", ""), IsEmpty());
}

TEST(LineChanges, ALineThatIsAnotherOneIsRemovedAndAdded) {
  EXPECT_THAT(Changes("a\nb\nc\n", "a\nB\nc\n"), ElementsAre("-2 b", "+2 B"));
}

TEST(LineChanges, WhatIsKeptBetweenThemIsNoChange) {
  EXPECT_THAT(Changes("a\nb\nc\nd\n", "b\nx\nd\ne\n"), ElementsAre("-1 a", "-3 c", "+2 x", "+4 e"));
}

TEST(LineChanges, OfNothingEverythingIsAdded) { EXPECT_THAT(Changes("", "a\nb"), ElementsAre("+1 a", "+2 b")); }

TEST(LineChanges, TextsWithoutCommonLinesThatAreVeryLongAreReplaced) {
  std::vector<std::string> before(3000, "a");
  std::vector<std::string> after(3000, "b");
  EXPECT_EQ(Changes(Joined(before), Joined(after)).size(), 6000U);
}

TEST(LineChanges, MakeTheOneTextOfTheOther) {
  std::mt19937_64 random(support::chosen_seed());
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> before(random() % 12);
    std::vector<std::string> after(random() % 12);
    for (std::vector<std::string>* lines : {&before, &after}) {
      for (std::string& line : *lines) {
        line = std::string(1, static_cast<char>('a' + random() % 4));
      }
    }
    EXPECT_EQ(Applied(before, line_changes(Joined(before), Joined(after))), Joined(after));
  }
}

}  // namespace
