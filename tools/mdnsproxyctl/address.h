// SPDX-License-Identifier: MIT
// Internet addresses as texts, and as the system takes them.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <string>

inline bool is_ipv6(const std::string& address) { return address.find(':') != std::string::npos; }

inline int family_of(const std::string& address) { return is_ipv6(address) ? AF_INET6 : AF_INET; }

struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t size = 0;

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

// Of a well-formed address text. `link_index`: where an IPv6 address counts that is of one link only.
inline SocketAddress socket_address(const std::string& address, std::uint16_t port, unsigned link_index = 0) {
  SocketAddress made;
  if (is_ipv6(address)) {
    sockaddr_in6 six = {};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    six.sin6_scope_id = link_index;
    inet_pton(AF_INET6, address.c_str(), &six.sin6_addr);
    std::memcpy(&made.storage, &six, made.size = sizeof six);
  } else {
    sockaddr_in four = {};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &four.sin_addr);
    std::memcpy(&made.storage, &four, made.size = sizeof four);
  }
  return made;
}

// The address without its port; empty when it is null or of another family.
inline std::string address_text(const sockaddr* address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address != nullptr && address->sa_family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
  } else if (address != nullptr && address->sa_family == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof text);
  }
  return text;
}
