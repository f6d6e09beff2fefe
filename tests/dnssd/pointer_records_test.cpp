// SPDX-License-Identifier: MIT
#include "dnssd/pointer_records.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

namespace dnssd {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

// A message's bytes from its header on; every count is one byte.
std::vector<std::uint8_t> message(std::uint8_t flags, std::uint8_t questions, std::uint8_t answers, std::string_view rest) {
  std::vector<std::uint8_t> bytes(12);
  bytes[2] = flags;
  bytes[5] = questions;
  bytes[7] = answers;
  for (const char byte : rest) {
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  return bytes;
}

constexpr std::uint8_t kResponse = 0x84;
constexpr std::uint8_t kQuery = 0;

using std::string_view_literals::operator""sv;

// _ipp._tcp.local PTR, class IN, ttl, then the target "A" with a pointer to the owner name at byte 12.
constexpr std::string_view kGoodbye = "\4_ipp\4_tcp\5local\0\0\x0c\0\1\0\0\0\0\0\4\1A\xc0\x0c"sv;
constexpr std::string_view kAlive = "\4_ipp\4_tcp\5local\0\0\x0c\0\1\0\0\x11\x94\0\4\1A\xc0\x0c"sv;

std::vector<PointerRecord> read_all(std::span<const std::uint8_t> bytes) {
  std::vector<PointerRecord> all;
  PointerRecords records = pointer_records_of(bytes);
  while (const std::optional<PointerRecord> record = next_pointer_record(records)) {
    all.push_back(*record);
  }
  EXPECT_FALSE(next_pointer_record(records));
  return all;
}

std::string name_at(std::span<const std::uint8_t> bytes, std::size_t at) {
  MessageReader reader{bytes, at};
  const std::optional<Name> name = read_name(reader);
  return name ? name_to_text(*name) : "no name";
}

TEST(PointerRecords, AGoodbyeIsReadWithItsCompressedTarget) {
  const auto bytes = message(kResponse, 0, 1, kGoodbye);
  const auto records = read_all(bytes);
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(name_at(bytes, records[0].owner_at), "_ipp._tcp.local.");
  EXPECT_EQ(name_at(bytes, records[0].target_at), "A._ipp._tcp.local.");
  EXPECT_EQ(records[0].ttl, 0u);
}

TEST(PointerRecords, ALiveRecordKeepsItsTtl) {
  const auto records = read_all(message(kResponse, 0, 1, kAlive));
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].ttl, 4500u);
}

TEST(PointerRecords, TheCacheFlushBitMakesAUniqueOne) {
  std::string unique(kAlive);
  unique[19] = '\x80';
  const auto records = read_all(message(kResponse, 0, 2, std::string(kAlive) + unique));
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_FALSE(records[0].is_unique);
  EXPECT_TRUE(records[1].is_unique);
}

TEST(PointerRecords, AnotherClassHoldsNone) {
  std::string chaos(kAlive);
  chaos[20] = '\3';
  EXPECT_THAT(read_all(message(kResponse, 0, 1, chaos)), IsEmpty());
}

TEST(PointerRecords, AQueryHoldsNone) { EXPECT_THAT(read_all(message(kQuery, 0, 1, kGoodbye)), IsEmpty()); }

TEST(PointerRecords, QuestionsAndOtherRecordsArePassedOver) {
  const std::string other = std::string("\1h\0\0\1\x80\1\0\0\0\x78\0\4\x0a\1\0\2"sv);
  std::string rest = std::string("\1q\0\0\x0c\0\1"sv) + other;
  const std::size_t before = 12 + rest.size();
  rest += kGoodbye;
  rest.back() = static_cast<char>(before);
  const auto bytes = message(kResponse, 1, 2, rest);
  const auto records = read_all(bytes);
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].owner_at, before);
  EXPECT_EQ(name_at(bytes, records[0].target_at), "A._ipp._tcp.local.");
}

TEST(PointerRecords, EveryTruncationIsHarmlessAndHoldsNone) {
  const auto whole = message(kResponse, 0, 1, kGoodbye);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_THAT(read_all(std::span(whole).first(length)), IsEmpty()) << length << " bytes";
  }
}

TEST(PointerRecords, APointerLoopEnds) {
  EXPECT_THAT(read_all(message(kResponse, 0, 1, "\xc0\x0c\0\x0c\0\1\0\0\0\0\0\2\xc0\x0c"sv)), IsEmpty());
  EXPECT_THAT(read_all(message(kResponse, 0, 1, "\1a\xc0\x0c\0\x0c\0\1\0\0\0\0\0\2\xc0\x0c"sv)), IsEmpty());
  EXPECT_THAT(read_all(message(kResponse, 0, 1, "\1a\xc0\x10\xc0\x0e\0\0\0\0\0\0\0"sv)), IsEmpty());
}

TEST(PointerRecords, ATargetThatDoesNotFillItsDataEndsTheReading) {
  std::string longer(kGoodbye);
  longer[27] = '\5';
  longer += "x";
  EXPECT_THAT(read_all(message(kResponse, 0, 1, longer)), IsEmpty());
}

TEST(PointerRecords, WhatFollowsTheFirstMalformedThingIsLeftOut) {
  const std::string broken = std::string("\1h\0\0\x0c\0\1\0\0\0\0\0\2\1A"sv);
  EXPECT_THAT(read_all(message(kResponse, 0, 2, std::string(kGoodbye) + broken)), SizeIs(1));
  EXPECT_THAT(read_all(message(kResponse, 0, 2, broken + std::string(kGoodbye))), IsEmpty());
}

TEST(PointerRecords, ThereAreNoMoreThanTheMessageClaims) {
  EXPECT_THAT(read_all(message(kResponse, 0, 1, std::string(kGoodbye) + std::string(kGoodbye))), SizeIs(1));
  EXPECT_THAT(read_all(message(kResponse, 0, 2, std::string(kGoodbye) + std::string(kGoodbye))), SizeIs(2));
}

TEST(PointerRecords, ALabelWithAZeroByteIsNoName) {
  std::string zero(kGoodbye);
  zero[1] = '\0';
  EXPECT_THAT(read_all(message(kResponse, 0, 1, zero)), IsEmpty());
}

}  // namespace
}  // namespace dnssd
