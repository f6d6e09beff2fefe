// SPDX-License-Identifier: MIT
// What mdns.h promises and several parts keep together: events, holders, claims, restarts and the end.
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kAddress = A("printer.local", 1);
const Record kOtherAddress = A("printer.local", 2);

class LinkContract : public LinkTest {
 protected:
  // All that a busy minute sends, byte for byte.
  std::vector<std::vector<std::uint8_t>> MinuteWithSeed(std::uint64_t seed) {
    GivenLink(kBothProtocols, seed);
    Start("_ipp._tcp.local", kTypePtr);
    for (int i = 0; i < 20; ++i) {
      const std::string host = "h" + std::to_string(i) + ".local";
      Publish(Claim::unique, {A(host, 1)});
      Publish(Claim::shared, {Ptr("_http._tcp.local", host)});
      ReceivesAnswers({Ptr("_ipp._tcp.local", host)});
      After(333_ms);
      Asks(Qm("_http._tcp.local", kTypePtr));
    }
    link_restart(*link, now, false);
    After(60_s);
    std::vector<std::vector<std::uint8_t>> all;
    for (const Sent& one : sent) {
      all.push_back(one.bytes);
    }
    return all;
  }
};

// --- Determinism

TEST_F(LinkContract, SendsTheSameBytesForTheSameSeed) {
  const auto first = MinuteWithSeed(77);
  EXPECT_GT(first.size(), 30u);
  EXPECT_EQ(first, MinuteWithSeed(77));
  EXPECT_NE(first, MinuteWithSeed(78));
}

// --- Queries and their events

TEST_F(LinkContract, ReportsWhatIsCachedFirst) {
  ReceivesAnswers({Unique(kAddress)});
  const QueryId id = Start("printer.local", kTypeA);
  ASSERT_THAT(reported, SizeIs(1));
  EXPECT_EQ(reported[0].event.kind, Event::Kind::added);
  EXPECT_EQ(reported[0].event.id, id);
  EXPECT_EQ(reported[0].event.tag, 8u);
  EXPECT_EQ(reported[0].event.type, kTypeA);
  EXPECT_EQ(reported[0].event.ttl, 120u);
  EXPECT_EQ(reported[0].event.rdata, kAddress.rdata);
}

TEST_F(LinkContract, ReportsNoRecordTwice) {
  GivenAsked("printer.local", kTypeA);
  for (int i = 0; i < 10; ++i) {
    ReceivesAnswers({Unique(kAddress)});
    After(10_s);
  }
  EXPECT_THAT(reported, SizeIs(1));
}

TEST_F(LinkContract, ReportsEachRecordToEachQueryOnce) {
  Start("printer.local", kTypeA);
  Start("printer.local", kTypeA);
  ReceivesAnswers({Unique(kAddress)});
  EXPECT_THAT(AddedAt(kAddress), SizeIs(2));
}

TEST_F(LinkContract, ReportsWhatThisLinkPublishesItself) {
  const QueryId id = Start("printer.local", kTypeA);
  const PublicationId published = Publish(Claim::unique, {kAddress});
  After(5_s);
  EXPECT_EQ(AddedAt(kAddress), EstablishedAt(published));
  Stop(id);
  Mark();
  Start("printer.local", kTypeA);
  EXPECT_THAT(AddedAt(kAddress), ElementsAre(0_s));
  Withdraw(published);
  After(5_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(1_s));
}

TEST_F(LinkContract, ReportsWhatIsBothPublishedAndReceivedOnce) {
  Start("_ipp._tcp.local", kTypePtr);
  const PublicationId id = Publish(Claim::shared, {kPtr});
  ReceivesAnswers({kPtr});
  After(5_s);
  EXPECT_THAT(reported, SizeIs(2));  // added, established
  Withdraw(id);
  After(5_s);
  EXPECT_THAT(RemovedAt(kPtr), IsEmpty());
  ReceivesAnswers({Goodbye(kPtr)});
  After(1_s);
  EXPECT_THAT(RemovedAt(kPtr), SizeIs(1));
}

