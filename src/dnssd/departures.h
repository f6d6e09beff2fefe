// SPDX-License-Identifier: MIT
// Hears the goodbyes of browsed instances itself.
//
// Avahi keeps a record for the second that RFC 6762 section 10.1 leaves for others to rescue it, and reports it gone only
// after that: a caller that then withdraws the instance on another link is always more than a second late. So each interface
// that is browsed has a socket of the library's own on the multicast group (never on an unicast address, whose packets are
// Avahi's), and an instance whose goodbye nobody contradicts for three quarters of a second is reported gone then. One that
// turns up again afterwards, while Avahi still takes it for present, is reported found again.
#pragma once

#include "dnssd/dnssd.h"

namespace dnssd {

// Listens for goodbyes of what `asked` points to, until departures_unwatch. Without a socket the browse is as late as Avahi.
void departures_watch(Operation& operation, const Name& asked);

// The browse ends. Nothing happens for one that is not watched.
void departures_unwatch(const Browse& browse);

// browse.cpp: whether the instance that `target` names is present over the protocol (1: IPv4, 2: IPv6), and its coming and
// going over it.
bool browse_has(const Browse& browse, unsigned protocol, const Name& target);
void browse_found(Operation& operation, unsigned protocol, const Name& target);
void browse_lost(Operation& operation, unsigned protocol, const Name& target);

}  // namespace dnssd
