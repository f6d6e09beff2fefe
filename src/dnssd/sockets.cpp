// SPDX-License-Identifier: MIT
#include "dnssd/interface.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "dnssd/engine.h"

namespace dnssd {
namespace {

// 224.0.0.251 and ff02::fb (RFC 6762 section 3), by mdns::index_of.
constexpr mdns::Endpoint kGroups[] = {
    {mdns::kIpv4, mdns::kPort, {224, 0, 0, 251}},
    {mdns::kIpv6, mdns::kPort, {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFB}},
};

// Room for the burst of a full link: 2000 services announced within a second; the default loses packets then.
constexpr int kReceiveBufferBytes = 8 * 1024 * 1024;

constexpr int kHopLimit = 255;  // RFC 6762 section 11

// RFC 6762 section 17: no message is longer.
constexpr std::size_t kMessageMax = 9000;

// One pass takes this many datagrams from a socket, so that each gets its turn.
constexpr int kBatch = 16;
constexpr int kBatchesPerPass = 4;

union Address {
  sockaddr any;
  sockaddr_in ipv4;
  sockaddr_in6 ipv6;
};

bool set_option(int fd, int level, int option, int value) { return setsockopt(fd, level, option, &value, sizeof value) == 0; }

bool is_link_local(const mdns::Endpoint& endpoint) {
  const auto& address = endpoint.address;
  return endpoint.protocol == mdns::kIpv4 ? address[0] == 169 && address[1] == 254
                                          : address[0] == 0xFE && (address[1] & 0xC0) == 0x80;
}

const mdns::Endpoint& group_of(mdns::Protocols protocol) { return kGroups[mdns::index_of(protocol)]; }

std::size_t address_size(mdns::Protocols protocol) { return protocol == mdns::kIpv4 ? sizeof(in_addr) : sizeof(in6_addr); }

void* address_of(Address& address) {
  return address.any.sa_family == AF_INET ? static_cast<void*>(&address.ipv4.sin_addr) : &address.ipv6.sin6_addr;
}

Address to_sockaddr(const mdns::Endpoint& endpoint, std::uint32_t interface_index) {
  Address address{};
  if (endpoint.protocol == mdns::kIpv4) {
    address.ipv4.sin_family = AF_INET;
    address.ipv4.sin_port = htons(endpoint.port);
  } else {
    address.ipv6.sin6_family = AF_INET6;
    address.ipv6.sin6_port = htons(endpoint.port);
    address.ipv6.sin6_scope_id = is_link_local(endpoint) ? interface_index : 0;
  }
  std::memcpy(address_of(address), endpoint.address.data(), address_size(endpoint.protocol));
  return address;
}

mdns::Endpoint to_endpoint(Address& address) {
  const bool is_ipv4 = address.any.sa_family == AF_INET;
  mdns::Endpoint endpoint;
  endpoint.protocol = is_ipv4 ? mdns::kIpv4 : mdns::kIpv6;
  endpoint.port = ntohs(is_ipv4 ? address.ipv4.sin_port : address.ipv6.sin6_port);
  std::memcpy(endpoint.address.data(), address_of(address), address_size(endpoint.protocol));
  return endpoint;
}

// RFC 6762 section 11: the source is on the link.
bool is_local(const Interface& interface, const mdns::Endpoint& source) {
  return is_link_local(source) || std::any_of(interface.prefixes.begin(), interface.prefixes.end(), [&](const Prefix& prefix) {
           return prefix.protocol == source.protocol && is_within(source.address, prefix);
         });
}

// Whether the datagram was sent to the group: its destination is in the control data.
bool is_to_group(msghdr& header, mdns::Protocols protocol) {
  const cmsghdr* item = CMSG_FIRSTHDR(&header);
  const std::size_t place = protocol == mdns::kIpv4 ? offsetof(in_pktinfo, ipi_addr) : offsetof(in6_pktinfo, ipi6_addr);
  return item != nullptr && std::memcmp(CMSG_DATA(item) + place, group_of(protocol).address.data(), address_size(protocol)) == 0;
}

// Room for one recvmmsg call: of the process's one thread in the library, and too large for a stack.
struct Batch {
  mmsghdr messages[kBatch];
  iovec vectors[kBatch];
  Address sources[kBatch];
  alignas(cmsghdr) char control[kBatch][CMSG_SPACE(sizeof(in6_pktinfo))];
  std::uint8_t bytes[kBatch][kMessageMax];
};

Batch gBatch;

int receive_batch(int fd) {
  for (int i = 0; i < kBatch; ++i) {
    gBatch.vectors[i] = {gBatch.bytes[i], kMessageMax};
    msghdr& header = gBatch.messages[i].msg_hdr;
    header = {};
    header.msg_name = &gBatch.sources[i];
    header.msg_namelen = sizeof gBatch.sources[i];
    header.msg_iov = &gBatch.vectors[i];
    header.msg_iovlen = 1;
    header.msg_control = gBatch.control[i];
    header.msg_controllen = sizeof gBatch.control[i];
  }
  return recvmmsg(fd, gBatch.messages, kBatch, MSG_DONTWAIT, nullptr);
}

void pass_on(const Socket& socket, int place, mdns::Time now) {
  mmsghdr& message = gBatch.messages[place];
  const bool is_of_link = (socket.interface->protocols & socket.protocol) != 0;  // or what was sent before that went
  if (!is_of_link || (message.msg_hdr.msg_flags & MSG_TRUNC) != 0) {
    return;
  }
  mdns::Received received;
  received.source = to_endpoint(gBatch.sources[place]);
  received.to_group = is_to_group(message.msg_hdr, socket.protocol);
  received.is_local = is_local(*socket.interface, received.source);
  received.bytes = mdns::Bytes(gBatch.bytes[place], message.msg_len);
  mdns::link_receive(interface_link(*socket.interface), now, received);
}

void receive(void* context) {
  const Socket& socket = *static_cast<const Socket*>(context);
  const mdns::Time now = monotonic_now();
  for (int batch = 0; batch < kBatchesPerPass; ++batch) {
    const int count = receive_batch(socket.watch.fd);
    for (int i = 0; i < count; ++i) {
      pass_on(socket, i, now);
    }
    if (count < kBatch) {
      return;
    }
  }
}

void join(const Interface& interface, const Socket& socket) {
  const Address group = to_sockaddr(group_of(socket.protocol), interface.index);
  group_req request{};
  std::memcpy(&request.gr_group, &group, sizeof group);
  request.gr_interface = interface.index;
  const int level = socket.protocol == mdns::kIpv4 ? IPPROTO_IP : IPPROTO_IPV6;
  // To the socket it may still be a member, on an interface that has gone and come back without it.
  setsockopt(socket.watch.fd, level, MCAST_LEAVE_GROUP, &request, sizeof request);
  setsockopt(socket.watch.fd, level, MCAST_JOIN_GROUP, &request, sizeof request);
}

bool set_options_ipv4(int fd, const Interface& interface) {
  ip_mreqn outgoing{};
  outgoing.imr_ifindex = static_cast<int>(interface.index);
  return set_option(fd, IPPROTO_IP, IP_MULTICAST_TTL, kHopLimit) && set_option(fd, IPPROTO_IP, IP_TTL, kHopLimit) &&
         set_option(fd, IPPROTO_IP, IP_MULTICAST_LOOP, 1) && set_option(fd, IPPROTO_IP, IP_MULTICAST_ALL, 0) &&
         set_option(fd, IPPROTO_IP, IP_PKTINFO, 1) &&
         setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &outgoing, sizeof outgoing) == 0;
}

bool set_options_ipv6(int fd, const Interface& interface) {
  return set_option(fd, IPPROTO_IPV6, IPV6_V6ONLY, 1) && set_option(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHopLimit) &&
         set_option(fd, IPPROTO_IPV6, IPV6_UNICAST_HOPS, kHopLimit) && set_option(fd, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 1) &&
         set_option(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1) &&
         set_option(fd, IPPROTO_IPV6, IPV6_MULTICAST_IF, static_cast<int>(interface.index));
}

bool prepare(int fd, const Interface& interface, mdns::Protocols protocol) {
  const auto length = static_cast<socklen_t>(interface.name.size() + 1);
  if (!set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1) || !set_option(fd, SOL_SOCKET, SO_REUSEPORT, 1) ||
      setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface.name.c_str(), length) != 0) {
    return false;
  }
  if (!set_option(fd, SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBufferBytes)) {
    set_option(fd, SOL_SOCKET, SO_RCVBUF, kReceiveBufferBytes);
  }
  const Address any = to_sockaddr({protocol, mdns::kPort, {}}, interface.index);
  return (protocol == mdns::kIpv4 ? set_options_ipv4(fd, interface) : set_options_ipv6(fd, interface)) &&
         bind(fd, &any.any, sizeof any) == 0;
}

