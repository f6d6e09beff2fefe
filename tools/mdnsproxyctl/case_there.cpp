// SPDX-License-Identifier: MIT
// A service that is announced on the other link, as it is seen there.

#include <algorithm>
#include <future>

#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/question.h"
#include "mdnsproxyctl/reflectors.h"

namespace {

bool is_answered(const Case& the_case, const MachineLink& link) {
  const InstanceView& instance = *the_case.instance;
  DnsName name = dns_name(base_type(the_case.session.state.view.rules[instance.rule].type) + ".local");
  name.insert(name.begin(), instance.name_there);
  const auto is_answer = [&](const DnsRecord& each) {
    return each.type == static_cast<std::uint16_t>(DnsType::srv) && same_name(each.name, name);
  };
  const std::vector<DnsRecord> records =
      ask(link, {{name, DnsType::srv}}, [&](const auto& heard) { return std::ranges::any_of(heard, is_answer); });
  return std::ranges::any_of(records, is_answer);
}

bool examine_answer(Case& the_case, const MachineLink& link, bool answered) {
  const std::string question = "a question on " + shown(link.name);
  if (answered) {
    add_step(the_case, "found_there", true, question + " was answered");
    return true;
  }
  const FilterVerdict filter = judge_multicast(the_case, link);
  const bool dropped = filter.passes == false;
  add_step(the_case, "found_there", false, question + " was not answered" + (dropped ? "; " + filter.text : ""),
           dropped ? filter.cure
                   : "let UDP port 5353 through this machine's packet filter, in and out, on " + shown(link.name));
  return false;
}

// A second name, and answers that come and go, have this cause; what follows on the way is not touched by it.
void examine_reflectors(Case& the_case, const std::vector<Repeater>& repeaters) {
  for (const Repeater& each : repeaters) {
    add_step(the_case, "reflector", each.gateway ? std::optional(true) : std::optional(false), repeater_text(each),
             kReflectorCure);
  }
  if (repeaters.empty()) {
    add_step(the_case, "reflector", true, "nobody else answers for it");
  }
}

}  // namespace

bool examine_other_link(Case& the_case) {
  const InstanceView& instance = *the_case.instance;
  const MachineLink* const link = find_link(the_case.links, the_case.session.state.view.rules[instance.rule].to);
  add_step(
      the_case, "name_there", true,
      instance.name_there == instance.name ? "its own" : in_quotes(instance.name_there) + ", since its own was taken");
  if (the_case.session.options.no_network || link == nullptr) {
    add_step(the_case, "found_there", std::nullopt, "nobody was asked (--no-network)");
    return true;
  }
  auto repeaters = std::async(std::launch::async, find_repeaters, std::cref(the_case.session),
                              std::cref(the_case.links), std::vector<const InstanceView*>{&instance});
  if (!examine_answer(the_case, *link, is_answered(the_case, *link))) {
    return false;
  }
  examine_reflectors(the_case, repeaters.get());
  return true;
}
