// SPDX-License-Identifier: MIT
// What the packet filter does on a service's way.

#include "mdnsproxyctl/case.h"

namespace {

const FilterReading& filter_of(Case& the_case) {
  if (!the_case.filter) {
    the_case.filter = read_filter();
  }
  return *the_case.filter;
}

std::string who_can_look(const FilterReading& reading) {
  return reading.message + (reading.outcome == FilterOutcome::needs_root ? "; run this command again by sudo" : "");
}

std::string not_told(const FilterJudgement& judgement) {
  return "it cannot be told: " + judgement.place + " is not understood";
}

}  // namespace

FilterVerdict judge_multicast(Case& the_case, const MachineLink& link) {
  const FilterReading& reading = filter_of(the_case);
  if (reading.outcome != FilterOutcome::ok) {
    return {std::nullopt, who_can_look(reading), ""};
  }
  FilterVerdict verdict = {true, "it lets UDP port 5353 pass on " + shown(link.name), ""};
  for (const std::optional<FilterPacket>& packet :
       {multicast_from(link, false), multicast_from(link, true), multicast_to(link, false), multicast_to(link, true)}) {
    const FilterJudgement judgement = packet ? judge_packet(reading.chains, *packet) : FilterJudgement{};
    if (judgement.fate == FilterFate::dropped) {
      return {false, drop_text(judgement, "packets to UDP port 5353"),
              passing_command(judgement, *packet) + ", and keep that where the filter's rules come from"};
    }
    if (judgement.fate == FilterFate::cannot_tell && verdict.passes) {
      verdict = {std::nullopt, not_told(judgement), ""};
    }
  }
  return verdict.passes && !reading.unread.empty() ? FilterVerdict{std::nullopt, reading.unread, ""} : verdict;
}

bool examine_filter(Case& the_case, const std::string& address) {
  const InstanceView& instance = *the_case.instance;
  const RuleView& rule = the_case.session.state.view.rules[instance.rule];
  const MachineLink* const client = find_link(the_case.links, rule.to);
  if (instance.port == 0 || client == nullptr) {
    return true;
  }
  const FilterReading& reading = filter_of(the_case);
  if (reading.outcome != FilterOutcome::ok) {
    add_step(the_case, "filter", std::nullopt, who_can_look(reading));
    return true;
  }
  const std::string where = address + " port " + std::to_string(instance.port) + " from " + shown(rule.to);
  FilterJudgement doubt;
  for (const FilterPacket& packet :
       client_packets(*client, rule.from, address, instance.port, rule.type.ends_with("_tcp"))) {
    const FilterJudgement judgement = judge_packet(reading.chains, packet);
    if (judgement.fate == FilterFate::dropped) {
      add_step(the_case, "filter", false,
               where + ": " + drop_text(judgement, packet.answers ? "the answers" : "a client's packets"),
               passing_command(judgement, packet) + ", and keep that where the filter's rules come from");
      return false;
    }
    doubt = doubt.fate == FilterFate::passes ? judgement : doubt;
  }
  const bool told = doubt.fate == FilterFate::passes;
  const bool passes = told && reading.unread.empty();
  add_step(the_case, "filter", passes ? std::optional(true) : std::nullopt,
           passes ? "it lets a client through to " + where : where + ": " + (told ? reading.unread : not_told(doubt)));
  return true;
}
