// SPDX-License-Identifier: MIT
// Scenes that are written out, one for each thing that must go well. All invariants are checked in each of them as
// well.
#include "mdns/link_counts.h"
#include "simulation/scene.h"

namespace simulation {
namespace {

using Names = std::vector<std::string>;

TEST_F(Scene, SimultaneousProbesGiveTheNameToTheLaterData) {
  const Browser& looker = GivenLooker(*a_);
  Offer& smaller = device_offer(GivenDevice(*a_, "one", 1), "Same", kType, "v=1");
  Offer& larger = device_offer(GivenDevice(*a_, "two", 2), "Same", kType, "v=2");
  Seconds(12);
  EXPECT_EQ(smaller.attempt - larger.attempt, 1);
  EXPECT_EQ(Seen(looker), (Names{"Same._http._tcp.local.", "Same_(2)._http._tcp.local."}));
  check_owners(world_, *a_);
}

TEST_F(Scene, ALaterRivalTakesTheNextName) {
  const Browser& looker = GivenLooker(*a_);
  Offer& owner = device_offer(GivenDevice(*a_, "one", 1), "Same", kType, "v=1");
  Seconds(5);
  Offer& rival = device_offer(GivenDevice(*a_, "two", 2), "SAME", kType, "v=2");
  Seconds(5);
  EXPECT_EQ(rival.attempt - owner.attempt, 1);
  EXPECT_EQ(Seen(looker), (Names{"SAME_(2)._http._tcp.local.", "Same._http._tcp.local."}));
}

TEST_F(Scene, TheStaleCopyOfOnesOwnProbeCostsASecondAtMost) {
  Device& device = GivenDevice(*a_, "one", 1);
  Offers(device, 1);
  Seconds(0.3);
  const std::vector<std::uint8_t> stale = world_.overheard.at(0);
  device_change_address(device, 0);  // the copy now holds later data
  Forged copy{device.port->endpoints[0], true, stale};
  inject(world_, *a_, copy);
  Seconds(2.6);
  EXPECT_TRUE(device.port->publications.at(device.addresses).is_established);
  EXPECT_EQ(device.attempt, 1);
}

TEST_F(Scene, ASecondHolderSavesARecordInTheLastMomentOfItsGoodbye) {
  Browser& looker = GivenLooker(*a_);
  const std::string instance = wire::label("Lent") + kType;
  Builder announcement = Response();
  announcement.record(Part::answer, kType, mdns::kTypePtr, mdns::kClassIn, 4500, instance);
  Forges(*a_, announcement);
  Seconds(0.1);
  ASSERT_EQ(Seen(looker).size(), 1U);
  const std::shared_ptr<int> ends = CountsEnds(looker);
  Builder goodbye = Response();
  goodbye.record(Part::answer, kType, mdns::kTypePtr, mdns::kClassIn, 0, instance);
  Forges(*a_, goodbye);
  Seconds(0.95);
  Forges(*a_, announcement, 67);
  Seconds(2);
  EXPECT_EQ(*ends, 0);
  EXPECT_EQ(Seen(looker).size(), 1U);
  world_.breach.clear();  // what nobody publishes is known: that is what this scene is about
}

TEST_F(Scene, WhatWasPublishedBeforeALinkFlapIsKnownAfterIt) {
  const Browser& looker = GivenLooker(*a_);
  Device& device = GivenDevice(*a_, "one", 1);
  Offers(device, 3);
  Seconds(5);
  set_protocols(*device.port, mdns::kNoProtocol);
  set_protocols(*looker.from, mdns::kNoProtocol);
  Seconds(2);
  EXPECT_EQ(Seen(looker).size(), 0U);
  set_protocols(*device.port, mdns::kBothProtocols);
  set_protocols(*looker.from, mdns::kBothProtocols);
  EXPECT_LT(SecondsUntilSeen(looker, 3), 2.5);
}

TEST_F(Scene, ForgedGoodbyesOfTwoHundredNamesAreContradictedInTime) {
  Browser& looker = GivenLooker(*a_);
  Offers(GivenDevice(*a_, "one", 1), 200);
  Seconds(6);
  ASSERT_EQ(Seen(looker).size(), 200U);
  const std::shared_ptr<int> ends = CountsEnds(looker);
  for (std::size_t each = 0; each < 200;) {
    Builder goodbyes = Response();
    for (const std::size_t until = each + 25; each < until; ++each) {
      goodbyes.record(Part::answer, kType, mdns::kTypePtr, mdns::kClassIn, 0,
                      wire::label("Service " + std::to_string(each)) + kType);
    }
    Forges(*a_, goodbyes);
  }
  Seconds(4);
  EXPECT_EQ(*ends, 0);
  EXPECT_EQ(Seen(looker).size(), 200U);
}

TEST_F(Scene, OneOwnerIsLeftAfterAPartitionHasHealed) {
  a_->is_partitioned = true;
  const Browser& looker = GivenLooker(*a_);
  Device& one = GivenDevice(*a_, "one", 1);
  Device& two = GivenDevice(*a_, "two", 2);
  two.port->side = 1;
  device_offer(one, "Same", kType, "v=1");
  device_offer(two, "Same", kType, "v=2");
  Seconds(5);
  a_->is_partitioned = false;
  restart(*two.port, true);
  Seconds(15);
  check_owners(world_, *a_);
  EXPECT_EQ(Seen(looker), (Names{"Same._http._tcp.local.", "Same_(2)._http._tcp.local."}));
}

TEST_F(Scene, TwoHundredServicesAreVisibleAtOnce) {
  const Browser& looker = GivenLooker(*a_);
  Offers(GivenDevice(*a_, "one", 1), 200);
  EXPECT_LT(SecondsUntilSeen(looker, 200), 1.5);
}

TEST_F(Scene, OneOfTwoGatewaysLeavesAndNobodyNotices) {
  Medium& b = NewMedium();
  Offers(GivenDevice(*a_, "one", 1), 20);
  GivenGateway(*a_, b);
  Browser& leaving = GivenGateway(*a_, b);
  Browser& looker = GivenLooker(b);
  Seconds(20);
  ASSERT_EQ(Seen(looker).size(), 20U);
  const std::shared_ptr<int> ends = CountsEnds(looker);
  browse_stop(leaving);
  Seconds(5);
  EXPECT_EQ(*ends, 0);
  EXPECT_EQ(Seen(looker).size(), 20U);
}

TEST_F(Scene, NothingIsLeftWhenBothGatewaysLeave) {
  Medium& b = NewMedium();
  Offers(GivenDevice(*a_, "one", 1), 20);
  Browser& first = GivenGateway(*a_, b);
  Browser& second = GivenGateway(*a_, b);
  const Browser& looker = GivenLooker(b);
  Seconds(20);
  ASSERT_EQ(Seen(looker).size(), 20U);
  browse_stop(first);
  Seconds(0.6);
  browse_stop(second);
  EXPECT_LT(SecondsUntilSeen(looker, 0), 3);
}

TEST_F(Scene, ASleeperThatWakesIsKnownAgainAndKnows) {
  const Browser& looker = GivenLooker(*a_);
  const Browser& sleeping_looker = GivenLooker(*a_);
  Device& sleeper = GivenDevice(*a_, "sleeper", 1);
  Device& other = GivenDevice(*a_, "other", 2);
  Offers(sleeper, 1);
  Seconds(5);
  fall_asleep(*sleeper.port->host);
  fall_asleep(*sleeping_looker.from->host);
  device_offer(other, "New", kType, "v=1");
  Seconds(300);
  wake_up(*sleeper.port->host);
  wake_up(*sleeping_looker.from->host);
  EXPECT_LT(SecondsUntilSeen(sleeping_looker, 2), 2.5);
  EXPECT_EQ(Seen(looker).size(), 2U);
  Seconds(10);
  check_knowledge(world_, *a_, false, nullptr);
}

TEST_F(Scene, ALateJoinerLearnsEverything) {
  Offers(GivenDevice(*a_, "one", 1), 40);
  Offers(GivenDevice(*a_, "two", 2), 1);  // a name that is taken: it becomes the next one
  Seconds(600);
  const Browser& looker = GivenLooker(*a_);
  EXPECT_LT(SecondsUntilSeen(looker, 41), 0.5);
  Seconds(4);
  check_knowledge(world_, *a_, false, looker.from);
}

TEST_F(Scene, AFloodFromOneSourceHidesNobody) {
  const Browser& looker = GivenLooker(*a_);
  Device& device = GivenDevice(*a_, "one", 1);
  for (int each = 0; each < 10000; ++each) {
    call_at(world_, each * kMillisecond / 2, [this, each] {
      Builder builder = Response();
      for (int record = 0; record < 20; ++record) {
        const std::string name = wire::label("x" + std::to_string(each * 20 + record)) + kType;
        builder.record(Part::answer, name, mdns::kTypeTxt, 0x8001, 4500, wire::label("y"));
      }
      Forges(*a_, builder);
    });
  }
  Seconds(2);
  Offers(device, 1);
  EXPECT_LT(SecondsUntilSeen(looker, 1), 1.5);
}

TEST_F(Scene, ChangedTextIsOnTheOtherLinkAtOnceAndNothingBlinks) {
  Medium& b = NewMedium();
  Device& device = GivenDevice(*a_, "one", 1);
  Offers(device, 1);
  GivenGateway(*a_, b);
  Browser& looker = GivenLooker(b);
  Seconds(10);
  ASSERT_EQ(Seen(looker).size(), 1U);
  const std::shared_ptr<int> ends = CountsEnds(looker);
  offer_change(*device.offers[0], device.offers[0]->srv, wire::label("v=2"));
  Seconds(0.3);
  EXPECT_EQ(looker.findings.begin()->second->txt.back(), std::string(kMark) + wire::label("v=2"));
  Seconds(3);
  EXPECT_EQ(*ends, 0);
  EXPECT_EQ(looker.findings.begin()->second->txt.size(), 1U);
}

TEST_F(Scene, AHostAloneReceivesNothingOfItself) {
  Device& device = GivenDevice(*a_, "one", 1);
  Offers(device, 3);
  Browses(*device.port, nullptr);
  Seconds(10);
  EXPECT_EQ(mdns::link_counts(*device.port->link).cached, 0U);
  EXPECT_TRUE(device.port->publications.at(device.addresses).is_established);
}

TEST_F(Scene, WhatTheQuerierKnowsIsNotAnswered) {
  const Browser& looker = GivenLooker(*a_);
  Device& device = GivenDevice(*a_, "one", 1);
  Offers(device, 1);
  Seconds(6);
  ASSERT_EQ(Seen(looker).size(), 1U);
  const std::uint64_t answered = mdns::link_counts(*device.port->link).sent;
  const std::uint64_t asked = mdns::link_counts(*looker.from->link).sent;
  Seconds(60);
  EXPECT_GT(mdns::link_counts(*looker.from->link).sent, asked);
  EXPECT_EQ(mdns::link_counts(*device.port->link).sent, answered);
}

}  // namespace
}  // namespace simulation
