// SPDX-License-Identifier: MIT
#include "dnssd/crowd.h"

#include <gtest/gtest.h>

#include "dnssd/datagram_pair.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// A message as the filters see it, behind the eight bytes of a UDP header.
std::string datagram(unsigned char flags, unsigned char authorities) {
  std::string bytes(8 + 12, '\0');
  bytes[8 + 2] = static_cast<char>(flags);
  bytes[8 + 9] = static_cast<char>(authorities);
  return bytes;
}

const std::string kResponse = datagram(0x84, 0);
const std::string kQuestion = datagram(0, 0);
const std::string kProbe = datagram(0, 2);

class Crowd : public ::testing::Test {
 protected:
  Crowd() {
    server_.sockets[0] = socket_.far;
    crowd_begin(socket_.far);
  }

  Ear EarWith(unsigned publications) {
    server_.publications = publications;
    crowd_review(server_);
    return server_.ear;
  }
  // Whether a message of another machine is heard.
  bool Hears(const std::string& message) const {
    socket_.Send(message);
    return socket_.Takes();
  }

  DatagramPair socket_;
  Server server_;
};

TEST_F(Crowd, BeginsBeyondFourHundredPublicationsAndEndsAtTwoHundred) {
  EXPECT_EQ(EarWith(0), Ear::unpublished);
  EXPECT_EQ(EarWith(1), Ear::ordinary);
  EXPECT_EQ(EarWith(400), Ear::ordinary);
  EXPECT_EQ(EarWith(401), Ear::crowded);
  EXPECT_EQ(EarWith(201), Ear::crowded);
  EXPECT_EQ(EarWith(200), Ear::ordinary);
  EXPECT_EQ(EarWith(400), Ear::ordinary);
  EXPECT_EQ(EarWith(0), Ear::unpublished);
  EXPECT_EQ(EarWith(401), Ear::crowded);
  EXPECT_EQ(EarWith(0), Ear::unpublished);
}

TEST_F(Crowd, WhereNothingIsPublishedNoProbeIsListenedTo) {
  EXPECT_TRUE(Hears(kResponse));
  EXPECT_TRUE(Hears(kQuestion));
  EXPECT_FALSE(Hears(kProbe));
}

TEST_F(Crowd, WhereSomethingIsPublishedAllIsListenedTo) {
  EarWith(1);
  EXPECT_TRUE(Hears(kResponse));
  EXPECT_TRUE(Hears(kQuestion));
  EXPECT_TRUE(Hears(kProbe));
}

TEST_F(Crowd, InACrowdTheProbesOfOthersAreListenedToAsEver) {
  EarWith(2000);
  EXPECT_TRUE(Hears(kResponse));
  EXPECT_TRUE(Hears(kQuestion));
  EXPECT_TRUE(Hears(kProbe));
}

TEST_F(Crowd, WhenAllIsWithdrawnProbesAreNoLongerListenedTo) {
  EarWith(2000);
  EarWith(0);
  EXPECT_FALSE(Hears(kProbe));
  EXPECT_TRUE(Hears(kQuestion));
}

TEST_F(Crowd, WhatIsTooShortForAMessageIsNotHeardWhereAFilterStands) {
  EXPECT_FALSE(Hears("short"));
  EarWith(2000);
  EXPECT_FALSE(Hears("short"));
}

TEST_F(Crowd, AMissingSocketIsPassedOver) {
  server_.sockets[0] = -1;
  EXPECT_EQ(EarWith(1), Ear::ordinary);
}

}  // namespace
}  // namespace dnssd
