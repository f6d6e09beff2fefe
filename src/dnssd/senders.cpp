// SPDX-License-Identifier: MIT
#include "dnssd/senders.h"

#include <netinet/in.h>

#include <cstdint>

namespace dnssd {
namespace {

constexpr std::uint16_t kMulticastDnsPort = 5353;

template <typename Address>
std::string bytes_of(const Address& address) {
  return {reinterpret_cast<const char*>(&address), sizeof address};
}

}  // namespace

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
