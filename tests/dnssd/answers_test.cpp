// SPDX-License-Identifier: MIT
#include "dnssd/answers.h"

#include <gtest/gtest.h>

namespace dnssd {
namespace {

constexpr int kIpv4 = 0;
constexpr int kIpv6 = 1;

TEST(AnswerSet, AnAnswerIsNewOnceForBothProtocols) {
  AnswerSet set;
  EXPECT_TRUE(answer_add(set, kIpv4, "a", 120));
  EXPECT_FALSE(answer_add(set, kIpv6, "a", 120));
  EXPECT_FALSE(answer_add(set, kIpv4, "a", 120));
}

TEST(AnswerSet, AnAnswerIsLostWithItsLastProtocol) {
  AnswerSet set;
  answer_add(set, kIpv4, "a", 120);
  answer_add(set, kIpv6, "a", 120);
  EXPECT_FALSE(answer_remove(set, kIpv6, "a"));
  EXPECT_TRUE(answer_remove(set, kIpv4, "a"));
  EXPECT_FALSE(answer_remove(set, kIpv4, "a"));
  EXPECT_EQ(answer_newest(set), nullptr);
}

TEST(AnswerSet, TheNewestIsTheOneThatBecameLiveLast) {
  AnswerSet set;
  answer_add(set, kIpv4, "old", 120);
  answer_add(set, kIpv4, "new", 60);
  answer_add(set, kIpv6, "old", 120);
  EXPECT_EQ(answer_newest(set)->first, "new");
  EXPECT_EQ(answer_newest(set)->second.ttl, 60u);
  answer_remove(set, kIpv4, "new");
  EXPECT_EQ(answer_newest(set)->first, "old");
}

}  // namespace
}  // namespace dnssd
