// SPDX-License-Identifier: MIT
// Other machines that carry services from one link to another: reflectors, which repeat packets, and other gateways.
//
// They are found by a question on the one link for what is on the other: a host that answers for it, and neither is
// this machine nor has the service, repeats what it has heard there.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mdnsproxyctl/machine.h"
#include "mdnsproxyctl/session.h"

struct Repeater {
  std::string address;   // of the host that answers
  std::string hardware;  // its hardware address; empty: not known
  std::string from;      // the link of the services that it carries
  std::string to;        // the link where it was found
  bool gateway = false;  // its copies say that they have come through a gateway; else it is a reflector
};

// Whether others that carry a service can be found by it: its host and port are known, and it is no copy itself.
bool can_find_repeaters(const InstanceView& service);

// Those that carry any of these services, which are all of the same two links. Takes less than a second, on the link to
// which they are forwarded.
std::vector<Repeater> find_repeaters(const Session& session, const std::vector<MachineLink>& links,
                                     const std::vector<const InstanceView*>& services);

// Those between any two links of the rules, by a few services of each two. All links are asked at the same time.
std::vector<Repeater> find_all_repeaters(const Session& session, const std::vector<MachineLink>& links);

// Who announces, on the link where the daemon has found it, this service that has come through a gateway. Nothing:
// nobody answers any more.
std::optional<Repeater> find_gateway(const Session& session, const std::vector<MachineLink>& links,
                                     const InstanceView& service);

// "10.2.0.9 (02:00:5e:10:00:09) repeats packets of br10 on br20: a reflector", or what another gateway does.
std::string repeater_text(const Repeater& repeater);

// What to do about a reflector.
inline constexpr const char* kReflectorCure =
    "switch it off, or let it repeat neither these types nor these links: both would announce the same services";

// "10.2.0.9 (02:00:5e:10:00:09)".
std::string host_text(const Repeater& repeater);
