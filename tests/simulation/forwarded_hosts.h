// SPDX-License-Identifier: MIT
// The hosts of one link whose addresses a gateway publishes on another: under their own names (Claim::yielding), as
// long as no host of that link owns them; else under the next free one ("host-2"), until the own name has been free for
// a while.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "simulation/world.h"

namespace simulation {

// Type and data of an address record.
using Address = std::pair<std::uint16_t, std::string>;

// Someone who needs the host on that link: a service that is offered there.
struct HostUse {
  const Medium* from = nullptr;      // where the host is
  std::map<Address, Tag> addresses;  // what it knows, and the publications
  std::function<void()> renamed;
};

struct ForwardedHost {
  Port* port = nullptr;  // where its addresses are published
  std::string original;  // its name on its own link
  int attempt = 1;       // "host-2" is the second
  Time moved_at = 0;     // when it got its present name
  bool looks_first = false;
  Tag look = 0;                    // the publication without records that claims the name
  Tag v4_query = 0, v6_query = 0;  // for the original name, while the present one is another
  std::uint64_t frees = 0;         // how often the original name has become free or taken
  bool is_free = false;
  Time freed_at = 0;
  std::map<int, HostUse> uses;
  int last_use = 0;
};

// The host of the link `from` is needed on the port's link: a number for host_leave. `renamed` is called when it gets
// another name there.
int host_use(Port& port, const std::string& original, const Medium& from, std::function<void()> renamed);

// These are its addresses, as far as that use of it knows.
void host_set_addresses(Port& port, const std::string& original, int use, const std::set<Address>& addresses);

void host_leave(Port& port, const std::string& original, int use);

// The name that it has on the port's link.
std::string host_name_on(const Port& port, const std::string& original);

// Whether each host has its own name, where nobody else on the link has it.
void check_forwarded_hosts(World& world, const Port& port, bool exactly);

}  // namespace simulation
