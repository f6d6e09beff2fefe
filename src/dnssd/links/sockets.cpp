// SPDX-License-Identifier: MIT
#include "dnssd/links/sockets.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "dnssd/base/receive_buffer.h"
#include "dnssd/state/engine.h"

namespace dnssd {
namespace {

// 224.0.0.251 and ff02::fb (RFC 6762 section 3), by mdns::index_of.
constexpr mdns::Endpoint kGroups[] = {
    {mdns::kIpv4, mdns::kPort, {224, 0, 0, 251}},
    {mdns::kIpv6, mdns::kPort, {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFB}},
};

constexpr int kHopLimit = 255;  // RFC 6762 section 11

// RFC 6762 section 17: no message is longer.
constexpr std::size_t kMessageMax = 9000;

// One pass takes this many datagrams from a socket, so that each gets its turn.
constexpr int kDatagramsPerPass = 64;

union Address {
  sockaddr any;
  sockaddr_in ipv4;
  sockaddr_in6 ipv6;
};

bool set_option(int fd, int level, int option, int value) {
  return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

const mdns::Endpoint& group_of(mdns::Protocols protocol) { return kGroups[mdns::index_of(protocol)]; }

Address to_sockaddr(const mdns::Endpoint& endpoint, std::uint32_t interface_index) {
  Address address{};
  if (endpoint.protocol == mdns::kIpv4) {
    address.ipv4.sin_family = AF_INET;
    address.ipv4.sin_port = htons(endpoint.port);
    std::memcpy(&address.ipv4.sin_addr, endpoint.address.data(), sizeof address.ipv4.sin_addr);
  } else {
    address.ipv6.sin6_family = AF_INET6;
    address.ipv6.sin6_port = htons(endpoint.port);
    address.ipv6.sin6_scope_id = is_link_local(endpoint.protocol, endpoint.address) ? interface_index : 0;
    std::memcpy(&address.ipv6.sin6_addr, endpoint.address.data(), sizeof address.ipv6.sin6_addr);
  }
  return address;
}

// RFC 6762 section 11: the source is on the link.
bool is_local(const Interface& interface, const mdns::Endpoint& source) {
  return is_link_local(source.protocol, source.address) ||
         std::ranges::any_of(interface.prefixes, [&](const Prefix& prefix) {
           return prefix.protocol == source.protocol && is_within(source.address, prefix);
         });
}

// The next of the control data; null: there is none. The macro of musl compares a signed number with an unsigned one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
cmsghdr* next_item(msghdr& header, cmsghdr* item) { return CMSG_NXTHDR(&header, item); }
#pragma GCC diagnostic pop

// Whether the datagram was sent to the group: its destination is in the control data, and how many the system had to
// drop so far.
bool read_control(msghdr& header, Socket& socket) {
  const bool is_ipv4 = socket.protocol == mdns::kIpv4;
  const std::size_t place = is_ipv4 ? offsetof(in_pktinfo, ipi_addr) : offsetof(in6_pktinfo, ipi6_addr);
  const std::size_t size = is_ipv4 ? sizeof(in_addr) : sizeof(in6_addr);
  bool is_to_group = false;
  for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = next_item(header, item)) {
    if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SO_RXQ_OVFL) {
      std::memcpy(&socket.lost, CMSG_DATA(item), sizeof socket.lost);
    } else {
      is_to_group = std::memcmp(CMSG_DATA(item) + place, group_of(socket.protocol).address.data(), size) == 0;
    }
  }
  return is_to_group;
}

void receive(void* context) {
  Socket& socket = *static_cast<Socket*>(context);
  static std::uint8_t bytes[kMessageMax];
  for (int i = 0; i < kDatagramsPerPass; ++i) {
    Address address{};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in6_pktinfo)) + CMSG_SPACE(sizeof socket.lost)];
    iovec place{bytes, sizeof bytes};
    msghdr header{};  // by names: each C library has an order of its own, and padding
    header.msg_name = &address;
    header.msg_namelen = sizeof address;
    header.msg_iov = &place;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket.watch.fd, &header, MSG_DONTWAIT);
    if (size < 0) {
      return;
    }
    const bool is_to_group = read_control(header, socket);
    const bool is_of_link = (socket.interface->protocols & socket.protocol) != 0;  // false: it was sent before
    if (is_of_link && (header.msg_flags & MSG_TRUNC) == 0) {
      const mdns::Endpoint source = to_endpoint(&address.any);
      mdns::link_receive(interface_link(*socket.interface), monotonic_now(),
                         {.source = source,
                          .to_group = is_to_group,
                          .is_local = is_local(*socket.interface, source),
                          .bytes = mdns::Bytes(bytes, static_cast<std::size_t>(size))});
    }
  }
}

