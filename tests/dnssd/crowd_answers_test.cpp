// SPDX-License-Identifier: MIT
// Which questions are taken from Avahi; how they are answered: test_crowd.py.
#include "dnssd/crowd_answers.h"

#include <gtest/gtest.h>

#include <string>

#include "dnssd/engine.h"
#include "dnssd/server.h"
#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr std::uint16_t kPtr = 12, kSrv = 33, kAny = 255;
constexpr std::uint16_t kTruncated = 0x0200;
constexpr std::int64_t kSecond = 1'000'000;

const std::string kCrowded("\4_ipp\4_tcp\5local\0", 17);
const std::string kOther("\5_http\4_tcp\5local\0", 18);
const std::string kAsker("\x0a\1\0\2", 4), kOtherAsker("\x0a\1\0\3", 4);

std::string number16(unsigned value) { return {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)}; }

std::string header(unsigned flags, unsigned questions, unsigned answers = 0, unsigned authorities = 0) {
  return number16(0) + number16(flags) + number16(questions) + number16(answers) + number16(authorities) + number16(0);
}

std::string question(const std::string& name, std::uint16_t rrtype) { return name + number16(rrtype) + number16(1); }

std::string asking(const std::string& name, std::uint16_t rrtype = kPtr, unsigned flags = 0) {
  return header(flags, 1) + question(name, rrtype);
}

std::string pointer(char instance) {
  const std::string target = std::string("\1") + instance + kCrowded;
  return kCrowded + number16(kPtr) + number16(1) + number16(0) + number16(4500) + number16(static_cast<unsigned>(target.size())) +
         target;
}

class CrowdAnswersTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_open(), kDNSServiceErr_NoError);
    crowd_answers_open(server_);
    server_.ear = Ear::crowded;
    server_.crowd_answers.pointers["_ipp._tcp.local"] = 201;
    server_.crowd_answers.pointers["_http._tcp.local"] = 200;
  }
  void TearDown() override {
    crowd_answers_close(server_);
    engine_close();
  }

  bool Takes(const std::string& message, bool is_to_all = true, const std::string& from = kAsker) {
    return crowd_answers_take(server_, {reinterpret_cast<const std::uint8_t*>(message.data()), message.size()}, from, is_to_all);
  }
  std::size_t Waiting() const { return server_.crowd_answers.asked.size(); }
  const Asked& TheFirst() const { return server_.crowd_answers.asked.begin()->second; }
  const Asked& TheLast() const { return server_.crowd_answers.asked.rbegin()->second; }
  // Milliseconds until the first is answered.
  std::int64_t Delay() const { return (server_.crowd_answers.asked.begin()->first - monotonic_now()) / 1000; }

  StoppedClock clock_;
  Server server_;
};

TEST_F(CrowdAnswersTest, AQuestionForTheCrowdIsTaken) {
  EXPECT_TRUE(Takes(asking(kCrowded)));
  EXPECT_EQ(Waiting(), 1U);
  EXPECT_LT(Delay(), 100);
  EXPECT_TRUE(Takes(asking(kCrowded, kAny)));
  EXPECT_TRUE(Takes(asking(std::string("\4_IPP\4_tcp\5LOCAL\0", 17))));
  EXPECT_EQ(Waiting(), 1U) << "one asker's packets wait together";
  EXPECT_EQ(TheFirst().questions, (Questions{{"_ipp._tcp.local", kPtr}, {"_ipp._tcp.local", kAny}}));
}

TEST_F(CrowdAnswersTest, OtherQuestionsAreForAvahi) {
  EXPECT_FALSE(Takes(asking(kCrowded, kSrv)));
  EXPECT_FALSE(Takes(asking(kOther)));
  EXPECT_FALSE(Takes(asking(std::string("\1h\5local\0", 9))));
  EXPECT_EQ(Waiting(), 0U);
}

