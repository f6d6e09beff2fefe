// SPDX-License-Identifier: MIT
// The questions that the link sends, and when (RFC 6762 sections 5.2, 5.4, 6.1 and 7.1 to 7.3).
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

class Querier : public LinkTest {
 protected:
  // The times between the questions, the first one's from the start.
  std::vector<Time> Intervals(std::string_view labels, std::uint16_t type) const {
    std::vector<Time> intervals;
    Time last = 0;
    for (const Time at : AskedAt(labels, type)) {
      intervals.push_back(at - last);
      last = at;
    }
    return intervals;
  }
};

auto Within(Time least, Time most) { return AllOf(Ge(least), Le(most)); }

// --- 5.2: the series

TEST_F(Querier, WaitsARandom20To120MsBeforeTheFirstQuestion) {
  Time least = 1_s;
  Time most = 0;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    GivenLink(kIpv4, seed);
    Start("_ipp._tcp.local", kTypePtr);
    After(500_ms);
    ASSERT_THAT(AskedAt("_ipp._tcp.local", kTypePtr), SizeIs(1));
    least = std::min(least, sent[0].at);
    most = std::max(most, sent[0].at);
  }
  EXPECT_THAT(least, Within(20_ms, 21_ms));
  EXPECT_THAT(most, Within(118_ms, 120_ms));
}

// Each interval is at least twice the one before; a tenth of a second more leaves room to share a packet.
TEST_F(Querier, AsksAgainAfterOneSecondAndThenAtIntervalsThatDoubleUpToAnHour) {
  Start("_ipp._tcp.local", kTypePtr);
  After(300_min);
  const std::vector<Time> intervals = Intervals("_ipp._tcp.local", kTypePtr);
  ASSERT_THAT(intervals, SizeIs(Ge(15u)));
  EXPECT_THAT(intervals[0], Within(20_ms, 120_ms));
  EXPECT_THAT(intervals[1], Within(1_s, 1100_ms));
  for (std::size_t i = 2; i < 13; ++i) {
    EXPECT_THAT(intervals[i], Within(2 * intervals[i - 1], 2 * intervals[i - 1] + 100_ms)) << i;
  }
  EXPECT_THAT(intervals[13], Within(60_min, 60_min + 100_ms));
  EXPECT_THAT(intervals[14], Within(60_min, 60_min + 100_ms));
}

TEST_F(Querier, DoublesEachIntervalAlsoBesideOtherQuestionsThatShareItsPackets) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    GivenLink(kIpv4, seed);
    Start("_ipp._tcp.local", kTypePtr);
    After(static_cast<Time>(seed) * 31_ms);
    Start("_http._tcp.local", kTypePtr);
    After(static_cast<Time>(seed) * 57_ms);
    Start("_ssh._tcp.local", kTypePtr);
    After(10_min);
    for (const char* type : {"_ipp._tcp.local", "_http._tcp.local", "_ssh._tcp.local"}) {
      const std::vector<Time> intervals = Intervals(type, kTypePtr);
      EXPECT_GE(intervals.at(1), 1_s) << type << " seed " << seed;
      for (std::size_t i = 2; i < intervals.size(); ++i) {
        EXPECT_GE(intervals[i], 2 * intervals[i - 1]) << type << " interval " << i << " seed " << seed;
      }
    }
  }
}

// The 20 ms of section 5.2 are a "should"; sending fewer packets is worth more.
TEST_F(Querier, AsksAtOnceInThePacketOfAQuestionThatIsDueWithinATenthOfASecond) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    GivenLink(kIpv4, seed);
    Start("_ipp._tcp.local", kTypePtr);
    After(500_ms);
    ASSERT_THAT(AskedAt("_ipp._tcp.local", kTypePtr), SizeIs(1));
    After(AskedAt("_ipp._tcp.local", kTypePtr)[0] + 1080_ms - 500_ms);  // 20 ms before it is asked again
    Start("_http._tcp.local", kTypePtr);
    After(500_ms);
    ASSERT_THAT(AskedAt("_ipp._tcp.local", kTypePtr), SizeIs(2));
    EXPECT_THAT(AskedAt("_http._tcp.local", kTypePtr), ElementsAre(AskedAt("_ipp._tcp.local", kTypePtr)[1])) << seed;
    EXPECT_THAT(Queries(), SizeIs(2)) << seed;
  }
}

