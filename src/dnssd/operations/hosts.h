// SPDX-License-Identifier: MIT
// The names of hosts of other links; `operation` is a host's.
#pragma once

#include "dnssd/state/engine.h"

namespace dnssd {

// RFC 6762 section 8.1: the delay before the next name is tried after many conflicts.
inline constexpr mdns::Time kConflictPause = 5 * mdns::kSecond;

// The host of that name, on the interface of a registration or record that is about to be published and names it from
// now on. It lives until host_leave at least.
Operation& host_join(Operation& member, const std::string& name);
void host_leave(Operation& operation, Operation& member);

// To be called when a member's address has changed, since that may end or begin a conflict over the host's own name.
void host_review(Operation& operation);

// The name that the host has on the link.
std::string host_alias(const Operation& operation);

}  // namespace dnssd
