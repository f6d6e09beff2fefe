// SPDX-License-Identifier: MIT
// Replies to simple resolvers, which ask from another port than 5353 (RFC 6762 sections 6.7, 10.2, 18.5 and 18.14).
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

const Record kSrv = Srv("P._ipp._tcp.local", "printer.local");

class Legacy : public LinkTest {
 protected:
  // A simple resolver asks.
  void Resolves(const Question& question, bool to_group = true) {
    Asks(Query{.questions = {question}, .from = Host(2, 40000), .to_group = to_group, .id = 0xBEEF});
  }
};

TEST_F(Legacy, IsRepliedToDirectlyWithItsIdAndQuestion) {
  GivenPublished(Claim::unique, {kSrv});
  Resolves(Qm("P._ipp._tcp.local", kTypeSrv));
  After(2_s);
  EXPECT_THAT(Responses(), IsEmpty());
  ASSERT_THAT(Replies(), SizeIs(1));
  const Sent reply = Replies()[0];
  EXPECT_EQ(reply.to, Host(2, 40000));
  EXPECT_EQ(reply.message.id, 0xBEEF);
  EXPECT_EQ(reply.flags, 0x8400u);
  ASSERT_THAT(reply.message.questions, SizeIs(1));
  EXPECT_EQ(reply.message.questions[0].name, kSrv.name);
  EXPECT_EQ(reply.message.questions[0].type, kTypeSrv);
  EXPECT_EQ(reply.message.questions[0].klass, kClassIn);
}

TEST_F(Legacy, IsGivenTheClassOfItsQuestionBack) {
  GivenPublished(Claim::unique, {kSrv});
  Question question = Qm("P._ipp._tcp.local", kTypeSrv);
  question.klass = kClassAny;
  Resolves(question);
  After(2_s);
  ASSERT_THAT(Replies(), SizeIs(1));
  ASSERT_THAT(Replies()[0].message.questions, SizeIs(1));
  EXPECT_EQ(Replies()[0].message.questions[0].klass, kClassAny);
}

TEST_F(Legacy, IsGivenTtlsOfAtMostTenSecondsAndNoCacheFlushBit) {
  GivenPublished(Claim::unique, {kSrv});
  GivenPublished(Claim::unique, {A("printer.local", 1), Ttl(A("printer.local", 2), 5)});
  Resolves(Qm("P._ipp._tcp.local", kTypeSrv));
  After(2_s);
  ASSERT_THAT(Replies(), SizeIs(1));
  EXPECT_THAT(Replies()[0].message.answers, ElementsAre(Ttl(kSrv, 10)));
  EXPECT_THAT(Replies()[0].message.additionals, Contains(Ttl(A("printer.local", 1), 10)));
  EXPECT_THAT(Replies()[0].message.additionals, Contains(Ttl(A("printer.local", 2), 5)));
  EXPECT_THAT(records_of(Replies()[0].message), Each(Field("cache_flush", &Record::cache_flush, false)));
}

TEST_F(Legacy, IsGivenSrvTargetsWithoutCompression) {
  GivenPublished(Claim::unique, {kSrv});
  Resolves(Qm("P._ipp._tcp.local", kTypeSrv));
  After(2_s);
  ASSERT_THAT(Replies(), SizeIs(1));
  EXPECT_THAT(text(Replies()[0].bytes), testing::HasSubstr(name("printer.local")));
}

TEST_F(Legacy, IsRepliedToFromADirectQueryToo) {
  GivenPublished(Claim::unique, {kSrv});
  Resolves(Qm("P._ipp._tcp.local", kTypeSrv), false);
  After(2_s);
  EXPECT_THAT(Replies(), SizeIs(1));
}

TEST_F(Legacy, IsNotRepliedToOnAnotherNetwork) {
  GivenPublished(Claim::unique, {kSrv});
  Asks(Query{.questions = {Qm("P._ipp._tcp.local", kTypeSrv)}, .from = Host(200, 40000), .is_local = false});
  After(2_s);
  EXPECT_THAT(Replies(), IsEmpty());
}

TEST_F(Legacy, IsRepliedToAsOftenAsItAsks) {
  GivenPublished(Claim::unique, {kSrv});
  Resolves(Qm("P._ipp._tcp.local", kTypeSrv));
  After(100_ms);
  Resolves(Qm("P._ipp._tcp.local", kTypeSrv));
  After(2_s);
  EXPECT_THAT(Replies(), SizeIs(2));
}

TEST_F(Legacy, IsGivenWhatFitsWithTheTcBitWhereThereIsMore) {
  for (int i = 0; i < 200; ++i) {
    Publish(Claim::shared, {Ptr("_ipp._tcp.local", "P" + std::to_string(i) + "._ipp._tcp.local")});
  }
  After(12_s);
  Mark();
  Resolves(Qm("_ipp._tcp.local", kTypePtr));
  After(2_s);
  ASSERT_THAT(Replies(), SizeIs(1));
  EXPECT_TRUE(Replies()[0].message.is_truncated);
  EXPECT_THAT(Replies()[0].bytes, SizeIs(Le(kDatagramMax)));
}

TEST_F(Legacy, IsNotRepliedToWithNothing) {
  GivenPublished(Claim::unique, {kSrv});
  Resolves(Qm("Q._ipp._tcp.local", kTypeSrv));
  After(2_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Legacy, DoesNotSaveTheGroupAnAnswer) {
  GivenPublished(Claim::shared, {Ptr("_ipp._tcp.local", "P._ipp._tcp.local")});
  Resolves(Qm("_ipp._tcp.local", kTypePtr));
  Asks(Qm("_ipp._tcp.local", kTypePtr));
  After(2_s);
  EXPECT_THAT(Replies(), SizeIs(1));
  EXPECT_THAT(Responses(), SizeIs(1));
}

}  // namespace
}  // namespace mdns::test