TEST_F(Querier, AsksOnceForTwoQueriesOfTheSameQuestion) {
  Start("_ipp._tcp.local", kTypePtr);
  Start("_IPP._tcp.local", kTypePtr);
  After(500_ms);
  EXPECT_THAT(AskedAt("_ipp._tcp.local", kTypePtr), SizeIs(1));
  EXPECT_THAT(Queries(), SizeIs(1));
}

TEST_F(Querier, AsksNothingMoreOnceTheLastQueryIsStopped) {
  const QueryId first = Start("_ipp._tcp.local", kTypePtr);
  const QueryId second = Start("_ipp._tcp.local", kTypePtr);
  After(500_ms);
  Stop(first);
  After(1_s);
  EXPECT_THAT(Queries(), SizeIs(2));
  Stop(second);
  Mark();
  After(240_min);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Querier, PutsQuestionsOfTheSameMomentIntoOnePacket) {
  Start("My Printer._ipp._tcp.local", kTypeSrv);
  Start("My Printer._ipp._tcp.local", kTypeTxt);
  After(500_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_THAT(Queries()[0].message.questions, SizeIs(2));
}

// Room is kept free only for the known answers of a question that has some.
TEST_F(Querier, FillsPacketsWithQuestionsThatHaveNoKnownAnswers) {
  for (int i = 100; i < 200; ++i) {
    Start("Printer " + std::to_string(i) + "._ipp._tcp.local", kTypeSrv);
  }
  After(500_ms);
  ASSERT_THAT(Queries(), SizeIs(2));
  EXPECT_GT(Queries()[0].bytes.size(), kDatagramMax - 30);
}

TEST_F(Querier, SendsQmQuestionsWithAnEmptyHeader) {
  Start("_ipp._tcp.local", kTypePtr);
  After(500_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_FALSE(Queries()[0].message.questions[0].unicast_response);
  EXPECT_EQ(Queries()[0].flags, 0u);
  EXPECT_EQ(Queries()[0].message.id, 0u);
}

TEST_F(Querier, AsksOverBothProtocols) {
  GivenLink(kBothProtocols);
  Start("_ipp._tcp.local", kTypePtr);
  After(500_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_EQ(Queries()[0].protocols, kBothProtocols);
}

// --- 5.2: answers

TEST_F(Querier, EndsTheSeriesWithAUniqueAnswer) {
  GivenAsked("printer.local", kTypeA, {Unique(A("printer.local", 1))});
  After(95_s);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Querier, GoesOnWithTheSeriesAfterASharedAnswer) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  After(9_s);
  EXPECT_THAT(Queries(), SizeIs(3));
}

TEST_F(Querier, AsksForAUniqueRecordAgainAt80And85And90And95PercentAndNoMore) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    GivenLink(kIpv4, seed);
    GivenAsked("printer.local", kTypeTxt, {Ttl(Unique(Txt("printer.local", "a")), 1000)});
    After(999_s);
    EXPECT_THAT(AskedAt("printer.local", kTypeTxt),
                ElementsAre(Within(800_s, 820_s), Within(850_s, 870_s), Within(900_s, 920_s), Within(950_s, 970_s)));
  }
}

TEST_F(Querier, BeginsANewLifetimeWithEachAnswer) {
  GivenAsked("printer.local", kTypeTxt, {Ttl(Unique(Txt("printer.local", "a")), 100)});
  After(83_s);
  EXPECT_THAT(Queries(), SizeIs(1));
  ReceivesAnswers({Ttl(Unique(Txt("printer.local", "a")), 200)});
  Mark();
  After(159_s);
  EXPECT_THAT(Queries(), IsEmpty());
  After(6_s);
  EXPECT_THAT(Queries(), SizeIs(1));
}

TEST_F(Querier, DoesNotRefreshWhatNobodyAsksFor) {
  ReceivesAnswers({Unique(A("printer.local", 1))});
  After(3_min);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Querier, DoesNotRefreshWhatNobodyAsksForAnyMore) {
  const QueryId id = GivenAsked("printer.local", kTypeA, {Unique(A("printer.local", 1))});
  After(50_s);
  Stop(id);
  After(3_min);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Querier, RefreshesWhatWasCachedBeforeAnybodyAsked) {
  ReceivesAnswers({Unique(A("printer.local", 1))});
  After(40_s);
  Start("printer.local", kTypeA);
  Mark();
  After(55_s);
  EXPECT_THAT(Queries(), IsEmpty());
  After(4_s);
  EXPECT_THAT(Queries(), SizeIs(1));
}

// --- 6.1: negative answers

