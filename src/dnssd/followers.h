// SPDX-License-Identifier: MIT
// What a service says of itself goes on to be followed when its resolve has ended: a caller that browses and resolves each
// instance once, as dns_sd.h suggests, would never hear that the SRV or TXT data has changed, nor that the host has fallen
// silent.
//
// Lifecycle of a follower: a resolve that has reported, of an instance that a browse on that interface has reported, leaves
// one behind when it is released. It listens to the link and asks nothing. Other data from the host that said what was
// reported is a change: the instance is reported gone and found again, and the follower ends; a new resolve will leave a new
// one. What other hosts say in its name changes nothing. It ends also when no browse has the instance any more.
#pragma once

#include "dnssd/dnssd.h"

namespace dnssd {

struct Follower {
  Interface* interface = nullptr;
  std::string name;                                     // of the instance
  std::string host;                                     // its SRV target
  std::array<mdns::QueryId, 2> queries{};               // for SRV and TXT
  std::array<std::vector<std::uint64_t>, 2> live;       // hashes of what the link says now, the newest last
  std::array<std::uint64_t, 2> reported{};              // the hashes of what was reported
  std::array<std::array<std::uint32_t, 2>, 2> owner{};  // the hosts that said what was reported, by protocol
  std::array<bool, 2> is_vouched{};                     // what is said now comes from the host that said what was reported
};

// A follower's events carry its handle, which is even: an operation's is odd.
constexpr bool is_follower(Handle handle) { return handle % 2 == 0; }

// The resolve is about to be released: follows what it has reported.
void followers_begin(const Operation& operation, const Resolve& resolve);

void followers_event(const mdns::Event& event);

// Reports what has changed; after a batch of events, since several of them may make one change.
void followers_review(Handle handle);

// A browse of the interface has lost the instance, or ended: nobody has to be told of it by this browse any more.
void followers_unneeded(Interface& interface, const std::string& name);

// So many addresses of the host more, or fewer, are known to the queries that ask for them.
void host_addresses_changed(Interface& interface, const std::string& host, int change);

// A query has lost one. If no query knows any, the host has fallen silent, and its services are doubted (RFC 6762 section 10.4).
void host_lost_address(Interface& interface, const std::string& host);

}  // namespace dnssd
