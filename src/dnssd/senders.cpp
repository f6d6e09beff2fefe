// SPDX-License-Identifier: MIT
#include "dnssd/senders.h"

#include "dnssd/multicast.h"

namespace dnssd {
namespace {

template <typename Address>
std::string bytes_of(const Address& address) {
  return {reinterpret_cast<const char*>(&address), sizeof address};
}

}  // namespace

std::optional<std::span<const std::uint8_t>> receive(int fd, int flags, std::span<std::uint8_t> buffer, Envelope& envelope) {
  envelope.room = {buffer.data(), buffer.size()};
  msghdr& header = envelope.header;
  header.msg_name = &envelope.sender;
  header.msg_namelen = sizeof envelope.sender;
  header.msg_iov = &envelope.room;
  header.msg_iovlen = 1;
  header.msg_control = envelope.control.data();
  header.msg_controllen = envelope.control.size();
  const ssize_t size = recvmsg(fd, &header, flags | MSG_DONTWAIT);
  if (size < 0) {
    return std::nullopt;
  }
  return buffer.first(static_cast<std::size_t>(size));
}

std::string address_bytes(const sockaddr& address) {
  switch (address.sa_family) {
    case AF_INET:
      return bytes_of(reinterpret_cast<const sockaddr_in&>(address).sin_addr);
    case AF_INET6:
      return bytes_of(reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
    default:
      return {};
  }
}

bool is_from_multicast_dns(const sockaddr& sender) {
  switch (sender.sa_family) {
    case AF_INET:
      return ntohs(reinterpret_cast<const sockaddr_in&>(sender).sin_port) == kMulticastDnsPort;
    case AF_INET6:
      return ntohs(reinterpret_cast<const sockaddr_in6&>(sender).sin6_port) == kMulticastDnsPort;
    default:
      return false;
  }
}

}  // namespace dnssd
