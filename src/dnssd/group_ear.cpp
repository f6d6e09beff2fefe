// SPDX-License-Identifier: MIT
#include "dnssd/group_ear.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "dnssd/dnssd.h"
#include "dnssd/message_reader.h"
#include "dnssd/multicast.h"
#include "dnssd/senders.h"

namespace dnssd {
namespace {

// Two thousand services' packets, as the kernel counts them, which doubles it: the default loses some of them.
constexpr int kReceiveBufferBytes = 2 * 1024 * 1024;

// Packets that are read, or thrown away, in one go, and the time after which no further one is read. More of them than gate.cpp
// hands on: most cost little here, and the same pass is long when Avahi is busy.
constexpr int kPacketsPerPass = 128;
constexpr std::int64_t kTimePerPass = 5'000;  // microseconds

bool join_and_bind4(int fd, std::uint32_t interface_index) {
  const sockaddr_in group = group_ipv4();
  ip_mreqn membership{};
  membership.imr_multiaddr = group.sin_addr;
  membership.imr_ifindex = static_cast<int>(interface_index);
  setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);  // Avahi's does as well
  return bind(fd, reinterpret_cast<const sockaddr*>(&group), sizeof group) == 0;
}

bool join_and_bind6(int fd, std::uint32_t interface_index) {
  const sockaddr_in6 group = group_ipv6(interface_index);
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
  setsockopt(fd, SOL_SOCKET, SO_RXQ_OVFL, &one, sizeof one);
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBufferBytes, sizeof kReceiveBufferBytes) != 0) {
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes, sizeof kReceiveBufferBytes);
  }
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

// How many datagrams had found no room in the socket when this one came; `otherwise` when the kernel does not say.
std::uint32_t overflowed_before(msghdr& header, std::uint32_t otherwise) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
    if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL) {
      std::memcpy(&otherwise, CMSG_DATA(part), sizeof otherwise);
    }
  }
  return otherwise;
}

void tell_missed(const GroupEar& ear) {
  for (const GroupListener& listener : ear.listeners) {
    if (listener.missed != nullptr) {
      listener.missed(listener.userdata);
    }
  }
}

// What the listeners have to do with it comes off the allowance.
void tell_heard(const GroupEar& ear, Allowance& allowance, const HeardMessage& message) {
  const unsigned flags = *MessageReader{message.bytes, kMessageFlagsAt}.number16();
  if ((flags & kOpcodeAndRcodeBits) != 0) {
    return;
  }
  const Heeds kind = (flags & kResponseBit) != 0 ? Heeds::responses : Heeds::questions;
  for (const GroupListener& listener : ear.listeners) {
    if (listener.heeds == kind) {
      allowance.left -= claimed_records(message.bytes);
      listener.heard(message, listener.userdata);
    }
  }
}

// Reads the next datagram. False when there is none.
bool take(GroupEar& ear, GroupSocket& socket) {
  std::array<std::uint8_t, kMessageMax> buffer;
  Envelope envelope;
  const auto message = receive(socket.fd, 0, buffer, envelope);
  if (!message) {
    return false;
  }
  const std::uint32_t overflowed = overflowed_before(envelope.header, socket.overflowed);
  if (overflowed != socket.overflowed) {
    socket.overflowed = overflowed;
    tell_missed(ear);
  }
  const sockaddr& sender = sender_of(envelope);
  if (message->size() >= kMessageHeaderSize && is_from_multicast_dns(sender)) {
    tell_heard(ear, socket.allowance, {*message, sender.sa_family == AF_INET6});
  }
  return true;
}

void throw_away(const GroupEar& ear, const GroupSocket& socket) {
  char byte = 0;
  int packets = 0;
  while (packets < kPacketsPerPass && recv(socket.fd, &byte, sizeof byte, MSG_DONTWAIT) >= 0) {
    ++packets;
  }
  if (packets > 0) {
    tell_missed(ear);
  }
}

void readable(AvahiWatch* watch, int, AvahiWatchEvent, void* userdata) {
  GroupEar& ear = *static_cast<GroupEar*>(userdata);
  for (GroupSocket& socket : ear.sockets) {
    if (socket.watch == watch) {
      group_ear_read(ear, socket);
    }
  }
}

void open_all(GroupEar& ear, std::uint32_t interface_index) {
  const AvahiPoll api = poll_api(gEngine->poll);
  constexpr std::array<int, 2> kFamilies = {AF_INET, AF_INET6};
  for (std::size_t i = 0; i < kFamilies.size(); ++i) {
    GroupSocket& socket = ear.sockets[i];
    socket.fd = open_socket(kFamilies[i], interface_index);
    socket.allowance = {kIntakeRate.burst, monotonic_now()};
    if (socket.fd >= 0) {
      socket.watch = poll_watch_new(&api, socket.fd, AVAHI_WATCH_IN, readable, &ear);
    }
  }
}

void close_all(GroupEar& ear) {
  for (GroupSocket& socket : ear.sockets) {
    if (socket.watch != nullptr) {
      poll_watch_free(socket.watch);
    }
    if (socket.fd >= 0) {
      close(socket.fd);
    }
    socket = GroupSocket();
  }
}

}  // namespace

void group_ear_listen(GroupEar& ear, std::uint32_t interface_index, const GroupListener& listener) {
  if (ear.listeners.empty()) {
    open_all(ear, interface_index);
  }
  ear.listeners.push_back(listener);
}

void group_ear_leave(GroupEar& ear, const void* userdata) {
  const auto left = std::erase_if(ear.listeners, [userdata](const GroupListener& one) { return one.userdata == userdata; });
  if (left > 0 && ear.listeners.empty()) {
    close_all(ear);
  }
}

void group_ear_read(GroupEar& ear, GroupSocket& socket) {
  allowance_grow(socket.allowance, kIntakeRate);
  if (socket.allowance.left <= 0) {
    throw_away(ear, socket);
    return;
  }
  const std::int64_t end = monotonic_now() + kTimePerPass;
  for (int i = 0; i < kPacketsPerPass && socket.allowance.left > 0 && take(ear, socket) && monotonic_now() < end; ++i) {
  }
}

}  // namespace dnssd