TEST_F(LinkContract, DropsTheEventsOfAStoppedQueryThatHaveNotBeenTaken) {
  Start("printer.local", kTypeA);
  const QueryId id = query_start(*link, now, name("_ipp._tcp.local"), kTypePtr, 1);
  const std::string datagram = header(0x8400, {0, 1, 0, 0}) + record(kPtr.name, kTypePtr, kPtr.rdata);
  link_receive(*link, now, {.source = Host(2), .bytes = bytes(datagram)});
  query_stop(*link, now, id);
  EXPECT_THAT(link_take_events(*link), IsEmpty());
}

TEST_F(LinkContract, DoesNothingForIdsOfNothing) {
  query_stop(*link, now, 0);
  query_stop(*link, now, 99);
  publication_withdraw(*link, now, 0);
  publication_withdraw(*link, now, 99);
  publication_withdraw(*link, now, 99, false);
  After(1_s);
  EXPECT_THAT(sent, IsEmpty());
  EXPECT_EQ(link_deadline(*link), kNever);
}

// --- Publications: holders and claims

TEST_F(LinkContract, EstablishesTheSecondHolderOfALiveRecordAtOnceAndSendsNothing) {
  GivenPublished(Claim::unique, {kAddress});
  const PublicationId second = Publish(Claim::unique, {kAddress});
  After(5_s);
  EXPECT_THAT(EstablishedAt(second), ElementsAre(0_s));
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(LinkContract, KeepsTheTtlOfTheFirstHolder) {
  GivenPublished(Claim::shared, {Ttl(kPtr, 100)});
  Publish(Claim::shared, {Ttl(kPtr, 200)});
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(1_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Ttl(kPtr, 100)));
}

TEST_F(LinkContract, RefusesASecondExclusiveClaimWithOtherData) {
  GivenPublished(Claim::exclusive, {kAddress});
  const PublicationId rival = Publish(Claim::exclusive, {kOtherAddress});
  EXPECT_THAT(ConflictAt(rival), ElementsAre(0_s));
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(LinkContract, AcceptsASecondExclusiveClaimWithTheSameData) {
  GivenPublished(Claim::exclusive, {kAddress});
  const PublicationId twin = Publish(Claim::exclusive, {kAddress});
  EXPECT_THAT(EstablishedAt(twin), ElementsAre(0_s));
}

TEST_F(LinkContract, RefusesAnUpdateThatContradictsAnotherExclusiveClaim) {
  GivenPublished(Claim::exclusive, {kAddress});
  const PublicationId twin = Publish(Claim::exclusive, {kAddress});
  EXPECT_FALSE(Update(twin, kOtherAddress));
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(LinkContract, JoinsUniquePublicationsOfOneName) {
  GivenPublished(Claim::unique, {kAddress});
  const PublicationId second = Publish(Claim::unique, {kOtherAddress});
  EXPECT_THAT(EstablishedAt(second), ElementsAre(0_s));
  After(5_s);
  Mark();
  Asks(Qm("printer.local", kTypeA));
  EXPECT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers, UnorderedElementsAre(Unique(kAddress), Unique(kOtherAddress)));
}

// --- The link

TEST_F(LinkContract, AsksAnewWhenAProtocolComes) {
  GivenAsked("_ipp._tcp.local", kTypePtr);
  After(60_s);
  Mark();
  link_set_protocols(*link, now, kBothProtocols);
  After(1900_ms);
  EXPECT_THAT(AskedAt("_ipp._tcp.local", kTypePtr), SizeIs(2));
}

TEST_F(LinkContract, AsksAnewWhenTheLinkComesBack) {
  GivenAsked("_ipp._tcp.local", kTypePtr);
  After(60_s);
  Mark();
  link_restart(*link, now, true);
  After(1900_ms);
  EXPECT_THAT(AskedAt("_ipp._tcp.local", kTypePtr), SizeIs(2));
}

TEST_F(LinkContract, ReportsWhatIsReceivedAgainAfterTheLinkWasDown) {
  GivenAsked("printer.local", kTypeA, {Unique(kAddress)});
  link_restart(*link, now, true);
  ReceivesAnswers({Unique(kAddress)});
  EXPECT_THAT(RemovedAt(kAddress), SizeIs(1));
  EXPECT_THAT(AddedAt(kAddress), SizeIs(1));
}

TEST_F(LinkContract, AnnouncesSharedRecordsAnewWhenTheLinkComesBack) {
  GivenPublished(Claim::shared, {kPtr});
  link_restart(*link, now, true);
  After(5_s);
  EXPECT_THAT(SentAt(kPtr), SizeIs(2));
}

TEST_F(LinkContract, SendsAllGoodbyesAtTheEndAndThenHasNothingToDo) {
  GivenPublished(Claim::unique, {kAddress});
  GivenPublished(Claim::shared, {kPtr});
  Publish(Claim::unique, {A("never.local", 1)});
  link_withdraw_all(*link, now);
  After(5_s);
  EXPECT_THAT(SentRecords(), UnorderedElementsAre(Goodbye(kAddress), Goodbye(kPtr)));
  EXPECT_EQ(link_deadline(*link), kNever);
  EXPECT_EQ(link_counts(*link).published, 0u);
}

TEST_F(LinkContract, SendsNothingButGoodbyesAfterTheEnd) {
  GivenPublished(Claim::shared, {kPtr});
  Start("_http._tcp.local", kTypePtr);
  link_withdraw_all(*link, now);
  for (int i = 0; i < 20; ++i) {
    now += 100_ms;
    Settle();
  }
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(kPtr)));
}

