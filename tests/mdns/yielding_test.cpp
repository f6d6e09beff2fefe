// SPDX-License-Identifier: MIT
// Claim::yielding, for a host of another link: its name is published as long as no host of this link owns it.
#include "mdns/link_fixture.h"

namespace mdns::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const Record kAddress = A("printer.local", 1);
const Record kOtherAddress = A("printer.local", 9);

class Yielding : public LinkTest {
 protected:
  // Publishes the address as yielding and waits for the first probe. Marks.
  PublicationId GivenLookedFor() {
    const PublicationId id = Publish(Claim::yielding, {kAddress});
    EXPECT_TRUE(AfterUntil(250_ms, [this] { return !Queries().empty(); }));
    Mark();
    return id;
  }

  // Probes for the name without publishing anything under it yet.
  PublicationId LookFor(std::string_view labels) {
    const PublicationId id = publish(*link, now, A(labels, 1).name, {}, Claim::yielding, 7);
    Settle();
    return id;
  }
};

// --- Probing before the announcement

TEST_F(Yielding, LooksForTheNameWithoutClaimingIt) {
  const PublicationId id = Publish(Claim::yielding, {kAddress});
  After(2_s);
  EXPECT_THAT(AskedAt("printer.local", kTypeAny), SizeIs(3));
  for (const Sent& query : Queries()) {
    EXPECT_THAT(query.message.authorities, IsEmpty());
  }
  EXPECT_THAT(EstablishedAt(id), SizeIs(1));
}

TEST_F(Yielding, AnnouncesTheAddressAsSharedWhenNobodyHasTheName) {
  const PublicationId id = GivenLookedFor();
  After(2_s);
  EXPECT_THAT(EstablishedAt(id), ElementsAre(750_ms));
  EXPECT_THAT(SentAt(kAddress), SizeIs(2));
  EXPECT_THAT(SentAt(Unique(kAddress)), IsEmpty());
}

