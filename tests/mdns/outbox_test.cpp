// SPDX-License-Identifier: MIT
// The rate limit of sent datagrams, and the recognition of own datagrams that are looped back.
#include "mdns/link_fixture.h"

#include <algorithm>

namespace mdns::test {
namespace {

using testing::Each;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");

class Outbox : public LinkTest {
 protected:
  // The most datagrams, one for each protocol, that were sent within any such time.
  std::size_t MostWithin(Time span) const {
    std::vector<Time> times;
    for (const Sent& one : sent) {
      times.insert(times.end(), one.protocols == kBothProtocols ? 2 : 1, one.at);
    }
    std::size_t most = 0;
    for (std::size_t first = 0, last = 0; last < times.size(); ++last) {
      while (times[last] - times[first] >= span) {
        ++first;
      }
      most = std::max(most, last - first + 1);
    }
    return most;
  }

  void GivenManyPublished(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string instance = "Printer number " + std::to_string(i) + "._ipp._tcp.local";
      Publish(Claim::unique, {Srv(instance, "printer.local"), Txt(instance, std::string(150, 'x'))});
      Publish(Claim::shared, {Ptr("_ipp._tcp.local", instance)});
    }
  }
};

TEST_F(Outbox, SendsAtMost1000DatagramsInAnySecondAnd32InAny20Ms) {
  GivenLink(kBothProtocols);
  GivenManyPublished(2000);
  After(20_s);
  EXPECT_GT(sent.size(), 1000u);
  EXPECT_LE(MostWithin(1_s), 1000u);
  EXPECT_LE(MostWithin(20_ms), 32u);
}

TEST_F(Outbox, KeepsThePaceForRepliesToo) {
  GivenPublished(Claim::unique, {A("printer.local", 1)});
  for (int i = 0; i < 5000; ++i) {
    Asks(Query{.questions = {Qm("printer.local", kTypeA)}, .from = Host(static_cast<unsigned>(i % 200) + 3, 40000)});
    After(100);
  }
  After(20_s);
  EXPECT_LE(MostWithin(1_s), 1000u);
  EXPECT_LE(MostWithin(20_ms), 32u);
}

TEST_F(Outbox, LetsAnswersPassAnnouncements) {
  GivenPublished(Claim::unique, {A("printer.local", 1)});
  GivenManyPublished(2000);
  After(900_ms);
  Mark();
  Asks(Qm("printer.local", kTypeA));
  After(20_ms);
  EXPECT_THAT(SentAt(Unique(A("printer.local", 1))), SizeIs(1));
}

TEST_F(Outbox, SendsNoDatagramThatIsLargerThanTheMtu) {
  GivenManyPublished(200);
  After(20_s);
  for (const Sent& one : sent) {
    EXPECT_LE(one.bytes.size(), 1452u);
  }
}

TEST_F(Outbox, SendsOverTheProtocolsOfTheLinkOnly) {
  GivenLink(kIpv6);
  Publish(Claim::unique, {A("printer.local", 1)});
  Start("_ipp._tcp.local", kTypePtr);
  After(20_s);
  EXPECT_THAT(sent, Each(Field("protocols", &Sent::protocols, kIpv6)));
  EXPECT_FALSE(sent.empty());
}

TEST_F(Outbox, SendsNothingWithoutAProtocol) {
  GivenLink(kNoProtocol);
  Publish(Claim::unique, {A("printer.local", 1)});
  Start("_ipp._tcp.local", kTypePtr);
  After(20_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Outbox, DoesNotTakeItsOwnDatagramForAnotherHosts) {
  GivenAsked("_http._tcp.local", kTypePtr);
  Publish(Claim::shared, {kPtr});
  After(3_s);
  EXPECT_EQ(link_counts(*link).cached, 0u);
  EXPECT_EQ(link_counts(*link).sources, 0u);
}

TEST_F(Outbox, ReceivesTheSameBytesOfAnotherProgramOfTheMachine) {
  Publish(Claim::shared, {kPtr});
  After(10_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  Receives(text(Responses()[0].bytes), Host(1));
  EXPECT_EQ(link_counts(*link).cached, 1u);
}

TEST_F(Outbox, ReceivesTheSameBytesOverTheOtherProtocol) {
  Publish(Claim::shared, {kPtr});
  After(10_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  Receives(text(Responses()[0].bytes), Host6(1));
  EXPECT_EQ(link_counts(*link).cached, 1u);
}

TEST_F(Outbox, WaitsForNothingOnceAllHasBeenSent) {
  GivenPublished(Claim::unique, {A("printer.local", 1)});
  EXPECT_EQ(link_deadline(*link), kNever);
  EXPECT_EQ(link_counts(*link).waiting, 0u);
}

}  // namespace
}  // namespace mdns::test
