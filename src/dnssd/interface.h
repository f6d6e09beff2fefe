// SPDX-License-Identifier: MIT
// One interface in use: its link, the sockets for the link's datagrams, and its addresses.
#pragma once

#include <sys/socket.h>

#include "dnssd/dnssd.h"

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
  Operation* inheritance = nullptr;                                   // handover.cpp
  unsigned operations = 0;                                            // live operations on it
  mdns::Time idle_since = monotonic_now();                            // when the last operation on it ended, if there
                                                                      // is none
  bool is_touched = false;                                            // its link was used since it was served last
};

// Gives the record of an interface, made if need be. On an error *interface is untouched: kDNSServiceErr_Unsupported
// for index 0 and kDNSServiceInterfaceIndexLocalOnly, kDNSServiceErr_BadInterfaceIndex when there is no such interface,
// kDNSServiceErr_NoAuth when a socket may not be bound to it, kErrServiceNotRunning when there can be none.
DNSServiceErrorType interface_get(std::uint32_t index, Interface** interface);

// Its link, for a call that may have output: marks the interface as touched, so that interfaces_serve serves it.
mdns::Link& interface_link(Interface& interface);

// Serves the links that were used or have a deadline that is due: sends their datagrams and handles their events. Frees
// interfaces that have been idle for long enough.
void interfaces_serve(mdns::Time now);

// When interfaces_serve has to be called next: kNever when nothing is planned, 0 when a link was touched.
mdns::Time interfaces_deadline();

// Withdraws everything and sends the goodbyes, unless the next process takes the records over. Blocks while the rate
// limit delays goodbyes, for three seconds at most.
void interfaces_withdraw();

// --- sockets.cpp

// Opens the sockets of `interface`, which stays where it is, and has the engine's poll receive from them. A protocol
// that the system lacks is left out. kDNSServiceErr_BadInterfaceIndex when the interface has gone,
// kDNSServiceErr_NoAuth when it is not to be bound to, kErrServiceNotRunning when there is no socket.
DNSServiceErrorType sockets_open(Interface& interface);

// Joins the groups, again if need be: a link that had no address of a protocol may have been no member.
void sockets_join(const Interface& interface);

// The address and port; of no protocol when it is null or of another family.
mdns::Endpoint to_endpoint(const sockaddr* address);

// Sends the datagrams of the link over their protocols. A datagram that the system refuses is lost, like one that is
// lost on the wire.
void sockets_send(const Interface& interface);

// --- handover.cpp

// To be called when the process may be about to end. If a handover is wanted and its file can be written, writes the
// published records into it and withdraws them without goodbyes; else does nothing.
void handover_give();

// Publishes the records of the former process, if it has left a valid file; kept until some seconds after
// handover_serve.
void handover_take();

// To be called by DNSServiceProcessResult: at the first call, plans the end of inherited records.
void handover_serve();

// To be called before something is registered as unique under `name`: withdraws the inherited records of the name,
// which the registration replaces as an update.
void inheritance_replace(Interface& interface, const std::string& name);

// Host::number that the former process used for the host on the interface; 1: none is known.
unsigned inheritance_number(const Interface& interface, const std::string& host);

// --- link_monitor.cpp

// Opens the netlink socket that reports changes of interfaces: up or down, addresses. Without it, which the system may
// refuse, interfaces in use stay as they were when they were taken into use.
void link_monitor_open();

// Fills in the protocols and prefixes of an interface: those of its addresses, while it is up and has a carrier.
void link_monitor_read(Interface& interface);

}  // namespace dnssd
