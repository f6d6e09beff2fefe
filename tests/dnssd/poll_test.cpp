// SPDX-License-Identifier: MIT
// The event loop, and the clocks that it goes by: somebody may set the wall clock while it runs.
#include "dnssd/poll.h"

#include <gtest/gtest.h>

#include <ctime>
#include <vector>

namespace {

constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kHour = 3600 * kSecond;

std::int64_t gWallClockOffset = 0;  // microseconds; what somebody has set the clock forward by

}  // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* now);
int __wrap_clock_gettime(clockid_t clock, timespec* now);

// In the place of clock_gettime, for the objects of this program.
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  const int result = __real_clock_gettime(clock, now);
  if (clock == CLOCK_REALTIME) {
    now->tv_sec += gWallClockOffset / kSecond;
  }
  return result;
}
}

namespace dnssd {
namespace {

class PollTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(poll_open(poll_)); }
  void TearDown() override {
    for (AvahiTimeout* timer : timers_) {
      poll_timer_free(timer);
    }
    poll_close(poll_);
    gWallClockOffset = 0;
  }

  static void Fire(AvahiTimeout* timer, void* userdata) { static_cast<std::vector<AvahiTimeout*>*>(userdata)->push_back(timer); }

  AvahiTimeout* OwnTimer() { return timers_.emplace_back(poll_timer_new(poll_, Fire, &fired_)); }

  // One as Avahi makes it, due so many microseconds after the time that the wall clock shows.
  AvahiTimeout* AvahisTimer(std::int64_t from_now) {
    timespec now{};
    __wrap_clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t due = now.tv_sec * kSecond + now.tv_nsec / 1000 + from_now;
    timeval at{};
    at.tv_sec = due / kSecond;
    at.tv_usec = due % kSecond;
    const AvahiPoll api = poll_api(poll_);
    return timers_.emplace_back(api.timeout_new(&api, &at, Fire, &fired_));
  }

  // Drives the loop until so many timers have fired; false when that takes more than two seconds.
  bool HaveFired(std::size_t count) {
    const std::int64_t deadline = monotonic_now() + 2 * kSecond;
    while (fired_.size() < count && monotonic_now() < deadline) {
      EXPECT_TRUE(poll_dispatch(poll_));
    }
    return fired_.size() == count;
  }

  Poll poll_;
  std::vector<AvahiTimeout*> timers_;
  std::vector<AvahiTimeout*> fired_;
};

TEST_F(PollTest, TimersFireOnceInTheOrderOfTheirTimes) {
  AvahiTimeout* second = OwnTimer();
  AvahiTimeout* first = AvahisTimer(10'000);
  poll_timer_start(second, 20'000);
  ASSERT_TRUE(HaveFired(2));
  EXPECT_EQ(fired_, (std::vector<AvahiTimeout*>{first, second}));
  EXPECT_TRUE(poll_.timers.empty());
}

TEST_F(PollTest, AStoppedTimerDoesNotFire) {
  AvahiTimeout* stopped = OwnTimer();
  poll_timer_start(stopped, 1);
  poll_timer_stop(stopped);
  poll_timer_start(OwnTimer(), 2);
  ASSERT_TRUE(HaveFired(1));
  EXPECT_NE(fired_[0], stopped);
}

TEST_F(PollTest, SettingTheClockBackStopsNoTimer) {
  poll_timer_start(OwnTimer(), 10'000);
  AvahisTimer(10'000);
  gWallClockOffset = -kHour;
  EXPECT_TRUE(HaveFired(2));
  AvahisTimer(10'000);  // Avahi goes by the new time from now on
  EXPECT_TRUE(HaveFired(3));
}

TEST_F(PollTest, SettingTheClockForwardFiresNoTimer) {
  poll_timer_start(OwnTimer(), kHour);
  AvahisTimer(kHour);
  gWallClockOffset = 2 * kHour;
  AvahiTimeout* soon = AvahisTimer(10'000);
  ASSERT_TRUE(HaveFired(1));
  EXPECT_EQ(fired_[0], soon);
}

TEST_F(PollTest, ATimeLongPastIsNow) {
  AvahisTimer(-2'000'000 * kSecond);
  EXPECT_TRUE(HaveFired(1));
}

}  // namespace
}  // namespace dnssd
