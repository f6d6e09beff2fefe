// SPDX-License-Identifier: MIT
// The cache: records received from other hosts, and when they expire (RFC 6762 sections 5.2, 7.1 and 10).
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::SizeIs;

// The records of these tests: a shared PTR record of a printer, and its address, which is unique.
const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kAddress = Unique(A("printer.local", 1));
const Record kNewAddress = Unique(A("printer.local", 2));

class Cache : public LinkTest {
 protected:
  std::size_t Cached() const { return link_counts(*link).cached; }

  std::vector<Record> Printers(int first, int count) const {
    std::vector<Record> printers;
    for (int i = first; i < first + count; ++i) {
      printers.push_back(Ptr("_ipp._tcp.local", "P" + std::to_string(i) + "._ipp._tcp.local"));
    }
    return printers;
  }

  // In packets of fifty, each a tenth of a second after the other.
  void HearsMany(const std::vector<Record>& records, Endpoint from = Host(2)) {
    for (std::size_t i = 0; i < records.size(); i += 50) {
      const auto begin = records.begin() + static_cast<std::ptrdiff_t>(i);
      const auto end = records.begin() + static_cast<std::ptrdiff_t>(std::min(i + 50, records.size()));
      ReceivesResponse({.answers = {begin, end}, .from = from});
      After(100_ms);
    }
  }
};

// --- TTLs

TEST_F(Cache, KeepsARecordForItsTtlAndReportsItsEnd) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(119999_ms);
  EXPECT_THAT(reported, IsEmpty());
  After(1_ms);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(120_s));
  EXPECT_EQ(Cached(), 0u);
}

TEST_F(Cache, KeepsNoRecordLongerThan75Minutes) {
  GivenAsked("printer.local", kTypeA, {Ttl(kAddress, 0xFFFFFFFF)});
  ReceivesAnswers({Ttl(kNewAddress, 0x7FFFFFFF)});
  After(76_min);
  EXPECT_THAT(RemovedAt(kAddress), SizeIs(1));
  EXPECT_THAT(RemovedAt(kNewAddress), ElementsAre(75_min));
  EXPECT_EQ(Cached(), 0u);
}

TEST_F(Cache, BeginsTheTtlAnewWithEachTimeThatTheRecordIsReceived) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(100_s);
  ReceivesAnswers({kAddress});
  After(119_s);
  EXPECT_THAT(reported, IsEmpty());
  After(1_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(220_s));
}

TEST_F(Cache, TakesAShorterTtlToo) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  ReceivesAnswers({Ttl(kAddress, 10)});
  After(20_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(10_s));
}

TEST_F(Cache, TakesNamesThatDifferInTheCaseOfAsciiLettersForTheSame) {
  GivenAsked("Printer.local", kTypePtr);
  ReceivesAnswers({Ptr("pRINTER.local", "Target.local")});
  ReceivesAnswers({Ptr("PRINTER.LOCAL", "TARGET.local")});
  EXPECT_THAT(reported, SizeIs(1));
  EXPECT_EQ(Cached(), 1u);
}

TEST_F(Cache, TakesNamesThatDifferInOtherLettersForDifferent) {
  GivenAsked("drucker-\xc3\xa4.local", kTypeA);
  ReceivesAnswers({Unique(A("drucker-\xc3\x84.local", 1))});
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Cache, TakesNothingFromTheKnownAnswersOfAQuery) {
  GivenAsked("_ipp._tcp.local", kTypePtr);
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .known = {kPtr}});
  EXPECT_THAT(reported, IsEmpty());
  EXPECT_EQ(Cached(), 0u);
}

TEST_F(Cache, TakesNothingFromTheRecordsOfAProbe) {
  GivenAsked("printer.local", kTypeA);
  Asks(Probe({kAddress}));
  EXPECT_THAT(reported, IsEmpty());
  EXPECT_EQ(Cached(), 0u);
}

