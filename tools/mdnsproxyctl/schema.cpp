// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/schema.h"

#include <algorithm>

#include "mdnsproxyctl/json.h"

namespace {

template <typename IsWanted>
StateCounts count_states_of(const StateView& view, IsWanted is_wanted) {
  const auto count = [&](StateOfInstance state) {
    return std::ranges::count_if(view.instances,
                                 [&](const InstanceView& each) { return each.state == state && is_wanted(each); });
  };
  return {count(StateOfInstance::forwarded), count(StateOfInstance::waiting), count(StateOfInstance::refused)};
}

}  // namespace

StateCounts count_states(const StateView& view) {
  return count_states_of(view, [](const InstanceView&) { return true; });
}

StateCounts count_states(const StateView& view, std::size_t rule) {
  return count_states_of(view, [&](const InstanceView& each) { return each.rule == rule; });
}

std::ptrdiff_t count_living(const StateView& view) {
  return std::ranges::count_if(view.instances, [](const InstanceView& each) {
    return each.reason != StateReason::limit && each.reason != StateReason::through_gateway;
  });
}

Json limit_json(const StateView& view) {
  return {{"used", count_living(view)}, {"of", view.limit}, {"high_water", view.counter(StateCounter::high_water)}};
}

Json rule_json(const StateView& view, std::size_t rule) {
  const RuleView& each = view.rules[rule];
  const StateCounts counts = count_states(view, rule);
  return {{"rule_line", each.line != 0 ? Json(each.line) : Json(nullptr)},
          {"from", each.from},
          {"to", each.to},
          {"type", each.type},
          {"forwarded", counts.forwarded},
          {"waiting", counts.waiting},
          {"refused", counts.refused}};
}

Json link_json(const Session& session, const RuleLink& held, const MachineLink* now,
               const std::vector<HealthFinding>& findings) {
  Json link = {{"name", held.name},
               {"daemon_index", held.index},
               {"index", now != nullptr ? Json(now->index) : Json(nullptr)},
               {"dead", now == nullptr || now->index != held.index},
               {"up", now != nullptr && now->up},
               {"multicast", now != nullptr && now->multicast},
               {"addresses", now != nullptr ? Json(now->addresses) : Json::array()}};
  link.update(link_figures_json(session, held.index));
  link["findings"] = findings_json(findings);
  return link;
}

Json event_json(const Session& session, const EventView& event) {
  const RuleView& rule = session.state.view.rules[event.rule];
  const std::string reason = reason_word(event.reason);
  return {{"number", event.number},
          {"time", utc_time(event.time, session.clocks)},
          {"service", event.name},
          {"type", rule.type},
          {"from", rule.from},
          {"to", rule.to},
          {"before", event.before != StateOfInstance::none ? Json(state_word(event.before)) : Json(nullptr)},
          {"state", state_word(event.after)},
          {"reason", reason.empty() ? Json(nullptr) : Json(reason)}};
}
