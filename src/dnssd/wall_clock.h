// SPDX-License-Identifier: MIT
// Avahi plans by the wall clock, and what it has planned for "in a quarter of a second" comes an hour late when the clock is set
// back by an hour: a name that is being probed for then would stay unpublished for as long. (A machine without a good clock of
// its own sets it at about the time when it starts to publish.) When it is set forward, Avahi takes what it remembers for expired.
#pragma once

namespace dnssd {

enum class WallClock { runs_on, was_set_back, was_set_forward };

// What has become of the wall clock since the last call. The first time it runs on.
WallClock wall_clock_review();

}  // namespace dnssd