TEST_F(CrowdAnswersTest, WhereThereIsNoCrowdAllAreForAvahi) {
  server_.ear = Ear::ordinary;
  EXPECT_FALSE(Takes(asking(kCrowded)));
}

TEST_F(CrowdAnswersTest, APacketIsTakenWithAllItsQuestions) {
  EXPECT_TRUE(Takes(header(0, 2) + question(kOther, kPtr) + question(kCrowded, kPtr)));
  ASSERT_EQ(Waiting(), 1U);
  EXPECT_EQ(TheFirst().questions, (Questions{{"_http._tcp.local", kPtr}, {"_ipp._tcp.local", kPtr}}));
}

TEST_F(CrowdAnswersTest, ProbesResponsesAndBrokenPacketsAreForAvahi) {
  EXPECT_FALSE(Takes(header(0, 1, 0, 1) + question(kCrowded, kAny) + pointer('a')));
  EXPECT_FALSE(Takes(header(0x8400, 0, 1) + pointer('a')));
  EXPECT_FALSE(Takes(header(0x2800, 1) + question(kCrowded, kPtr)));  // an update
  const std::string whole = header(0, 1, 1) + question(kCrowded, kPtr) + pointer('a');
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(Takes(whole.substr(0, length))) << length;
  }
  EXPECT_TRUE(Takes(whole));
}

TEST_F(CrowdAnswersTest, WhatTheAskerKnowsMayFollowInFurtherPackets) {
  const std::string more = header(0, 0, 1) + pointer('b');
  EXPECT_FALSE(Takes(more)) << "nobody has asked";
  EXPECT_TRUE(Takes(header(kTruncated, 1, 1) + question(kCrowded, kPtr) + pointer('a')));
  EXPECT_GE(Delay(), 380);
  EXPECT_LT(Delay(), 480);
  EXPECT_EQ(TheFirst().known.size(), 1U);
  EXPECT_FALSE(Takes(more, true, kOtherAsker));
  EXPECT_TRUE(Takes(more));
  EXPECT_EQ(TheFirst().known.size(), 2U);
}

TEST_F(CrowdAnswersTest, BeyondSixteenAskersAPlaceIsSharedAndNothingKnown) {
  const std::string knowing = header(kTruncated, 1, 1) + question(kCrowded, kPtr) + pointer('a');
  for (char asker = 0; asker < 16; ++asker) {
    EXPECT_TRUE(Takes(knowing, true, {asker}));
  }
  EXPECT_EQ(Waiting(), 16U);
  EXPECT_EQ(TheLast().known.size(), 1U);
  EXPECT_TRUE(Takes(asking(kCrowded, kAny), true, kAsker));
  EXPECT_EQ(Waiting(), 16U);
  EXPECT_TRUE(TheLast().known.empty());
  EXPECT_EQ(TheLast().questions.size(), 2U);
}

TEST_F(CrowdAnswersTest, AFewThatWantADirectAnswerAreForAvahi) {
  EXPECT_FALSE(Takes(asking(kCrowded), false));
  EXPECT_TRUE(Takes(asking(kCrowded), false));
  EXPECT_FALSE(Takes(asking(kOther), false));
  EXPECT_EQ(Waiting(), 0U);
  clock_.Pass(12 * kSecond);
  EXPECT_FALSE(Takes(asking(kCrowded), false));
}

TEST_F(CrowdAnswersTest, WhatWantsADirectAnswerIsJudgedByItsQuestionsAlone) {
  const std::string broken = header(0, 1, 1) + question(kCrowded, kPtr);
  EXPECT_FALSE(Takes(broken, false));
  EXPECT_TRUE(Takes(broken, false));
}

TEST_F(CrowdAnswersTest, ManyThatWantADirectAnswerDelayNoLaterOne) {
  EXPECT_FALSE(Takes(asking(kCrowded), false));
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(Takes(asking(kCrowded), false));
  }
  clock_.Pass(12 * kSecond);
  EXPECT_FALSE(Takes(asking(kCrowded), false));
}

}  // namespace
}  // namespace dnssd
