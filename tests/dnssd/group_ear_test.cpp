// SPDX-License-Identifier: MIT
// An ear on a socket of this machine's own, in place of those on a multicast group: what is read of it, by whom, and what is not.
#include "dnssd/group_ear.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "dnssd/datagram_pair.h"
#include "dnssd/engine.h"
#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr double kBurst = 40'000;
constexpr std::int64_t kSecond = 1'000'000;
constexpr std::uint32_t kNoInterface = 0x7FFFFFFF;

// A header that claims so many answers, and `more` bytes behind it.
std::string message(char flags, unsigned answers, std::size_t more, char rcode = '\0') {
  std::string bytes(12 + more, '\0');
  bytes[2] = flags;
  bytes[3] = rcode;
  bytes[6] = static_cast<char>(answers >> 8);
  bytes[7] = static_cast<char>(answers & 0xFF);
  return bytes;
}

std::string response(unsigned answers = 1, std::size_t more = 11) { return message('\x84', answers, more); }
std::string question() { return message('\0', 0, 6); }

struct Listener {
  unsigned heard = 0;
  unsigned missed = 0;
  std::size_t last_size = 0;
  bool last_is_ipv6 = true;

  static void Heard(const HeardMessage& message, void* userdata) {
    auto* self = static_cast<Listener*>(userdata);
    ++self->heard;
    self->last_size = message.bytes.size();
    self->last_is_ipv6 = message.is_ipv6;
  }
  static void Missed(void* userdata) { ++static_cast<Listener*>(userdata)->missed; }
};

class GroupEarTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_open(), kDNSServiceErr_NoError);
    Listen(devices_, Heeds::responses);
    const int yes = 1;
    setsockopt(socket_.far, SOL_SOCKET, SO_RXQ_OVFL, &yes, sizeof yes);
    Socket().fd = fcntl(socket_.far, F_DUPFD_CLOEXEC, 0);  // the ear's, which closes it
  }

  void TearDown() override {
    group_ear_leave(ear_, &devices_);
    group_ear_leave(ear_, &others_);
    engine_close();
  }

  void Listen(Listener& listener, Heeds heeds) {
    group_ear_listen(ear_, kNoInterface, {heeds, Listener::Heard, Listener::Missed, &listener});
  }

  GroupSocket& Socket() { return ear_.sockets[0]; }

  void Send(const std::string& bytes) { socket_.Send(bytes); }
  bool IsEmpty() { return socket_.IsEmpty(); }

  // How often the event loop would have come by.
  unsigned ReadAll() {
    unsigned passes = 0;
    for (; !IsEmpty(); ++passes) {
      group_ear_read(ear_, Socket());
    }
    return passes;
  }

  StoppedClock clock_;
  UdpPair socket_;
  GroupEar ear_;
  Listener devices_;  // heeds responses
  Listener others_;
};

TEST_F(GroupEarTest, ADatagramIsReadOnceForAllWhoListen) {
  Listen(others_, Heeds::responses);
  Send(response(3, 100));
  group_ear_read(ear_, Socket());
  EXPECT_EQ(devices_.heard, 1U);
  EXPECT_EQ(others_.heard, 1U);
  EXPECT_EQ(others_.last_size, 112U);
  EXPECT_FALSE(others_.last_is_ipv6);
  EXPECT_TRUE(IsEmpty());
}

TEST_F(GroupEarTest, QuestionsAndResponsesGoToThoseWhoHeedThem) {
  Listen(others_, Heeds::questions);
  Send(question());
  Send(question());
  Send(response());
  ReadAll();
  EXPECT_EQ(devices_.heard, 1U);
  EXPECT_EQ(others_.heard, 2U);
}

TEST_F(GroupEarTest, WhatIsNoMulticastDnsGoesToNobody) {
  Listen(others_, Heeds::questions);
  socket_.SendFromStranger(response());
  socket_.SendFromStranger(question());
  Send("");
  Send(response().substr(0, 11));
  Send(message('\x84', 1, 11, '\3'));
  Send(message('\x20', 0, 6));
  ReadAll();
  EXPECT_EQ(devices_.heard, 0U);
  EXPECT_EQ(others_.heard, 0U);
  Send(response().substr(0, 12));
  ReadAll();
  EXPECT_EQ(devices_.heard, 1U);
}

