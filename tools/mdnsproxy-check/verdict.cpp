// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/verdict.h"

#include <algorithm>
#include <tuple>

namespace {

bool is_error(const Finding& finding) { return finding.severity == Severity::error; }

// Findings of one file stay together, in the order in which the files were read.
void sort_by_position(Findings& findings, const CheckRequest& request) {
  const auto place = [&request](const Finding& finding) {
    const int file = finding.file == request.services_file ? 0 : finding.file == request.rules_file ? 1 : 2;
    return std::make_tuple(file, finding.position.line, finding.position.column);
  };
  std::stable_sort(findings.begin(), findings.end(),
                   [&place](const Finding& one, const Finding& other) { return place(one) < place(other); });
}

}  // namespace

Verdict check_files(const CheckRequest& request) {
  Verdict verdict;
  const ServiceCatalog catalog = check_services(request.services_file, verdict.findings, request.reader);
  verdict.installations = check_rules(request, catalog, verdict.findings);
  const auto end = std::find_if(verdict.findings.begin(), verdict.findings.end(), is_error);
  if (end != verdict.findings.end()) {
    verdict.end = *end;
  }
  check_settings(request.settings_file, request.settings_required, verdict.findings);
  sort_by_position(verdict.findings, request);
  return verdict;
}

int exit_status(const Verdict& verdict) {
  if (verdict.end) {
    return 2;
  }
  return verdict.findings.empty() ? 0 : 1;
}
