// SPDX-License-Identifier: MIT
// The links' part of what `doctor` looks at: what the packet filter lets pass, what is there and not heard, and who
// else carries it from link to link.

#include <algorithm>
#include <map>
#include <set>

#include "mdnsproxyctl/census.h"
#include "mdnsproxyctl/doctor.h"
#include "mdnsproxyctl/reflectors.h"

namespace {

// Each is a walk through the whole filter.
constexpr std::size_t kMostServicesJudged = 200;

// What is announced just now need not have been heard yet.
constexpr std::uint64_t kTimeToHear = 3'000'000'000;

void examine_multicast(Examination& examination, Case& filter, const MachineLink& link) {
  const FilterVerdict verdict = judge_multicast(filter, link);
  if (verdict.passes == false) {
    add_finding(examination, HealthSeverity::error, shown(link.name), "DEAF or mute: " + verdict.text, verdict.cure);
  } else {
    std::vector<DoctorNote>& notes = verdict.passes ? examination.well : examination.not_seen;
    notes.push_back({"packet filter", shown(link.name) + ": " + verdict.text});
  }
}

// Whether clients are let through to the services that are forwarded.
void examine_clients(Examination& examination, const FilterReading& filter) {
  const StateView& view = examination.session.state.view;
  std::set<std::string> said;
  std::size_t judged = 0;
  for (const InstanceView& instance : view.instances) {
    const RuleView& rule = view.rules[instance.rule];
    const MachineLink* const clients = find_link(examination.links, rule.to);
    if (instance.state != StateOfInstance::forwarded || instance.port == 0 || clients == nullptr ||
        ++judged > kMostServicesJudged) {
      continue;
    }
    for (const std::string& address : instance.addresses) {
      for (const FilterPacket& packet :
           client_packets(*clients, rule.from, address, instance.port, rule.type.ends_with("_tcp"))) {
        const FilterJudgement judgement = judge_packet(filter.chains, packet);
        if (judgement.fate == FilterFate::dropped && said.insert(judgement.place + rule.from + rule.to).second) {
          add_finding(examination, HealthSeverity::error, "packet filter",
                      in_quotes(instance.name) + " at " + address + " port " + std::to_string(instance.port) +
                          " from " + shown(rule.to) + ": " +
                          drop_text(judgement, packet.answers ? "the answers" : "a client's packets"),
                      passing_command(judgement, packet) + ", and keep that where the filter's rules come from");
        }
      }
    }
  }
  if (said.empty() && judged > 0 && filter.unread.empty()) {
    examination.well.push_back({"packet filter", "nothing is known to keep clients from the services"});
  }
}

bool hears_something(const Examination& examination, const std::string& link) {
  const StateView& view = examination.session.state.view;
  return std::ranges::any_of(view.instances,
                             [&](const InstanceView& each) { return view.rules[each.rule].from == link; });
}

struct SilentLink {
  std::string name;
  std::vector<std::string> types;  // that rules look for there
  std::uint32_t line = 0;          // of one of the rules
};

// The links on which the daemon has heard nothing, although it has had the time.
std::vector<SilentLink> silent_links(const Examination& examination) {
  std::vector<SilentLink> silent;
  for (const RuleView& rule : examination.session.state.view.rules) {
    if (hears_something(examination, rule.from) || age(rule.since, examination.session.clocks) < kTimeToHear) {
      continue;
    }
    auto link = std::ranges::find(silent, rule.from, &SilentLink::name);
    if (link == silent.end()) {
      silent.push_back({rule.from, {}, rule.line});
      link = silent.end() - 1;
    }
    if (const std::string type = base_type(rule.type); std::ranges::find(link->types, type) == link->types.end()) {
      link->types.push_back(type);
    }
  }
  return silent;
}

// Whether a rule finds any of these types on that link, so that it is no wonder that they are there.
bool is_looked_for(const Examination& examination, const std::string& link, const std::vector<std::string>& types) {
  return std::ranges::any_of(examination.rules, [&](const RuleView& each) {
    return each.from == link && std::ranges::find(types, base_type(each.type)) != types.end();
  });
}

using Census = std::map<std::string, ServiceCounts>;

Census census_for(const Examination& examination, const std::vector<SilentLink>& silent) {
  std::set<std::string> types;
  for (const SilentLink& each : silent) {
    types.insert(each.types.begin(), each.types.end());
  }
  return silent.empty() ? Census{} : count_services_everywhere(examination.links, {types.begin(), types.end()});
}

std::size_t count_of(const ServiceCounts& counts, const std::vector<std::string>& types) {
  std::size_t sum = 0;
  for (const auto& [type, count] : counts) {
    sum += std::ranges::find(types, type) != types.end() ? count : 0;
  }
  return sum;
}

void judge_silence(Examination& examination, const SilentLink& link, const Census& census) {
  const std::string name = shown(link.name);
  bool explained = false;
  for (const auto& [other, counts] : census) {
    const std::size_t count = count_of(counts, link.types);
    if (count > 0 && other == link.name) {
      explained = true;
      add_finding(
          examination, HealthSeverity::error, name,
          "DEAF: " + std::to_string(count) +
              " services of its rules' types answer questions of another port, and the daemon has heard none of them",
          "let UDP port 5353 through this machine's packet filter, in and out, on " + name);
    } else if (count > 0 && !is_looked_for(examination, other, link.types)) {
      explained = true;
      add_finding(
          examination, HealthSeverity::warning, name,
          "nothing of its rules' types is heard; " + shown(other) + " has " + std::to_string(count) + " of them",
          (link.line != 0 ? "line " + std::to_string(link.line) + ": " : std::string()) + "write if_from=\"" +
              shown(other) + "\" if those are meant");
    }
  }
  if (!explained) {
    examination.well.push_back({name, "nothing of its rules' types is heard, and nobody answers for any"});
  }
}

}  // namespace