// A socket that is bound to an interface sends there, by multicast, too.
bool set_options_ipv4(int fd) {
  return set_option(fd, IPPROTO_IP, IP_MULTICAST_TTL, kHopLimit) && set_option(fd, IPPROTO_IP, IP_TTL, kHopLimit) &&
         set_option(fd, IPPROTO_IP, IP_MULTICAST_LOOP, 1) && set_option(fd, IPPROTO_IP, IP_MULTICAST_ALL, 0) &&
         set_option(fd, IPPROTO_IP, IP_PKTINFO, 1);
}

bool set_options_ipv6(int fd) {
  return set_option(fd, IPPROTO_IPV6, IPV6_V6ONLY, 1) && set_option(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHopLimit) &&
         set_option(fd, IPPROTO_IPV6, IPV6_UNICAST_HOPS, kHopLimit) &&
         set_option(fd, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 1) && set_option(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1);
}

bool prepare_socket(int fd, const Interface& interface, mdns::Protocols protocol) {
  const auto length = static_cast<socklen_t>(interface.name.size() + 1);
  if (!set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1) || !set_option(fd, SOL_SOCKET, SO_REUSEPORT, 1) ||
      setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface.name.c_str(), length) != 0) {
    return false;
  }
  if (!set_option(fd, SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBufferBytes)) {
    set_option(fd, SOL_SOCKET, SO_RCVBUF, kReceiveBufferBytes);
  }
  set_option(fd, SOL_SOCKET, SO_RXQ_OVFL, 1);
  const Address any = to_sockaddr({protocol, mdns::kPort, {}}, interface.index);
  return (protocol == mdns::kIpv4 ? set_options_ipv4(fd) : set_options_ipv6(fd)) && bind(fd, &any.any, sizeof any) == 0;
}

}  // namespace

mdns::Endpoint to_endpoint(const sockaddr* address) {
  mdns::Endpoint endpoint{mdns::kNoProtocol, 0, {}};
  if (address != nullptr && address->sa_family == AF_INET) {
    const auto& ipv4 = *reinterpret_cast<const sockaddr_in*>(address);
    endpoint = {mdns::kIpv4, ntohs(ipv4.sin_port), {}};
    std::memcpy(endpoint.address.data(), &ipv4.sin_addr, sizeof ipv4.sin_addr);
  } else if (address != nullptr && address->sa_family == AF_INET6) {
    const auto& ipv6 = *reinterpret_cast<const sockaddr_in6*>(address);
    endpoint = {mdns::kIpv6, ntohs(ipv6.sin6_port), {}};
    std::memcpy(endpoint.address.data(), &ipv6.sin6_addr, sizeof ipv6.sin6_addr);
  }
  return endpoint;
}

Interface::~Interface() {
  for (Socket& one : sockets) {
    poll_remove(gEngine->poll, one.watch);
  }
}

DNSServiceErrorType sockets_open(Interface& interface) {
  DNSServiceErrorType result = kErrServiceNotRunning;
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    Socket& opened = interface.sockets[mdns::index_of(protocol)];
    const int family = protocol == mdns::kIpv4 ? AF_INET : AF_INET6;
    opened = {{socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), receive, &opened}, &interface, protocol};
    if (opened.watch.fd >= 0 && prepare_socket(opened.watch.fd, interface, protocol) &&
        poll_add(gEngine->poll, opened.watch)) {
      result = kDNSServiceErr_NoError;
      continue;
    }
    const int error = errno;
    poll_remove(gEngine->poll, opened.watch);
    if (error == ENODEV || error == EPERM) {
      return error == ENODEV ? kDNSServiceErr_BadInterfaceIndex : kDNSServiceErr_NoAuth;
    }
  }
  sockets_join(interface);
  return result;
}

void sockets_join(const Interface& interface) {
  for (const Socket& one : interface.sockets) {
    const Address group = to_sockaddr(group_of(one.protocol), interface.index);
    group_req request{};
    std::memcpy(&request.gr_group, &group, sizeof group);
    request.gr_interface = interface.index;
    const int level = one.protocol == mdns::kIpv4 ? IPPROTO_IP : IPPROTO_IPV6;
    // When an interface has gone and come back, the kernel has dropped its membership but the socket may still list it.
    setsockopt(one.watch.fd, level, MCAST_LEAVE_GROUP, &request, sizeof request);
    setsockopt(one.watch.fd, level, MCAST_JOIN_GROUP, &request, sizeof request);
  }
}

void sockets_send(const Interface& interface) {
  for (const mdns::Datagram& datagram : mdns::link_take_datagrams(*interface.link)) {
    const bool to_group = datagram.protocols != mdns::kNoProtocol;
    const mdns::Protocols protocols = to_group ? datagram.protocols : datagram.to.protocol;
    for (const Socket& one : interface.sockets) {
      if ((protocols & one.protocol) != 0 && one.watch.fd >= 0) {
        const Address to = to_sockaddr(to_group ? group_of(one.protocol) : datagram.to, interface.index);
        sendto(one.watch.fd, datagram.bytes.data(), datagram.bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL, &to.any,
               sizeof to);
      }
    }
  }
}

}  // namespace dnssd
