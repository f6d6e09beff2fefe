// SPDX-License-Identifier: MIT
#include "dnssd/message_reader.h"

#include <gtest/gtest.h>

#include <string_view>

namespace dnssd {
namespace {

using std::string_view_literals::operator""sv;

std::span<const std::uint8_t> bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(MessageReader, ReadsNumbersInNetworkOrderAndNothingBeyondTheEnd) {
  MessageReader reader{bytes("\1\2\3\4\5\6\7"sv)};
  EXPECT_EQ(reader.number16(), 0x0102);
  EXPECT_EQ(reader.number32(), 0x03040506u);
  EXPECT_FALSE(reader.number16());
  MessageReader empty{{}};
  EXPECT_FALSE(empty.number16());
}

TEST(ReadQuestion, GivesNameAndTypeAndMovesBehindTheClass) {
  MessageReader reader{bytes("\1a\5local\0\0\xff\0\1\xc0\0\0\1\x80\1"sv)};
  const std::optional<Question> first = read_question(reader);
  ASSERT_TRUE(first);
  EXPECT_EQ(name_to_text(first->name), "a.local.");
  EXPECT_EQ(first->rrtype, 255);
  const std::optional<Question> second = read_question(reader);  // its name points at the first one's
  ASSERT_TRUE(second);
  EXPECT_EQ(name_to_text(second->name), "a.local.");
  EXPECT_EQ(second->rrtype, 1);
  EXPECT_EQ(reader.at, reader.message.size());
}

TEST(ReadQuestion, EveryTruncationIsNone) {
  const std::string_view whole = "\1a\5local\0\0\1\0\1"sv;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    MessageReader reader{bytes(whole.substr(0, length))};
    EXPECT_FALSE(read_question(reader)) << length;
  }
}

TEST(ReadName, HoldsANameToItsLength) {
  std::string longest;
  for (int i = 0; i < 3; ++i) {
    longest += '\x3f' + std::string(63, 'x');
  }
  const std::string fits = longest + '\x3d' + std::string(61, 'y') + '\0';
  const std::string too_long = longest + '\x3e' + std::string(62, 'y') + '\0';
  MessageReader good{bytes(fits)};
  MessageReader bad{bytes(too_long)};
  EXPECT_TRUE(read_name(good));
  EXPECT_FALSE(read_name(bad));
}

}  // namespace
}  // namespace dnssd
