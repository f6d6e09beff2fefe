// SPDX-License-Identifier: MIT
// One interface in use: its link, the sockets for the link's datagrams, and its addresses.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "dnssd/base/poll.h"
#include "dnssd/state/operation.h"

namespace dnssd {

// UDP port 5353 of one protocol, shared with others on the machine, bound to the interface, member of the multicast
// group (RFC 6762 section 3).
struct Socket {
  Watch watch;  // its fd is -1 when the system lacks the protocol
  Interface* interface = nullptr;
  mdns::Protocols protocol = mdns::kIpv4;
  std::uint32_t lost = 0;  // datagrams that the system had no room for, as it last said
};

// The network of one of the interface's addresses: what is on the link.
struct Prefix {
  mdns::Protocols protocol = mdns::kIpv4;
  std::array<std::uint8_t, 16> address{};  // network order; an IPv4 address takes the first four bytes
  std::array<std::uint8_t, 16> netmask{};

  bool operator==(const Prefix&) const = default;
};

// Whether the address belongs to the prefix.
bool is_within(const std::array<std::uint8_t, 16>& address, const Prefix& prefix);

// 169.254/16 (RFC 3927) and fe80::/10 (RFC 4291); the bytes are in network order.
template <typename Address>
bool is_link_local(mdns::Protocols protocol, const Address& address) {
  const auto first = static_cast<std::uint8_t>(address[0]), second = static_cast<std::uint8_t>(address[1]);
  return protocol == mdns::kIpv4 ? first == 169 && second == 254 : first == 0xFE && (second & 0xC0) == 0x80;
}

// A service instance that browses have reported.
struct Instance {
  std::vector<Operation*> browses{};  // never empty
  Operation* follower = nullptr;      // lookup.cpp
};

// Lives from the first operation on the interface until it has been idle for a while, or until the engine ends.
struct Interface {
  ~Interface();  // closes the sockets
  std::uint32_t index = 0;
  std::string name;  // as it was when the interface was taken into use
  mdns::LinkPtr link;
  std::array<Socket, 2> sockets;                  // by mdns::index_of
  mdns::Protocols protocols = mdns::kNoProtocol;  // of which the link has an address
  std::vector<Prefix> prefixes;                   // of these addresses
  std::map<std::string, Instance, FoldedLess> instances;
  std::multimap<std::string_view, Operation*, FoldedLess> followers;  // by host (lookup.cpp)
  std::multiset<std::string, FoldedLess> live_addresses;              // host of each address of live queries
  std::map<std::string_view, Operation*, FoldedLess> hosts;           // by the host's own name (hosts.cpp)
  std::set<std::string, FoldedLess> aliases;                          // names of hosts that had to give way
  Operation* inheritance = nullptr;                                   // inheritance.cpp
  unsigned operations = 0;                                            // live operations on it
  mdns::Time idle_since = monotonic_now();                            // when the last operation on it ended, if there
                                                                      // is none
  bool is_touched = false;                                            // its link was used since it was served last
};

}  // namespace dnssd
