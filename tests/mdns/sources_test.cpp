// SPDX-License-Identifier: MIT
// The token bucket of each host: datagrams of a host that floods the link are dropped, those of the others are not.
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::SizeIs;

class Sources : public LinkTest {
 protected:
  // The host sends so many datagrams of about 1400 bytes at once.
  void Floods(int datagrams, const Endpoint& from) {
    const std::vector<Record> records(100, Goodbye(A("nobody.local", 9)));
    for (int i = 0; i < datagrams; ++i) {
      ReceivesResponse({.answers = {records.begin(), records.begin() + 48}, .from = from});
    }
  }

  std::uint64_t Ignored() const { return link_counts(*link).ignored; }
};

TEST_F(Sources, ReceivesABurstOfTwoMegabytesWhole) {
  Floods(1300, Host(66));
  EXPECT_EQ(Ignored(), 0u);
}

TEST_F(Sources, IgnoresWhatAHostSendsBeyondItsAllowance) {
  Floods(3000, Host(66));
  EXPECT_GT(Ignored(), 1400u);
  const std::uint64_t steps = link_counts(*link).steps;
  Floods(1000, Host(66));
  EXPECT_EQ(link_counts(*link).steps, steps);
}

TEST_F(Sources, ReceivesTheOthersWhileOneFloodsTheLink) {
  Start("printer.local", kTypeA);
  Floods(5000, Host(66));
  ReceivesAnswers({Unique(A("printer.local", 1))});
  EXPECT_THAT(AddedAt(A("printer.local", 1)), SizeIs(1));
}

TEST_F(Sources, ReceivesTheHostAgainASecondLater) {
  Start("printer.local", kTypeA);
  Floods(5000, Host(66));
  After(1_s);
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .from = Host(66)});
  EXPECT_THAT(AddedAt(A("printer.local", 1)), SizeIs(1));
}

TEST_F(Sources, CountsAllPortsOfAHostTogether) {
  for (unsigned port = 5353; port < 5353 + 3000; ++port) {
    Floods(1, Host(66, static_cast<std::uint16_t>(port)));
  }
  EXPECT_GT(Ignored(), 1400u);
  EXPECT_EQ(link_counts(*link).sources, 1u);
}

TEST_F(Sources, KeepsABoundedNumberOfHosts) {
  for (unsigned i = 0; i < 5000; ++i) {
    Endpoint host = Host(0);
    host.address[2] = static_cast<std::uint8_t>(i >> 8);
    host.address[3] = static_cast<std::uint8_t>(i);
    ReceivesResponse({.answers = {Unique(A("h" + std::to_string(i) + ".local", 1))}, .from = host});
  }
  EXPECT_EQ(link_counts(*link).sources, 1024u);
  After(80_min);
  EXPECT_EQ(link_counts(*link).sources, 0u);
  EXPECT_EQ(link_counts(*link).cached, 0u);
}

TEST_F(Sources, ForgetsAHostThatHasBeenSilentForTenSeconds) {
  Floods(1, Host(66));
  EXPECT_EQ(link_counts(*link).sources, 1u);
  After(10_s);
  EXPECT_EQ(link_counts(*link).sources, 0u);
}

}  // namespace
}  // namespace mdns::test