TEST_F(GroupEarTest, ManyAreReadInOneGoAndNotAllOfThem) {
  for (int i = 0; i < 200; ++i) {
    Send(response());
  }
  group_ear_read(ear_, Socket());
  EXPECT_GT(devices_.heard, 1U);
  EXPECT_LT(devices_.heard, 200U);
  ReadAll();
  EXPECT_EQ(devices_.heard, 200U);
  EXPECT_EQ(devices_.missed, 0U);
}

TEST_F(GroupEarTest, AFloodIsThrownAwayAndThoseWhoListenAreTold) {
  constexpr unsigned kRecords = 800;
  for (int round = 0; round < 40; ++round) {
    for (int i = 0; i < 10; ++i) {
      Send(response(kRecords, 8900));
    }
    ReadAll();
  }
  EXPECT_EQ(devices_.heard, 50U) << "so many of eight hundred and one";
  EXPECT_GT(devices_.missed, 0U);
}

TEST_F(GroupEarTest, WhatIsBeyondTheAllowanceIsThrownAwayInOneGo) {
  Socket().allowance = {-1000, monotonic_now()};
  for (int i = 0; i < 100; ++i) {
    Send(response());
  }
  group_ear_read(ear_, Socket());
  EXPECT_TRUE(IsEmpty());
  EXPECT_EQ(devices_.heard, 0U);
  EXPECT_EQ(devices_.missed, 1U);
}

TEST_F(GroupEarTest, NothingIsMissedWhereThereIsNothing) {
  Socket().allowance = {-1000, monotonic_now()};
  group_ear_read(ear_, Socket());
  EXPECT_EQ(devices_.missed, 0U);
}

TEST_F(GroupEarTest, TheAllowanceGrowsBackWithTimeUpToItsBurst) {
  Socket().allowance = {-1000, monotonic_now()};
  clock_.Pass(kSecond / 2);  // two thousand a second
  Send(response());
  group_ear_read(ear_, Socket());
  EXPECT_EQ(devices_.heard, 0U);
  clock_.Pass(kSecond / 2);
  Send(response());
  group_ear_read(ear_, Socket());
  EXPECT_EQ(devices_.heard, 1U);
  EXPECT_EQ(Socket().allowance.left, 998);
  clock_.Pass(3600 * kSecond);
  Send(response());
  group_ear_read(ear_, Socket());
  EXPECT_EQ(Socket().allowance.left, kBurst - 2);
}

TEST_F(GroupEarTest, WhatNobodyHeedsCostsNothing) {
  Socket().allowance = {1, monotonic_now()};
  for (int i = 0; i < 100; ++i) {
    Send(question());
    socket_.SendFromStranger(response());
  }
  Send(response());
  ReadAll();
  EXPECT_EQ(devices_.heard, 1U);
  EXPECT_EQ(devices_.missed, 0U);
}

TEST_F(GroupEarTest, WhatFoundNoRoomIsMissed) {
  const int small = 4096;
  setsockopt(Socket().fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
  for (int i = 0; i < 100; ++i) {
    Send(response());
  }
  ReadAll();
  ASSERT_LT(devices_.heard, 100U);
  Send(response());
  ReadAll();
  EXPECT_EQ(devices_.missed, 1U);
  Send(response());
  ReadAll();
  EXPECT_EQ(devices_.missed, 1U);
}

TEST_F(GroupEarTest, WhoeverHasLeftHearsNothingAndTheLastOneClosesTheSockets) {
  const int fd = Socket().fd;
  Listen(others_, Heeds::responses);
  group_ear_leave(ear_, &others_);
  Send(response());
  ReadAll();
  EXPECT_EQ(devices_.heard, 1U);
  EXPECT_EQ(others_.heard, 0U);
  group_ear_leave(ear_, &others_);  // does not listen
  EXPECT_GE(fcntl(fd, F_GETFD), 0);
  group_ear_leave(ear_, &devices_);
  EXPECT_LT(fcntl(fd, F_GETFD), 0);
  EXPECT_EQ(Socket().fd, -1);
}

}  // namespace
}  // namespace dnssd
