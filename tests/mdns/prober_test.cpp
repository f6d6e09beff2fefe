// SPDX-License-Identifier: MIT
// Probes, simultaneous probes and conflicts (RFC 6762 sections 8.1, 8.2 and 9).
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Record kSrv = Srv("P._ipp._tcp.local", "printer.local");
const Record kTxt = Txt("P._ipp._tcp.local", "a=1");

// The records of a unique name as they are announced.
const Record kSaidSrv = Unique(kSrv);

class Prober : public LinkTest {
 protected:
  std::vector<Time> ProbedAt(const char* labels = "P._ipp._tcp.local") const { return AskedAt(labels, kTypeAny); }

  // The link has just sent its first probe; time counts from there.
  PublicationId GivenProbing(const std::vector<Record>& records, Claim claim = Claim::unique) {
    const PublicationId id = Publish(claim, records);
    EXPECT_TRUE(AfterUntil(250_ms, [this] { return !Queries().empty(); }));
    Mark();
    return id;
  }
};

// --- 8.1: the clock

TEST_F(Prober, ProbesThreeTimes250MsApartAndOwnsTheName250MsLater) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  After(5_s);
  EXPECT_THAT(ProbedAt(), ElementsAre(250_ms, 500_ms));
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
}

TEST_F(Prober, WaitsARandomTimeUpTo250MsBeforeTheFirstProbe) {
  Time least = 1_s;
  Time most = 0;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    GivenLink(kIpv4, seed);
    Publish(Claim::unique, {kSrv});
    After(600_ms);
    ASSERT_THAT(ProbedAt(), SizeIs(Ge(2u)));
    least = std::min(least, ProbedAt()[0]);
    most = std::max(most, ProbedAt()[0]);
  }
  EXPECT_LE(least, 5_ms);
  EXPECT_THAT(most, AllOf(Ge(245_ms), Le(250_ms)));
}

TEST_F(Prober, ProbesForAnExclusiveNameTheSameWay) {
  const PublicationId id = GivenProbing({kSrv, kTxt}, Claim::exclusive);
  After(5_s);
  EXPECT_THAT(ProbedAt(), ElementsAre(250_ms, 500_ms));
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
}

TEST_F(Prober, DoesNotProbeForSharedRecords) {
  const PublicationId id = Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  After(5_s);
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(EstablishedAt(id), ElementsAre(0_s));
}

TEST_F(Prober, ProbesForManyNamesInOnePacket) {
  for (int i = 0; i < 10; ++i) {
    Publish(Claim::unique, {Srv("P" + std::to_string(i) + "._ipp._tcp.local", "printer.local")});
  }
  After(240_ms);
  ASSERT_TRUE(AfterUntil(250_ms, [this] { return !Queries().empty(); }));
  EXPECT_THAT(Queries()[0].message.questions, SizeIs(10));
  EXPECT_THAT(Queries()[0].message.authorities, SizeIs(10));
}

// The packet is full but for the room that another domain would take, which is 17 bytes here.
TEST_F(Prober, ProbesForAsManyNamesAsFitInOnePacket) {
  const auto publish = [this](int i, std::size_t size) {  // 70 bytes for a text of 47
    Publish(Claim::unique, {Txt("P" + std::to_string(i) + "._ipp._tcp.local", std::string(size, 'x'))});
  };
  for (int i = 10; i < 29; ++i) {
    publish(i, 47);
  }
  publish(29, 53);
  ASSERT_TRUE(AfterUntil(250_ms, [this] { return !Queries().empty(); }));
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_GE(Queries()[0].bytes.size(), kDatagramMax - 20);
}

TEST_F(Prober, DoesNotConsultTheCache) {
  GivenAsked("P._ipp._tcp.local", kTypeSrv, {Unique(Srv("P._ipp._tcp.local", "other.local"))});
  const PublicationId id = Publish(Claim::unique, {kSrv});
  After(5_s);
  EXPECT_THAT(EstablishedAt(id), SizeIs(1));
}

