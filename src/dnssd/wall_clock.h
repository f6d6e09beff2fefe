// SPDX-License-Identifier: MIT
// Avahi plans by the wall clock, and what it has planned for "in a quarter of a second" comes an hour late when the clock is set
// back by an hour: a name that is being probed for then would stay unpublished for as long. (A machine without a good clock of
// its own sets it at about the time when it starts to publish.)
#pragma once

namespace dnssd {

// Whether the wall clock has been set back since the last call. False the first time.
bool wall_clock_was_set_back();

}  // namespace dnssd
