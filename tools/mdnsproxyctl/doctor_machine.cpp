// SPDX-License-Identifier: MIT
// The machine's part of what `doctor` looks at: sockets, buffers, forwarding and routes.

#include <algorithm>
#include <fstream>
#include <set>

#include "dnssd/base/receive_buffer.h"
#include "mdnsproxyctl/address.h"
#include "mdnsproxyctl/doctor.h"
#include "mdnsproxyctl/ports.h"
#include "mdnsproxyctl/reach.h"

namespace {

constexpr std::uint16_t kPort = 5353;

constexpr const char* kBufferSetting = "/proc/sys/net/core/rmem_max";

// More say nothing more.
constexpr int kMostRouteFindings = 5;

// This machine's responder of Debian, which can be told to be a reflector.
constexpr const char* kResponderSettings = "/etc/avahi/avahi-daemon.conf";

bool is_of_the_daemon(const PortHolder& holder, const Session& session, const ProcessRights& rights) {
  return session.is_running() && (holder.process == session.state.view.pid ||
                                  (holder.process == 0 && rights.known && holder.user == rights.user));
}

std::string buffer_cure() {
  return "sysctl -w net.core.rmem_max=" + std::to_string(dnssd::kReceiveBufferBytes) +
         ", keep that in /etc/sysctl.d, and restart the daemon";
}

std::string holder_text(const PortHolder& holder) {
  return holder.process != 0 ? shown(holder.name) + " (process " + std::to_string(holder.process) + ")"
                             : "a process of user " + std::to_string(holder.user);
}

bool is_told_to_reflect() {
  std::ifstream file(kResponderSettings);
  for (std::string line; std::getline(file, line);) {
    std::erase_if(line, [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
    if (line == "enable-reflector=yes") {
      return true;
    }
  }
  return false;
}

void examine_holders(Examination& examination, const std::vector<PortHolder>& holders, const ProcessRights& rights) {
  std::string all;
  bool daemon = false;
  for (const PortHolder& each : holders) {
    daemon |= is_of_the_daemon(each, examination.session, rights);
    all += (all.empty() ? "" : ", ") + holder_text(each);
  }
  const bool has_rules = examination.session.is_running() && !examination.session.state.view.rules.empty() &&
                         examination.session.state.view.phase == StatePhase::running;
  const bool sees_all = std::ranges::none_of(holders, [](const PortHolder& each) { return each.process == 0; });
  if (has_rules && !daemon && sees_all) {
    add_finding(examination, HealthSeverity::error, "port 5353",
                "the daemon has no socket for it; " + (all.empty() ? std::string("nobody has") : all + " has"),
                "systemctl restart mdnsproxy; if it happens again, report it with the journal");
    return;
  }
  examination.well.push_back({"port 5353", all.empty()          ? "nobody has it"
                                           : holders.size() > 1 ? "shared, as it may be, by " + all
                                                                : "held by " + all});
}

// The families in which both links have addresses that a client can use.
std::vector<std::string> families_of(const MachineLink& one, const MachineLink& other) {
  const auto has = [](const MachineLink& link, bool ipv6) {
    return std::ranges::any_of(
        link.addresses, [&](const std::string& each) { return is_ipv6(each) == ipv6 && !each.starts_with("fe80:"); });
  };
  std::vector<std::string> families;
  if (has(one, false) && has(other, false)) {
    families.emplace_back("0.0.0.0");
  }
  if (has(one, true) && has(other, true)) {
    families.emplace_back("::");
  }
  return families;
}

// What is wrong with a route; empty: nothing.
std::string route_problem(const Examination& examination, const RuleView& rule, const std::string& address) {
  const int index = route_to(address);
  const MachineLink* const from = find_link(examination.links, rule.from);
  return index == 0                                ? "there is no route to " + address
         : from != nullptr && index != from->index ? address + " is reached by another interface"
                                                   : "";
}

}  // namespace

void examine_port(Examination& examination) {
  const Session& session = examination.session;
  const ProcessRights rights = session.is_running() ? rights_of(session.state.view.pid) : ProcessRights{};
  const std::vector<PortHolder> holders = holders_of_port(kPort);
  examine_holders(examination, holders, rights);
  std::uint64_t dropped = 0;
  for (const PortHolder& each : holders) {
    dropped += is_of_the_daemon(each, session, rights) ? each.dropped : 0;
    if (each.name == "avahi-daemon" && is_told_to_reflect()) {
      add_finding(examination, HealthSeverity::warning, "port 5353",
                  holder_text(each) + " repeats packets between the links of this machine: a reflector, by " +
                      kResponderSettings,
                  "write enable-reflector=no into that file, and restart it");
    }
  }
  if (dropped > 0) {
    add_finding(examination, HealthSeverity::warning, "port 5353",
                std::to_string(dropped) + " packets were lost since the daemon's receive buffers were full",
                buffer_cure());
  }
}

void examine_buffer(Examination& examination) {
  const Session& session = examination.session;
  std::ifstream file(kBufferSetting);
  long limit = 0;
  if (!(file >> limit)) {
    examination.not_seen.push_back({"buffers", "net.core.rmem_max is not shown here"});
    return;
  }
  const bool unlimited = session.is_running() && rights_of(session.state.view.pid).network_admin;
  if (limit < dnssd::kReceiveBufferBytes && !unlimited) {
    add_finding(examination, HealthSeverity::warning, "buffers",
                "net.core.rmem_max is " + std::to_string(limit) + ", and the daemon asks for " +
                    std::to_string(dnssd::kReceiveBufferBytes) +
                    " for each socket: of a burst of announcements some may be lost",
                buffer_cure());
    return;
  }
  examination.well.push_back({"buffers", "the daemon may have receive buffers of " +
                                             std::to_string(dnssd::kReceiveBufferBytes) + " bytes" +
                                             (limit < dnssd::kReceiveBufferBytes ? ", by its capability" : "")});
}

void examine_forwarding(Examination& examination) {
  std::set<std::string> said;
  std::set<std::string> well;
  for (const RuleView& rule : examination.rules) {
    const MachineLink* const from = find_link(examination.links, rule.from);
    const MachineLink* const to = find_link(examination.links, rule.to);
    const std::vector<std::string> families =
        from != nullptr && to != nullptr ? families_of(*from, *to) : std::vector<std::string>{};
    for (const std::string& family : families) {
      const std::string version = family == "::" ? "IPv6" : "IPv4";
      if (is_forwarded(family, rule.from, rule.to)) {
        well.insert(version);
      } else if (said.insert(version).second) {
        add_finding(examination, HealthSeverity::warning, "forwarding",
                    "this machine does not forward " + version + " packets between " + shown(rule.from) + " and " +
                        shown(rule.to) + ": services are seen there, and cannot be used",
                    "sysctl -w " +
                        std::string(family == "::" ? "net.ipv6.conf.all.forwarding" : "net.ipv4.ip_forward") +
                        "=1, and keep that in /etc/sysctl.d");
      }
    }
  }
  for (const std::string& each : well) {
    if (!said.contains(each)) {
      examination.well.push_back({"forwarding", "the kernel forwards " + each + " between the links of the rules"});
    }
  }
}

void examine_routes(Examination& examination) {
  std::set<std::string> seen;
  int wrong = 0;
  const StateView& view = examination.session.state.view;
  for (const InstanceView& instance : view.instances) {
    for (const std::string& address : instance.addresses) {
      if (instance.state != StateOfInstance::forwarded || !seen.insert(address).second) {
        continue;
      }
      const RuleView& rule = view.rules[instance.rule];
      const std::string problem = route_problem(examination, rule, address);
      if (!problem.empty() && ++wrong <= kMostRouteFindings) {
        add_finding(examination, HealthSeverity::warning, "routes",
                    in_quotes(instance.name) + " is on " + shown(rule.from) + ", and " + problem,
                    "give " + shown(rule.from) + " an address of that network, or see to the routes");
      }
    }
  }
  if (wrong == 0 && !seen.empty()) {
    examination.well.push_back(
        {"routes", std::to_string(seen.size()) + " addresses of services, each by the link of its service"});
  }
}