TEST_F(Prober, ProbesOverBothProtocols) {
  GivenLink(kBothProtocols);
  Publish(Claim::unique, {kSrv});
  After(740_ms);
  EXPECT_THAT(Queries(), Each(Field("protocols", &Sent::protocols, kBothProtocols)));
}

// --- 8.2: what a probe holds

TEST_F(Prober, AsksForAllTypesAndProposesAllRecords) {
  GivenProbing({kSrv, kTxt});
  After(250_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  const Message probe = Queries()[0].message;
  ASSERT_THAT(probe.questions, SizeIs(1));
  EXPECT_EQ(probe.questions[0].type, kTypeAny);
  EXPECT_EQ(probe.questions[0].klass, kClassIn);
  EXPECT_THAT(probe.authorities, UnorderedElementsAre(kSrv, kTxt));
  EXPECT_THAT(probe.answers, IsEmpty());
  EXPECT_THAT(probe.additionals, IsEmpty());
  EXPECT_EQ(Queries()[0].flags, 0u);
}

TEST_F(Prober, SendsNothingOfTheNameBeforeItOwnsIt) {
  GivenProbing({kSrv, kTxt});
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  Asks(Qm("P._ipp._tcp.local", kTypeA));
  Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(740_ms);
  EXPECT_THAT(SentRecords(), Each(Field("type", &Record::type, kTypePtr)));
  EXPECT_THAT(Replies(), IsEmpty());
}

// --- 8.1: conflicts while probing

TEST_F(Prober, LosesTheNameToAnyOtherDataOfItsTypes) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  After(5_s);
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
  EXPECT_THAT(EstablishedAt(id), IsEmpty());
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Prober, LosesTheNameToARecordOfAnotherType) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  ReceivesAnswers({Unique(A("P._ipp._tcp.local", 9))});
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
}

TEST_F(Prober, LosesTheNameToARecordOfAnotherTypeWithoutTheCacheFlushBit) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  ReceivesAnswers({A("P._ipp._tcp.local", 9)});
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
}

TEST_F(Prober, LosesTheNameToARecordInAnySectionOfAResponse) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  ReceivesResponse({.additionals = {Unique(Txt("P._ipp._tcp.local", "a=2"))}});
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
  const PublicationId again = GivenProbing({kSrv, kTxt});
  ReceivesResponse({.authorities = {Unique(Txt("P._ipp._tcp.local", "a=2"))}});
  EXPECT_THAT(ConflictAt(again), ElementsAre(0_s));
}

TEST_F(Prober, LosesTheNameToOneDifferentRecordAmongIdenticalOnes) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  ReceivesAnswers({Unique(kSrv), Unique(Txt("P._ipp._tcp.local", "a=2"))});
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
}

TEST_F(Prober, LosesTheNameUntil250MsAfterTheThirdProbe) {
  const PublicationId id = GivenProbing({kSrv});
  After(749_ms);
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  EXPECT_THAT(ConflictAt(id), ElementsAre(749_ms));
}

TEST_F(Prober, IgnoresConflictsBeforeTheFirstProbe) {
  const PublicationId id = Publish(Claim::unique, {kSrv});
  ASSERT_THAT(Queries(), IsEmpty());
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  After(5_s);
  EXPECT_THAT(ConflictAt(id), IsEmpty());
  EXPECT_THAT(EstablishedAt(id), SizeIs(1));
}

TEST_F(Prober, TakesIdenticalDataForNoConflict) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  ReceivesAnswers({Unique(kSrv), Unique(kTxt)});
  ReceivesAnswers({Unique(Srv("p._IPP._tcp.local", "PRINTER.local"))});
  After(5_s);
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
}

TEST_F(Prober, TakesTheKnownAnswersOfAQueryForNoConflict) {
  const PublicationId id = GivenProbing({kSrv});
  Asks(Query{.questions = {Qm("P._ipp._tcp.local", kTypeSrv)}, .known = {Srv("P._ipp._tcp.local", "other.local")}});
  After(5_s);
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
}

