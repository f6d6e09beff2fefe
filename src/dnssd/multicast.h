// SPDX-License-Identifier: MIT
// Sends what the library says itself.
#pragma once

#include <avahi-common/address.h>

#include <string>

namespace dnssd {

struct Server;

// Sends a message to the group of multicast DNS on the server's link, from Avahi's own socket of that protocol. What finds the
// socket's buffer full waits for room, no longer than `patience` (milliseconds), which is less by that afterwards. Nothing happens
// where there is no such socket, or where the interface lacks the protocol.
void multicast_send(const Server& server, AvahiProtocol protocol, const std::string& bytes, int& patience);

}  // namespace dnssd
