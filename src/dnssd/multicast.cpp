// SPDX-License-Identifier: MIT
#include "dnssd/multicast.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "dnssd/server.h"

namespace dnssd {
namespace {

constexpr std::uint16_t kPort = 5353;
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

void send_ipv4(int fd, const std::string& bytes, int& patience) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(kPort);
  inet_pton(AF_INET, kGroupIpv4, &to.sin_addr);
  send_bytes(fd, bytes, reinterpret_cast<const sockaddr*>(&to), sizeof to, patience);
}

void send_ipv6(int fd, const std::string& bytes, std::uint32_t interface_index, int& patience) {
  sockaddr_in6 to{};
  to.sin6_family = AF_INET6;
  to.sin6_port = htons(kPort);
  to.sin6_scope_id = interface_index;
  inet_pton(AF_INET6, kGroupIpv6, &to.sin6_addr);
  send_bytes(fd, bytes, reinterpret_cast<const sockaddr*>(&to), sizeof to, patience);
}

}  // namespace

void multicast_send(const Server& server, AvahiProtocol protocol, const std::string& bytes, int& patience) {
  const int fd = server.sockets[protocol];
  if (fd < 0) {
    return;
  }
  if (protocol == AVAHI_PROTO_INET) {
    send_ipv4(fd, bytes, patience);
  } else {
    send_ipv6(fd, bytes, server.interface_index, patience);
  }
}

}  // namespace dnssd
