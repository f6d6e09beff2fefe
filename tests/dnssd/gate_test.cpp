// SPDX-License-Identifier: MIT
// The gate before a socket of this machine's own, in an engine that runs it.
#include "dnssd/gate.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "dnssd/engine.h"

namespace dnssd {
namespace {

constexpr int kPatience = 20'000;                    // milliseconds
constexpr double kGrowthPerMicrosecond = 2e3 / 1e6;  // of the allowance

// RFC 6762 section 11; on a loopback address that nobody else uses.
constexpr std::uint16_t kMulticastDnsPort = 5353;
constexpr std::uint32_t kSenderAddress = INADDR_LOOPBACK + 0x0509;

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
    socket_ = ASocket(INADDR_LOOPBACK, 0);
    sender_ = ASocket(INADDR_LOOPBACK, 0);
    const int size = 4 * 1024 * 1024;
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
    gate_open(gate_, nullptr, socket_, &LeisurelyGate::Taken, this);
    const AvahiPoll api = poll_api(gEngine->poll);
    watch_ = poll_watch_new(&api, socket_, AVAHI_WATCH_IN, gate_pass, &gate_);
    ASSERT_NE(watch_, nullptr);
  }

  void TearDown() override {
    gate_close(gate_);
    poll_watch_free(watch_);
    engine_close();
    close(socket_);
    close(sender_);
  }

  void Send(const std::string& bytes) {
    sockaddr_in to{};
    socklen_t size = sizeof to;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&to), &size);
    ASSERT_EQ(sendto(sender_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), size),
              static_cast<ssize_t>(bytes.size()));
  }

  // Runs the engine as long as there is something to do at once.
  void RunWhatIsReady() {
    for (pollfd ready{gEngine->poll.epoll_fd, POLLIN, 0}; poll(&ready, 1, 0) > 0;) {
      ASSERT_TRUE(poll_dispatch(gEngine->poll));
    }
    poll_arm(gEngine->poll, false);
  }

  void RunUntilTaken(unsigned count) {
    const std::int64_t end = monotonic_now() + kPatience * std::int64_t{1000};
    while (taken_ < count && monotonic_now() < end) {
      pollfd ready{gEngine->poll.epoll_fd, POLLIN, 0};
      poll(&ready, 1, kPatience);
      RunWhatIsReady();
    }
  }

  static int ASocket(std::uint32_t host, std::uint16_t port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(host);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
  }

  // In Avahi's place.
  static void Taken(AvahiWatch*, int fd, AvahiWatchEvent, void* userdata) {
    char byte = 0;
    EXPECT_GE(recv(fd, &byte, sizeof byte, MSG_DONTWAIT), 0) << "called although there is nothing";
    ++static_cast<LeisurelyGate*>(userdata)->taken_;
  }

  Gate gate_;
  unsigned taken_ = 0;
  int socket_ = -1;
  int sender_ = -1;
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
  for (unsigned number = 0; number < 3000; ++number) {
    Send(response(number));
  }
  RunWhatIsReady();
  EXPECT_GE(taken_, 200U);
  EXPECT_LT(taken_, 3000U);
  RunUntilTaken(3000);
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(LeisurelyGate, OnceSomethingIsPublishedNothingWaits) {
  for (unsigned number = 0; number < 3000; ++number) {
    Send(response(number));
  }
  RunWhatIsReady();
  ASSERT_LT(taken_, 3000U);
  gate_hurry(gate_, false);
  RunWhatIsReady();
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(LeisurelyGate, AFloodIsThrownAway) {
  gate_hurry(gate_, false);
  for (unsigned round = 0; round < 30; ++round) {
    for (unsigned number = 0; number < 3000; ++number) {
      Send(response(number));
    }
    RunWhatIsReady();
  }
  EXPECT_GE(taken_, 10'000U);
  EXPECT_LT(taken_, 80'000U);
}

TEST_F(LeisurelyGate, RepeatsAreNotTakenInButCostTheirAllowance) {
  close(sender_);
  sender_ = ASocket(kSenderAddress, kMulticastDnsPort);
  std::string full("\0\0\x84\0\0\0\1\x2c\0\0\0\0", 12);
  for (unsigned number = 0; number < 300; ++number) {
    full += record(number);
  }
  Send(full);
  RunWhatIsReady();
  const double left = gate_.allowance.left;
  const std::int64_t since = gate_.allowance.counted_at;
  Send(full);
  RunWhatIsReady();
  const double grown = static_cast<double>(gate_.allowance.counted_at - since) * kGrowthPerMicrosecond;
  EXPECT_EQ(taken_, 1U);
  EXPECT_LT(gate_.allowance.left, left + grown - 200);
}

TEST_F(LeisurelyGate, WhatIsSentToThisMachineAloneMakesNoRepeats) {
  close(sender_);
  sender_ = ASocket(kSenderAddress, kMulticastDnsPort);
  const int yes = 1;
  setsockopt(socket_, IPPROTO_IP, IP_PKTINFO, &yes, sizeof yes);
  Send(response(1));
  Send(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 2U);
}

TEST_F(LeisurelyGate, NothingWaitsInASocketThatHasNoRoomForIt) {
  const int size = 64 * 1024;
  setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  gate_open(gate_, nullptr, socket_, &LeisurelyGate::Taken, this);
  for (unsigned number = 0; number < 3000; ++number) {
    Send(response(number));
    if (number % 20 == 19) {
      RunWhatIsReady();
    }
  }
  EXPECT_EQ(taken_, 3000U);
}

TEST_F(LeisurelyGate, WhatComesFromAnotherPortMakesNoRepeats) {
  Send(response(1));
  Send(response(1));
  RunWhatIsReady();
  EXPECT_EQ(taken_, 2U);
}

}  // namespace
}  // namespace dnssd
