// SPDX-License-Identifier: MIT
#include "dnssd/message_reader.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace dnssd {
namespace {

using std::string_literals::operator""s;
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

TEST(ReadQuestion, GivesNameTypeAndClassWithTheBitBesideIt) {
  MessageReader reader{bytes("\1a\5local\0\0\xff\0\1\xc0\0\0\1\x80\1"sv)};
  const std::optional<Question> first = read_question(reader);
  ASSERT_TRUE(first);
  EXPECT_EQ(name_to_text(first->name), "a.local.");
  EXPECT_EQ(first->rrtype, 255);
  EXPECT_EQ(first->rrclass, 1);
  const std::optional<Question> second = read_question(reader);  // its name points at the first one's
  ASSERT_TRUE(second);
  EXPECT_EQ(name_to_text(second->name), "a.local.");
  EXPECT_EQ(second->rrtype, 1);
  EXPECT_EQ(second->rrclass, 0x8001);
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

// A name, then one that ends in a pointer to its second label.
constexpr std::string_view kTwoNames = "\1a\5Local\0\2bc\xc0\2?"sv;
constexpr std::size_t kSecondName = 9;
constexpr std::size_t kBehind = 14;

Name name_of(std::initializer_list<std::string> labels) { return Name{labels}; }

TEST(PassName, MovesAsFarAsReadingItDoes) {
  MessageReader reader{bytes(kTwoNames)};
  EXPECT_TRUE(pass_name(reader));
  EXPECT_EQ(reader.at, kSecondName);
  EXPECT_TRUE(pass_name(reader));
  EXPECT_EQ(reader.at, kBehind);
}

TEST(PassName, RefusesWhatReadingItDoes) {
  for (const std::string_view bad : {""sv, "\1"sv, "\1a"sv, "\1\0\0"sv, "\xc0\0"sv, "\x41x\0"sv, "\1a\xc0\2"sv}) {
    MessageReader passing{bytes(bad)};
    MessageReader reading{bytes(bad)};
    EXPECT_FALSE(pass_name(passing)) << testing::PrintToString(bad);
    EXPECT_FALSE(read_name(reading)) << testing::PrintToString(bad);
  }
}

TEST(IsNameAt, ComparesAsDnsDoes) {
  EXPECT_TRUE(is_name_at(bytes(kTwoNames), 0, name_of({"A", "local"})));
  EXPECT_TRUE(is_name_at(bytes(kTwoNames), kSecondName, name_of({"bc", "LOCAL"})));
  EXPECT_FALSE(is_name_at(bytes(kTwoNames), kSecondName, name_of({"bd", "local"})));
  EXPECT_FALSE(is_name_at(bytes(kTwoNames), kSecondName, name_of({"b", "local"})));
  EXPECT_FALSE(is_name_at(bytes(kTwoNames), kSecondName, name_of({"bc"})));
  EXPECT_FALSE(is_name_at(bytes(kTwoNames), kSecondName, name_of({"bc", "local", "x"})));
  EXPECT_FALSE(is_name_at(bytes(kTwoNames), kSecondName, name_of({})));
  EXPECT_TRUE(is_name_at(bytes("\0"sv), 0, name_of({})));
  EXPECT_FALSE(is_name_at(bytes("\1[\0"sv), 0, name_of({"{"}))) << "no letters";
  EXPECT_FALSE(is_name_at(bytes("\1a"sv), 0, name_of({"a"}))) << "has no end";
  EXPECT_FALSE(is_name_at(bytes("\1a\0"sv), 9, name_of({}))) << "beyond the end";
}

TEST(PassQuestion, MovesBehindTheClass) {
  const std::string_view whole = "\1a\5local\0\0\1\0\1?"sv;
  MessageReader reader{bytes(whole)};
  EXPECT_TRUE(pass_question(reader));
  EXPECT_EQ(reader.at, whole.size() - 1);
  for (std::size_t length = 0; length < whole.size() - 1; ++length) {
    MessageReader cut{bytes(whole.substr(0, length))};
    EXPECT_FALSE(pass_question(cut)) << length;
  }
}

TEST(PassRecordHead, IsReadingItWithoutTheOwner) {
  const std::string_view whole = "\1a\0\0\x0c\x80\1\1\2\3\4\0\3abc"sv;
  MessageReader passing{bytes(whole)};
  MessageReader reading{bytes(whole)};
  const std::optional<RecordHead> passed = pass_record_head(passing);
  const std::optional<RecordHead> read = read_record_head(reading);
  ASSERT_TRUE(passed && read);
  EXPECT_EQ(name_to_text(read->owner), "a.");
  EXPECT_TRUE(passed->owner.labels.empty());
  for (const RecordHead& head : {*passed, *read}) {
    EXPECT_EQ(head.rrtype, 12);
    EXPECT_EQ(head.rrclass, 0x8001);
    EXPECT_EQ(head.ttl, 0x01020304u);
    EXPECT_EQ(head.length, 3u);
  }
  EXPECT_EQ(passing.at, whole.size() - 3);
  EXPECT_EQ(reading.at, whole.size() - 3);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    MessageReader cut{bytes(whole.substr(0, length))};
    EXPECT_FALSE(pass_record_head(cut)) << length;
  }
}

// A response with so many records in its sections: those of `records`.
std::string sections(char questions, char answers, char authorities, char additionals, const std::string& records) {
  return "\0\0\x84\0"s + '\0' + questions + '\0' + answers + '\0' + authorities + '\0' + additionals + records;
}

constexpr std::uint16_t kCname = 5;
const std::string kAddress = "\1h\5local\0\0\1\x80\1\0\0\0\x78\0\4\x0a\0\0\1"s;
const std::string kAlias = "\1h\5local\0\0\5\x80\1\0\0\0\x78\0\2\xc0\x0c"s;

TEST(HoldsRecord, FindsItInEachSection) {
  EXPECT_TRUE(holds_record(bytes(sections(0, 1, 0, 0, kAlias)), kCname));
  EXPECT_TRUE(holds_record(bytes(sections(0, 1, 1, 0, kAddress + kAlias)), kCname));
  EXPECT_TRUE(holds_record(bytes(sections(0, 1, 1, 1, kAddress + kAddress + kAlias)), kCname));
  EXPECT_TRUE(holds_record(bytes(sections(1, 1, 0, 0, "\1h\xc0\x0c\0\1\0\1"s + kAlias)), kCname));
  EXPECT_FALSE(holds_record(bytes(sections(0, 1, 0, 0, kAddress)), kCname));
  EXPECT_FALSE(holds_record(bytes(sections(1, 0, 0, 0, "\1h\5local\0\0\5\0\1"s)), kCname)) << "it is only asked for";
}

TEST(HoldsRecord, IsNotMisledByNames) {
  for (const std::string& owner : {"\3a\0b\0"s, "\xc0\x0c"s, "\xff\xff"s, std::string(400, '\1') + '\0'}) {
    const std::string odd = owner + "\0\1\0\1\0\0\0\x78\0\4\x0a\0\0\1"s;
    EXPECT_TRUE(holds_record(bytes(sections(0, 2, 0, 0, odd + kAlias)), kCname)) << testing::PrintToString(owner);
  }
}

TEST(HoldsRecord, EndsWhereNobodyCouldReadOn) {
  const std::string two = sections(0, 2, 0, 0, kAddress + kAlias);
  for (std::size_t length = 0; length < two.size(); ++length) {
    EXPECT_FALSE(holds_record(bytes(two.substr(0, length)), kCname)) << length;
  }
  EXPECT_FALSE(holds_record(bytes(sections(0, 2, 0, 0, "\x40"s + kAddress + kAlias)), kCname)) << "a length of no kind";
  EXPECT_FALSE(holds_record(bytes(sections(0, 1, 0, 0, kAddress + kAlias)), kCname)) << "behind the last record";
  EXPECT_TRUE(holds_record(bytes(sections(0, 9, 9, 9, kAddress + kAlias)), kCname)) << "fewer than it claims to have";
}

TEST(ClaimedRecords, AreThoseInTheHeaderIfTheyCouldFit) {
  const std::string header = "\0\0\x84\0\0\1\0\2\0\3\0\4"s;
  EXPECT_EQ(claimed_records(bytes(header + std::string(110, 'x'))), 11);
  EXPECT_EQ(claimed_records(bytes(header + std::string(21, 'x'))), 4);
  EXPECT_EQ(claimed_records(bytes(header)), 2);
  EXPECT_EQ(claimed_records(bytes("\0\0\x84\0\0\0\1\0\0\0\0\0"s + std::string(8988, 'x'))), 257);
  EXPECT_EQ(claimed_records(bytes(std::string(4, '\xff') + std::string(8, '\0'))), 1);
  EXPECT_EQ(claimed_records(bytes("short")), 1);
  EXPECT_EQ(claimed_records({}), 1);
}

}  // namespace
}  // namespace dnssd
