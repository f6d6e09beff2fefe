// SPDX-License-Identifier: MIT
// Whom a datagram comes from.
#pragma once

#include <sys/socket.h>

#include <string>

namespace dnssd {

// The address as it is sent, without port and scope: 4 or 16 bytes. Empty for other families.
std::string address_bytes(const sockaddr& address);

// Whether it comes from port 5353. What does not is no response, and no question that is answered by multicast (RFC 6762
// sections 6 and 6.7).
bool is_from_multicast_dns(const sockaddr& sender);

}  // namespace dnssd