TEST_F(Querier, RestsForTheTtlOfADenialOfTheType) {
  GivenAsked("printer.local", kTypeAaaa, {Nsec("printer.local", {kTypeA})});
  After(119_s);
  EXPECT_THAT(Queries(), IsEmpty());
  After(1500_ms);
  EXPECT_THAT(AskedAt("printer.local", kTypeAaaa), ElementsAre(120_s));
}

TEST_F(Querier, GoesOnAfterADenialThatListsTheType) {
  GivenAsked("printer.local", kTypeAaaa, {Nsec("printer.local", {kTypeA, kTypeAaaa})});
  After(9_s);
  EXPECT_THAT(AskedAt("printer.local", kTypeAaaa), SizeIs(3));
}

TEST_F(Querier, IgnoresTheNextDomainNameOfADenial) {
  Record denial = Nsec("printer.local", {kTypeA});
  denial.rdata = denial_rdata(name("elsewhere.local"), std::vector<std::uint16_t>{kTypeA});
  GivenAsked("printer.local", kTypeAaaa, {denial});
  After(60_s);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Querier, ReadsTheRecordsBehindADenialThatItCannotRead) {
  Record denial = Nsec("printer.local", {kTypeA});
  denial.rdata = name("printer.local") + std::string("\0\x40\x40", 3);
  GivenAsked("printer.local", kTypeA, {denial, Unique(A("printer.local", 1))});
  After(60_s);
  EXPECT_THAT(Queries(), IsEmpty());
}

// --- 7.1 and 7.2: known answers

TEST_F(Querier, ListsWhatItKnowsWithTheRemainingTtlAndWithoutTheCacheFlushBit) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  After(9_s);
  ASSERT_THAT(Queries(), SizeIs(3));
  const Time asked = Queries()[2].at;
  const auto left = static_cast<std::uint32_t>(4500 - (asked + kSecond - 1) / kSecond);
  EXPECT_THAT(Queries()[2].message.answers, ElementsAre(Ttl(Ptr("_ipp._tcp.local", "P._ipp._tcp.local"), left)));
}

TEST_F(Querier, DoesNotListWhatHasLessThanHalfOfItsTtlLeft) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {Ttl(Ptr("_ipp._tcp.local", "P._ipp._tcp.local"), 100)});
  After(100_s);
  for (const Sent& query : Queries()) {
    EXPECT_THAT(query.message.answers, SizeIs(query.at < 50_s ? 1 : 0)) << query.at;
  }
  EXPECT_THAT(Queries(), SizeIs(Ge(9u)));
}

TEST_F(Querier, DoesNotListARecordWithAGoodbye) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  After(700_ms);
  ReceivesAnswers({Goodbye(Ptr("_ipp._tcp.local", "P._ipp._tcp.local"))});
  Mark();
  After(400_ms);
  ASSERT_THAT(Queries(), SizeIs(Ge(1u)));
  EXPECT_THAT(Queries()[0].message.answers, IsEmpty());
}

TEST_F(Querier, ListsWhatItPublishesItselfAlsoWhenAnotherHostSentItLongAgo) {
  const Record ptr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
  GivenPublished(Claim::shared, {ptr});
  ReceivesAnswers({ptr});
  After(50_min);
  Mark();
  Start("_ipp._tcp.local", kTypePtr);
  After(200_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_THAT(Queries()[0].message.answers, ElementsAre(ptr));
}

TEST_F(Querier, ContinuesAListThatIsTooLongInPacketsWithoutAQuestion) {
  std::vector<Record> printers;
  for (int i = 0; i < 150; ++i) {
    printers.push_back(Ptr("_ipp._tcp.local", "Printer number " + std::to_string(i) + "._ipp._tcp.local"));
  }
  GivenAsked("_ipp._tcp.local", kTypePtr, printers);
  ASSERT_TRUE(AfterUntil(2_s, [this] { return !Queries().empty(); }));
  After(20_ms);
  const std::vector<Sent> packets = Queries();
  ASSERT_THAT(packets, SizeIs(Ge(3u)));
  std::size_t listed = 0;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    EXPECT_EQ(packets[i].message.is_truncated, i + 1 < packets.size()) << i;
    EXPECT_THAT(packets[i].message.questions, SizeIs(i == 0 ? 1 : 0)) << i;
    EXPECT_EQ(packets[i].at, packets[0].at) << i;
    EXPECT_LE(packets[i].bytes.size(), kDatagramMax);
    listed += packets[i].message.answers.size();
  }
  EXPECT_EQ(listed, printers.size());
}

// --- 7.3: duplicate questions

