// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iterator>

#include "mdnsproxyctl/report.h"

namespace {

ReportCheck failed_check(const HealthFinding& finding) {
  const bool error = finding.severity == HealthSeverity::error;
  return {error ? CheckResult::error : CheckResult::warning, finding.subject, finding.text, finding.cure};
}

void add_notes(CheckResult result, const std::vector<DoctorNote>& notes, std::vector<ReportCheck>& checks) {
  std::ranges::transform(notes, std::back_inserter(checks), [&](const DoctorNote& each) {
    return ReportCheck{result, each.subject, each.text, ""};
  });
}

}  // namespace

const char* check_word(CheckResult result) {
  constexpr const char* kWords[] = {"well", "not looked at", "warning", "error"};
  return kWords[static_cast<std::size_t>(result)];
}

std::vector<ReportCheck> report_checks(const Examination& examination) {
  std::vector<ReportCheck> checks;
  std::ranges::transform(examination.findings, std::back_inserter(checks), failed_check);
  add_notes(CheckResult::not_seen, examination.not_seen, checks);
  add_notes(CheckResult::well, examination.well, checks);
  return checks;
}
