// SPDX-License-Identifier: MIT
// The page and its JSON show whatever report_checks returns, in its order: further checks are added there.
#include <algorithm>
#include <iterator>

#include "mdnsproxyctl/report.h"

namespace {

ReportCheck check_of(const HealthFinding& finding) {
  const bool error = finding.severity == HealthSeverity::error;
  return {error ? CheckResult::error : CheckResult::warning, finding.subject, finding.text, finding.cure};
}

void add_well(std::vector<ReportCheck>& checks, const std::string& subject, const std::string& text) {
  checks.push_back({CheckResult::well, subject, text, ""});
}

// What is well: each subject that no finding is about.
void add_what_is_well(const Session& session, const std::vector<MachineLink>& machine,
                      std::vector<ReportCheck>& checks) {
  const StateView& view = session.state.view;
  const std::vector<ReportCheck> findings = checks;
  const auto is_well = [&](const char* subject) {
    return !std::ranges::count(findings, subject, &ReportCheck::subject);
  };
  if (is_well("daemon")) {
    add_well(checks, "daemon", "it runs, process " + std::to_string(view.pid));
  }
  for (const RuleLink& each : rule_links(view)) {
    if (link_findings(each.name, each.index, machine).empty()) {
      add_well(checks, shown(each.name),
               "it is up, has index " + std::to_string(each.index) +
                   " as the daemon knows it, an address, and can multicast");
    }
  }
  if (is_well("limit")) {
    add_well(checks, "limit", std::to_string(count_living(view)) + " of " + std::to_string(view.limit) + " services");
  }
  if (is_well("rules")) {
    add_well(checks, "rules", std::to_string(view.rules.size()) + ", each for one type and one direction");
  }
}

}  // namespace

std::vector<ReportCheck> report_checks(const Session& session, const std::vector<MachineLink>& machine) {
  if (!session.is_running()) {
    return {check_of(absence_finding(session))};
  }
  std::vector<ReportCheck> checks;
  std::ranges::transform(findings_of(session, machine), std::back_inserter(checks), check_of);
  add_what_is_well(session, machine, checks);
  return checks;
}
