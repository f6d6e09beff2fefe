// SPDX-License-Identifier: MIT
#include "dnssd/multicast.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "dnssd/server.h"

namespace dnssd {
namespace {

constexpr char kGroupIpv4[] = "224.0.0.251";
constexpr char kGroupIpv6[] = "ff02::fb";

// Sends `bytes` to `to`, waiting for room within `patience`. A protocol that the interface lacks refuses it, rightly.
void send_bytes(int fd, const std::string& bytes, const sockaddr* to, socklen_t length, int& patience) {
  while (sendto(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL, to, length) < 0) {
    const bool is_full = errno == EAGAIN || errno == ENOBUFS;
    if (!is_full || patience <= 0) {
      return;
    }
    constexpr int kStep = 10;  // milliseconds
    pollfd room{fd, POLLOUT, 0};
    poll(&room, 1, kStep);
    patience -= kStep;
  }
}

}  // namespace

sockaddr_in group_ipv4() {
  sockaddr_in group{};
  group.sin_family = AF_INET;
  group.sin_port = htons(kMulticastDnsPort);
  inet_pton(AF_INET, kGroupIpv4, &group.sin_addr);
  return group;
}

sockaddr_in6 group_ipv6(std::uint32_t interface_index) {
  sockaddr_in6 group{};
  group.sin6_family = AF_INET6;
  group.sin6_port = htons(kMulticastDnsPort);
  group.sin6_scope_id = interface_index;
  inet_pton(AF_INET6, kGroupIpv6, &group.sin6_addr);
  return group;
}

void multicast_send(const Server& server, AvahiProtocol protocol, const std::string& bytes, int& patience) {
  const int fd = server.sockets[protocol];
  if (fd < 0) {
    return;
  }
  if (protocol == AVAHI_PROTO_INET) {
    const sockaddr_in to = group_ipv4();
    send_bytes(fd, bytes, reinterpret_cast<const sockaddr*>(&to), sizeof to, patience);
  } else {
    const sockaddr_in6 to = group_ipv6(server.interface_index);
    send_bytes(fd, bytes, reinterpret_cast<const sockaddr*>(&to), sizeof to, patience);
  }
}

}  // namespace dnssd