TEST_F(Prober, EndsEveryPublicationThatClaimsALostName) {
  const PublicationId first = Publish(Claim::unique, {kSrv});
  const PublicationId second = GivenProbing({kTxt});
  ReceivesAnswers({Unique(Txt("P._ipp._tcp.local", "a=2"))});
  EXPECT_THAT(ConflictAt(first), SizeIs(1));
  EXPECT_THAT(ConflictAt(second), SizeIs(1));
  EXPECT_EQ(link_counts(*link).published, 0u);
}

// --- 8.2: simultaneous probes

TEST_F(Prober, IgnoresAProbeWithEarlierData) {
  const PublicationId id = GivenProbing({A("printer.local", 200)});
  Asks(Probe({A("printer.local", 99)}));
  After(5_s);
  EXPECT_THAT(ProbedAt("printer.local"), ElementsAre(250_ms, 500_ms));
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
}

TEST_F(Prober, DefersForOneSecondToAProbeWithLaterDataAndProbesAgain) {
  const PublicationId id = GivenProbing({A("printer.local", 99)});
  After(100_ms);
  Asks(Probe({A("printer.local", 200)}));
  After(5_s);
  EXPECT_THAT(ProbedAt("printer.local"), ElementsAre(1100_ms, 1350_ms, 1600_ms));
  EXPECT_THAT(EstablishedAt(id), ElementsAre(1850_ms));
  EXPECT_THAT(ConflictAt(id), IsEmpty());
}

TEST_F(Prober, TakesAProbeWithTheSameDataForNoConflict) {
  const PublicationId id = GivenProbing({kSrv, kTxt});
  Asks(Probe({kTxt, kSrv}));
  After(5_s);
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
}

TEST_F(Prober, ComparesSortedRecordsSoThatTheTxtRecordComesFirst) {
  const PublicationId winner = GivenProbing({Srv("P._ipp._tcp.local", "a.local"), Txt("P._ipp._tcp.local", "b")});
  Asks(Probe({Srv("P._ipp._tcp.local", "z.local"), Txt("P._ipp._tcp.local", "a")}));
  After(2_s);
  EXPECT_THAT(EstablishedAt(winner), ElementsAre(750_ms));
}

TEST_F(Prober, ComparesTheSecondRecordsWhereTheFirstAreTheSame) {
  const PublicationId loser = GivenProbing({Srv("P._ipp._tcp.local", "a.local"), Txt("P._ipp._tcp.local", "a")});
  Asks(Probe({Srv("P._ipp._tcp.local", "z.local"), Txt("P._ipp._tcp.local", "a")}));
  After(3_s);
  EXPECT_THAT(EstablishedAt(loser), ElementsAre(1750_ms));
}

TEST_F(Prober, LosesToAListThatGoesOn) {
  const PublicationId loser = GivenProbing({Txt("P._ipp._tcp.local", "a")});
  Asks(Probe({Txt("P._ipp._tcp.local", "a"), Srv("P._ipp._tcp.local", "a.local")}));
  After(3_s);
  EXPECT_THAT(EstablishedAt(loser), ElementsAre(1750_ms));
}

TEST_F(Prober, WinsOverAListThatEnds) {
  const PublicationId winner = GivenProbing({Txt("P._ipp._tcp.local", "a"), Srv("P._ipp._tcp.local", "a.local")});
  Asks(Probe({Txt("P._ipp._tcp.local", "a")}));
  After(3_s);
  EXPECT_THAT(EstablishedAt(winner), ElementsAre(750_ms));
}

TEST_F(Prober, TakesAGreaterTypeForLater) {
  const PublicationId loser = GivenProbing({A("printer.local", 255)});
  Asks(Probe({Aaaa("printer.local", 0)}));
  After(3_s);
  EXPECT_THAT(EstablishedAt(loser), ElementsAre(1750_ms));
}

