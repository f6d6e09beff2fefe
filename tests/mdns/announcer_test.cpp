// SPDX-License-Identifier: MIT
// Announcements, updates and goodbyes (RFC 6762 sections 8.3, 8.4, 10.1 and 10.2).
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kSrv = Srv("P._ipp._tcp.local", "printer.local");
const Record kTxt = Txt("P._ipp._tcp.local", "a=1");
const Record kNewTxt = Txt("P._ipp._tcp.local", "a=2");

auto Within(Time least, Time most) { return AllOf(Ge(least), Le(most)); }

class Announcer : public LinkTest {
 protected:
  // Published, announced, and quiet for ten seconds.
  PublicationId GivenAnnounced(Claim claim, const std::vector<Record>& records) {
    const PublicationId id = Publish(claim, records);
    After(12_s);
    Mark();
    return id;
  }
};

// --- 8.3: announcements

TEST_F(Announcer, AnnouncesTwiceAboutASecondApartAndNeverAgain) {
  Publish(Claim::shared, {kPtr});
  After(120_min);
  const std::vector<Time> times = SentAt(kPtr);
  ASSERT_THAT(times, SizeIs(2));
  EXPECT_LE(times[0], 10_ms);
  EXPECT_THAT(times[1] - times[0], Within(1_s, 1010_ms));
}

TEST_F(Announcer, AnnouncesUniqueRecordsWithTheCacheFlushBitOnceTheNameIsOwned) {
  const PublicationId id = Publish(Claim::unique, {kSrv, kTxt});
  After(5_s);
  ASSERT_THAT(EstablishedAt(id), SizeIs(1));
  const Time established = EstablishedAt(id)[0];
  ASSERT_THAT(Responses(), SizeIs(2));
  EXPECT_THAT(Responses()[0].at, Within(established, established + 10_ms));
  EXPECT_THAT(records_of(Responses()[0].message), UnorderedElementsAre(Unique(kSrv), Unique(kTxt)));
}

TEST_F(Announcer, AnnouncesSharedRecordsWithoutTheCacheFlushBit) {
  Publish(Claim::shared, {kPtr});
  After(5_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr, kPtr));
}

TEST_F(Announcer, AnnouncesInTheAnswerSectionOfAnAuthoritativeResponse) {
  Publish(Claim::shared, {kPtr});
  After(100_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].flags, 0x8400u);
  EXPECT_EQ(Responses()[0].message.id, 0u);
  EXPECT_THAT(Responses()[0].message.questions, IsEmpty());
  EXPECT_THAT(Responses()[0].message.answers, ElementsAre(kPtr));
}

TEST_F(Announcer, PutsTheRecordsOfManyNamesIntoOnePacket) {
  for (int i = 0; i < 20; ++i) {
    Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P" + std::to_string(i) + "._ipp._tcp.local")});
  }
  After(100_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers, SizeIs(20));
}

TEST_F(Announcer, AnnouncesOverBothProtocols) {
  GivenLink(kBothProtocols);
  Publish(Claim::shared, {kPtr});
  After(100_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].protocols, kBothProtocols);
}

TEST_F(Announcer, HasTheTtlsOfTheKindsOfRecordsUnlessGivenOtherwise) {
  Publish(Claim::shared, {Ttl(kPtr, 0)});
  Publish(Claim::shared, {Ttl(Ptr("1.0.0.10.in-addr.arpa", "printer.local"), 0)});
  Publish(Claim::shared, {Ttl(kSrv, 0)});
  Publish(Claim::shared, {Ttl(Txt("Q._ipp._tcp.local", "a"), 77)});
  After(100_ms);
  EXPECT_THAT(SentRecords(),
              UnorderedElementsAre(Ttl(kPtr, 4500), Ttl(Ptr("1.0.0.10.in-addr.arpa", "printer.local"), 120),
                                   Ttl(kSrv, 120), Ttl(Txt("Q._ipp._tcp.local", "a"), 77)));
}