TEST_F(Querier, CountsTheSameQuestionOfAnotherHostAsItsOwn) {
  Start("_ipp._tcp.local", kTypePtr);
  After(19_ms);
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(500_ms);
  EXPECT_THAT(Queries(), IsEmpty());
  After(1_s);
  EXPECT_THAT(Queries(), SizeIs(1));
}

TEST_F(Querier, CountsAQuestionWithKnownAnswersThatItKnowsToo) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  After(700_ms);
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .known = {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")}});
  After(1_s);
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(Querier, DoesNotCountAQuestionWithAKnownAnswerThatItDoesNotKnow) {
  Start("_ipp._tcp.local", kTypePtr);
  After(19_ms);
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .known = {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")}});
  After(500_ms);
  EXPECT_THAT(Queries(), SizeIs(1));
}

TEST_F(Querier, DoesNotCountAQuestionWithAKnownAnswerThatItWouldNotListItself) {
  GivenAsked("_ipp._tcp.local", kTypePtr, {Ttl(Ptr("_ipp._tcp.local", "P._ipp._tcp.local"), 100)});
  After(60_s);
  const Time next_question = link_deadline(*link) - now;
  ASSERT_THAT(next_question, Within(1_s, 19_s));
  After(next_question - 500_ms);
  Mark();
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)},
             .known = {Ttl(Ptr("_ipp._tcp.local", "P._ipp._tcp.local"), 80)}});
  After(1600_ms);
  EXPECT_THAT(Queries(), SizeIs(1));
}

TEST_F(Querier, DoesNotCountAQuQuestionNorOneWithoutItsWholeListOfKnownAnswers) {
  Start("_ipp._tcp.local", kTypePtr);
  After(10_ms);
  Asks(Qu("_ipp._tcp.local", kTypePtr));
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .is_truncated = true});
  After(500_ms);
  EXPECT_THAT(Queries(), SizeIs(1));
}

TEST_F(Querier, AsksOverTheProtocolThatTheOtherHostDidNotAskOver) {
  GivenLink(kBothProtocols);
  Start("_ipp._tcp.local", kTypePtr);
  After(19_ms);
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .from = Host6(2)});
  After(500_ms);
  ASSERT_THAT(Queries(), SizeIs(1));
  EXPECT_EQ(Queries()[0].protocols, kIpv4);
}

TEST_F(Querier, NeedsNoRefreshOfItsOwnOnceAnotherHostsQuestionHasBeenAnswered) {
  GivenAsked("printer.local", kTypeA, {Unique(A("printer.local", 1))});
  After(90_s);
  const Time refresh = link_deadline(*link);
  After(refresh - now - 1_ms);
  Asks(Qm("printer.local", kTypeA));
  After(10_ms);
  ReceivesAnswers({Unique(A("printer.local", 1))});
  After(90_s);
  EXPECT_THAT(Queries(), IsEmpty());
}

// --- 18.1: whatever the response is for

TEST_F(Querier, TakesAnAnswerFromAResponseToAnotherHostsQuestion) {
  GivenAsked("printer.local", kTypeA);
  ReceivesResponse(
      {.additionals = {Unique(A("printer.local", 1))}, .questions = {Qm("other.local", kTypeA)}, .id = 4711});
  EXPECT_THAT(AddedAt(A("printer.local", 1)), ElementsAre(0_s));
}

TEST_F(Querier, TakesNoAnswerFromAnotherPortThan5353) {
  GivenAsked("printer.local", kTypeA);
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .from = Host(2, 5354)});
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Querier, TakesNoAnswerByUnicastSinceItAsksForNone) {
  GivenAsked("printer.local", kTypeA);
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .to_group = false});
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Querier, TakesAMulticastAnswerWhateverItsSourceAddress) {
  GivenAsked("printer.local", kTypeA);
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .from = Host(200), .is_local = false});
  EXPECT_THAT(AddedAt(A("printer.local", 1)), ElementsAre(0_s));
}

TEST_F(Querier, TakesNoAnswerWithAnOpcodeOrAnErrorCode) {
  GivenAsked("printer.local", kTypeA);
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .flags = 0x8400 | 1u << 11});
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .flags = 0x8400 | 3u});
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Querier, TakesAnAnswerWhateverItsOtherFlags) {
  GivenAsked("printer.local", kTypeA);
  ReceivesResponse({.answers = {Unique(A("printer.local", 1))}, .flags = 0x83F0});
  EXPECT_THAT(AddedAt(A("printer.local", 1)), ElementsAre(0_s));
}

}  // namespace
}  // namespace mdns::test
