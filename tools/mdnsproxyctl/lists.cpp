// SPDX-License-Identifier: MIT
// The rules and the services, as the state file has them.

#include "mdnsproxyctl/lists.h"

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/schema.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string line_text(const RuleView& rule) { return rule.line != 0 ? std::to_string(rule.line) : "-"; }

bool is_wanted(const StateView& view, const InstanceView& instance, const ServicesFilter& filter) {
  const RuleView& rule = view.rules[instance.rule];
  return (filter.name.empty() || filter.name == instance.name || filter.name == instance.name_there) &&
         (filter.link.empty() || filter.link == rule.from || filter.link == rule.to) &&
         (!filter.state || *filter.state == instance.state);
}

std::vector<std::string> service_cells(const Session& session, const InstanceView& instance) {
  const RuleView& rule = session.state.view.rules[instance.rule];
  return {shown(instance.name), shown(rule.type),           shown(rule.from),
          shown(rule.to),       state_word(instance.state), duration(age(instance.since, session.clocks)),
          where_text(instance)};
}

}  // namespace

std::string where_text(const InstanceView& instance) {
  std::string text = reason_sentence(instance.reason);
  if (!instance.name_there.empty() && instance.name_there != instance.name) {
    text += (text.empty() ? "" : "; ") + std::string("there as ") + in_quotes(instance.name_there);
  }
  if (!instance.host.empty()) {
    text += (text.empty() ? "" : "; ") + shown(instance.host) +
            (instance.port != 0 ? ":" + std::to_string(instance.port) : "");
  }
  for (const std::string& address : instance.addresses) {
    text += " " + address;
  }
  return text.empty() ? "-" : text;
}

int run_rules(const Session& session) {
  Json answer = new_answer(session);
  if (!session.is_running()) {
    return print_answer(session, answer, absence(session), base_status(session));
  }
  const StateView& view = session.state.view;
  answer["rules"] = Json::array();
  Rows rows = {{"LINE", "FROM", "TO", "TYPE", "FORWARDED", "WAITING", "REFUSED"}};
  for (std::size_t i = 0; i < view.rules.size(); ++i) {
    const RuleView& rule = view.rules[i];
    const StateCounts counts = count_states(view, i);
    answer["rules"].push_back(rule_json(view, i));
    rows.push_back({line_text(rule), shown(rule.from), shown(rule.to), shown(rule.type),
                    std::to_string(counts.forwarded), std::to_string(counts.waiting), std::to_string(counts.refused)});
  }
  const bool none = view.rules.empty();
  return print_answer(session, answer, none ? "There is no rule.\n" : table(rows), none ? kWorthALook : kWell);
}

int run_services(const Session& session, const ServicesFilter& filter) {
  Json answer = new_answer(session);
  if (!session.is_running()) {
    return print_answer(session, answer, absence(session), base_status(session));
  }
  const StateView& view = session.state.view;
  answer["services"] = Json::array();
  Rows rows = {{"SERVICE", "TYPE", "FROM", "TO", "STATE", "FOR", "WHERE OR WHY"}};
  bool all_forwarded = true;
  for (const InstanceView& instance : view.instances) {
    if (is_wanted(view, instance, filter)) {
      answer["services"].push_back(service_json(session, instance));
      rows.push_back(service_cells(session, instance));
      all_forwarded &= instance.state == StateOfInstance::forwarded;
    }
  }
  const bool none_of_that_name = rows.size() == 1 && !filter.name.empty();
  std::string text = rows.size() == 1 ? std::string("There is no such service.\n") : table(rows);
  if (view.changing > 0) {
    text += "(" + std::to_string(view.changing) + " records were changing and are not shown)\n";
  }
  return print_answer(session, answer, text, all_forwarded && !none_of_that_name ? kWell : kWorthALook);
}
