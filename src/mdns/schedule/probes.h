// SPDX-License-Identifier: MIT
// The times of probes (RFC 6762 section 8.1).
#pragma once

#include "mdns/state/link.h"

namespace mdns {

inline constexpr int kProbes = 3;  // of a series; the last is followed by as long a wait as the others

// Begins to probe for a claimed name, at the time of the names that wait already, if there are any.
void probe_begin(Link& link, OwnedName& owned);

void probe_stop(Link& link, OwnedName& owned);

// Restarts the probing of the name, with its first probe at `at`.
void probe_from(Link& link, OwnedName& owned, Time at);

}  // namespace mdns
