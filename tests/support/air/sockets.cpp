// SPDX-License-Identifier: MIT
#include "sockets.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace air {
namespace {

constexpr std::uint16_t kPort = 5353;
constexpr char kGroup4[] = "224.0.0.251";
constexpr char kGroup6[] = "ff02::fb";
constexpr int kHopLimit = 255;  // RFC 6762 section 11

// Holds what 2000 services announce within a second, several times over, so that no measurement is lost to its own ear.
constexpr int kReceiveBuffer = 64 << 20;

constexpr std::size_t kEthernetHeader = 14;
constexpr std::size_t kIpv6Header = 40;
constexpr std::size_t kUdpHeader = 8;

void set_option(int descriptor, int level, int option, int value) {
  if (setsockopt(descriptor, level, option, &value, sizeof value) != 0)
    fail("setsockopt");
}

int open_shared(int family, const std::string& interface) {
  const int descriptor = socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0)
    fail("socket");
  set_option(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
  set_option(descriptor, SOL_SOCKET, SO_REUSEPORT, 1);
  set_option(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBuffer);
  if (setsockopt(descriptor, SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                 static_cast<socklen_t>(interface.size())) != 0) {
    fail("SO_BINDTODEVICE");
  }
  return descriptor;
}

template <typename Address>
void bind_and_address(Socket& opened, Address any, const Address& group) {
  if (bind(opened.descriptor, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0)
    fail("bind");
  std::memcpy(&opened.group, &group, sizeof group);
  opened.group_size = sizeof group;
}

Socket open_ipv4(const std::string& interface, int index) {
  Socket opened{open_shared(AF_INET, interface)};
  sockaddr_in group{};
  group.sin_family = AF_INET;
  group.sin_port = htons(kPort);
  inet_pton(AF_INET, kGroup4, &group.sin_addr);
  ip_mreqn request{group.sin_addr, {}, index};
  if (setsockopt(opened.descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) != 0)
    fail("IP_ADD_MEMBERSHIP");
  if (setsockopt(opened.descriptor, IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request) != 0)
    fail("IP_MULTICAST_IF");
  set_option(opened.descriptor, IPPROTO_IP, IP_MULTICAST_TTL, kHopLimit);
  sockaddr_in any = group;
  any.sin_addr.s_addr = INADDR_ANY;
  bind_and_address(opened, any, group);
  return opened;
}

Socket open_ipv6(const std::string& interface, int index) {
  Socket opened{open_shared(AF_INET6, interface)};
  set_option(opened.descriptor, IPPROTO_IPV6, IPV6_V6ONLY, 1);
  sockaddr_in6 group{};
  group.sin6_family = AF_INET6;
  group.sin6_port = htons(kPort);
  group.sin6_scope_id = static_cast<std::uint32_t>(index);
  inet_pton(AF_INET6, kGroup6, &group.sin6_addr);
  ipv6_mreq request{group.sin6_addr, static_cast<unsigned>(index)};
  if (setsockopt(opened.descriptor, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request) != 0)
    fail("IPV6_JOIN_GROUP");
  set_option(opened.descriptor, IPPROTO_IPV6, IPV6_MULTICAST_IF, index);
  set_option(opened.descriptor, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHopLimit);
  sockaddr_in6 any = group;
  any.sin6_addr = in6addr_any;
  any.sin6_scope_id = 0;
  bind_and_address(opened, any, group);
  return opened;
}

int index_of(const std::string& interface) {
  const unsigned index = if_nametoindex(interface.c_str());
  if (index == 0)
    fail(interface.c_str());
  return static_cast<int>(index);
}

double arrival_of(msghdr& header) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_TIMESTAMPNS)
      continue;
    timespec stamp{};
    std::memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
    return static_cast<double>(stamp.tv_sec) + static_cast<double>(stamp.tv_nsec) / 1e9;
  }
  return now();
}

// The packet's addresses and UDP payload. False when it is not multicast DNS.
bool read_packet(std::span<const std::uint8_t> packet, Heard& heard) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  std::size_t udp = 0;
  heard.ipv6 = !packet.empty() && packet[0] >> 4 == 6;
  if (packet.size() >= 20 && packet[0] >> 4 == 4 && packet[9] == IPPROTO_UDP) {
    udp = (packet[0] & 15U) * 4U;
    inet_ntop(AF_INET, packet.data() + 12, text.data(), text.size());
    heard.multicast = packet[16] >= 224;
  } else if (packet.size() >= kIpv6Header && heard.ipv6 && packet[6] == IPPROTO_UDP) {
    udp = kIpv6Header;
    inet_ntop(AF_INET6, packet.data() + 8, text.data(), text.size());
    heard.multicast = packet[24] == 0xFF;
  } else {
    return false;
  }
  if (packet.size() < udp + kUdpHeader)
    return false;
  const int source_port = packet[udp] << 8 | packet[udp + 1];
  const int target_port = packet[udp + 2] << 8 | packet[udp + 3];
  if (source_port != kPort && target_port != kPort)
    return false;
  heard.source = text.data();
  heard.size = packet.size() + kEthernetHeader;
  heard.payload.assign(packet.begin() + static_cast<std::ptrdiff_t>(udp + kUdpHeader), packet.end());
  return true;
}

}  // namespace

void fail(const char* what) {
  std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
  std::exit(1);
}

double now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

std::vector<Socket> open_sockets(const std::string& interface) {
  const int index = index_of(interface);
  return {open_ipv4(interface, index), open_ipv6(interface, index)};
}

void send_to_group(const Socket& socket, const Bytes& message) {
  while (sendto(socket.descriptor, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&socket.group),
                socket.group_size) < 0) {
    if (errno != EAGAIN && errno != ENOBUFS && errno != EINTR)
      fail("sendto");
    pollfd room{socket.descriptor, POLLOUT, 0};
    poll(&room, 1, 10);
  }
}

int open_ear(const std::string& interface) {
  const int ear = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
  if (ear < 0)
    fail("packet socket");
  set_option(ear, SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBuffer);
  set_option(ear, SOL_SOCKET, SO_TIMESTAMPNS, 1);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = index_of(interface);
  if (bind(ear, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    fail("bind");
  return ear;
}

bool hear(int ear, Heard& heard) {
  static std::array<std::uint8_t, 65536> buffer;
  std::array<char, 64> control{};
  for (;;) {
    iovec room{buffer.data(), buffer.size()};
    msghdr header{};
    header.msg_iov = &room;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    const ssize_t size = recvmsg(ear, &header, 0);
    if (size < 0) {
      if (errno == EAGAIN || errno == EINTR)
        return false;
      fail("recvmsg");
    }
    heard.at = arrival_of(header);
    if (read_packet({buffer.data(), static_cast<std::size_t>(size)}, heard))
      return true;
  }
}

}  // namespace air
