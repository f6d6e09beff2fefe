// SPDX-License-Identifier: MIT
#include <algorithm>

#include "mdnsproxyctl/checked_file.h"
#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/forecast.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/lists.h"

namespace {

using Cells = std::vector<std::string>;

Cells cells_of(const char* change, const RuleView& rule, const InstanceView& instance) {
  return {change,         shown(instance.name),       shown(rule.type),    shown(rule.from),
          shown(rule.to), state_word(instance.state), where_text(instance)};
}

std::string table_of(const Session& session, const Forecast& outlook) {
  std::vector<Cells> rows = {{"CHANGE", "SERVICE", "TYPE", "FROM", "TO", "STATE", "WHERE OR WHY"}};
  for (const InstanceView& each : outlook.come) {
    rows.push_back(cells_of("comes", outlook.rules[each.rule], each));
  }
  for (const InstanceView* each : outlook.go) {
    rows.push_back(cells_of("goes", session.state.view.rules[each->rule], *each));
  }
  return rows.size() == 1 ? std::string("No service would come or go.\n") : table(rows);
}

std::string text_of(const Session& session, const CheckedFile& checked, const Forecast& outlook) {
  std::string text = absence(session) + checked.lines;
  if (!checked.accepted) {
    return text + "With this file the daemon ends: nothing is forwarded.\n" +
           (outlook.go.empty() ? "" : table_of(session, outlook));
  }
  text += table_of(session, outlook);
  for (const Unasked& each : outlook.unasked) {
    text += "not asked on " + shown(each.link) + ": " + each.why + "\n";
  }
  return text;
}

// The services that would come are those of a daemon with the new rules.
Json coming_json(const Session& session, const Forecast& outlook) {
  Session then = session;
  then.state.view.rules = outlook.rules;
  Json list = Json::array();
  for (const InstanceView& each : outlook.come) {
    list.push_back(service_json(then, each));
    list.back()["since"] = nullptr;
  }
  return list;
}

Json json_of(const Session& session, const std::string& file, const CheckedFile& checked, const Forecast& outlook) {
  Json answer = new_answer(session);
  answer["come"] = coming_json(session, outlook);
  answer["go"] = Json::array();
  for (const InstanceView* each : outlook.go) {
    answer["go"].push_back(service_json(session, *each));
  }
  answer["not_asked"] = Json::array();
  for (const Unasked& each : outlook.unasked) {
    answer["not_asked"].push_back({{"link", each.link}, {"why", each.why}});
  }
  answer["file"] = file;
  answer["findings"] = checked.findings;
  return answer;
}

int status_of(const Session& session, const CheckedFile& checked, const Forecast& outlook) {
  if (!checked.accepted) {
    return kUnwell;
  }
  if (const int base = base_status(session); base != kWell) {
    return base;
  }
  const auto is_forwarded = [](const InstanceView& each) { return each.state == StateOfInstance::forwarded; };
  const bool well =
      checked.findings.empty() && outlook.unasked.empty() && std::ranges::all_of(outlook.come, is_forwarded);
  return well ? kWell : kWorthALook;
}

}  // namespace

int run_what_if(const Session& session, const std::string& file) {
  const CheckedFile checked = check_rules_file(session, file);
  const Forecast outlook = forecast(session, checked.rules, machine_links());
  return print_answer(session, json_of(session, file, checked, outlook), text_of(session, checked, outlook),
                      status_of(session, checked, outlook));
}
