// SPDX-License-Identifier: MIT
// The order in which datagrams are sent: responses and queries first, then goodbyes, probes and announcements. The
// latter are written only when they can be sent.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// Sends what waits and what is due, as far as the rate limit allows.
void sender_advance(Link& link);

// When sender_advance can do something; kNever when nothing waits.
Time sender_deadline(const Link& link);

}  // namespace mdns
