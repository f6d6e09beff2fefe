// SPDX-License-Identifier: MIT
#include "dnssd/repeats.h"

#include <gtest/gtest.h>

#include <string>

namespace dnssd {
namespace {

constexpr std::int64_t kSecond = 1'000'000;

const std::string kType("\4_ipp\4_tcp\5local\0", 17);

std::string number16(unsigned value) { return {static_cast<char>(value >> 8), static_cast<char>(value)}; }

std::string record(const std::string& name, unsigned type, unsigned record_class, unsigned ttl, const std::string& data) {
  return name + number16(type) + number16(record_class) + number16(0) + number16(ttl) +
         number16(static_cast<unsigned>(data.size())) + data;
}

std::string pointer_to(char instance, unsigned ttl = 4500, unsigned record_class = 1) {
  return record(kType, 12, record_class, ttl, std::string("\1") + instance + kType);
}

std::string address(char last, unsigned record_class = 0x8001, unsigned ttl = 120) {
  return record(std::string("\4host\5local\0", 12), 1, record_class, ttl, std::string("\x0a\0\0", 3) + last);
}

std::string message(unsigned flags, unsigned questions, unsigned answers, const std::string& body) {
  return number16(0) + number16(flags) + number16(questions) + number16(answers) + number16(0) + number16(0) + body;
}

std::string response(const std::string& body, unsigned answers) { return message(0x8400, 0, answers, body); }

class RepeatsTest : public testing::Test {
 protected:
  Heard Hear(const std::string& bytes, std::int64_t at) {
    return repeats_note(repeats_, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, at);
  }
  bool IsRepeat(const std::string& bytes, std::int64_t at) { return Hear(bytes, at).is_repeat; }

