// SPDX-License-Identifier: MIT
// The querier: questions sent with their known answers, and queries of other hosts as far as they ask the same (RFC
// 6762 sections 5.2, 5.4, 7.1 to 7.3).
#pragma once

#include "mdns/state/link.h"

namespace mdns {

// Restarts all questions, since other hosts may be on the link now.
void querier_restart(Link& link);

// Handles a query of another host that was received over `protocol`: duplicate question suppression (RFC 6762 section
// 7.3) and the passive observation of failures (section 10.5).
void querier_receive(Link& link, const Message& message, Protocols protocol);

// Handles an NSEC record of another host: the types that it denies are not asked for until its TTL is over (RFC 6762
// section 6.1).
void querier_receive_denial(Link& link, const Record& record);

void querier_advance(Link& link);

}  // namespace mdns
