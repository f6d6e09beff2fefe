// SPDX-License-Identifier: MIT
// The sockets of an interface.
#pragma once

#include <sys/socket.h>

#include "dnssd/state/interface.h"

namespace dnssd {

// Opens the sockets of `interface`, which stays where it is, and has the engine's poll receive from them. A protocol
// that the system lacks is left out. kDNSServiceErr_BadInterfaceIndex when the interface has gone,
// kDNSServiceErr_NoAuth when it is not to be bound to, kErrServiceNotRunning when there is no socket.
DNSServiceErrorType sockets_open(Interface& interface);

// Joins the groups, again if need be: a link that had no address of a protocol may have been no member.
void sockets_join(const Interface& interface);

// The address and port; of no protocol when it is null or of another family.
mdns::Endpoint to_endpoint(const sockaddr* address);

// Sends the datagrams of the link over their protocols. A datagram that the system refuses is lost, like one that is
// lost on the wire.
void sockets_send(const Interface& interface);

}  // namespace dnssd
