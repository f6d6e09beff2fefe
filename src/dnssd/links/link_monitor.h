// SPDX-License-Identifier: MIT
// What the kernel reports of interfaces: up or down, addresses.
#pragma once

#include "dnssd/state/interface.h"

namespace dnssd {

// Opens the netlink socket that reports changes of interfaces: up or down, addresses. Without it, which the system may
// refuse, interfaces in use stay as they were when they were taken into use.
void link_monitor_open();

// Fills in the protocols and prefixes of an interface: those of its addresses, while it is up and has a carrier.
void link_monitor_read(Interface& interface);

}  // namespace dnssd