TEST_F(Prober, LosesTheNameToTheWinnerOfSimultaneousProbes) {
  const PublicationId id = GivenProbing({A("printer.local", 99)});
  Asks(Probe({A("printer.local", 200)}));
  After(1100_ms);
  EXPECT_THAT(ConflictAt(id), IsEmpty());
  ReceivesAnswers({Unique(A("printer.local", 200))});
  EXPECT_THAT(ConflictAt(id), ElementsAre(1100_ms));
}

// --- 9: conflicts afterwards

TEST_F(Prober, ProbesAgainForAnOwnedNameThatAnotherHostUses) {
  GivenPublished(Claim::unique, {kSrv});
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  After(5_s);
  ASSERT_THAT(ProbedAt(), SizeIs(3));
  EXPECT_LE(ProbedAt()[0], 250_ms);
  EXPECT_THAT(SentAt(kSaidSrv), SizeIs(2));
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Prober, IsSilentWhileItProbesAgain) {
  GivenPublished(Claim::unique, {kSrv});
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(700_ms);
  EXPECT_THAT(Responses(), IsEmpty());
}

TEST_F(Prober, LosesAnOwnedNameThatAnotherHostDefends) {
  GivenPublished(Claim::unique, {kSrv});
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  ASSERT_TRUE(AfterUntil(250_ms, [this] { return !Queries().empty(); }));
  ReceivesAnswers({Unique(Srv("P._ipp._tcp.local", "other.local"))});
  ASSERT_THAT(reported, SizeIs(1));
  EXPECT_EQ(reported[0].event.kind, Event::Kind::conflict);
  After(5_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Prober, KeepsAnOwnedNameThatAnotherHostSendsTheSameFor) {
  GivenPublished(Claim::unique, {kSrv, kTxt});
  ReceivesAnswers({Unique(kSrv), Unique(kTxt)});
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Prober, KeepsAnOwnedNameWhenAnotherHostSendsAGoodbyeForOtherDataOfIt) {
  GivenPublished(Claim::unique, {kSrv});
  ReceivesAnswers({Goodbye(Srv("P._ipp._tcp.local", "other.local"))});
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Prober, TakesOtherDataOfASharedNameForNoConflict) {
  GivenPublished(Claim::shared, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  ReceivesAnswers({Ptr("_ipp._tcp.local", "Q._ipp._tcp.local")});
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
  EXPECT_THAT(reported, IsEmpty());
}

// --- 8, 10.2: new connectivity

TEST_F(Prober, ProbesAndAnnouncesAnewWhenTheLinkComesBack) {
  GivenPublished(Claim::unique, {kSrv});
  link_restart(*link, now, true);
  After(5_s);
  EXPECT_THAT(ProbedAt(), SizeIs(3));
  EXPECT_THAT(SentAt(kSaidSrv), SizeIs(2));
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Prober, DoesNotProbeForAWithdrawnNameWhoseGoodbyeWaitsWhenTheLinkComesBack) {
  const PublicationId id = Publish(Claim::unique, {kSrv});
  After(12_s);
  Mark();
  link_hold_goodbyes(*link, now, now + 300_ms);
  Withdraw(id);
  link_restart(*link, now, true);
  After(5_s);
  EXPECT_THAT(ProbedAt(), IsEmpty());
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(kSrv)));
}

TEST_F(Prober, ProbesAndAnnouncesAnewWhenAProtocolComes) {
  GivenPublished(Claim::unique, {kSrv});
  link_set_protocols(*link, now, kBothProtocols);
  After(5_s);
  EXPECT_THAT(ProbedAt(), SizeIs(3));
  EXPECT_THAT(SentAt(kSaidSrv), SizeIs(2));
}

TEST_F(Prober, DoesNothingWhenAProtocolGoes) {
  GivenLink(kBothProtocols);
  GivenPublished(Claim::unique, {kSrv});
  link_set_protocols(*link, now, kIpv4);
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

}  // namespace
}  // namespace mdns::test
