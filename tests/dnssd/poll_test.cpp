// SPDX-License-Identifier: MIT
// The event loop, and the clocks that it goes by: somebody may set the wall clock while it runs.
#include "dnssd/poll.h"

#include <gtest/gtest.h>

#include <ctime>
#include <vector>

#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kHour = 3600 * kSecond;

class PollTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(poll_open(poll_)); }
  void TearDown() override {
    for (AvahiTimeout* timer : timers_) {
      poll_timer_free(timer);
    }
    poll_close(poll_);
  }

  static void Fire(AvahiTimeout* timer, void* userdata) { static_cast<std::vector<AvahiTimeout*>*>(userdata)->push_back(timer); }

  AvahiTimeout* OwnTimer() { return timers_.emplace_back(poll_timer_new(poll_, Fire, &fired_)); }

  // One as Avahi makes it, due so many microseconds after the time that the wall clock shows.
  AvahiTimeout* AvahisTimer(std::int64_t from_now) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t due = now.tv_sec * kSecond + now.tv_nsec / 1000 + from_now;
    timeval at{};
    at.tv_sec = due / kSecond;
    at.tv_usec = due % kSecond;
    const AvahiPoll api = poll_api(poll_);
    return timers_.emplace_back(api.timeout_new(&api, &at, Fire, &fired_));
  }

  // How many timers fire in so many microseconds.
  std::size_t FiredWithin(std::int64_t microseconds) {
    const std::size_t before = fired_.size();
    clock_.Pass(microseconds);
    EXPECT_TRUE(poll_dispatch(poll_));
    return fired_.size() - before;
  }

  StoppedClock clock_;
  Poll poll_;
  std::vector<AvahiTimeout*> timers_;
  std::vector<AvahiTimeout*> fired_;
};

TEST_F(PollTest, TimersFireOnceInTheOrderOfTheirTimes) {
  AvahiTimeout* second = OwnTimer();
  AvahiTimeout* first = AvahisTimer(10'000);
  poll_timer_start(second, 20'000);
  EXPECT_EQ(FiredWithin(9'999), 0U);
  EXPECT_EQ(FiredWithin(10'001), 2U);
  EXPECT_EQ(fired_, (std::vector<AvahiTimeout*>{first, second}));
  EXPECT_EQ(FiredWithin(kHour), 0U);
  EXPECT_TRUE(poll_.timers.empty());
}

TEST_F(PollTest, AStoppedTimerDoesNotFire) {
  AvahiTimeout* stopped = OwnTimer();
  poll_timer_start(stopped, 1);
  poll_timer_stop(stopped);
  EXPECT_EQ(FiredWithin(kHour), 0U);
}

TEST_F(PollTest, SettingTheClockBackStopsNoTimer) {
  poll_timer_start(OwnTimer(), 10'000);
  AvahisTimer(10'000);
  clock_.SetWallClock(-kHour);
  EXPECT_EQ(FiredWithin(10'000), 2U);
  AvahisTimer(10'000);  // Avahi goes by the new time from now on
  EXPECT_EQ(FiredWithin(9'999), 0U);
  EXPECT_EQ(FiredWithin(1), 1U);
}

TEST_F(PollTest, SettingTheClockForwardFiresNoTimer) {
  poll_timer_start(OwnTimer(), kHour);
  AvahisTimer(kHour);
  clock_.SetWallClock(2 * kHour);
  AvahiTimeout* soon = AvahisTimer(10'000);
  EXPECT_EQ(FiredWithin(10'000), 1U);
  EXPECT_EQ(fired_, (std::vector<AvahiTimeout*>{soon}));
}

TEST_F(PollTest, ATimeLongPastIsNow) {
  AvahisTimer(-2'000'000 * kSecond);
  EXPECT_EQ(FiredWithin(0), 1U);
}

}  // namespace
}  // namespace dnssd
