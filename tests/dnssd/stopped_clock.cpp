// SPDX-License-Identifier: MIT
#include "dnssd/stopped_clock.h"

#include <algorithm>
#include <ctime>

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

bool gIsStopped = false;
std::int64_t gMonotonic = 0;  // microseconds, while they stand still
std::int64_t gWallClock = 0;

timespec to_timespec(std::int64_t microseconds) {
  timespec time{};
  time.tv_sec = microseconds / kMicrosecondsPerSecond;
  time.tv_nsec = microseconds % kMicrosecondsPerSecond * 1000;
  return time;
}

}  // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* now);
int __wrap_clock_gettime(clockid_t clock, timespec* now);

// In the place of clock_gettime, for the objects of this program.
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (!gIsStopped || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC)) {
    return __real_clock_gettime(clock, now);
  }
  *now = to_timespec(clock == CLOCK_REALTIME ? gWallClock : gMonotonic);
  return 0;
}
}

namespace dnssd {
namespace {

std::int64_t real_now(clockid_t clock) {
  timespec now{};
  __real_clock_gettime(clock, &now);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_nsec / 1000;
}

}  // namespace

StoppedClock::StoppedClock() {
  gMonotonic = real_now(CLOCK_MONOTONIC);
  gWallClock = real_now(CLOCK_REALTIME);
  gIsStopped = true;
}

StoppedClock::~StoppedClock() { gIsStopped = false; }

void StoppedClock::Pass(std::int64_t microseconds) {
  gMonotonic += microseconds;
  gWallClock += microseconds;
}

bool StoppedClock::PassUntilDue(const Poll& poll, std::int64_t end) {
  if (poll.timers.empty() || poll.timers.begin()->first > end) {
    return false;
  }
  Pass(std::max<std::int64_t>(poll.timers.begin()->first - gMonotonic, 0));
  return true;
}

void StoppedClock::SetWallClock(std::int64_t microseconds) { gWallClock += microseconds; }

}  // namespace dnssd
