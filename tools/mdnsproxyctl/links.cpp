// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/health.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/reflectors.h"
#include "mdnsproxyctl/schema.h"

namespace {

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& each : texts) {
    all += (all.empty() ? "" : " ") + each;
  }
  return all.empty() ? "-" : all;
}

struct Row {
  RuleLink held;
  const MachineLink* now;  // null: gone
  std::vector<HealthFinding> findings;
};

std::vector<std::string> cells(const Session& session, const Row& row) {
  const LinkView* const figures = link_figures(session, row.held.index);
  const auto number = [&](std::uint64_t LinkView::*member) {
    return figures != nullptr ? std::to_string(figures->*member) : "-";
  };
  const bool dead = row.now == nullptr || row.now->index != row.held.index;
  return {shown(row.held.name),
          std::to_string(row.held.index),
          dead          ? "DEAD"
          : row.now->up ? "up"
                        : "down",
          row.now != nullptr && row.now->multicast ? "yes" : "no",
          number(&LinkView::received),
          number(&LinkView::sent),
          number(&LinkView::lost),
          row.now != nullptr ? joined(row.now->addresses) : std::string("-")};
}

// Who else announces on the link what the daemon does; "": nobody.
std::string others_text(const Session& session, const RuleLink& held) {
  const LinkView* const figures = link_figures(session, held.index);
  if (figures == nullptr || figures->siblings.empty()) {
    return "";
  }
  return shown(held.name) + ": " + joined(figures->siblings) +
         " announces the same services: another gateway, or a reflector\n";
}

void add_reflectors(Row& row, const std::vector<Repeater>& repeaters) {
  for (const Repeater& each : repeaters) {
    if (each.to == row.held.name && !each.gateway) {
      row.findings.push_back({HealthSeverity::warning, shown(each.to), repeater_text(each), kReflectorCure});
    }
  }
}

}  // namespace

int run_links(const Session& session, const std::string& only) {
  Json answer = new_answer(session);
  if (!session.is_running()) {
    return print_answer(session, answer, absence(session), base_status(session));
  }
  const std::vector<MachineLink> links = machine_links();
  answer["links"] = Json::array();
  std::vector<std::vector<std::string>> rows = {
      {"LINK", "INDEX", "STATE", "MULTICAST", "RECEIVED", "SENT", "LOST", "ADDRESSES"}};
  std::vector<HealthFinding> all;
  std::string others;
  const std::vector<Repeater> repeaters =
      session.options.no_network ? std::vector<Repeater>{} : find_all_repeaters(session, links);
  for (const RuleLink& held : rule_links(session.state.view)) {
    if (only.empty() || only == held.name) {
      Row row = {held, find_link(links, held.name), link_findings(held.name, held.index, links)};
      add_reflectors(row, repeaters);
      answer["links"].push_back(link_json(session, row.held, row.now, row.findings));
      rows.push_back(cells(session, row));
      others += others_text(session, held);
      all.insert(all.end(), row.findings.begin(), row.findings.end());
    }
  }
  if (rows.size() == 1) {
    const std::string what =
        only.empty() ? "There is no rule, and so no link.\n" : "No rule names " + in_quotes(only) + ".\n";
    return print_answer(session, answer, what, kWorthALook);
  }
  return print_answer(session, answer, table(rows) + others + findings_text(all), findings_status(all));
}