TEST_F(Cache, TakesNoPseudoRecord) {
  ReceivesAnswers({Record{.name = std::string(1, '\0'),
                          .type = kTypeOpt,
                          .klass = 1440,
                          .cache_flush = true,
                          .ttl = 4500,
                          .rdata = "abcd"}});
  EXPECT_EQ(Cached(), 0u);
}

TEST_F(Cache, MasksTheCacheFlushBitOffTheClass) {
  GivenAsked("printer.local", kTypeA);
  ReceivesAnswers({Unique(A("printer.local", 1))});
  ReceivesAnswers({A("printer.local", 1)});
  EXPECT_THAT(AddedAt(kAddress), ElementsAre(0_s));
  EXPECT_EQ(Cached(), 1u);
}

// --- 10.1: goodbyes

TEST_F(Cache, BelievesAGoodbyeAfterOneSecond) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {kPtr});
  ReceivesAnswers({Goodbye(kPtr)});
  After(999_ms);
  EXPECT_THAT(reported, IsEmpty());
  After(1_ms);
  EXPECT_THAT(RemovedAt(kPtr), ElementsAre(1_s));
}

TEST_F(Cache, KeepsWhatIsRescuedWithinTheLastQuarterOfTheSecond) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {kPtr});
  ReceivesAnswers({Goodbye(kPtr)});
  After(990_ms);
  ReceivesResponse({.answers = {kPtr}, .from = Host(3)});
  After(60_s);
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Cache, IsNotHeldUpByAGoodbyeThatIsRepeated) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {kPtr});
  ReceivesAnswers({Goodbye(kPtr)});
  After(900_ms);
  ReceivesAnswers({Goodbye(kPtr)});
  After(1_s);
  EXPECT_THAT(RemovedAt(kPtr), ElementsAre(1_s));
}

TEST_F(Cache, MakesNothingOfAGoodbyeForWhatItDoesNotKnow) {
  ReceivesAnswers({Goodbye(kPtr)});
  EXPECT_EQ(Cached(), 0u);
  EXPECT_EQ(link_counts(*link).names, 0u);
}

TEST_F(Cache, TakesAGoodbyeForTheOneRecordThatItNames) {
  GivenAsked("printer.local", kTypeA, {kAddress, kNewAddress});
  ReceivesAnswers({Goodbye(kAddress)});
  After(5_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(1_s));
  EXPECT_THAT(RemovedAt(kNewAddress), IsEmpty());
}

TEST_F(Cache, AsksOverTheProtocolWithoutAGoodbyeThreeTenthsOfASecondLater) {
  GivenLink(kBothProtocols);
  GivenAsked("printer.local", kTypeA, {kAddress});
  ReceivesResponse({.answers = {kAddress}, .from = Host6(2)});
  After(5_s);
  Mark();
  ReceivesAnswers({Goodbye(kAddress)});
  After(999_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_EQ(Queries()[0].at, 300_ms);
  EXPECT_EQ(Queries()[0].protocols, kIpv6);
  EXPECT_THAT(reported, IsEmpty());
  After(1_ms);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(1_s));
}

TEST_F(Cache, AsksNothingAfterAGoodbyeOverBothProtocols) {
  GivenLink(kBothProtocols);
  GivenAsked("printer.local", kTypeA, {kAddress});
  ReceivesResponse({.answers = {kAddress}, .from = Host6(2)});
  After(5_s);
  Mark();
  ReceivesAnswers({Goodbye(kAddress)});
  ReceivesResponse({.answers = {Goodbye(kAddress)}, .from = Host6(2)});
  After(1_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(1_s));
  EXPECT_THAT(AskedAt("printer.local", kTypeA), Each(Ge(1_s)));
}

// --- 10.2: cache-flush

