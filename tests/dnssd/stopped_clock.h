// SPDX-License-Identifier: MIT
// Time that passes as a test says, for what is due, grows back or is too old: however slowly the test itself is run.
#pragma once

#include <cstdint>

#include "dnssd/poll.h"

namespace dnssd {

// As long as there is one, the wall clock and the monotonic one stand still for the objects of this program. The kernel goes by its own:
// its timers do not fire in this time.
class StoppedClock {
 public:
  StoppedClock();
  ~StoppedClock();
  StoppedClock(const StoppedClock&) = delete;
  StoppedClock& operator=(const StoppedClock&) = delete;

  void Pass(std::int64_t microseconds);

  // Time passes until the first of the loop's timers is due. False, and none has passed, when that is after `end`, or there is none.
  bool PassUntilDue(const Poll& poll, std::int64_t end);

  // Somebody sets the wall clock forward, or back.
  void SetWallClock(std::int64_t microseconds);
};

}  // namespace dnssd