// --- 10.2: whole RRsets

TEST_F(Announcer, AnnouncesAllOfAUniqueRRsetWhenAMemberIsAdded) {
  GivenAnnounced(Claim::unique, {A("printer.local", 1)});
  Publish(Claim::unique, {A("printer.local", 2)});
  After(5_s);
  ASSERT_THAT(Responses(), SizeIs(2));
  for (const Sent& one : Responses()) {
    EXPECT_THAT(one.message.answers,
                UnorderedElementsAre(Unique(A("printer.local", 1)), Unique(A("printer.local", 2))));
  }
}

TEST_F(Announcer, SendsARRsetThatIsTooLongForOnePacketInAQuickBurst) {
  std::vector<Record> records;
  for (int i = 0; i < 30; ++i) {
    records.push_back(Txt("P._ipp._tcp.local", std::string(100, 'x') + std::to_string(i)));
  }
  const PublicationId id = Publish(Claim::unique, records);
  ASSERT_TRUE(AfterUntil(3_s, [&] { return !SentRecords().empty(); }));
  ASSERT_THAT(EstablishedAt(id), SizeIs(1));
  After(50_ms);
  EXPECT_THAT(SentRecords(), SizeIs(30));
}

TEST_F(Announcer, PutsOneRecordOnlyIntoADatagramThatIsLargerThanTheMtu) {
  std::vector<Record> records;
  for (int i = 0; i < 30; ++i) {
    records.push_back(Txt("P._ipp._tcp.local", std::string(100, 'x') + std::to_string(i)));
  }
  Publish(Claim::unique, records);
  After(3_s);
  for (const Sent& one : Responses()) {
    EXPECT_TRUE(one.bytes.size() <= kDatagramMax || records_of(one.message).size() == 1) << one.bytes.size();
  }
}

TEST_F(Announcer, AnnouncesARRsetThatIsLongerThanAnyDatagram) {
  std::vector<Record> records;
  for (int i = 0; i < 100; ++i) {
    records.push_back(Txt("P._ipp._tcp.local", std::string(100, 'x') + std::to_string(i)));
  }
  Publish(Claim::unique, records);
  ASSERT_TRUE(AfterUntil(3_s, [&] { return !SentRecords().empty(); }));
  After(100_ms);
  EXPECT_THAT(SentRecords(), SizeIs(100));
}

TEST_F(Announcer, SendsARecordThatIsTooLongForAPacketAlone) {
  Record large = kTxt;
  large.rdata.clear();
  for (int i = 0; i < 10; ++i) {
    large.rdata += label(std::string(200, 'x'));
  }
  Publish(Claim::shared, {large});
  Publish(Claim::shared, {kPtr});
  After(100_ms);
  EXPECT_THAT(Responses(), SizeIs(2));
  EXPECT_THAT(SentRecords(), UnorderedElementsAre(large, kPtr));
}

TEST_F(Announcer, SendsNothingOfARecordThatIsTooLongForAnyDatagram) {
  Record large = kTxt;
  large.rdata.clear();
  for (int i = 0; i < 50; ++i) {
    large.rdata += label(std::string(200, 'x'));
  }
  const PublicationId id = GivenAnnounced(Claim::shared, {large});
  Asks(Qm("P._ipp._tcp.local", kTypeTxt));
  After(1_s);
  Withdraw(id);
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
}

// --- 8.4: updates

TEST_F(Announcer, AnnouncesChangedDataTwiceWithoutProbes) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kSrv, kTxt});
  EXPECT_TRUE(Update(id, kNewTxt));
  After(10_s);
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(SentAt(Unique(kNewTxt)), ElementsAre(Within(0, 10_ms), Within(1_s, 1020_ms)));
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kNewTxt), Unique(kNewTxt)));
}