TEST_F(Cache, FlushesTheOlderRecordsOfTheRRsetAfterOneSecond) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(10_s);
  ReceivesAnswers({kNewAddress});
  EXPECT_THAT(AddedAt(kNewAddress), ElementsAre(10_s));
  After(999_ms);
  EXPECT_THAT(RemovedAt(kAddress), IsEmpty());
  After(1_ms);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(11_s));
  EXPECT_THAT(RemovedAt(kNewAddress), IsEmpty());
}

TEST_F(Cache, DoesNotFlushWhatWasReceivedWithinTheLastSecond) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(1_s);
  ReceivesAnswers({kNewAddress});
  After(30_s);
  EXPECT_THAT(RemovedAt(kAddress), IsEmpty());
}

TEST_F(Cache, FlushesWhatWasReceivedMoreThanASecondAgo) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(1001_ms);
  ReceivesAnswers({kNewAddress});
  After(30_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(2001_ms));
}

TEST_F(Cache, KeepsAMemberThatIsReceivedAgainWithinTheSecondOfAFlush) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(10_s);
  ReceivesAnswers({kNewAddress});
  After(990_ms);
  ReceivesAnswers({kAddress});
  After(30_s);
  EXPECT_THAT(RemovedAt(kAddress), IsEmpty());
  EXPECT_THAT(RemovedAt(kNewAddress), IsEmpty());
}

TEST_F(Cache, FlushesNoOtherTypeOfTheName) {
  GivenAsked("printer.local", kTypeAaaa, {Unique(Aaaa("printer.local", 1))});
  After(10_s);
  ReceivesAnswers({kAddress});
  After(30_s);
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Cache, FlushesNothingWithASharedRecord) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {kPtr});
  After(10_s);
  ReceivesAnswers({Ptr("_ipp._tcp.local", "Q._ipp._tcp.local")});
  After(30_s);
  EXPECT_THAT(RemovedAt(kPtr), IsEmpty());
}

TEST_F(Cache, FlushesWithTheLastOfTwoAnnouncementsWhatCameBeforeTheFirst) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  After(10_s);
  ReceivesAnswers({kNewAddress});
  After(500_ms);
  ReceivesAnswers({kNewAddress});
  After(30_s);
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(11_s));
}

// --- 10.5: passive observation of failures

TEST_F(Cache, GivesUpWhatOthersHaveAskedForInVainForTenSeconds) {
  GivenAsked("printer.local", kTypeTxt, {Unique(Txt("printer.local", "a"))});
  After(10_s);
  Mark();
  for (int i = 0; i < 4; ++i) {
    Asks(Qm("printer.local", kTypeTxt));
    After(2_s);
  }
  After(7999_ms);
  EXPECT_THAT(reported, IsEmpty());
  After(1_ms);
  EXPECT_THAT(RemovedAt(Txt("printer.local", "a")), ElementsAre(16_s));
}

TEST_F(Cache, AsksNothingItselfToSeeWhetherOthersAskInVain) {
  GivenAsked("printer.local", kTypeTxt, {Unique(Txt("printer.local", "a"))});
  After(10_s);
  Mark();
  for (int i = 0; i < 4; ++i) {
    Asks(Qm("printer.local", kTypeTxt));
    After(2_s);
  }
  After(7_s);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Cache, KeepsWhatOthersAreAnsweredWith) {
  GivenAsked("printer.local", kTypeTxt, {Unique(Txt("printer.local", "a"))});
  After(10_s);
  for (int i = 0; i < 4; ++i) {
    Asks(Qm("printer.local", kTypeTxt));
    After(2_s);
  }
  ReceivesAnswers({Unique(Txt("printer.local", "a"))});
  After(60_s);
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Cache, LearnsNothingFromQuestionsWithKnownAnswersNorFromQuOnes) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {kPtr});
  for (int i = 0; i < 10; ++i) {
    After(2_s);
    Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .known = {kPtr}});
    After(2_s);
    Asks(Qu("_ipp._tcp.local", kTypePtr));
  }
  After(20_s);
  EXPECT_THAT(reported, IsEmpty());
}

