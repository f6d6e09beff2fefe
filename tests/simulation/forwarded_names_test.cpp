// SPDX-License-Identifier: MIT
// Scenes about a forwarded host's name on the other link: who owns it there keeps it, and the forwarded host appears
// under the next one.
#include "simulation/scene.h"

namespace simulation {
namespace {

TEST_F(Scene, AHostThatHasTheNameKeepsItAndTheForwardedOneGetsTheNext) {
  Medium& b = NewMedium();
  const Device& guest = GivenDevice(b, "same", 9);
  Seconds(5);
  GivenForwarded("same", 1);
  GivenGateway(*a_, b);
  const Browser& looker = GivenLooker(b);
  Seconds(10);
  EXPECT_EQ(HostSeen(looker), "same-2.local. 1");
  EXPECT_EQ(guest.attempt, 1);
  check_owners(world_, b);
}

TEST_F(Scene, AHostThatComesLaterGetsTheNameAndTheForwardedOneTheNext) {
  Medium& b = NewMedium();
  GivenForwarded("same", 1);
  const Browser& gateway = GivenGateway(*a_, b);
  GivenGateway(*a_, b);
  const Browser& looker = GivenLooker(b);
  Seconds(10);
  EXPECT_EQ(HostSeen(looker), "same.local. 1");
  const Device& guest = GivenDevice(b, "same", 9);
  Seconds(10);
  EXPECT_EQ(HostSeen(looker), "same-2.local. 1");
  EXPECT_EQ(guest.attempt, 1);
  EXPECT_EQ(Seen(looker).size(), 1U);
  check_gateway(world_, gateway, true);
  check_owners(world_, b);
}

TEST_F(Scene, AForwardedHostGetsItsNameBackWhenTheOtherHasGone) {
  Medium& b = NewMedium();
  Device& guest = GivenDevice(b, "same", 9);
  Seconds(5);
  GivenForwarded("same", 1);
  GivenGateway(*a_, b);
  GivenGateway(*a_, b);
  const Browser& looker = GivenLooker(b);
  Seconds(10);
  ASSERT_EQ(HostSeen(looker), "same-2.local. 1");
  device_stop(guest);
  Seconds(9);
  EXPECT_EQ(HostSeen(looker), "same-2.local. 1");
  Seconds(6);
  EXPECT_EQ(HostSeen(looker), "same.local. 1");
  EXPECT_EQ(Seen(looker).size(), 1U);
}

TEST_F(Scene, AForwardedHostGetsItsNameBackWhenTheOtherHasVanished) {
  Medium& b = NewMedium();
  Device& guest = GivenDevice(b, "same", 9);
  Seconds(5);
  GivenForwarded("same", 1);
  GivenGateway(*a_, b);
  const Browser& looker = GivenLooker(b);
  Seconds(10);
  ASSERT_EQ(HostSeen(looker), "same-2.local. 1");
  vanish(*guest.port->host);
  Seconds(150);
  EXPECT_EQ(HostSeen(looker), "same.local. 1");
}

TEST_F(Scene, TwoGatewaysThatLearnOfAnAddressAtDifferentTimesLeaveTheHostItsName) {
  Medium& b = NewMedium();
  Device& device = GivenForwarded("same", 1);
  const Browser& gateway = GivenGateway(*a_, b);
  const Browser& late = GivenGateway(*a_, b);
  const Browser& looker = GivenLooker(b);
  Seconds(10);
  late.from->side = 1;
  a_->calm_since = kNever;
  for (const int number : {2, 3}) {
    a_->is_partitioned = true;
    device_change_address(device, static_cast<std::uint8_t>(number));
    Seconds(4);
    EXPECT_EQ(HostSeen(looker), "same.local. " + std::to_string(number - 1) + " " + std::to_string(number));
    a_->is_partitioned = false;
    restart(*late.from, true);
    Seconds(20);
    EXPECT_EQ(HostSeen(looker), "same.local. " + std::to_string(number));
    check_gateway(world_, gateway, true);
    check_gateway(world_, late, true);
  }
  EXPECT_EQ(Seen(looker).size(), 1U);
}

}  // namespace
}  // namespace simulation
