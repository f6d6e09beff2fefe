// SPDX-License-Identifier: MIT
// A service that the daemon does not know: it is looked for on the links by questions of our own.

#include <algorithm>
#include <future>
#include <set>

#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/census.h"
#include "mdnsproxyctl/question.h"

namespace {

// More types than a link has in earnest; each is a question.
constexpr std::size_t kMostTypes = 64;

// Where something was found.
struct Sighting {
  std::string link;
  std::string type;
  bool through_gateway;
  std::size_t services;  // how many, when a type is looked for
};

bool is_of_type(const DnsRecord& record, DnsType type) { return record.type == static_cast<std::uint16_t>(type); }

// Types that the hosts of a link say that they have (RFC 6763 section 9), and those of the rules.
std::set<std::string> types_on(const Case& the_case, const MachineLink& link) {
  std::set<std::string> types;
  for (const RuleView& each : the_case.rules) {
    types.insert(base_type(each.type));
  }
  const DnsName all = dns_name("_services._dns-sd._udp.local");
  for (const DnsRecord& each : ask(link, {{all, DnsType::ptr}}, [](const auto&) { return false; })) {
    if (is_of_type(each, DnsType::ptr) && same_name(each.name, all) && each.target.size() >= 2 &&
        types.size() < kMostTypes) {
      types.insert(each.target[0] + "." + each.target[1]);
    }
  }
  return types;
}

// The service itself, under any of the types.
std::vector<Sighting> look_for_name(const Case& the_case, const MachineLink& link) {
  std::vector<DnsQuestion> questions;
  std::vector<std::string> types;
  for (const std::string& type : types_on(the_case, link)) {
    DnsName name = dns_name(type + ".local");
    name.insert(name.begin(), the_case.question.subject);
    questions.push_back({name, DnsType::srv});
    questions.push_back({name, DnsType::txt});
    types.push_back(type);
  }
  const std::vector<DnsRecord> records = ask(link, questions, [](const auto&) { return false; });
  std::vector<Sighting> sightings;
  for (std::size_t i = 0; i < types.size(); ++i) {
    const auto is_its = [&](const DnsRecord& each) { return same_name(each.name, questions[2 * i].name); };
    const bool there =
        std::ranges::any_of(records, [&](const auto& each) { return is_of_type(each, DnsType::srv) && is_its(each); });
    const bool forwarded =
        std::ranges::any_of(records, [&](const auto& each) { return each.through_gateway && is_its(each); });
    if (there) {
      sightings.push_back({link.name, types[i], forwarded, 1});
    }
  }
  return sightings;
}

// Any service of the type.
std::vector<Sighting> look_for_type(const Case& the_case, const MachineLink& link) {
  const std::string type = base_type(the_case.question.subject);
  const ServiceCounts counts = count_services(the_case.links, link, {type});
  return counts.empty() ? std::vector<Sighting>{} : std::vector<Sighting>{{link.name, type, false, counts.at(type)}};
}

bool is_looked_on(const Case& the_case, const MachineLink& link) {
  return link.up && link.multicast && (the_case.question.from.empty() || the_case.question.from == link.name);
}

// All links at the same time, since each takes its seconds. A copy that a gateway has made counts only where nothing
// else is found: the original is elsewhere.
std::vector<Sighting> look_everywhere(const Case& the_case) {
  const auto look = is_type(the_case.question.subject) ? look_for_type : look_for_name;
  std::vector<std::future<std::vector<Sighting>>> looks;
  for (const MachineLink& link : the_case.links) {
    if (is_looked_on(the_case, link)) {
      looks.push_back(std::async(std::launch::async, look, std::cref(the_case), std::cref(link)));
    }
  }
  std::vector<Sighting> sightings;
  for (auto& each : looks) {
    const std::vector<Sighting> found = each.get();
    sightings.insert(sightings.end(), found.begin(), found.end());
  }
  std::ranges::stable_sort(sightings, {}, &Sighting::through_gateway);
  return sightings;
}

std::string looked_on(const Case& the_case) {
  std::string names;
  for (const MachineLink& link : the_case.links) {
    if (is_looked_on(the_case, link)) {
      names += (names.empty() ? "" : ", ") + shown(link.name);
    }
  }
  return names.empty() ? "no link" : names;
}

// A rule for what was seen there; null: none.
const RuleView* find_rule(const Case& the_case, const Sighting& sighting) {
  for (const RuleView& each : the_case.rules) {
    if (each.from == sighting.link && base_type(each.type) == sighting.type) {
      return &each;
    }
  }
  return nullptr;
}

void explain_missing_rule(Case& the_case, const Sighting& sighting) {
  const auto elsewhere =
      std::ranges::find_if(the_case.rules, [&](const RuleView& each) { return base_type(each.type) == sighting.type; });
  const std::string from_it = " from " + shown(sighting.link);
  the_case.reason = StateReason::not_named;
  if (elsewhere != the_case.rules.end()) {
    const std::string looks =
        (elsewhere->line != 0 ? "line " + std::to_string(elsewhere->line) : std::string("a rule")) + " looks for " +
        shown(sighting.type) + " on " + shown(elsewhere->from);
    add_step(the_case, "rule", false,
             is_type(the_case.question.subject) ? looks + ", where nothing of it is heard; " + shown(sighting.link) +
                                                      " has " + std::to_string(sighting.services) + " of them"
                                                : looks + ", and it is on " + shown(sighting.link),
             "write if_from=\"" + shown(sighting.link) + "\" into the rule, or add one" + from_it);
  } else {
    add_step(the_case, "rule", false, "no rule names " + shown(sighting.type) + from_it,
             "add a rule for " + shown(sighting.type) + from_it + ", check it with mdnsproxy-check, and restart");
  }
}

// A rule looks for what answers us, and the daemon has heard nothing of it.
void explain_deafness(Case& the_case, const Sighting& sighting, const RuleView& rule) {
  if (!the_case.session.is_running()) {
    add_step(the_case, "rule", true, "a rule names " + shown(rule.type) + " from " + shown(rule.from));
    return;
  }
  const std::vector<HealthFinding> findings = link_findings(rule.from, rule.from_index, the_case.links);
  if (!findings.empty()) {
    add_step(the_case, "link_from", false, shown(rule.from) + ": " + findings[0].text, findings[0].cure);
    return;
  }
  if (sighting.through_gateway) {
    the_case.reason = StateReason::through_gateway;
    add_step(the_case, "gateway", false,
             "what is on " + shown(sighting.link) + " is the copy of a gateway, of this one or another",
             "ask about the link where its device is");
    return;
  }
  const FilterVerdict filter = judge_multicast(the_case, *find_link(the_case.links, sighting.link));
  const std::string deaf =
      "it answers a question from another port on " + shown(sighting.link) + ", and the daemon has heard nothing of it";
  if (filter.passes == false) {
    add_step(the_case, "heard", false, deaf + "; " + filter.text, filter.cure);
    return;
  }
  add_step(the_case, "filter", filter.passes, filter.text);
  add_step(the_case, "heard", false, deaf,
           "let UDP port 5353 through this machine's packet filter, in and out, on " + shown(sighting.link));
}

// The links that are looked on and on which a rule would find it.
std::vector<const MachineLink*> links_of_rules(const Case& the_case) {
  std::vector<const MachineLink*> links;
  for (const MachineLink& link : the_case.links) {
    const auto is_for_it = [&](const RuleView& each) {
      return each.from == link.name &&
             (!is_type(the_case.question.subject) || base_type(each.type) == base_type(the_case.question.subject));
    };
    if (is_looked_on(the_case, link) && std::ranges::any_of(the_case.rules, is_for_it)) {
      links.push_back(&link);
    }
  }
  return links;
}

// Nobody has answered anything: a packet filter may be why, or there is nobody.
void explain_silence(Case& the_case) {
  const int asked = (is_type(the_case.question.subject) ? 1 : 2) * kTimesAsked;
  for (const MachineLink* link : links_of_rules(the_case)) {
    const FilterVerdict filter = judge_multicast(the_case, *link);
    if (filter.passes == false) {
      add_step(the_case, "heard", false,
               shown(link->name) + " DEAF: asked " + std::to_string(asked) + " times, heard nothing from anybody; " +
                   filter.text,
               filter.cure);
      return;
    }
    add_step(the_case, "filter", filter.passes, shown(link->name) + ": " + filter.text);
  }
  add_step(
      the_case, "heard", false, "nobody answers on " + looked_on(the_case),
      "see whether the device is on, on which link it is, and whether it announces the service under this very name");
}

}  // namespace

void examine_unknown(Case& the_case) {
  if (the_case.session.options.no_network) {
    add_step(the_case, "heard", std::nullopt,
             "the daemon knows nothing of it, and nobody else was asked (--no-network)");
    return;
  }
  const std::vector<Sighting> sightings = look_everywhere(the_case);
  if (sightings.empty()) {
    explain_silence(the_case);
    return;
  }
  const Sighting& sighting = sightings.front();
  add_step(the_case, "found_from", true,
           shown(sighting.type) + " on " + shown(sighting.link) + ", by a question of our own");
  const RuleView* const rule = find_rule(the_case, sighting);
  if (rule == nullptr) {
    explain_missing_rule(the_case, sighting);
  } else {
    explain_deafness(the_case, sighting, *rule);
  }
}
