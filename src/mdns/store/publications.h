// SPDX-License-Identifier: MIT
// Publications: records of one name that one caller holds, from the claim of the name to its end. mdns.h has the calls.
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// Probing has ended without a conflict: the records that the name is claimed with become live and are announced, and
// the publications that claim it are reported as established.
void name_established(Link& link, OwnedName& owned);

// A conflict over a name that was ours: its records are no longer live, and the name is probed for again (RFC 6762
// section 9).
void name_reprobe(Link& link, OwnedName& owned);

// The conflict is lost: the publications that claim the name are withdrawn without goodbyes, and the conflict is
// reported to each.
void name_lost(Link& link, OwnedName& owned);

// Has all claimed names probed for again, and all other records announced again.
void publications_restart(Link& link);

}  // namespace mdns