// The new data is shared: without the cache-flush bit it does not remove the old data from caches.
TEST_F(Announcer, SendsAGoodbyeForUniqueDataInWhosePlaceASharedRecordStands) {
  const PublicationId shared = Publish(Claim::shared, {A("h.local", 3)});
  const PublicationId id = Publish(Claim::unique, {A("h.local", 1)});
  After(10_s);
  Mark();
  ASSERT_TRUE(Update(id, A("h.local", 3)));
  After(3_s);
  EXPECT_THAT(SentAt(Goodbye(A("h.local", 1))), SizeIs(1));
  Withdraw(id);
  Withdraw(shared);
  After(3_s);
  EXPECT_EQ(link_counts(*link).published, 0u);
}

TEST_F(Announcer, SendsAGoodbyeForTheOldDataOfASharedRecordBeforeTheNewInTheSamePacket) {
  const PublicationId id = GivenAnnounced(Claim::shared, {kTxt});
  EXPECT_TRUE(Update(id, kNewTxt));
  After(10_s);
  ASSERT_THAT(Responses(), SizeIs(2));
  EXPECT_THAT(Responses()[0].message.answers, ElementsAre(Goodbye(kTxt), kNewTxt));
  EXPECT_THAT(Responses()[1].message.answers, ElementsAre(kNewTxt));
}

TEST_F(Announcer, SendsNothingForAnUpdateToTheSameData) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kTxt});
  EXPECT_TRUE(Update(id, kTxt));
  After(10_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Announcer, KeepsTheOldDataWhenAnotherPublicationHoldsItToo) {
  const PublicationId id = GivenAnnounced(Claim::shared, {kTxt});
  GivenAnnounced(Claim::shared, {kTxt});
  EXPECT_TRUE(Update(id, kNewTxt));
  After(10_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kNewTxt, kNewTxt));
}

TEST_F(Announcer, ChangesOneOfTwoRecordsThatAreTheSame) {
  const PublicationId id = GivenAnnounced(Claim::shared, {kTxt, kTxt});
  EXPECT_TRUE(Update(id, kNewTxt));
  After(10_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kNewTxt, kNewTxt));
  Mark();
  Withdraw(id);
  After(10_s);
  EXPECT_THAT(SentRecords(), UnorderedElementsAre(Goodbye(kTxt), Goodbye(kNewTxt)));
  EXPECT_EQ(link_counts(*link).published, 0u);
}

TEST_F(Announcer, RefusesAnUpdateOfNothing) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kTxt});
  EXPECT_FALSE(Update(id, kSrv));
  EXPECT_FALSE(Update(id + 100, kTxt));
  EXPECT_FALSE(Update(0, kTxt));
  After(10_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Announcer, ProposesUpdatedDataInTheProbesThatAreLeft) {
  const PublicationId id = Publish(Claim::unique, {kTxt});
  ASSERT_TRUE(AfterUntil(250_ms, [this] { return !Queries().empty(); }));
  Mark();
  EXPECT_TRUE(Update(id, kNewTxt));
  After(5_s);
  ASSERT_THAT(Queries(), SizeIs(2));
  EXPECT_THAT(Queries()[0].message.authorities, ElementsAre(kNewTxt));
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kNewTxt), Unique(kNewTxt)));
}

TEST_F(Announcer, TakesDataInPlaceOfWhatWaitsForItsGoodbyeForAnUpdate) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kTxt});
  link_hold_goodbyes(*link, now, now + 200_ms);
  Withdraw(id);
  Publish(Claim::unique, {kNewTxt});
  After(10_s);
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kNewTxt), Unique(kNewTxt)));
}

TEST_F(Announcer, GoesOnWithWhatIsPublishedAgainWhileItsGoodbyeWaits) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kTxt});
  EXPECT_TRUE(Update(id, kNewTxt));
  After(300_ms);
  link_hold_goodbyes(*link, now, now + 200_ms);
  Withdraw(id);
  Publish(Claim::unique, {kNewTxt});
  After(10_s);
  EXPECT_THAT(SentAt(Unique(kNewTxt)), ElementsAre(Within(0, 10_ms), Within(1_s, 1020_ms)));
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kNewTxt), Unique(kNewTxt)));
}

