// SPDX-License-Identifier: MIT
// Sockets of a multicast DNS host on one interface, and the clock that all programs of this folder share.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

#include "packet.h"

namespace air {

// Seconds of the real-time clock, the one with which the kernel stamps packets.
double now();

// One protocol's socket, bound to port 5353 and to the interface, and the group that it sends to.
struct Socket {
  int descriptor = -1;
  sockaddr_storage group{};
  socklen_t group_size = 0;
};

// The sockets for IPv4 and IPv6 on an interface. On failure the process ends with a message.
std::vector<Socket> open_sockets(const std::string& interface);

// Sends to the group. A full queue is waited for; any other failure ends the process with a message.
void send_to_group(const Socket& socket, const Bytes& message);

// What one packet on the interface was.
struct Heard {
  double at = 0;         // when it arrived
  std::string source;    // address as text
  std::size_t size = 0;  // of the frame, in bytes
  bool multicast = false;
  bool ipv6 = false;
  std::vector<std::uint8_t> payload;  // of UDP
};

// A socket that hears every frame of the interface, our own included. On failure the process ends with a message.
int open_ear(const std::string& interface);

// The next multicast DNS packet that waits in an ear. False when none waits; others are read over.
bool hear(int ear, Heard& heard);

// Ends the process with a message about errno.
[[noreturn]] void fail(const char* what);

}  // namespace air
