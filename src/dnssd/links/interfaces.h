// SPDX-License-Identifier: MIT
// The interfaces in use: taken into use, left again, withdrawn at the end.
#pragma once

#include "dnssd/state/engine.h"

namespace dnssd {

// Gives the record of an interface, made if need be. On an error *interface is untouched: kDNSServiceErr_Unsupported
// for index 0 and kDNSServiceInterfaceIndexLocalOnly, kDNSServiceErr_BadInterfaceIndex when there is no such interface,
// kDNSServiceErr_NoAuth when a socket may not be bound to it, kErrServiceNotRunning when there can be none.
DNSServiceErrorType interface_get(std::uint32_t index, Interface** interface);

// Frees interfaces that have been idle for long enough.
void interfaces_drop_idle(mdns::Time now);

// When interfaces are to be served or dropped next: kNever when nothing is planned, 0 when a link was touched.
mdns::Time interfaces_deadline();

// Withdraws everything and sends the goodbyes, unless the next process takes the records over. Blocks while the rate
// limit delays goodbyes, for three seconds at most.
void interfaces_withdraw();

}  // namespace dnssd
