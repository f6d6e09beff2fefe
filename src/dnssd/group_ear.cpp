// SPDX-License-Identifier: MIT
#include "dnssd/group_ear.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "dnssd/dnssd.h"

namespace dnssd {
namespace {

constexpr std::uint16_t kMulticastDnsPort = 5353;
constexpr char kGroup4[] = "224.0.0.251";
constexpr char kGroup6[] = "ff02::fb";
constexpr int kReceiveBufferBytes = 1024 * 1024;

bool from_multicast_dns(const sockaddr_storage& sender) {
  if (sender.ss_family == AF_INET) {
    return ntohs(reinterpret_cast<const sockaddr_in&>(sender).sin_port) == kMulticastDnsPort;
  }
  return sender.ss_family == AF_INET6 && ntohs(reinterpret_cast<const sockaddr_in6&>(sender).sin6_port) == kMulticastDnsPort;
}

bool join_and_bind4(int fd, std::uint32_t interface_index) {
  sockaddr_in group{};
  group.sin_family = AF_INET;
  group.sin_port = htons(kMulticastDnsPort);
  inet_pton(AF_INET, kGroup4, &group.sin_addr);
  ip_mreqn membership{};
  membership.imr_multiaddr = group.sin_addr;
  membership.imr_ifindex = static_cast<int>(interface_index);
  setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);  // Avahi's does as well
  return bind(fd, reinterpret_cast<const sockaddr*>(&group), sizeof group) == 0;
}

bool join_and_bind6(int fd, std::uint32_t interface_index) {
  sockaddr_in6 group{};
  group.sin6_family = AF_INET6;
  group.sin6_port = htons(kMulticastDnsPort);
  group.sin6_scope_id = interface_index;
  inet_pton(AF_INET6, kGroup6, &group.sin6_addr);
  ipv6_mreq membership{};
  membership.ipv6mr_multiaddr = group.sin6_addr;
  membership.ipv6mr_interface = interface_index;
  setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &membership, sizeof membership);  // Avahi's does as well
  return bind(fd, reinterpret_cast<const sockaddr*>(&group), sizeof group) == 0;
}

// A socket that gets what is sent to the group on this interface and nothing else; -1 when the system refuses it.
int open_socket(int family, std::uint32_t interface_index) {
  char name[IF_NAMESIZE];
  if (if_indextoname(interface_index, name) == nullptr) {
    return -1;
  }
  const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) {
    return -1;
  }
  const int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &one, sizeof one);
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes, sizeof kReceiveBufferBytes);
  if (family == AF_INET6) {
    setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
  }
  if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name, sizeof name) == 0 &&
      (family == AF_INET ? join_and_bind4(fd, interface_index) : join_and_bind6(fd, interface_index))) {
    return fd;
  }
  close(fd);
  return -1;
}

}  // namespace

void group_ear_open(GroupEar& ear, std::uint32_t interface_index, AvahiWatchCallback callback, void* userdata) {
  const AvahiPoll api = poll_api(gEngine->poll);
  constexpr std::array<int, 2> kFamilies = {AF_INET, AF_INET6};
  for (std::size_t i = 0; i < kFamilies.size(); ++i) {
    ear.sockets[i] = open_socket(kFamilies[i], interface_index);
    if (ear.sockets[i] >= 0) {
      ear.watches[i] = poll_watch_new(&api, ear.sockets[i], AVAHI_WATCH_IN, callback, userdata);
    }
  }
}

void group_ear_close(GroupEar& ear) {
  for (std::size_t i = 0; i < ear.sockets.size(); ++i) {
    if (ear.watches[i] != nullptr) {
      poll_watch_free(ear.watches[i]);
    }
    if (ear.sockets[i] >= 0) {
      close(ear.sockets[i]);
    }
  }
  ear = GroupEar();
}

bool group_ear_read(int fd, HeardMessage& message) {
  sockaddr_storage sender{};
  socklen_t sender_size = sizeof sender;
  const ssize_t length =
      recvfrom(fd, message.bytes.data(), message.bytes.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &sender_size);
  if (length <= 0 || !from_multicast_dns(sender)) {
    return false;
  }
  message.length = static_cast<std::size_t>(length);
  message.is_ipv6 = sender.ss_family == AF_INET6;
  return true;
}

}  // namespace dnssd