TEST_F(LinkContract, SendsManyGoodbyesAtItsRateLimit) {
  for (int i = 0; i < 2000; ++i) {
    Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P" + std::to_string(i) + "._ipp._tcp.local")});
  }
  After(12_s);
  Mark();
  link_withdraw_all(*link, now);
  After(1_s);
  EXPECT_THAT(SentRecords(), SizeIs(2000));
  EXPECT_EQ(link_deadline(*link), kNever);
}

TEST_F(LinkContract, ForgetsAllOfALinkThatHasFallenSilent) {
  const QueryId query = GivenAsked("_ipp._tcp.local", kTypePtr, {kPtr});
  const PublicationId published = Publish(Claim::unique, {kAddress});
  Asks(Qm("printer.local", kTypeAaaa));
  After(10_s);
  Asks(Qm("printer.local", kTypeAaaa));
  Stop(query);
  Withdraw(published);
  After(90_min);
  const LinkCounts counts = link_counts(*link);
  EXPECT_EQ(counts.cached + counts.questions + counts.published + counts.names + counts.sources + counts.waiting, 0u);
  EXPECT_EQ(link_deadline(*link), kNever);
}

// --- Figures

TEST_F(LinkContract, CountsWhatPassesAndWhatIsAnothersName) {
  Publish(Claim::shared, {kPtr});
  Publish(Claim::unique, {kAddress});
  After(600_ms);  // two probes
  ReceivesAnswers({Unique(kOtherAddress)});
  After(2_s);
  ReceivesAnswers({kPtr});
  const LinkFigures figures = link_figures(*link, now);
  EXPECT_EQ(figures.received, 2u);
  EXPECT_EQ(figures.ignored, 0u);
  EXPECT_EQ(figures.sent, sent.size());
  EXPECT_GE(figures.sent, 4u);
  EXPECT_EQ(figures.conflicts, 1u);
  EXPECT_THAT(figures.siblings, ElementsAre(Host(2)));
}

TEST_F(LinkContract, CountsWhatIsBeyondAHostsAllowance) {
  for (int i = 0; i < 5000; ++i) {
    Receives(std::string(1400, 'x'), Host(2));
  }
  const LinkFigures figures = link_figures(*link, now);
  EXPECT_EQ(figures.received, 5000u);
  EXPECT_GT(figures.ignored, 0u);
  EXPECT_LT(figures.ignored, 5000u);
}

TEST_F(LinkContract, RemembersForAnHourTheLastFourWhoSaidTheSame) {
  GivenPublished(Claim::shared, {kPtr});
  for (unsigned host = 2; host <= 6; ++host) {
    ReceivesResponse({.answers = {kPtr}, .from = Host(host)});
    ReceivesResponse({.answers = {kPtr}, .from = Host(host)});
    ReceivesResponse({.answers = {kAddress}, .from = Host(host + 10)});
    After(1_s);
  }
  EXPECT_THAT(link_figures(*link, now).siblings, UnorderedElementsAre(Host(3), Host(4), Host(5), Host(6)));
  After(60_min - 1_s);
  EXPECT_THAT(link_figures(*link, now).siblings, IsEmpty());
}
}  // namespace
}  // namespace mdns::test
