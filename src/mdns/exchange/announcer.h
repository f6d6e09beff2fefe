// SPDX-License-Identifier: MIT
// Announcements and goodbyes as they are sent (RFC 6762 sections 8.3, 8.4 and 10.1).
#pragma once

#include "mdns/state/link.h"
#include "mdns/wire/writer.h"

namespace mdns {

// A packet with the goodbyes that are due, then the announcements, as many as fit.
Writer announcer_write(Link& link);

}  // namespace mdns
