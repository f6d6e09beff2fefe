// SPDX-License-Identifier: MIT
// Who on this machine has a UDP port, as far as the caller may see it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One line of /proc/net/udp or /proc/net/udp6 (proc(5)).
struct UdpSocket {
  std::uint16_t port;
  std::uint32_t user;
  std::uint64_t inode;
  std::uint64_t dropped;  // packets for which its receive buffer had no room
};

// The sockets of such a file; lines that are not well formed are left out.
std::vector<UdpSocket> udp_sockets(const std::string& text);

// All sockets of one process; or of one user, where the caller may not see whose they are.
struct PortHolder {
  std::uint32_t process = 0;  // 0: it cannot be seen
  std::string name;           // of the process, as it calls itself: a stranger's word
  std::uint32_t user = 0;
  unsigned sockets = 0;
  std::uint64_t dropped = 0;
};

std::vector<PortHolder> holders_of_port(std::uint16_t port);

// Whose process it is, and whether it may go beyond the limit of receive buffers (CAP_NET_ADMIN), by /proc/PID/status.
struct ProcessRights {
  bool known = false;
  std::uint32_t user = 0;
  bool network_admin = false;
};
ProcessRights rights_of(std::uint32_t process);
