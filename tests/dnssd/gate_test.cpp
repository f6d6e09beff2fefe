// SPDX-License-Identifier: MIT
// The gate before a socket of this machine's own, in an engine that runs it.
#include "dnssd/gate.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <string>

#include "dnssd/datagram_pair.h"
#include "dnssd/engine.h"
#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr unsigned kIntakeBurst = 40'000;           // records
constexpr std::int64_t kTimeForACrowd = 8'000'000;  // microseconds; less than what nothing waits longer than

std::string record(unsigned number) {
  const std::string name = std::string("\5") + std::to_string(10'000 + number) + std::string("\5local\0", 7);
  return name + std::string("\0\1\x80\1\0\0\0\x78\0\4\x0a\0\0\1", 14);
}

// A response of one record that is like no other.
std::string response(unsigned number) { return std::string("\0\0\x84\0\0\0\0\1\0\0\0\0", 12) + record(number); }

class LeisurelyGate : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_open(), kDNSServiceErr_NoError);
    gate_open(gate_, nullptr, socket_.far, &LeisurelyGate::Taken, this);
    const AvahiPoll api = poll_api(gEngine->poll);
    watch_ = poll_watch_new(&api, socket_.far, AVAHI_WATCH_IN, gate_pass, &gate_);
    ASSERT_NE(watch_, nullptr);
  }

  void TearDown() override {
    gate_close(gate_);
    poll_watch_free(watch_);
    engine_close();
  }

  void Send(const std::string& bytes) { socket_.Send(bytes); }
  void SendCrowd() {
    for (unsigned number = 0; number < 3000; ++number) {
      Send(response(number));
    }
  }

  // Runs the engine as long as there is something to do at once.
  void RunWhatIsReady() {
    for (pollfd ready{gEngine->poll.epoll_fd, POLLIN, 0}; poll(&ready, 1, 0) > 0;) {
      ASSERT_TRUE(poll_dispatch(gEngine->poll));
    }
  }

  // So many microseconds, in which the engine wakes when a timer is due.
  void RunFor(std::int64_t microseconds) {
    const std::int64_t end = monotonic_now() + microseconds;
    while (clock_.PassUntilDue(gEngine->poll, end)) {
      ASSERT_TRUE(poll_dispatch(gEngine->poll));
      RunWhatIsReady();
    }
  }

  // In Avahi's place.
  static void Taken(AvahiWatch*, int fd, AvahiWatchEvent, void* userdata) {
    char byte = 0;
    EXPECT_GE(recv(fd, &byte, sizeof byte, MSG_DONTWAIT), 0) << "called although there is nothing";
    ++static_cast<LeisurelyGate*>(userdata)->taken_;
  }

  StoppedClock clock_;
  UdpPair socket_;
  Gate gate_;
  unsigned taken_ = 0;
  AvahiWatch* watch_ = nullptr;
};

TEST_F(LeisurelyGate, WhatAnOrdinaryLinkSaysIsTakenInAtOnce) {
  for (unsigned number = 0; number < 200; ++number) {
    Send(response(number));
  }
  RunWhatIsReady();
  EXPECT_EQ(taken_, 200U);
}

TEST_F(LeisurelyGate, ACrowdIsTakenInByAndByAndWhole) {
  SendCrowd();
  RunWhatIsReady();
  EXPECT_GE(taken_, 200U);
  EXPECT_LT(taken_, 3000U);
  RunFor(kTimeForACrowd);
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(LeisurelyGate, OnceSomethingIsPublishedNothingWaits) {
  SendCrowd();
  RunWhatIsReady();
  ASSERT_LT(taken_, 3000U);
  gate_hurry(gate_, false);
  RunWhatIsReady();
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(LeisurelyGate, AFloodIsThrownAway) {
  gate_hurry(gate_, false);
  for (unsigned round = 0; round < 10; ++round) {
    SendCrowd();
    RunWhatIsReady();
  }
  EXPECT_EQ(taken_, kIntakeBurst / 2);
}

TEST_F(LeisurelyGate, RepeatsAreNotTakenInButCostTheirAllowance) {
  std::string full("\0\0\x84\0\0\0\1\x2c\0\0\0\0", 12);
  for (unsigned number = 0; number < 300; ++number) {
    full += record(number);
  }
  Send(full);
  RunWhatIsReady();
  const double left = gate_.allowance.left;
  Send(full);
  RunWhatIsReady();
  EXPECT_EQ(taken_, 1U);
  EXPECT_EQ(gate_.allowance.left, left - 301);
}

TEST_F(LeisurelyGate, WhatIsSentToThisMachineAloneMakesNoRepeats) {
  const int yes = 1;
  setsockopt(socket_.far, IPPROTO_IP, IP_PKTINFO, &yes, sizeof yes);
  Send(response(1));
  Send(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 2U);
}

TEST_F(LeisurelyGate, NothingWaitsInASocketThatHasNoRoomForIt) {
  const int size = 64 * 1024;
  setsockopt(socket_.far, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  gate_open(gate_, nullptr, socket_.far, &LeisurelyGate::Taken, this);
  for (unsigned number = 0; number < 3000; ++number) {
    Send(response(number));
    if (number % 20 == 19) {
      RunWhatIsReady();
    }
  }
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(LeisurelyGate, WhatComesFromAnotherPortMakesNoRepeats) {
  socket_.SendFromStranger(response(1));
  socket_.SendFromStranger(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 2U);
}

}  // namespace
}  // namespace dnssd
