// SPDX-License-Identifier: MIT
// When answers are sent, and whether by multicast or unicast (RFC 6762 sections 5.4, 5.5, 6, 6.3 and 11).
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;

const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kSrv = Srv("P._ipp._tcp.local", "printer.local");
const Record kTxt = Txt("P._ipp._tcp.local", "a=1");
const Record kAddress = A("printer.local", 1);

auto Within(Time least, Time most) { return AllOf(Ge(least), Le(most)); }

class Responder : public LinkTest {
 protected:
  // The time of the only response to the query, the least and the most over many seeds.
  std::pair<Time, Time> DelaysOf(Claim claim, const std::vector<Record>& records, const Query& query) {
    std::pair<Time, Time> delays{10_s, 0};
    for (std::uint64_t seed = 1; seed <= 100; ++seed) {
      GivenLink(kIpv4, seed);
      GivenPublished(claim, records);
      Asks(query);
      After(900_ms);
      EXPECT_THAT(sent, SizeIs(1)) << seed;
      delays = {std::min(delays.first, sent.at(0).at), std::max(delays.second, sent.at(0).at)};
    }
    return delays;
  }
};

// --- 6: delays

TEST_F(Responder, AnswersWithSharedRecordsAfterARandom20To120Ms) {
  const auto [least, most] = DelaysOf(Claim::shared, {kPtr}, {.questions = {Qm("_ipp._tcp.local", kTypePtr)}});
  EXPECT_THAT(least, Within(20_ms, 24_ms));
  EXPECT_THAT(most, Within(116_ms, 120_ms));
}

TEST_F(Responder, AnswersWithUniqueRecordsWithin10Ms) {
  const auto [least, most] = DelaysOf(Claim::unique, {kSrv}, {.questions = {Qm("P._ipp._tcp.local", kTypeSrv)}});
  EXPECT_LE(most, 10_ms);
}

// All answers take 250 packets over two protocols, which is half a second at the rate limit of the link.
TEST_F(Responder, AnswersOthersAtOnceBesideAHostThatAsksForEverything) {
  GivenLink(kBothProtocols);
  const auto instance = [](int number) { return "P" + std::to_string(number) + "._ipp._tcp.local"; };
  const auto host = [](int number) { return "printer" + std::to_string(number) + ".local"; };
  for (int i = 0; i < 2010; ++i) {
    Publish(Claim::unique, {Srv(instance(i), host(i)), Txt(instance(i), std::string(60, 'x'))});
    Publish(Claim::unique, {A(host(i), 1), Aaaa(host(i), 1)});
  }
  After(30_s);
  Mark();
  for (int i = 0; i < 2000; i += 20) {
    Query query;
    for (int each = i; each < i + 20; ++each) {
      query.questions.push_back(Qm(instance(each), kTypeSrv));
      query.questions.push_back(Qm(instance(each), kTypeTxt));
    }
    Asks(query);
  }
  const Time begin = now;
  for (int other = 2000; other < 2010; ++other) {
    After(50_ms);
    const Time asked_at = now - begin;
    LinkTest::Asks(Query{.questions = {Qm(instance(other), kTypeSrv)}, .from = Host(3)});
    After(50_ms);
    EXPECT_THAT(SentAt(Unique(Srv(instance(other), host(other)))), ElementsAre(Le(asked_at + 25_ms))) << other;
  }
  After(1_s);
  EXPECT_THAT(SentRecords(), SizeIs(Ge(2 * 2010u)));
}

TEST_F(Responder, AnswersQueriesWithTheTcBitAfterARandom400To500Ms) {
  const auto [least, most] =
      DelaysOf(Claim::shared, {kPtr}, {.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .is_truncated = true});
  EXPECT_THAT(least, Within(400_ms, 430_ms));
  EXPECT_THAT(most, Within(480_ms, 500_ms));
}

TEST_F(Responder, AnswersAtOnceWhatWouldBeThe65thQueryThatWaits) {
  GivenPublished(Claim::shared, {kPtr});
  for (unsigned host = 2; host < 66; ++host) {
    Asks(Query{.questions = {Qm("_http._tcp.local", kTypePtr)}, .is_truncated = true, .from = Host(host)});
  }
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .is_truncated = true, .from = Host(66)});
  After(300_ms);
  EXPECT_THAT(SentAt(kPtr), ElementsAre(Le(10_ms)));
}

