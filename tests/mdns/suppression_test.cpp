// SPDX-License-Identifier: MIT
// Answers that are suppressed, and records that must be sent again (RFC 6762 sections 6.6, 7.1, 7.2 and 7.4).
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kOtherPtr = Ptr("_ipp._tcp.local", "Q._ipp._tcp.local");
const Question kQuestion = Qm("_ipp._tcp.local", kTypePtr);

auto Within(Time least, Time most) { return AllOf(Ge(least), Le(most)); }

class Suppression : public LinkTest {
 protected:
  void Asks(const std::vector<Record>& known, Endpoint from = Host(2)) {
    LinkTest::Asks(Query{.questions = {kQuestion}, .known = known, .from = from});
  }

  // The first packet of a query whose known answers continue in another one.
  void BeginsToAsk(const std::vector<Record>& known = {}, Endpoint from = Host(2)) {
    LinkTest::Asks(Query{.questions = {kQuestion}, .known = known, .is_truncated = true, .from = from});
  }

  void GoesOn(const std::vector<Record>& known, bool is_truncated = false, Endpoint from = Host(2)) {
    LinkTest::Asks(Query{.known = known, .is_truncated = is_truncated, .from = from});
  }
};

// --- 7.1: known answers

TEST_F(Suppression, GivesNoAnswerThatTheQuerierKnowsWithHalfOfItsTtl) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({Ttl(kPtr, 2250)});
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Suppression, GivesAnAnswerThatTheQuerierKnowsWithLessThanHalfOfItsTtl) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({Ttl(kPtr, 2249)});
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

TEST_F(Suppression, GivesTheAnswersThatTheQuerierDoesNotKnow) {
  GivenPublished(Claim::shared, {kPtr});
  GivenPublished(Claim::shared, {kOtherPtr});
  Asks({kPtr});
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kOtherPtr));
}

TEST_F(Suppression, ComparesTheNamesInKnownAnswersWithoutCase) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({Ptr("_IPP._tcp.local", "p._ipp._TCP.local")});
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Suppression, GivesNoDirectAnswerThatTheQuerierKnows) {
  GivenPublished(Claim::shared, {kPtr});
  LinkTest::Asks(Query{.questions = {Qu("_ipp._tcp.local", kTypePtr)}, .known = {kPtr}});
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Suppression, GivesNoDenialThatTheQuerierKnows) {
  GivenPublished(Claim::unique, {A("printer.local", 1)});
  LinkTest::Asks(
      Query{.questions = {Qm("printer.local", kTypeAaaa)}, .known = {Ttl(Nsec("printer.local", {kTypeA}), 100)}});
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Suppression, GivesADenialOfWhichTheQuerierKnowsAnotherVersion) {
  const Record denial = Nsec("printer.local", {kTypeA});
  GivenPublished(Claim::unique, {A("printer.local", 1)});
  LinkTest::Asks(Query{.questions = {Qm("printer.local", kTypeAaaa)}});
  After(2_s);
  LinkTest::Asks(
      Query{.questions = {Qm("printer.local", kTypeAaaa)}, .known = {Nsec("printer.local", {kTypeA, kTypeTxt})}});
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Ttl(denial, 120), Ttl(denial, 120)));
}

TEST_F(Suppression, AnswersAnotherHostThatDoesNotKnowTheAnswer) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({kPtr});
  Asks({}, Host(3));
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

// --- 7.2: lists in several packets

TEST_F(Suppression, DropsAnswersThatAreListedInTheFollowingPackets) {
  GivenPublished(Claim::shared, {kPtr});
  GivenPublished(Claim::shared, {kOtherPtr});
  BeginsToAsk();
  After(10_ms);
  GoesOn({kPtr});
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kOtherPtr));
}

TEST_F(Suppression, WaitsFor400To500MsAfterTheLastPacketThatIsToBeContinued) {
  GivenPublished(Claim::shared, {kPtr});
  BeginsToAsk();
  After(390_ms);
  GoesOn({kOtherPtr}, true);
  After(390_ms);
  GoesOn({kOtherPtr}, true);
  After(2_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(1180_ms, 1280_ms)));
}

TEST_F(Suppression, TakesFollowingPacketsOfTheSameHostOnly) {
  GivenPublished(Claim::shared, {kPtr});
  BeginsToAsk();
  After(10_ms);
  GoesOn({kPtr}, false, Host(3));
  After(2_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(400_ms, 500_ms)));
}

TEST_F(Suppression, GivesAnAnswerThatAnotherHostWaitsForToo) {
  GivenPublished(Claim::shared, {kPtr});
  BeginsToAsk();
  After(10_ms);
  Asks({}, Host(3));
  GoesOn({kPtr});
  After(2_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(30_ms, 130_ms)));
}

