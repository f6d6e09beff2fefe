// SPDX-License-Identifier: MIT
// The group of multicast DNS (RFC 6762 section 3), and how the library says something there itself.
#pragma once

#include <avahi-common/address.h>
#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace dnssd {

struct Server;

inline constexpr std::uint16_t kMulticastDnsPort = 5353;

sockaddr_in group_ipv4();
sockaddr_in6 group_ipv6(std::uint32_t interface_index);

// Sends a message to the group of multicast DNS on the server's link, from Avahi's own socket of that protocol. What finds the
// socket's buffer full waits for room, no longer than `patience` (milliseconds), which is less by that afterwards. Nothing happens
// where there is no such socket, or where the interface lacks the protocol.
void multicast_send(const Server& server, AvahiProtocol protocol, const std::string& bytes, int& patience);

}  // namespace dnssd
