// SPDX-License-Identifier: MIT
// Which records are given in answer (RFC 6762 sections 6 to 6.5 and 10.2, RFC 6763 section 12).
#include <functional>
#include <set>

#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kSrv = Srv("P._ipp._tcp.local", "printer.local");
const Record kTxt = Txt("P._ipp._tcp.local", "a=1");
const Record kAddress = A("printer.local", 1);

class Answers : public LinkTest {};

// --- 6: what is answered

TEST_F(Answers, AnswersToTheGroupWithAnEmptyQuestionSection) {
  GivenPublished(Claim::shared, {kPtr});
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].flags, 0x8400u);
  EXPECT_EQ(Responses()[0].message.id, 0u);
  EXPECT_EQ(Responses()[0].protocols, kIpv4);
  EXPECT_THAT(Responses()[0].message.questions, IsEmpty());
  EXPECT_THAT(Responses()[0].message.answers, ElementsAre(kPtr));
}

TEST_F(Answers, AnswersOverTheProtocolThatWasAskedOver) {
  GivenLink(kBothProtocols);
  GivenPublished(Claim::shared, {kPtr});
  Asks(Query{.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .from = Host6(2)});
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].protocols, kIpv6);
}

TEST_F(Answers, AnswersWithNothingThatIsOnlyCached) {
  GivenAsked("printer.local", kTypeA, {Unique(kAddress)});
  GivenPublished(Claim::unique, {kSrv});
  Asks(Qm("printer.local", kTypeA));
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(1_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kSrv)));
}

TEST_F(Answers, IsSilentWhereItHasNothingToSend) {
  GivenPublished(Claim::shared, {kPtr});
  Asks(Qm("_ipp._tcp.local", kTypeTxt));
  Asks(Qm("_http._tcp.local", kTypePtr));
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Answers, AnswersWhateverTheCaseOfTheName) {
  GivenPublished(Claim::shared, {kPtr});
  Asks(Qm("_IPP._TCP.Local", kTypePtr));
  After(200_ms);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

TEST_F(Answers, AnswersOnlyQuestionsOfItsClassOrOfAny) {
  GivenPublished(Claim::shared, {kPtr});
  Question question = Qm("_ipp._tcp.local", kTypePtr);
  question.klass = 3;
  Asks(question);
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
  question.klass = kClassAny;
  Asks(question);
  After(200_ms);
  EXPECT_THAT(SentRecords(), ElementsAre(kPtr));
}

TEST_F(Answers, AnswersAnyTypeWithAllRecordsOfTheName) {
  GivenPublished(Claim::unique, {kSrv, kTxt, Txt("P._ipp._tcp.local", "b=1")});
  Asks(Qm("P._ipp._tcp.local", kTypeAny));
  After(200_ms);
  EXPECT_THAT(SentRecords(), UnorderedElementsAre(Unique(kSrv), Unique(kTxt), Unique(Txt("P._ipp._tcp.local", "b=1"))));
}

TEST_F(Answers, AnswersAQuestionForAnyTypeWithACname) {
  Record alias = Ptr("alias.local", "printer.local");
  alias.type = kTypeCname;
  GivenPublished(Claim::unique, {alias});
  Asks(Qm("alias.local", kTypeA));
  After(200_ms);
  EXPECT_THAT(SentRecords(), Contains(Unique(alias)));
}

TEST_F(Answers, AnswersAllQuestionsOfAMessageInOneResponse) {
  GivenPublished(Claim::shared, {kPtr});
  GivenPublished(Claim::unique, {kSrv, kTxt});
  Asks(Query{
      .questions = {Qm("_ipp._tcp.local", kTypePtr), Qm("nothing.local", kTypeA), Qm("P._ipp._tcp.local", kTypeTxt)}});
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers, UnorderedElementsAre(kPtr, Unique(kTxt)));
}

TEST_F(Answers, SendsWholeRRsetsAlsoWhereTheQuerierKnowsAMember) {
  GivenPublished(Claim::unique, {A("printer.local", 1), A("printer.local", 2)});
  Asks(Query{.questions = {Qm("printer.local", kTypeA)}, .known = {A("printer.local", 1)}});
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers,
              UnorderedElementsAre(Unique(A("printer.local", 1)), Unique(A("printer.local", 2))));
}

TEST_F(Answers, AnswersTwoQueriesThatAreDueAtDifferentTimesInOneResponse) {
  GivenPublished(Claim::shared, {kPtr});
  GivenPublished(Claim::shared, {Ptr("_http._tcp.local", "W._http._tcp.local")});
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(15_ms);
  Asks(Qm("_http._tcp.local", kTypePtr));
  After(700_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers, SizeIs(2));
}

