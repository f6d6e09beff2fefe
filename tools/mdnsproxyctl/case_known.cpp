// SPDX-License-Identifier: MIT
// The way of a service that the daemon knows: what the daemon says of it, then what can be seen of it on the other
// link.

#include <algorithm>

#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/reach.h"
#include "mdnsproxyctl/reflectors.h"

namespace {

const RuleView& rule_of(const Case& the_case) { return the_case.session.state.view.rules[the_case.instance->rule]; }

std::string since_text(const Case& the_case, std::uint64_t time) {
  return "for " + duration(age(time, the_case.session.clocks));
}

std::string addresses_text(const InstanceView& instance) {
  std::string text;
  for (const std::string& each : instance.addresses) {
    text += (text.empty() ? "" : " ") + each;
  }
  return text;
}

// Each examining function returns whether its step is well, and the way goes on.

bool examine_link(Case& the_case, const char* step, const std::string& name, int index) {
  const std::vector<HealthFinding> findings = link_findings(name, index, the_case.links);
  const bool well = findings.empty();
  add_step(the_case, step, well,
           shown(name) + (well ? " is up, with the index that the daemon knows" : ": " + findings[0].text),
           well ? "" : findings[0].cure);
  return well;
}

bool examine_resolved(Case& the_case) {
  const InstanceView& instance = *the_case.instance;
  const bool resolved = instance.reason != StateReason::resolving;
  add_step(the_case, "resolved", resolved,
           resolved ? shown(instance.host) + " port " + std::to_string(instance.port)
                    : "it has not said its host and port " + since_text(the_case, instance.since),
           "see whether the device is still on, and restart its service");
  return resolved;
}

bool examine_address(Case& the_case) {
  const InstanceView& instance = *the_case.instance;
  const std::string host = shown(instance.host);
  if (instance.reason == StateReason::link_local_only) {
    add_step(the_case, "address", false, host + " has only link-local addresses: " + addresses_text(instance),
             "give the device an address by DHCP or by hand; a link-local one means nothing on another link");
    return false;
  }
  const bool has_one = instance.reason != StateReason::no_address;
  add_step(the_case, "address", has_one,
           has_one ? addresses_text(instance) : host + " has said no address " + since_text(the_case, instance.since),
           "see whether the device has an address, and whether it announces its host name");
  return has_one;
}

bool examine_registration(Case& the_case) {
  const InstanceView& instance = *the_case.instance;
  const std::string to = shown(rule_of(the_case).to);
  if (instance.reason == StateReason::probing) {
    add_step(the_case, "announced", false,
             "its name is being claimed on " + to + " " + since_text(the_case, instance.since),
             "wait for a second; after that, see whether " + to + " is up");
  } else if (instance.state == StateOfInstance::refused) {
    const bool conflict = instance.reason == StateReason::conflict;
    add_step(the_case, "announced", false,
             conflict ? "somebody else has its name on " + to
                      : std::string("the DNS-SD library did not take it; the journal says why"),
             conflict ? "rename one of the two" : "systemctl restart mdnsproxy");
  } else {
    add_step(the_case, "announced", true, "on " + to + " " + since_text(the_case, instance.since));
  }
  return instance.state == StateOfInstance::forwarded;
}

// The name by which this machine announces something else of that type on another link, so that it is found back here.
const InstanceView* find_own(const Case& the_case) {
  const StateView& view = the_case.session.state.view;
  const RuleView& rule = rule_of(the_case);
  const auto own = std::ranges::find_if(view.instances, [&](const InstanceView& each) {
    const RuleView& other = view.rules[each.rule];
    return each.state == StateOfInstance::forwarded && each.name_there == the_case.instance->name &&
           other.to != rule.from && base_type(other.type) == base_type(rule.type);
  });
  return own != view.instances.end() ? &*own : nullptr;
}

void examine_gateway(Case& the_case) {
  const Session& session = the_case.session;
  const std::string from = shown(rule_of(the_case).from);
  const std::optional<Repeater> host =
      session.options.no_network ? std::nullopt : find_gateway(session, the_case.links, *the_case.instance);
  const InstanceView* const own = find_own(the_case);
  if (own != nullptr && host) {
    const std::string to = shown(session.state.view.rules[own->rule].to);
    add_step(the_case, "gateway", false,
             host_text(*host) + " repeats on " + from + " what this machine announces on " + to + ": a reflector",
             kReflectorCure);
    return;
  }
  add_step(the_case, "gateway", false,
           "its TXT data says that a gateway has forwarded it to " + from + (host ? ": " + host_text(*host) : ""),
           "forward it from the link where its device is; a gateway does not forward what another one has");
}

// What the daemon itself says. The order is that of its own decisions.
bool examine_daemons_part(Case& the_case) {
  const InstanceView& instance = *the_case.instance;
  const RuleView& rule = rule_of(the_case);
  add_step(the_case, "heard", true, "on " + shown(rule.from) + " " + since_text(the_case, instance.found));
  add_step(the_case, "rule", true,
           (rule.line != 0 ? "line " + std::to_string(rule.line) : std::string("a rule")) + " names " +
               shown(rule.type) + " from " + shown(rule.from) + " to " + shown(rule.to));
  if (instance.reason == StateReason::limit) {
    add_step(the_case, "limit", false,
             "there were " + std::to_string(the_case.session.state.view.limit) + " services already",
             "use fewer or narrower rules; it is tried again after a restart");
    return false;
  }
  if (instance.reason == StateReason::through_gateway) {
    examine_gateway(the_case);
    return false;
  }
  if (!examine_resolved(the_case)) {
    return false;
  }
  add_step(the_case, "gateway", true, "it has come through no other gateway");
  return examine_address(the_case) && examine_registration(the_case);
}

// --- The way of a client's packets -----------------------------------------------------------------------------------

bool examine_route(Case& the_case, const std::string& address) {
  const RuleView& rule = rule_of(the_case);
  const int index = route_to(address);
  const MachineLink* const from = find_link(the_case.links, rule.from);
  if (index == 0) {
    add_step(the_case, "route", false, "this machine has no route to " + address,
             "give " + shown(rule.from) + " an address of that network");
    return false;
  }
  const bool direct = from != nullptr && index == from->index;
  add_step(the_case, "route", true,
           address + (direct ? " is reached by " + shown(rule.from)
                             : " is reached by another interface than " + shown(rule.from)));
  if (!is_forwarded(address, rule.from, rule.to)) {
    add_step(the_case, "forwarding", false, "this machine does not forward packets for " + address,
             "sysctl -w " + forwarding_setting(address, rule.to) + "=1, and keep that in /etc/sysctl.d");
    return false;
  }
  add_step(the_case, "forwarding", true, "the kernel forwards packets for " + address);
  return true;
}

bool examine_connection(Case& the_case, const std::string& address) {
  const InstanceView& instance = *the_case.instance;
  const std::string where = address + " port " + std::to_string(instance.port);
  if (!rule_of(the_case).type.ends_with("_tcp") || instance.port == 0) {
    return true;
  }
  if (the_case.session.options.no_network) {
    add_step(the_case, "connect", std::nullopt, "nobody was asked (--no-network)");
    return true;
  }
  const char* outcome = "";
  const Connection connection = connect_to(address, instance.port);
  switch (connection) {
    case Connection::open:
      outcome = " is open, from this machine";
      break;
    case Connection::refused:
      outcome = " is closed: nothing listens there";
      break;
    case Connection::silent:
      outcome = " does not answer: a packet filter, or the device is off";
      break;
    case Connection::unreachable:
      outcome = " cannot be reached";
      break;
  }
  add_step(the_case, "connect", connection == Connection::open, where + outcome,
           "see whether the service runs on the device, and what filters packets between this machine and it");
  return connection == Connection::open;
}

}  // namespace

void examine_known(Case& the_case) {
  const RuleView& rule = rule_of(the_case);
  if (!examine_link(the_case, "link_from", rule.from, rule.from_index) ||
      !examine_link(the_case, "link_to", rule.to, rule.to_index) || !examine_daemons_part(the_case) ||
      !examine_other_link(the_case)) {
    return;
  }
  for (const std::string& address : the_case.instance->addresses) {
    if (!examine_route(the_case, address) || !examine_filter(the_case, address) ||
        !examine_connection(the_case, address)) {
      return;
    }
  }
}
