// SPDX-License-Identifier: MIT
#include "dnssd/gate.h"

#include <gtest/gtest.h>

#include "dnssd/datagram_pair.h"
#include "dnssd/poll.h"
#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr double kBurst = 40'000;
constexpr std::int64_t kSecond = 1'000'000;

// A header that claims so many answers, and `more` bytes behind it.
std::string message(unsigned answers, std::size_t more, char flags = '\x84') {
  std::string bytes(12 + more, '\0');
  bytes[2] = flags;
  bytes[6] = static_cast<char>(answers >> 8);
  bytes[7] = static_cast<char>(answers & 0xFF);
  return bytes;
}

class GateTest : public ::testing::Test {
 protected:
  GateTest() {
    gate_open(gate_, nullptr, Avahi, this);
    gate_set_publishing(gate_, true);
  }

  // In Avahi's place: reads one datagram.
  static void Avahi(AvahiWatch*, int, AvahiWatchEvent, void* userdata) {
    auto* test = static_cast<GateTest*>(userdata);
    ++test->handed_on_;
    test->socket_.Takes();
  }

  void Pass(AvahiWatchEvent events = AVAHI_WATCH_IN) { gate_pass(nullptr, socket_.far, events, &gate_); }

  // What one message costs.
  double CostOf(const std::string& bytes) {
    gate_.allowance = {kBurst / 2, monotonic_now()};
    socket_.Send(bytes);
    Pass();
    return kBurst / 2 - gate_.allowance.left;
  }

  StoppedClock clock_;
  DatagramPair socket_;
  Gate gate_;
  int handed_on_ = 0;
};

TEST_F(GateTest, HandsOnWhatThereIsAnAllowanceFor) {
  EXPECT_EQ(gate_.allowance.left, kBurst);
  socket_.Send(message(3, 100));
  Pass();
  EXPECT_EQ(handed_on_, 1);
}

TEST_F(GateTest, AMessageCostsTheRecordsThatItClaimsIfTheyCouldFit) {
  EXPECT_EQ(CostOf(message(3, 1000)), 4);
  EXPECT_EQ(CostOf(message(500, 9000 - 12)), 501);
  EXPECT_EQ(CostOf(message(0xFFFF, 110)), 12);
  EXPECT_EQ(CostOf("short"), 1);
}

TEST_F(GateTest, WhatIsBeyondTheAllowanceIsThrownAwayAllAtOnce) {
  gate_.allowance = {-1000, monotonic_now()};
  for (int i = 0; i < 5; ++i) {
    socket_.Send(message(1, 10));
  }
  Pass();
  EXPECT_FALSE(socket_.Takes());
  EXPECT_EQ(handed_on_, 0);
}

TEST_F(GateTest, TheAllowanceGrowsBackWithTimeUpToItsBurst) {
  gate_.allowance = {-1000, monotonic_now()};
  clock_.Pass(kSecond / 2);  // two thousand a second
  socket_.Send(message(0, 0));
  Pass();
  EXPECT_EQ(handed_on_, 0);
  clock_.Pass(kSecond / 2);
  socket_.Send(message(0, 0));
  Pass();
  EXPECT_EQ(handed_on_, 1);
  EXPECT_EQ(gate_.allowance.left, 999);
  clock_.Pass(3600 * kSecond);
  socket_.Send(message(0, 0));
  Pass();
  EXPECT_EQ(gate_.allowance.left, kBurst - 1);
}

TEST_F(GateTest, WhatIsNoArrivalIsNotHandedOn) {
  Pass(AVAHI_WATCH_ERR);
  EXPECT_EQ(handed_on_, 0);
}

TEST_F(GateTest, NotesWhenAvahiGotAQuestion) {
  socket_.Send(message(1, 10));
  Pass();
  EXPECT_EQ(gate_.asked_at, 0);
  socket_.Send(message(0, 10, '\0'));
  Pass();
  EXPECT_NE(gate_.asked_at, 0);
}

TEST_F(GateTest, AProbeIsNoQuestionThatIsAnsweredLater) {
  std::string probe = message(0, 10, '\0');
  probe[9] = 1;
  socket_.Send(probe);
  Pass();
  EXPECT_EQ(gate_.asked_at, 0);
}

}  // namespace
}  // namespace dnssd
