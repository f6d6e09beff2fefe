// SPDX-License-Identifier: MIT
#include "dnssd/wall_clock.h"

#include <cstdint>
#include <ctime>
#include <optional>

#include "dnssd/poll.h"

namespace dnssd {
namespace {

// Less than this is no matter: probes are then late, and records expire, by that much. It is also far more than the time between
// two readings.
constexpr std::int64_t kTolerated = 200'000;  // microseconds

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

// The wall clock's lead over the clock that nobody sets, in microseconds.
std::int64_t lead() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_nsec / 1000 - monotonic_now();
}

}  // namespace

WallClock wall_clock_review() {
  static std::optional<std::int64_t> last;
  const std::int64_t now = lead();
  const std::int64_t gained = last.has_value() ? now - *last : 0;
  last = now;
  if (gained > kTolerated) {
    return WallClock::was_set_forward;
  }
  return gained < -kTolerated ? WallClock::was_set_back : WallClock::runs_on;
}

}  // namespace dnssd
