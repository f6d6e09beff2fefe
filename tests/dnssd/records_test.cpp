// SPDX-License-Identifier: MIT
// What is taken for a record's data, which of several answers is the newest, and what is on a link.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dnssd/base/publishable.h"
#include "dnssd/operations/lookup.h"
#include "dnssd/state/interface.h"

namespace dnssd {
namespace {

using ::testing::ElementsAre;

TEST(IsPublishable, TxtDataIsFilledExactlyByItsStrings) {
  EXPECT_TRUE(is_publishable(mdns::kTypeTxt, std::string(1, '\0')));
  EXPECT_TRUE(is_publishable(mdns::kTypeTxt, "\3a=b"));
  EXPECT_TRUE(is_publishable(mdns::kTypeTxt, std::string("\3a=b\0", 5)));
  EXPECT_FALSE(is_publishable(mdns::kTypeTxt, "\4a=b"));
  EXPECT_FALSE(is_publishable(mdns::kTypeTxt, "\3a=bx"));
}

TEST(IsPublishable, WhatNoMessageCanCarryIsNot) {
  constexpr std::uint16_t kUnknownType = 65280;
  EXPECT_FALSE(is_publishable(kUnknownType, ""));
  EXPECT_TRUE(is_publishable(kUnknownType, std::string(8192, 'x')));
  EXPECT_FALSE(is_publishable(kUnknownType, std::string(8193, 'x')));
}

class Answers : public ::testing::Test {
 protected:
  void Change(mdns::Event::Kind kind, const std::string& rdata) {
    mdns::Event event;
    event.kind = kind;
    event.rdata = rdata;
    answers_change(answers_, event);
  }
  void Add(const std::string& rdata) { Change(mdns::Event::Kind::added, rdata); }
  void Remove(const std::string& rdata) { Change(mdns::Event::Kind::removed, rdata); }

  std::vector<std::string> Live() const {
    std::vector<std::string> live;
    for (const Answer& answer : answers_)
      live.push_back(answer.rdata);
    return live;
  }

  std::vector<Answer> answers_;
};

TEST_F(Answers, TheNewestIsLast) {
  Add("a");
  Add("b");
  Add("c");
  Remove("a");
  EXPECT_THAT(Live(), ElementsAre("b", "c"));
  Add("a");
  EXPECT_THAT(Live(), ElementsAre("b", "c", "a"));
}

TEST_F(Answers, TheLossOfWhatIsNotThereIsNothing) {
  Remove("a");
  Add("a");
  Remove("b");
  EXPECT_THAT(Live(), ElementsAre("a"));
}

TEST(Prefix, HoldsTheAddressesThatBeginLikeIt) {
  const Prefix prefix{mdns::kIpv4, {10, 9, 0xFC, 1}, {0xFF, 0xFF, 0xFC}};
  EXPECT_TRUE(is_within({10, 9, 0xFC, 7}, prefix));
  EXPECT_TRUE(is_within({10, 9, 0xFF, 7}, prefix));
  EXPECT_FALSE(is_within({10, 9, 0xFB, 7}, prefix));
  EXPECT_FALSE(is_within({10, 8, 0xFC, 7}, prefix));
}

TEST(Prefix, MayBeWholeOrEmpty) {
  EXPECT_TRUE(is_within({1, 2, 3, 4}, {mdns::kIpv4, {}, {}}));
  Prefix whole{mdns::kIpv6, {0xFD}, {}};
  whole.netmask.fill(0xFF);
  EXPECT_TRUE(is_within({0xFD}, whole));
  whole.address[15] = 1;
  EXPECT_FALSE(is_within({0xFD}, whole));
}

}  // namespace
}  // namespace dnssd