TEST_F(Responder, AnswersQueriesWithSeveralQuestionsAfter20To120Ms) {
  const auto [least, most] =
      DelaysOf(Claim::unique, {kSrv, kTxt},
               {.questions = {Qm("P._ipp._tcp.local", kTypeSrv), Qm("P._ipp._tcp.local", kTypeTxt)}});
  EXPECT_THAT(least, Within(20_ms, 24_ms));
  EXPECT_THAT(most, Within(116_ms, 120_ms));
}

TEST_F(Responder, AnswersProbesAtOnce) {
  const auto [least, most] = DelaysOf(Claim::unique, {kSrv}, Probe({Srv("P._ipp._tcp.local", "other.local")}));
  EXPECT_EQ(most, 0);
}

TEST_F(Responder, GivesNoAnswerToAProbeThatProposesTheSame) {
  const Record txt = Txt("P._ipp._tcp.local", "a=1");
  GivenPublished(Claim::unique, {kSrv, txt});
  Asks(Probe({kSrv, txt}));
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
  for (const std::vector<Record>& other : {std::vector{kSrv},
                                           {kSrv, kSrv},
                                           {kSrv, Txt("P._ipp._tcp.local", "a=2")},
                                           {kSrv, txt, A("P._ipp._tcp.local", 1)}}) {
    Mark();
    Asks(Probe(other));
    EXPECT_THAT(sent, Not(IsEmpty()));
    After(2_s);
  }
}

TEST_F(Responder, AnswersProbesForManyNamesAtOnce) {
  Query probe = Probe({Srv("P._ipp._tcp.local", "other.local"), Srv("Q._ipp._tcp.local", "other.local")});
  probe.questions.push_back(Qm("Q._ipp._tcp.local", kTypeAny));
  const auto [least, most] = DelaysOf(Claim::unique, {kSrv}, probe);
  EXPECT_EQ(most, 0);
}

TEST_F(Responder, TakesAQueryForAProbeOnlyIfAProposedRecordAnswersItsQuestion) {
  const auto [least, most] =
      DelaysOf(Claim::shared, {kPtr},
               {.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .proposed = {A("something.else.local", 1)}});
  EXPECT_THAT(least, Within(20_ms, 24_ms));
}

// --- 6: the rate limit

TEST_F(Responder, MulticastsARecordOncePerSecond) {
  GivenPublished(Claim::shared, {kPtr});
  for (int i = 0; i < 50; ++i) {
    Asks(Qm("_ipp._tcp.local", kTypePtr));
    After(100_ms);
  }
  const std::vector<Time> times = SentAt(kPtr);
  ASSERT_THAT(times, SizeIs(5));
  for (std::size_t i = 1; i < times.size(); ++i) {
    EXPECT_GE(times[i] - times[i - 1], 1_s);
  }
}

TEST_F(Responder, MulticastsARecordOncePerSecondAlsoBesideItsAnnouncements) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    GivenLink(kIpv4, seed);
    Publish(Claim::shared, {kPtr});
    for (int i = 0; i < 30; ++i) {
      After(static_cast<Time>(seed) * 7_ms);
      Asks(Qm("_ipp._tcp.local", kTypePtr));
    }
    const std::vector<Time> times = SentAt(kPtr);
    for (std::size_t i = 1; i < times.size(); ++i) {
      EXPECT_GE(times[i] - times[i - 1], 1_s) << seed;
    }
  }
}

TEST_F(Responder, MulticastsARecordOncePerSecondOverEachProtocol) {
  GivenLink(kBothProtocols);
  GivenPublished(Claim::shared, {kPtr});
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .from = Host6(2)});
  After(200_ms);
  ASSERT_THAT(SentAt(kPtr), SizeIs(1));
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .from = Host6(2)});
  After(2_s);
  std::vector<Time> over_ipv6;
  for (const Sent& one : Responses()) {
    if (one.protocols & kIpv6) {
      over_ipv6.push_back(one.at);
    }
  }
  ASSERT_THAT(over_ipv6, SizeIs(2));
  EXPECT_GE(over_ipv6[1] - over_ipv6[0], 1_s);
}

TEST_F(Responder, MulticastsARecordInAnswerToProbesEach250Ms) {
  GivenPublished(Claim::unique, {kSrv});
  for (int i = 0; i < 10; ++i) {
    Asks(Probe({Srv("P._ipp._tcp.local", "other.local")}));
    After(100_ms);
  }
  EXPECT_THAT(SentAt(Unique(kSrv)), ElementsAre(0_s, 250_ms, 500_ms, 750_ms, 1_s));
}