// --- 6.1: denials

TEST_F(Answers, DeniesATypeThatAnOwnedNameDoesNotHave) {
  GivenPublished(Claim::unique, {kAddress});
  Asks(Qm("printer.local", kTypeAaaa));
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_EQ(Responses()[0].at, 0);
  EXPECT_THAT(Responses()[0].message.answers, ElementsAre(Nsec("printer.local", {kTypeA})));
}

// One NSEC record denies several types at once: the shortest of their TTLs is right for all of them.
TEST_F(Answers, DeniesWithTheTypesOfTheNameAndTheShortestTtlOfAnyMissingRecord) {
  const Record denial = Ttl(Nsec("P._ipp._tcp.local", {kTypeSrv, kTypeTxt}), 120);
  GivenPublished(Claim::unique, {kSrv, kTxt});
  Asks(Qm("P._ipp._tcp.local", kTypeA));
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(denial));
  Asks(Qm("P._ipp._tcp.local", kTypePtr));
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(denial, denial));
}

TEST_F(Answers, ListsBothFamiliesInADenialOfANameThatHasBoth) {
  GivenPublished(Claim::unique, {kAddress, Aaaa("printer.local", 1)});
  Asks(Qm("printer.local", kTypeTxt));
  After(2_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Nsec("printer.local", {kTypeA, kTypeAaaa})));
}

TEST_F(Answers, DeniesNothingOfASharedName) {
  GivenPublished(Claim::shared, {kAddress});
  Asks(Qm("printer.local", kTypeAaaa));
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Answers, DeniesNothingOfANameWithATypeAbove255) {
  Record caa = kTxt;
  caa.type = 257;
  GivenPublished(Claim::unique, {kTxt, caa});
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Answers, DoesNotRepeatADenialWithinASecond) {
  GivenPublished(Claim::unique, {kAddress});
  Asks(Qm("printer.local", kTypeAaaa));
  After(100_ms);
  Asks(Qm("printer.local", kTypeSrv));
  After(3_s);
  EXPECT_THAT(SentAt(Nsec("printer.local", {kTypeA})), ElementsAre(0_s, 1_s));
}

// --- 6.2, RFC 6763 section 12: additional records

TEST_F(Answers, TakesSrvTxtAndAddressesAlongWithAPtrRecord) {
  GivenPublished(Claim::unique, {kSrv, kTxt});
  GivenPublished(Claim::unique, {kAddress, Aaaa("printer.local", 1)});
  GivenPublished(Claim::shared, {kPtr});
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers, ElementsAre(kPtr));
  EXPECT_THAT(Responses()[0].message.additionals,
              UnorderedElementsAre(Unique(kSrv), Unique(kTxt), Unique(kAddress), Unique(Aaaa("printer.local", 1))));
}

TEST_F(Answers, TakesTheAddressesAlongWithAnSrvRecordAndNothingWithATxtRecord) {
  GivenPublished(Claim::unique, {kSrv, kTxt});
  GivenPublished(Claim::unique, {kAddress, Aaaa("printer.local", 1)});
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.additionals,
              UnorderedElementsAre(Unique(kAddress), Unique(Aaaa("printer.local", 1))));
  Mark();
  Asks(Qm("P._ipp._tcp.local", kTypeTxt));
  After(200_ms);
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kTxt)));
}

TEST_F(Answers, TakesTheAddressesOfTheOtherFamilyAlong) {
  GivenPublished(Claim::unique, {kAddress, Aaaa("printer.local", 1)});
  Asks(Qm("printer.local", kTypeA));
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.answers, ElementsAre(Unique(kAddress)));
  EXPECT_THAT(Responses()[0].message.additionals, ElementsAre(Unique(Aaaa("printer.local", 1))));
}

TEST_F(Answers, TakesADenialOfTheOtherFamilyAlongWhereThereIsNone) {
  GivenPublished(Claim::unique, {kAddress});
  Asks(Qm("printer.local", kTypeA));
  After(200_ms);
  ASSERT_THAT(Responses(), SizeIs(1));
  EXPECT_THAT(Responses()[0].message.additionals, ElementsAre(Nsec("printer.local", {kTypeA})));
}

TEST_F(Answers, TakesNothingAlongThatHasBeenMulticastWithinTheLastSecond) {
  GivenPublished(Claim::unique, {kSrv, kTxt});
  GivenPublished(Claim::shared, {kPtr});
  Asks(Qm("P._ipp._tcp.local", kTypeTxt));
  After(10_ms);
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(300_ms);
  EXPECT_THAT(SentAt(Unique(kTxt)), SizeIs(1));
  EXPECT_THAT(SentAt(Unique(kSrv)), SizeIs(1));
}