TEST_F(Suppression, DropsAnswersThatAreListedOverEachOfBothProtocols) {
  GivenLink(kBothProtocols);
  GivenPublished(Claim::shared, {kPtr});
  BeginsToAsk();
  BeginsToAsk({}, Host6(2));
  After(10_ms);
  GoesOn({kPtr});
  GoesOn({kPtr}, false, Host6(2));
  After(2_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Suppression, DefendsANameAtOnceAlsoAgainstAHostWhoseListGoesOn) {
  GivenPublished(Claim::unique, {Srv("P._ipp._tcp.local", "printer.local")});
  BeginsToAsk();
  LinkTest::Asks(Probe({Srv("P._ipp._tcp.local", "other.local")}));
  After(2_s);
  EXPECT_THAT(SentAt(Unique(Srv("P._ipp._tcp.local", "printer.local"))), ElementsAre(0_s));
}

TEST_F(Suppression, GivesADirectAnswerUnlessItIsListedInTheFollowingPackets) {
  GivenPublished(Claim::shared, {kPtr});
  LinkTest::Asks(Query{.questions = {Qu("_ipp._tcp.local", kTypePtr)}, .is_truncated = true});
  After(10_ms);
  GoesOn({kPtr});
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

// --- 7.4: duplicate answers

TEST_F(Suppression, GivesNoAnswerThatAnotherHostHasJustGiven) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({});
  After(10_ms);
  ReceivesAnswers({kPtr});
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Suppression, GivesAnAnswerThatAnotherHostHasGivenWithALowerTtl) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({});
  After(10_ms);
  ReceivesAnswers({Ttl(kPtr, 4499)});
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

TEST_F(Suppression, GivesAnAnswerWhoseGoodbyeAnotherHostSends) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({});
  After(10_ms);
  ReceivesAnswers({Goodbye(kPtr)});
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

TEST_F(Suppression, GivesADirectAnswerAlthoughAnotherHostHasMulticastIt) {
  GivenPublished(Claim::shared, {kPtr});
  LinkTest::Asks(Query{.questions = {Qu("_ipp._tcp.local", kTypePtr)}});
  After(10_ms);
  ReceivesAnswers({kPtr});
  After(2_s);
  EXPECT_THAT(Replies(), SizeIs(1));
}

TEST_F(Suppression, AnswersOverTheProtocolThatTheOtherHostDidNotAnswerOver) {
  GivenLink(kBothProtocols);
  GivenPublished(Claim::shared, {kPtr});
  Asks({});
  Asks({}, Host6(2));
  After(10_ms);
  ReceivesResponse({.answers = {kPtr}, .from = Host6(3)});
  After(2_s);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].protocols, kIpv4);
}

// --- 6.6: the same record with a lower TTL

TEST_F(Suppression, AnnouncesWhatAnotherHostSendsWithLessThanHalfOfItsTtl) {
  GivenPublished(Claim::shared, {kPtr});
  ReceivesAnswers({Ttl(kPtr, 2249)});
  After(5_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(0, 500_ms)));
}

TEST_F(Suppression, DoesNothingAboutAtLeastHalfOfTheTtl) {
  GivenPublished(Claim::shared, {kPtr});
  ReceivesAnswers({Ttl(kPtr, 2250)});
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Suppression, RoundsHalfOfAnOddTtlUp) {
  GivenPublished(Claim::shared, {Ttl(kPtr, 5)});
  ReceivesAnswers({Ttl(kPtr, 2)});
  After(900_ms);
  EXPECT_THAT(SentRecords(), ElementsAre(Ttl(kPtr, 5)));
}

TEST_F(Suppression, RescuesARecordFromAnotherHostsGoodbyeWithinTheSecond) {
  GivenPublished(Claim::shared, {kPtr});
  ReceivesAnswers({Goodbye(kPtr)});
  After(5_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(0, 500_ms)));
}

TEST_F(Suppression, RescuesWithinTheSecondAlsoWhatItHasJustSent) {
  GivenPublished(Claim::shared, {kPtr});
  Asks({});
  After(130_ms);
  ASSERT_THAT(SentRecords(), SizeIs(1));
  Mark();
  ReceivesAnswers({Goodbye(kPtr)});
  After(5_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(0, 950_ms)));
}

TEST_F(Suppression, RescuesNothingElseOfTheRRsetThatWasSentHalfASecondAgo) {
  const PublicationId id = Publish(Claim::unique, {A("h.local", 1), A("h.local", 2)});
  After(10_s);
  Update(id, A("h.local", 3));
  After(600_ms);
  ASSERT_TRUE(Update(id, A("h.local", 4)));
  After(100_ms);
  Mark();
  ReceivesAnswers({Unique(Goodbye(A("h.local", 2)))});
  After(800_ms);
  EXPECT_THAT(SentAt(Unique(A("h.local", 2))), SizeIs(1));
  EXPECT_THAT(SentAt(Unique(A("h.local", 4))), IsEmpty());
}

TEST_F(Suppression, RescuesOverBothProtocols) {
  GivenLink(kBothProtocols);
  GivenPublished(Claim::shared, {kPtr});
  ReceivesAnswers({Goodbye(kPtr)});
  After(5_s);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].protocols, kBothProtocols);
}

}  // namespace
}  // namespace mdns::test
