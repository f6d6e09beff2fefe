// SPDX-License-Identifier: MIT
// One interface in use: its link, the sockets that carry the link's datagrams, and what becomes of it.
#pragma once

#include <sys/socket.h>

#include "dnssd/dnssd.h"

namespace dnssd {

// UDP port 5353 of one protocol, shared with others on the machine, bound to the interface, member of the multicast group (RFC
// 6762 section 3).
struct Socket {
  Watch watch;  // not open: the system has none of this protocol
  Interface* interface = nullptr;
  mdns::Protocols protocol = mdns::kIpv4;
  std::uint32_t lost = 0;  // datagrams that the system had no room for, as it last said
};

// What an address says is on the link.
struct Prefix {
  mdns::Protocols protocol = mdns::kIpv4;
  std::array<std::uint8_t, 16> address{};  // network order; an IPv4 address takes the first four bytes
  std::array<std::uint8_t, 16> netmask{};

  bool operator==(const Prefix&) const = default;
};

// Whether the bits of `address` that the netmask has are the prefix's.
bool is_within(const std::array<std::uint8_t, 16>& address, const Prefix& prefix);

// 169.254/16 (RFC 3927) and fe80::/10 (RFC 4291); the bytes are in network order.
template <typename Address>
bool is_link_local(mdns::Protocols protocol, const Address& address) {
  const auto first = static_cast<std::uint8_t>(address[0]), second = static_cast<std::uint8_t>(address[1]);
  return protocol == mdns::kIpv4 ? first == 169 && second == 254 : first == 0xFE && (second & 0xC0) == 0x80;
}

// A service instance that browses have reported, by its name as the first of them has it.
struct Instance {
  std::vector<Operation*> browses{};  // never empty
  Operation* follower = nullptr;      // lookup.cpp
};

// Lives from the first operation on it until it has been idle for a while, or until the engine ends.
struct Interface {
  ~Interface();  // closes the sockets
  std::uint32_t index = 0;
  std::string name;  // as it was when the interface was taken into use
  mdns::LinkPtr link;
  std::array<Socket, 2> sockets;                  // by mdns::index_of
  mdns::Protocols protocols = mdns::kNoProtocol;  // those that the link has
  std::vector<Prefix> prefixes;                   // of its addresses of these protocols
  std::map<std::string, Instance, FoldedLess> instances;
  std::multimap<std::string_view, Operation*, FoldedLess> followers;  // by host (lookup.cpp)
  std::multiset<std::string, FoldedLess> live_addresses;              // for each address that the live queries know, its host
  std::map<std::string_view, Operation*, FoldedLess> hosts;           // by name, which is the host's own (hosts.cpp)
  std::set<std::string, FoldedLess> aliases;                          // of those that had to give way
  Operation* inheritance = nullptr;                                   // handover.cpp
  unsigned operations = 0;                                            // live operations on it
  mdns::Time idle_since = monotonic_now();                            // when the last operation on it ended, if there is none
  bool is_touched = false;                                            // something has been done to its link since it was served
};

// The record of an interface, made if need be. On an error *interface is untouched: kDNSServiceErr_Unsupported for index 0 and
// kDNSServiceInterfaceIndexLocalOnly, kDNSServiceErr_BadInterfaceIndex when there is no such interface, kDNSServiceErr_NoAuth
// when a socket may not be bound to it, kErrServiceNotRunning when there can be none.
DNSServiceErrorType interface_get(std::uint32_t index, Interface** interface);

// Its link, to do something to: interfaces_serve comes back to it.
mdns::Link& interface_link(Interface& interface);

// Serves the links to which something was done or for which something is due: sends their datagrams, acts upon their events.
// Lets go of interfaces that have been idle for long enough.
void interfaces_serve(mdns::Time now);

// When interfaces_serve has to be called next: kNever when nothing is planned, 0 when a link was touched.
mdns::Time interfaces_deadline();

// Withdraws everything and sends the goodbyes, unless the next process goes on with it. Blocks for their pace, three seconds at
// most.
void interfaces_withdraw();

// --- sockets.cpp

// Opens the sockets of `interface`, which stays where it is, and has the engine's poll receive from them. A protocol that the
// system lacks is left out. kDNSServiceErr_BadInterfaceIndex when the interface has gone, kDNSServiceErr_NoAuth when it is not to
// be bound to, kErrServiceNotRunning when there is no socket.
DNSServiceErrorType sockets_open(Interface& interface);

// Joins the groups, again if need be: a link that had no address of a protocol may have been no member.
void sockets_join(const Interface& interface);

// The address and port; of no protocol when it is null or of another family.
mdns::Endpoint to_endpoint(const sockaddr* address);

// Sends the datagrams that the link has made, over the protocols that they name. What the system does not take is lost, as on the
// wire.
void sockets_send(const Interface& interface);

// --- handover.cpp

// To be called when the process may be about to end: leaves what is published to the next one, if that is wanted and can be done,
// and has the links publish nothing any more.
void handover_give();

// Goes on with what the former process has left, until some seconds after handover_serve.
void handover_take();

// DNSServiceProcessResult runs.
void handover_serve();

// Something is about to be registered under a name that must be unique: it takes the place of what was inherited there.
void inheritance_replace(Interface& interface, const std::string& name);

// Which name the host had on the interface (Host::number).
unsigned inheritance_number(const Interface& interface, const std::string& host);

// --- link_monitor.cpp

// Follows what becomes of the interfaces in use: up or down, their addresses. Without the netlink socket, which the system may
// refuse, links stay as they were when they were taken into use.
void link_monitor_open();

// Fills in the protocols and prefixes of an interface: those of its addresses, while it is up and has a carrier.
void link_monitor_read(Interface& interface);

}  // namespace dnssd