TEST_F(Answers, AnswersWith2000PtrRecordsInFullPackets) {
  for (int i = 0; i < 2000; ++i) {
    Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P" + std::to_string(i) + "._ipp._tcp.local")});
  }
  After(12_s);
  Mark();
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(1_s);
  EXPECT_THAT(SentRecords(), SizeIs(2000));
  EXPECT_LE(Responses().size(), 2000u * 21 / 1400 + 5);
  EXPECT_THAT(Responses(), Each(Field("at", &Sent::at, Le(300_ms))));
}

// A service's records, of which a listing names the PTR record alone.
std::string service_name(int number) { return "Office printer " + std::to_string(number) + "._ipp._tcp.local"; }

Record service_srv(int number) { return Srv(service_name(number), "host" + std::to_string(number) + ".local"); }

class ACrowd : public LinkTest {
 protected:
  ACrowd() {
    GivenLink(kBothProtocols);
    for (int i = 0; i < 1900; ++i) {
      Publish(Claim::unique, {service_srv(i), Txt(service_name(i), std::string(64, 'x'))});
      Publish(Claim::shared, {Ptr("_ipp._tcp.local", service_name(i))});
      const std::string host = "host" + std::to_string(i) + ".local";
      Publish(Claim::shared, {A(host, 1), Aaaa(host, 1)});
    }
    After(20_s);
    Mark();
  }
  // Another host asks for one of the first 40 services every 25 ms; how long it waits at the longest. `others` is
  // called every millisecond.
  Time LongestWait(const std::function<void(int ms)>& others) {
    const Time began = now;
    std::vector<Time> asked;
    for (int ms = 0; ms < 1000; ++ms) {
      if (ms % 25 == 0) {
        asked.push_back(now - began);
        Asks({.questions = {Qm(service_name(ms / 25), kTypeSrv)}, .from = Host(200)});
      }
      others(ms);
      After(1_ms);
    }
    After(1_s);
    Time longest = 0;
    for (int i = 0; i < 40; ++i) {
      const std::vector<Time> sent_at = SentAt(Unique(service_srv(i)));
      longest = std::max(longest, sent_at.empty() ? kNever : sent_at.front() - asked[static_cast<std::size_t>(i)]);
    }
    return longest;
  }
};

TEST_F(ACrowd, IsListedByItsPtrRecordsAloneAndLeavesTheAirToOthers) {
  EXPECT_LE(LongestWait([this](int ms) {
              if (ms == 10) {
                Asks({.questions = {Qm("_ipp._tcp.local", kTypePtr)}, .from = Host(3)});
              }
            }),
            50_ms);
  std::size_t listed = 0;
  for (const Record& record : SentRecords()) {
    listed += record.type == kTypePtr ? 1 : 0;
  }
  EXPECT_EQ(listed, 1900u);
  EXPECT_LE(Responses().size(), 1900u * 21 / 1400 + 60);
}

TEST_F(ACrowd, IsResolvedByTwentyHostsWhileOthersAreAnswered) {
  EXPECT_LE(LongestWait([this](int ms) {  // all at once, every 20 ms, ten services each, over both protocols
              for (int host = 0; host < 20 && ms >= 200 && ms % 20 == 0; ++host) {
                std::vector<Question> questions;
                for (int i = 0; i < 10; ++i) {
                  const std::string name = service_name(40 + (93 * host + 10 * (ms / 20) + i) % 1860);
                  questions.push_back(Qm(name, kTypeSrv));
                  questions.push_back(Qm(name, kTypeTxt));
                }
                Asks({.questions = questions, .from = Host(10 + static_cast<unsigned>(host))});
                Asks({.questions = questions, .from = Host6(10 + static_cast<unsigned>(host))});
              }
            }),
            50_ms);
  After(2_s);
  std::set<std::string> resolved;
  for (const Record& record : SentRecords()) {
    if (record.type == kTypeSrv) {
      resolved.insert(record.name);
    }
  }
  EXPECT_EQ(resolved.size(), 1900u);
}

// --- Bounds

// As many types as anybody asks for of one name; a question that is repeated hundreds of times costs no more than
// these.
TEST_F(Answers, WorksOnEightQuestionsForOneNameInAMessageAndNoMore) {
  for (int i = 0; i < 2000; ++i) {
    Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P" + std::to_string(i) + "._ipp._tcp.local")});
  }
  After(12_s);
  const std::uint64_t before = link_counts(*link).steps;
  Asks(Query{.questions = std::vector<Question>(50, Qm("_ipp._tcp.local", kTypePtr))});
  EXPECT_LE(link_counts(*link).steps, before + 8 * 2000 + 200);
}

}  // namespace
}  // namespace mdns::test