// --- 10.3: the link and its protocols

TEST_F(Cache, ForgetsWhatWasReceivedOverAProtocolThatIsGoneOnly) {
  GivenLink(kBothProtocols);
  GivenAsked("printer.local", kTypeA, {kAddress});
  ReceivesResponse({.answers = {kNewAddress}, .from = Host6(2)});
  link_set_protocols(*link, now, kIpv4);
  Settle();
  EXPECT_THAT(RemovedAt(kAddress), IsEmpty());
  EXPECT_THAT(RemovedAt(kNewAddress), ElementsAre(0_s));
}

TEST_F(Cache, ForgetsAllWhenTheLinkWasDown) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  link_restart(*link, now, true);
  Settle();
  EXPECT_THAT(RemovedAt(kAddress), ElementsAre(0_s));
  EXPECT_EQ(Cached(), 0u);
}

TEST_F(Cache, KeepsAllWhenTheLinkWasNotDown) {
  GivenAsked("printer.local", kTypeA, {kAddress});
  link_restart(*link, now, false);
  Settle();
  EXPECT_THAT(reported, IsEmpty());
}

// --- Bounds

TEST_F(Cache, HasRoomFor16384RecordsThatNobodyAsksForAndDropsTheOldest) {
  GivenAsked("_http._tcp.local", kTypePtr, {Ptr("_http._tcp.local", "W._http._tcp.local")});
  for (int i = 0; i < 17000; i += 50) {
    std::vector<Record> records;
    for (int k = i; k < i + 50; ++k) {
      records.push_back(Ttl(Unique(Txt("h" + std::to_string(k) + ".local", "a")), 4500));
    }
    ReceivesResponse({.answers = records, .from = Host(static_cast<unsigned>(3 + i / 2000))});
    After(10_ms);
  }
  EXPECT_EQ(Cached(), 16385u);
  Start("h0.local", kTypeTxt);
  Start("h16999.local", kTypeTxt);
  EXPECT_THAT(AddedAt(Txt("", "a")), SizeIs(1));
  EXPECT_THAT(RemovedAt(Ptr("_http._tcp.local", "W._http._tcp.local")), IsEmpty());
}

TEST_F(Cache, HasRoomFor8192RecordsOfOneNameAndType) {
  GivenAsked("_ipp._tcp.local", kTypePtr);
  HearsMany(Printers(0, 9000));
  EXPECT_EQ(Cached(), 8192u);
}

TEST_F(Cache, MakesRoomInAFullRRsetByDroppingWhatOneHostHasFilledItWith) {
  GivenAsked("_ipp._tcp.local", kTypePtr);
  HearsMany(Printers(0, 9000), Host(66));
  ReceivesResponse({.answers = {kPtr}, .from = Host(2)});
  EXPECT_THAT(AddedAt(kPtr), SizeIs(1));
  EXPECT_EQ(Cached(), 8192u);
}

TEST_F(Cache, IsEmptyAgainWhenAllTtlsAreOver) {
  HearsMany(Printers(0, 1000));
  ReceivesAnswers({kAddress});
  After(80_min);
  EXPECT_EQ(Cached(), 0u);
  EXPECT_EQ(link_counts(*link).names, 0u);
  EXPECT_EQ(link_counts(*link).sources, 0u);
  EXPECT_EQ(link_deadline(*link), kNever);
}

TEST_F(Cache, CostsNoMoreThanItsRecordsForManyForgedGoodbyes) {
  GivenAsked("_ipp._tcp.local", kTypePtr);
  HearsMany(Printers(0, 4000));
  const std::uint64_t before = link_counts(*link).steps;
  ReceivesResponse({.answers = std::vector<Record>(50, Goodbye(kPtr)), .from = Host(66)});
  EXPECT_LE(link_counts(*link).steps, before + 50 * 4);
}

}  // namespace
}  // namespace mdns::test