// The errno of why there is no socket, or 0.
int open_socket(Interface& interface, Socket& opened, mdns::Protocols protocol) {
  const int family = protocol == mdns::kIpv4 ? AF_INET : AF_INET6;
  opened = {{socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), receive, &opened}, &interface, protocol};
  const bool is_open =
      opened.watch.fd >= 0 && prepare(opened.watch.fd, interface, protocol) && poll_add(gEngine->poll, opened.watch);
  const int error = is_open ? 0 : errno;
  if (is_open) {
    join(interface, opened);
  } else {
    poll_remove(gEngine->poll, opened.watch);
  }
  return error;
}

}  // namespace

int sockets_open(Interface& interface) {
  int errors[2] = {0, 0};
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    const std::size_t place = mdns::index_of(protocol);
    errors[place] = open_socket(interface, interface.sockets[place], protocol);
    if (errors[place] == ENODEV || errors[place] == EPERM) {
      return errors[place];
    }
  }
  return errors[0] != 0 && errors[1] != 0 ? errors[0] : 0;
}

void sockets_join(const Interface& interface) {
  for (const Socket& one : interface.sockets) {
    if (one.watch.fd >= 0) {
      join(interface, one);
    }
  }
}

void sockets_send(const Interface& interface, const mdns::Datagram& datagram) {
  const bool to_group = datagram.protocols != mdns::kNoProtocol;
  const mdns::Protocols protocols = to_group ? datagram.protocols : datagram.to.protocol;
  for (const Socket& one : interface.sockets) {
    if ((protocols & one.protocol) != 0 && one.watch.fd >= 0) {
      const Address to = to_sockaddr(to_group ? group_of(one.protocol) : datagram.to, interface.index);
      sendto(one.watch.fd, datagram.bytes.data(), datagram.bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL, &to.any, sizeof to);
    }
  }
}

void sockets_close(Interface& interface) {
  for (Socket& one : interface.sockets) {
    poll_remove(gEngine->poll, one.watch);
  }
}

}  // namespace dnssd
