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

constexpr unsigned kIntakeBurst = 40'000;  // records

std::string record(unsigned number) {
  const std::string name = std::string("\5") + std::to_string(10'000 + number) + std::string("\5local\0", 7);
  return name + std::string("\0\1\x80\1\0\0\0\x78\0\4\x0a\0\0\1", 14);
}

// Says of a name that it is another one of itself.
std::string alias() { return std::string("\1h\5local\0\0\5\x80\1\0\0\0\x78\0\2\xc0\x0c", 21); }

// A response of one record that is like no other.
std::string response(unsigned number) { return std::string("\0\0\x84\0\0\0\0\1\0\0\0\0", 12) + record(number); }

class ListeningGate : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_open(), kDNSServiceErr_NoError);
    gate_open(gate_, nullptr, &ListeningGate::Taken, this);
    const AvahiPoll api = poll_api(gEngine->poll);
    watch_ = poll_watch_new(&api, socket_.far, AVAHI_WATCH_IN, gate_pass, &gate_);
    ASSERT_NE(watch_, nullptr);
  }

  void TearDown() override {
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

  // In Avahi's place.
  static void Taken(AvahiWatch*, int fd, AvahiWatchEvent, void* userdata) {
    char byte = 0;
    EXPECT_GE(recv(fd, &byte, sizeof byte, MSG_DONTWAIT), 0) << "called although there is nothing";
    ++static_cast<ListeningGate*>(userdata)->taken_;
  }

  StoppedClock clock_;
  UdpPair socket_;
  Gate gate_;
  unsigned taken_ = 0;
  AvahiWatch* watch_ = nullptr;
};

TEST_F(ListeningGate, NobodyWaitsBehindACrowd) {
  SendCrowd();
  RunWhatIsReady();
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(ListeningGate, AFloodIsThrownAway) {
  gate_set_publishing(gate_, true);
  for (unsigned round = 0; round < 10; ++round) {
    SendCrowd();
    RunWhatIsReady();
  }
  EXPECT_EQ(taken_, kIntakeBurst / 2);
}

TEST_F(ListeningGate, RepeatsAreNotTakenInButCostTheirAllowance) {
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

TEST_F(ListeningGate, WhatIsSentToThisMachineAloneMakesNoRepeats) {
  const int yes = 1;
  setsockopt(socket_.far, IPPROTO_IP, IP_PKTINFO, &yes, sizeof yes);
  Send(response(1));
  Send(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 2U);
}

TEST_F(ListeningGate, WhatComesFromAnotherPortMakesNoRepeats) {
  socket_.SendFromStranger(response(1));
  socket_.SendFromStranger(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 2U);
}

TEST_F(ListeningGate, AResponseWithAnAliasIsNotTakenInButCostsItsAllowance) {
  const std::string header("\0\0\x84\0\0\0\0\1\0\0\0\1", 12);
  for (const bool is_publishing : {false, true}) {
    gate_set_publishing(gate_, is_publishing);
    const double left = gate_.allowance.left;
    Send(header + record(1) + alias());
    RunWhatIsReady();
    EXPECT_EQ(taken_, 0U);
    EXPECT_EQ(gate_.allowance.left, left - 3);
  }
}

TEST_F(ListeningGate, WhatIsSaidBesideAnAliasIsNewsWhenItIsSaidAgain) {
  Send(std::string("\0\0\x84\0\0\0\0\1\0\0\0\1", 12) + record(1) + alias());
  Send(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 1U);
}

TEST_F(ListeningGate, AResponseOfTheGreatestLengthIsTakenInAndALongerOneIsNot) {
  constexpr std::size_t kLongest = 9000;
  const std::string longest = response(1) + std::string(kLongest - response(1).size(), '\0');
  Send(longest);
  RunWhatIsReady();
  EXPECT_EQ(taken_, 1U);
  Send(longest + '\0');
  RunWhatIsReady();
  EXPECT_EQ(taken_, 1U);
}

TEST_F(ListeningGate, AQuestionThatKnowsAnAliasIsTakenIn) {
  Send(std::string("\0\0\0\0\0\0\0\1\0\0\0\0", 12) + alias());
  RunWhatIsReady();
  EXPECT_EQ(taken_, 1U);
}

}  // namespace
}  // namespace dnssd
