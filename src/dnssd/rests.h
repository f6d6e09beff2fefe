// SPDX-License-Identifier: MIT
// Whether a lookup may rest, and how long: while over each protocol what it has told is what was said last (lookups.h).
#pragma once

#include "dnssd/lookups.h"

namespace dnssd {

// Until when the lookup has nothing to ask: monotonic, microseconds, in the future. 0: it has.
std::int64_t rest_until(const Lookup& lookup);

}  // namespace dnssd
