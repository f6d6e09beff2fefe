// SPDX-License-Identifier: MIT
// Published records of a former process that the link takes over.
#include <map>

#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Record kSrv = Srv("P._ipp._tcp.local", "printer.local");
const Record kTxt = Txt("P._ipp._tcp.local", "a=1");
const Record kOtherTxt = Txt("P._ipp._tcp.local", "a=2");
const Record kPtr = Ptr("_ipp._tcp.local", "P._ipp._tcp.local");
const Record kAddress = A("printer.local", 1);

class Handover : public LinkTest {
 protected:
  // Takes over a service that a former process has announced. The ids withdraw the inherited publications.
  void GivenInherited() {
    GivenPublished(Claim::exclusive, {kSrv, kTxt});
    GivenPublished(Claim::shared, {kPtr});
    GivenPublished(Claim::yielding, {kAddress});
    HandOver();
  }

  // The next process begins now.
  void HandOver() {
    const std::vector<Published> all = link_published(*link);
    const Time then = now;
    GivenLink();
    now = then;
    Mark();
    for (const Published& each : all) {
      inherited_.emplace(each.claim, publish_inherited(*link, now, each, 1));
    }
    Settle();
  }

  void WithdrawInherited(Claim claim) {
    const auto [first, last] = inherited_.equal_range(claim);
    for (auto each = first; each != last; ++each) {
      Withdraw(each->second);
    }
  }

  // The same host and PTR record are published anew beside the service, whose name changes hands.
  PublicationId PublishAnew(const Record& txt) {
    link_hold_goodbyes(*link, now, now + 200_ms);
    WithdrawInherited(Claim::unique);
    const PublicationId service = Publish(Claim::exclusive, {kSrv, txt});
    Publish(Claim::shared, {kPtr});
    Publish(Claim::yielding, {kAddress});
    After(5_s);
    WithdrawInherited(Claim::shared);
    WithdrawInherited(Claim::yielding);
    After(15_s);
    return service;
  }

  std::multimap<Claim, PublicationId> inherited_;
};

TEST_F(Handover, ListsWhatIsPublishedAndEstablished) {
  GivenPublished(Claim::shared, {kPtr});
  Publish(Claim::unique, {A("waiting.local", 1)});
  const std::vector<Published> all = link_published(*link);
  ASSERT_THAT(all, ElementsAre(AllOf(Field(&Published::name, kPtr.name), Field(&Published::claim, Claim::shared),
                                     Field(&Published::announcements_left, 0))));
  EXPECT_EQ(all[0].data.rdata, kPtr.rdata);
  EXPECT_EQ(all[0].data.ttl, kPtr.ttl);
}

TEST_F(Handover, EndsWithoutAGoodbyeButForWhatWasWithdrawnBefore) {
  GivenPublished(Claim::unique, {kSrv, kTxt});
  const PublicationId address = Publish(Claim::unique, {kAddress});
  After(10_s);
  Mark();
  link_hold_goodbyes(*link, now, now + 200_ms);
  Withdraw(address);
  link_withdraw_all(*link, now, true);
  After(5_s);
  EXPECT_THAT(SentRecords(), ElementsAre(Goodbye(kAddress)));
  EXPECT_EQ(link_deadline(*link), kNever);
}

TEST_F(Handover, GoesOnWithoutAWord) {
  GivenInherited();
  After(20_s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Handover, AnswersAtOnce) {
  GivenInherited();
  Asks(Qm("P._ipp._tcp.local", kTypeSrv));
  After(200_ms);
  EXPECT_THAT(SentAt(Unique(kSrv)), SizeIs(1));
}

TEST_F(Handover, DefendsWhatItGoesOnWith) {
  GivenInherited();
  Asks(Probe({Srv("P._ipp._tcp.local", "other.local")}));
  After(300_ms);
  EXPECT_THAT(SentAt(Unique(kSrv)), SizeIs(1));
}

TEST_F(Handover, AnnouncesWhatWasStillToBeAnnounced) {
  Publish(Claim::shared, {kPtr});
  After(500_ms);
  HandOver();
  After(10_s);
  EXPECT_THAT(SentAt(kPtr), SizeIs(1));
}

TEST_F(Handover, SendsNothingWhenTheSameIsPublishedAgainAndWhatWasInheritedEnds) {
  GivenInherited();
  const PublicationId service = PublishAnew(kTxt);
  EXPECT_THAT(EstablishedAt(service), ElementsAre(0_s));
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(Handover, AnnouncesOtherDataAsAnUpdate) {
  GivenInherited();
  PublishAnew(kOtherTxt);
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(SentRecords(), ElementsAre(Unique(kOtherTxt), Unique(kOtherTxt)));
}

TEST_F(Handover, TakesBackWhatNobodyHasPublishedAgain) {
  GivenInherited();
  for (const Claim claim : {Claim::shared, Claim::unique, Claim::yielding}) {
    WithdrawInherited(claim);
  }
  After(5_s);
  EXPECT_THAT(SentRecords(), UnorderedElementsAre(Goodbye(kSrv), Goodbye(kTxt), Goodbye(kPtr), Goodbye(kAddress)));
  EXPECT_EQ(link_counts(*link).published, 0u);
}

TEST_F(Handover, GivesWayToAnOwnerAsBefore) {
  GivenInherited();
  ReceivesAnswers({Unique(A("printer.local", 9))});
  EXPECT_THAT(ConflictAt(inherited_.find(Claim::yielding)->second), SizeIs(1));
}

}  // namespace
}  // namespace mdns::test