TEST_F(Responder, DefendsANameInTheSecondAfterAnAnswer) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(100_ms);
  Asks(Probe({Srv("P._ipp._tcp.local", "other.local")}));
  After(500_ms);
  EXPECT_THAT(SentAt(Unique(kSrv)), ElementsAre(0_s, 250_ms));
}

TEST_F(Responder, DefendsANameWhileAnAnswerWaitsForTheEndOfItsSecond) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(100_ms);
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(200_ms);
  Asks(Probe({Srv("P._ipp._tcp.local", "other.local")}));
  After(500_ms);
  EXPECT_THAT(SentAt(Unique(kSrv)), ElementsAre(0_s, 300_ms));
}

// --- 5.4 and 5.5: QU questions and direct queries

TEST_F(Responder, AnswersAQuQuestionByUnicastIfTheRecordWasMulticastWithinAQuarterOfItsTtl) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Qu("P._ipp._tcp.local", kTypeSrv));
  After(1_s);
  EXPECT_THAT(Responses(), IsEmpty());
  ASSERT_THAT(Replies(), SizeIs(1));
  EXPECT_EQ(Replies()[0].to, Host(2));
  EXPECT_EQ(Replies()[0].flags, 0x8400u);
  EXPECT_EQ(Replies()[0].message.id, 0u);
  EXPECT_THAT(Replies()[0].message.questions, IsEmpty());
  EXPECT_THAT(Replies()[0].message.answers, ElementsAre(Unique(kSrv)));
}

TEST_F(Responder, AnswersAQuQuestionByMulticastIfAQuarterOfTheTtlHasPassed) {
  GivenPublished(Claim::unique, {kSrv});
  After(31_s);
  Mark();
  Asks(Qu("P._ipp._tcp.local", kTypeSrv));
  After(1_s);
  EXPECT_THAT(SentAt(Unique(kSrv)), SizeIs(1));
  EXPECT_THAT(Replies(), IsEmpty());
}

TEST_F(Responder, AnswersAQuProbeByUnicastAndAfterAQuarterOfTheTtlByMulticastToo) {
  GivenPublished(Claim::unique, {kSrv});
  Query probe = Probe({Srv("P._ipp._tcp.local", "other.local")});
  probe.questions[0].unicast_response = true;
  Asks(probe);
  EXPECT_THAT(Replies(), SizeIs(1));
  EXPECT_THAT(Responses(), IsEmpty());
  After(31_s);
  Mark();
  Asks(probe);
  EXPECT_THAT(Replies(), SizeIs(1));
  EXPECT_THAT(Responses(), SizeIs(1));
}

TEST_F(Responder, DelaysUnicastAnswersWithSharedRecordsToo) {
  const auto [least, most] = DelaysOf(Claim::shared, {kPtr}, {.questions = {Qu("_ipp._tcp.local", kTypePtr)}});
  EXPECT_THAT(least, Within(20_ms, 24_ms));
  EXPECT_THAT(most, Within(116_ms, 120_ms));
}

TEST_F(Responder, AnswersADirectQueryLikeAQuQuestion) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Query{.questions = {Qm("P._ipp._tcp.local", kTypeSrv)}, .to_group = false});
  After(1_s);
  EXPECT_THAT(Responses(), IsEmpty());
  EXPECT_THAT(Replies(), SizeIs(1));
}

TEST_F(Responder, IgnoresADirectQueryFromAnotherNetwork) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Query{.questions = {Qm("P._ipp._tcp.local", kTypeSrv)}, .to_group = false, .is_local = false});
  After(1_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Responder, AnswersAQuQuestionFromAnotherNetworkByMulticast) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Query{.questions = {Qu("P._ipp._tcp.local", kTypeSrv)}, .is_local = false});
  After(1_s);
  EXPECT_THAT(SentAt(Unique(kSrv)), SizeIs(1));
  EXPECT_THAT(Replies(), IsEmpty());
}

TEST_F(Responder, AnswersNoQueryWithAnOpcodeOrAnErrorCode) {
  GivenPublished(Claim::shared, {kPtr});
  const std::string question = name("_ipp._tcp.local") + number16(kTypePtr) + number16(kClassIn);
  Receives(header(1u << 11, {1, 0, 0, 0}) + question, Host(2));
  Receives(header(3u, {1, 0, 0, 0}) + question, Host(2));
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
  Receives(header(0x05F0, {1, 0, 0, 0}, 99) + question, Host(2));
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

}  // namespace
}  // namespace mdns::test