void examine_packet_filter(Examination& examination) {
  Case filter = {examination.session, {}, examination.links, {}, nullptr, {}};
  filter.filter = read_filter();
  if (filter.filter->outcome != FilterOutcome::ok) {
    const bool root = filter.filter->outcome == FilterOutcome::needs_root;
    examination.not_seen.push_back(
        {"packet filter", filter.filter->message + (root ? "; run this command again by sudo" : "")});
    return;
  }
  StateView view;
  view.rules = examination.rules;
  for (const RuleLink& each : rule_links(view)) {
    if (const MachineLink* const link = find_link(examination.links, each.name)) {
      examine_multicast(examination, filter, *link);
    }
  }
  examine_clients(examination, *filter.filter);
}

void examine_hearing(Examination& examination) {
  if (!examination.session.is_running()) {
    return;
  }
  const std::vector<SilentLink> silent = silent_links(examination);
  if (!silent.empty() && examination.session.options.no_network) {
    examination.not_seen.push_back({"hearing", "nobody was asked (--no-network)"});
    return;
  }
  const Census census = census_for(examination, silent);
  for (const SilentLink& each : silent) {
    if (census.contains(each.name)) {
      judge_silence(examination, each, census);
    }
  }
}

void examine_others(Examination& examination) {
  const Session& session = examination.session;
  const bool has_services =
      session.is_running() && std::ranges::any_of(session.state.view.instances, can_find_repeaters);
  if (!has_services || session.options.no_network) {
    examination.not_seen.push_back(
        {"reflectors", has_services ? "nobody was asked (--no-network)" : "there is no service to look for them with"});
    return;
  }
  const std::vector<Repeater> repeaters = find_all_repeaters(session, examination.links);
  for (const Repeater& each : repeaters) {
    if (each.gateway) {
      examination.well.push_back({shown(each.to), repeater_text(each)});
    } else {
      add_finding(examination, HealthSeverity::warning, shown(each.to), repeater_text(each), kReflectorCure);
    }
  }
  if (repeaters.empty()) {
    examination.well.push_back({"reflectors", "nobody else answers for services of the other links"});
  }
}