  Repeats repeats_;
};

TEST_F(RepeatsTest, TheSecondAnnouncementIsOne) {
  const std::string announcement = response(pointer_to('a') + address(1), 2);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  EXPECT_TRUE(IsRepeat(announcement, 11 * kSecond));
}

TEST_F(RepeatsTest, OthersInBetweenChangeNothing) {
  EXPECT_FALSE(IsRepeat(response(pointer_to('a'), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(pointer_to('b'), 1), 10 * kSecond));
  EXPECT_TRUE(IsRepeat(response(pointer_to('a'), 1), 11 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneAfterAGoodbye) {
  const std::string announcement = response(pointer_to('a') + address(1), 2);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(pointer_to('a', 0), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(announcement, 11 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneAfterAnotherAddress) {
  const std::string announcement = response(address(1), 1);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(2), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(announcement, 11 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneAfterAnotherPointerThatIsToBeTheOnlyOne) {
  const std::string announcement = response(pointer_to('a', 4500, 0x8001), 1);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(pointer_to('b', 4500, 0x8001), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(announcement, 11 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneWhenTheRecordsComeInTwoMessages) {
  const std::string first = response(address(1), 1);
  const std::string second = response(address(2), 1);
  for (int round = 0; round < 3; ++round) {
    EXPECT_FALSE(IsRepeat(first, (10 + round) * kSecond));
    EXPECT_FALSE(IsRepeat(second, (10 + round) * kSecond));
  }
}

TEST_F(RepeatsTest, WhatIsShortLivedMakesNone) {
  const std::string announcement = response(pointer_to('a') + address(1, 0x8001, 2), 2);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(announcement, 11 * kSecond));
}

TEST_F(RepeatsTest, AGoodbyeIsSaidAgain) {
  const std::string goodbye = response(pointer_to('a', 0), 1);
  EXPECT_FALSE(IsRepeat(goodbye, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(goodbye, 11 * kSecond));
}

TEST_F(RepeatsTest, NamesAreTheSameInAnyCase) {
  std::string shouted = response(address(2), 1);
  shouted[13] = 'H';
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(shouted, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 11 * kSecond));
}

TEST_F(RepeatsTest, NamesAreTheSameCompressedOrNot) {
  const std::string compressed = response(pointer_to('a') + record("\xC0\x0C", 12, 1, 0, std::string("\1b\xC0\x0C", 4)), 2);
  EXPECT_FALSE(IsRepeat(response(pointer_to('b'), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(compressed, 10 * kSecond)) << "holds a goodbye to b";
  EXPECT_FALSE(IsRepeat(response(pointer_to('b'), 1), 11 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneAfterAQuestion) {
  const std::string announcement = response(pointer_to('a'), 1);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(message(0, 1, 0, kType + number16(12) + number16(1)), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(announcement, 11 * kSecond));
}

TEST_F(RepeatsTest, IsPassedOnAgainAfterSomeSecondsHoweverOftenItIsSaid) {
  const std::string announcement = response(pointer_to('a'), 1);
  EXPECT_FALSE(IsRepeat(announcement, 10 * kSecond));
  for (int second = 11; second <= 21; ++second) {
    EXPECT_TRUE(IsRepeat(announcement, second * kSecond)) << second;
  }
  EXPECT_FALSE(IsRepeat(announcement, 21 * kSecond + 1));
}

TEST_F(RepeatsTest, IsOneHoweverTheRecordsArePacked) {
  EXPECT_FALSE(IsRepeat(response(pointer_to('a') + address(1), 2), 10 * kSecond));
  EXPECT_TRUE(IsRepeat(response(address(1), 1), 11 * kSecond));
  EXPECT_TRUE(IsRepeat(response(address(1) + pointer_to('a'), 2), 12 * kSecond));
  EXPECT_FALSE(IsRepeat(response(pointer_to('a') + pointer_to('b'), 2), 13 * kSecond)) << "b is new";
}

TEST_F(RepeatsTest, IsNotOneWithAnotherLifetime) {
  EXPECT_FALSE(IsRepeat(response(address(1, 0x8001, 120), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(1, 0x8001, 4500), 1), 11 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneWithFewerRecordsOfAName) {
  EXPECT_FALSE(IsRepeat(response(address(1) + address(2), 2), 10 * kSecond));
  EXPECT_TRUE(IsRepeat(response(address(2) + address(1), 2), 11 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 11 * kSecond)) << "that ends the other address";
  EXPECT_FALSE(IsRepeat(response(address(1) + address(2), 2), 12 * kSecond));
}

TEST_F(RepeatsTest, IsNotOneAfterOneThatIsToBeTheOnlyOne) {
  EXPECT_FALSE(IsRepeat(response(pointer_to('a'), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(pointer_to('b', 4500, 0x8001), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(pointer_to('a'), 1), 11 * kSecond));
}

TEST_F(RepeatsTest, ARecordThatOthersMayHaveIsOneToo) {
  EXPECT_FALSE(IsRepeat(response(address(1, 1), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(2, 1), 1), 10 * kSecond));
  EXPECT_TRUE(IsRepeat(response(address(1, 1), 1), 11 * kSecond));
}

TEST_F(RepeatsTest, WhatIsMalformedIsNone) {
  const std::string whole = response(pointer_to('a') + address(1), 2);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(IsRepeat(whole.substr(0, size), 10 * kSecond)) << size;
    EXPECT_FALSE(IsRepeat(whole.substr(0, size), 10 * kSecond)) << size;
  }
  const std::string loop = response(record("\xC0\x0C", 12, 1, 4500, "\xC0\x0C"), 1);
  EXPECT_FALSE(IsRepeat(loop, 10 * kSecond));
  EXPECT_FALSE(IsRepeat(loop, 10 * kSecond));
}

TEST_F(RepeatsTest, AFloodDoesNotMakeItGrow) {
  constexpr unsigned kPackets = 200, kRecords = 300;
  for (unsigned packet = 0; packet < kPackets; ++packet) {
    std::string records;
    for (unsigned number = packet * kRecords; number < (packet + 1) * kRecords; ++number) {
      const std::string name = std::string("\4") + static_cast<char>('a' + number % 16) +
                               static_cast<char>('a' + number / 16 % 16) + static_cast<char>('a' + number / 256 % 16) +
                               static_cast<char>('a' + number / 4096) + '\0';
      records += record(name, 1, 0x8001, 120, "\x0a\1\1\1");
    }
    IsRepeat(response(records, kRecords), 10 * kSecond + packet);
  }
  EXPECT_LE(repeats_.recent.count + repeats_.older.count, 50'000U);
  EXPECT_LE(repeats_.recent.places.size() + repeats_.older.places.size(), 65'536U);
}

TEST_F(RepeatsTest, KeysOfTheRecordsBeforeADamagedOneAreTold) {
  const std::string whole = response(pointer_to('a') + address(1), 2);
  EXPECT_EQ(Hear(whole, 10 * kSecond).keys.size(), 2U);
  EXPECT_EQ(Hear(whole.substr(0, whole.size() - 1), 11 * kSecond).keys.size(), 1U);
  EXPECT_FALSE(IsRepeat(whole, 12 * kSecond)) << "everything was forgotten";
}

TEST_F(RepeatsTest, WhatAvahiRefusesHasNotBeenSaid) {
  const std::string records = pointer_to('a') + address(1);
  const std::string as_additionals =
      number16(0) + number16(0x8400) + number16(0) + number16(0) + number16(0) + number16(2) + records;
  for (const std::string& refused : {message(0x8403, 0, 2, records), message(0x8C00, 0, 2, records), as_additionals}) {
    EXPECT_FALSE(IsRepeat(refused, 10 * kSecond));
    EXPECT_FALSE(IsRepeat(response(records, 2), 10 * kSecond));
  }
}

TEST_F(RepeatsTest, AUniqueRecordBesideASharedOneCounts) {
  EXPECT_FALSE(IsRepeat(response(address(1) + address(9, 1), 2), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(2) + address(9, 1), 2), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(9, 1) + address(1), 2), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(9, 1) + address(2), 2), 10 * kSecond));
}

TEST_F(RepeatsTest, EachKeyIsToldOnce) {
  EXPECT_EQ(Hear(response(address(1) + pointer_to('a') + address(2) + pointer_to('b'), 4), 10 * kSecond).keys.size(), 2U);
}

TEST_F(RepeatsTest, TellsWhetherExactlyThisWasSaidLast) {
  const std::uint64_t key = repeats_key(Name{{"HOST", "local"}}, 1);
  const std::uint64_t first = repeats_what(1, std::string("\x0a\0\0\1", 4), 120);
  const std::uint64_t second = repeats_what(1, std::string("\x0a\0\0\2", 4), 120);
  EXPECT_FALSE(repeats_said(repeats_, key, first));
  Hear(response(address(1), 1), 10 * kSecond);
  EXPECT_EQ(repeats_said(repeats_, key, first), 10 * kSecond);
  EXPECT_FALSE(repeats_said(repeats_, key, repeats_what(1, std::string("\x0a\0\0\1", 4), 60)));
  Hear(response(address(1) + address(2), 2), 11 * kSecond);
  EXPECT_FALSE(repeats_said(repeats_, key, first));
  EXPECT_EQ(repeats_said(repeats_, key, first + second), 11 * kSecond);
}

TEST_F(RepeatsTest, TheTargetOfAnSrvRecordIsTheSameInAnyForm) {
  const std::string host("\4host\5local\0", 12);
  const std::string service = record(host, 33, 0x8001, 120, std::string("\0\0\0\0\1\2\xC0\x0C", 8));
  Hear(response(service, 1), 10 * kSecond);
  const std::uint64_t what = repeats_what(33, std::string("\0\0\0\0\1\2\4HOST\5local\0", 18), 120);
  EXPECT_TRUE(repeats_said(repeats_, repeats_key(Name{{"host", "local"}}, 33), what));
}

TEST_F(RepeatsTest, EachOfThousandsIsRemembered) {
  const auto numbered = [](unsigned number) {
    const std::string name = std::string("\3") + static_cast<char>('a' + number % 16) +
                             static_cast<char>('a' + number / 16 % 16) + static_cast<char>('a' + number / 256) + '\0';
    return response(record(name, 1, 0x8001, 120, "\x0a\1\1\1"), 1);
  };
  for (unsigned number = 0; number < 4096; ++number) {
    EXPECT_FALSE(IsRepeat(numbered(number), 12 * kSecond + number)) << number;
  }
  for (unsigned number = 0; number < 4096; ++number) {
    EXPECT_TRUE(IsRepeat(numbered(number), 13 * kSecond + number)) << number;
  }
  EXPECT_EQ(repeats_.recent.count, 4096U);
}

TEST_F(RepeatsTest, ForgettingKeepsNoMemory) {
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(2), 1), 25 * kSecond));
  repeats_forget(repeats_);
  EXPECT_EQ(repeats_.recent.places.capacity() + repeats_.older.places.capacity(), 0U);
  EXPECT_FALSE(repeats_age(repeats_, 25 * kSecond));
}

TEST_F(RepeatsTest, WhatNobodyAddsToIsForgottenInTheEnd) {
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 30 * kSecond));
  const std::uint64_t key = repeats_key(Name{{"host", "local"}}, 1);
  EXPECT_TRUE(repeats_age(repeats_, 30 * kSecond + kRepeatsForgottenAfter - 1));
  EXPECT_TRUE(repeats_knows(repeats_, key));
  EXPECT_FALSE(repeats_age(repeats_, 30 * kSecond + kRepeatsForgottenAfter));
  EXPECT_FALSE(repeats_knows(repeats_, key));
  EXPECT_EQ(repeats_.recent.places.capacity(), 0U);
}

TEST_F(RepeatsTest, WhatIsOldIsGone) {
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 10 * kSecond));
  EXPECT_FALSE(IsRepeat(response(address(1), 1), 40 * kSecond));
  EXPECT_EQ(repeats_.recent.count + repeats_.older.count, 1U);
}

}  // namespace
}  // namespace dnssd