TEST_F(Announcer, AnnouncesDataThatChangesAllTheTimeNoMoreThanOncePerSecond) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kTxt});
  for (int i = 0; i < 600; ++i) {
    Update(id, Txt("P._ipp._tcp.local", std::to_string(i)));
    After(100_ms);
  }
  After(5_s);
  EXPECT_LE(SentRecords().size(), 60u + 10u);
  EXPECT_THAT(SentAt(Unique(Txt("P._ipp._tcp.local", "599"))), SizeIs(2));
}

// --- 10.1: goodbyes

TEST_F(Announcer, SendsAGoodbyeOnceForWhatIsWithdrawn) {
  const PublicationId id = GivenAnnounced(Claim::shared, {kPtr});
  Withdraw(id);
  After(10_s);
  EXPECT_THAT(SentAt(Goodbye(kPtr)), ElementsAre(0_s));
  EXPECT_THAT(SentRecords(), SizeIs(1));
}

TEST_F(Announcer, SendsAGoodbyeForUniqueRecordsToo) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kSrv, kTxt});
  Withdraw(id);
  After(10_s);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(SentRecords(), UnorderedElementsAre(Goodbye(kSrv), Goodbye(kTxt)));
}

TEST_F(Announcer, SendsNoGoodbyeForWhatHasNeverBeenSent) {
  const PublicationId id = Publish(Claim::unique, {kSrv});
  After(500_ms);
  Withdraw(id);
  After(10_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Announcer, SendsNoGoodbyeForWhatIsWithdrawnWithoutOne) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kSrv});
  publication_withdraw(*link, now, id, false);
  After(10_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Announcer, SendsWhatWasWithdrawnWithoutOneAndComesBackASecondAfterItsLastTime) {
  const PublicationId id = Publish(Claim::shared, {kPtr});
  After(10_ms);
  publication_withdraw(*link, now, id, false);
  After(100_ms);
  Publish(Claim::shared, {kPtr});
  After(10_s);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Within(0, 10_ms), Within(1_s, 1020_ms), Within(2_s, 2040_ms)));
  EXPECT_THAT(SentAt(Goodbye(kPtr)), IsEmpty());
}

TEST_F(Announcer, ForgetsWhatWasForsakenAfterASecond) {
  const PublicationId id = Publish(Claim::shared, {kPtr});
  After(10_ms);
  publication_withdraw(*link, now, id, false);
  After(1_s);
  EXPECT_EQ(link_counts(*link).published, 0u);
}

TEST_F(Announcer, SendsAGoodbyeWithTheLastHolder) {
  const PublicationId first = GivenAnnounced(Claim::shared, {kPtr});
  const PublicationId second = GivenAnnounced(Claim::shared, {kPtr});
  Withdraw(first);
  After(5_s);
  EXPECT_THAT(sent, IsEmpty());
  Withdraw(second);
  After(5_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(kPtr)));
}

TEST_F(Announcer, SendsAGoodbyeForDataWhoseSuccessorWasNeverSent) {
  const PublicationId shared = GivenAnnounced(Claim::shared, {Txt("Q._ipp._tcp.local", "a=1")});
  Update(shared, Txt("Q._ipp._tcp.local", "a=2"));
  Withdraw(shared);
  After(5_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(Txt("Q._ipp._tcp.local", "a=1"))));
}

TEST_F(Announcer, SendsAGoodbyeForUniqueDataWhoseSuccessorWasNeverSent) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kTxt});
  Update(id, kNewTxt);
  Withdraw(id);
  After(5_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(kTxt)));
}

TEST_F(Announcer, SendsAGoodbyeForWhatWasSentBeforeTheNameWasProbedForAgain) {
  const PublicationId id = GivenAnnounced(Claim::unique, {kSrv});
  link_restart(*link, now, false);
  Withdraw(id);
  After(5_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(kSrv)));
}

}  // namespace
}  // namespace mdns::test