TEST_F(Yielding, SendsNothingOfANameThatIsOwned) {
  const PublicationId id = GivenLookedFor();
  After(100_ms);
  ReceivesAnswers({Unique(kOtherAddress)});
  EXPECT_THAT(ConflictAt(id), ElementsAre(100_ms));
  After(10_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Yielding, GivesWayAlsoToAnAddressOfTheOtherFamily) {
  const PublicationId id = GivenLookedFor();
  ReceivesAnswers({Unique(Aaaa("printer.local", 9))});
  EXPECT_THAT(ConflictAt(id), SizeIs(1));
}

TEST_F(Yielding, WhatIsPublishedUnderANameThatWasLookedForIsAnnouncedAtOnce) {
  LookFor("printer.local");
  After(2_s);
  Mark();
  const PublicationId id = Publish(Claim::yielding, {kAddress});
  After(10_ms);
  EXPECT_THAT(EstablishedAt(id), ElementsAre(0_s));
  EXPECT_THAT(SentAt(kAddress), SizeIs(1));
}

TEST_F(Yielding, WhatComesWhileTheNameIsLookedForDoesNotBeginThatAgain) {
  const PublicationId first = GivenLookedFor();
  After(300_ms);
  const PublicationId second = Publish(Claim::yielding, {Aaaa("printer.local", 1)});
  After(2_s);
  EXPECT_THAT(EstablishedAt(first), ElementsAre(750_ms));
  EXPECT_THAT(EstablishedAt(second), ElementsAre(750_ms));
}

TEST_F(Yielding, AProbeThatFindsAnOwnerIsReportedAsAConflict) {
  const PublicationId id = LookFor("printer.local");
  After(600_ms);
  ReceivesAnswers({Unique(kOtherAddress)});
  EXPECT_THAT(ConflictAt(id), SizeIs(1));
}

// --- Hosts that come later

TEST_F(Yielding, GivesWayToAHostThatProbesForTheNameAndDoesNotAnswerIt) {
  const PublicationId id = Publish(Claim::yielding, {kAddress});
  After(20_s);
  Mark();
  Asks(Probe({kOtherAddress}));
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
  After(10_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Yielding, GivesWayToAHostThatSendsOtherAddressesAsItsOwn) {
  const PublicationId id = Publish(Claim::yielding, {kAddress});
  After(20_s);
  Mark();
  ReceivesAnswers({Unique(kOtherAddress)});
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
  After(10_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Yielding, GivesWayToAHostThatProbesWithOneOfTheAddressesAlone) {
  const PublicationId id = Publish(Claim::yielding, {kAddress});
  Publish(Claim::yielding, {kOtherAddress});
  After(20_s);
  Mark();
  Asks(Probe({kAddress}));
  EXPECT_THAT(ConflictAt(id), ElementsAre(0_s));
}

// --- Hosts that are no conflict

TEST_F(Yielding, StaysBesideAnotherGatewayThatKnowsOtherAddresses) {
  GivenPublished(Claim::yielding, {kAddress});
  ReceivesAnswers({kOtherAddress, Aaaa("printer.local", 9)});
  After(10_s);
  EXPECT_THAT(reported, IsEmpty());
  Asks(Qm("printer.local", kTypeA));
  After(200_ms);
  EXPECT_THAT(SentAt(kAddress), SizeIs(1));
}

TEST_F(Yielding, StaysBesideTheHostItself) {
  GivenPublished(Claim::yielding, {kAddress});
  ReceivesAnswers({Unique(kAddress)});
  Asks(Probe({kAddress}));
  After(10_s);
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(Yielding, StaysBesideRecordsOfOtherTypes) {
  GivenPublished(Claim::yielding, {kAddress});
  ReceivesAnswers({Unique(Txt("printer.local", "a=1"))});
  After(10_s);
  EXPECT_THAT(reported, IsEmpty());
}

// --- What is sent under the name

TEST_F(Yielding, DeniesNothing) {
  GivenPublished(Claim::yielding, {kAddress});
  Asks(Qm("printer.local", kTypeAaaa));
  Asks(Qm("printer.local", kTypeTxt));
  After(2_s);
  EXPECT_THAT(SentRecords(), IsEmpty());
}

TEST_F(Yielding, LooksAgainBeforeItAnnouncesWhenTheLinkComesBack) {
  GivenPublished(Claim::yielding, {kAddress});
  link_restart(*link, now, true);
  Settle();
  After(700_ms);
  EXPECT_THAT(SentAt(kAddress), IsEmpty());
  EXPECT_THAT(AskedAt("printer.local", kTypeAny), Not(IsEmpty()));
  After(2_s);
  EXPECT_THAT(SentAt(kAddress), SizeIs(2));
}

TEST_F(Yielding, GetsAGoodbye) {
  const PublicationId id = Publish(Claim::yielding, {kAddress});
  After(20_s);
  Mark();
  Withdraw(id);
  After(1_s);
  EXPECT_THAT(SentRecords(), Contains(Goodbye(kAddress)));
}

// --- Updates for all publications of a record

TEST_F(Yielding, AnUpdateForAllChangesTheRecordOfEachHolder) {
  const Record srv = Srv("P._ipp._tcp.local", "printer.local");
  const Record changed = Srv("P._ipp._tcp.local", "printer-2.local");
  const PublicationId first = Publish(Claim::exclusive, {srv});
  const PublicationId second = Publish(Claim::exclusive, {srv});
  After(20_s);
  Mark();
  EXPECT_FALSE(Update(first, changed));
  EXPECT_TRUE(publication_update(*link, now, first, {kTypeSrv, 0, changed.rdata}, true));
  Settle();
  After(2_s);
  EXPECT_THAT(SentAt(Unique(changed)), SizeIs(2));
  EXPECT_EQ(link_counts(*link).published, 1u);
  Withdraw(first);
  After(1_s);
  EXPECT_EQ(link_counts(*link).published, 1u);
  Withdraw(second);
  After(1_s);
  EXPECT_EQ(link_counts(*link).published, 0u);
}

// A host that restarts on this link may have addresses that another gateway publishes.
TEST_F(Yielding, AddsNoAddressWhileAHostProbesWithThoseThatItHas) {
  GivenPublished(Claim::yielding, {kAddress});
  Asks(Probe({kAddress}));
  const PublicationId other = Publish(Claim::yielding, {kOtherAddress});
  EXPECT_THAT(ConflictAt(other), ElementsAre(0));
  After(2_s);
  EXPECT_THAT(SentAt(kOtherAddress), IsEmpty());
}

TEST_F(Yielding, AddsAnAddressWhenSuchAProbeIsOver) {
  GivenPublished(Claim::yielding, {kAddress});
  Asks(Probe({kAddress}));
  After(1_s);
  const PublicationId other = Publish(Claim::yielding, {kOtherAddress});
  EXPECT_THAT(EstablishedAt(other), ElementsAre(1_s));
}

}  // namespace
}  // namespace mdns::test
