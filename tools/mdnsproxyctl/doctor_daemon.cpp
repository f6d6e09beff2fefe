// SPDX-License-Identifier: MIT
// The daemon's part of what `doctor` looks at: its files, itself and its links.

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <tuple>

#include "mdnsproxy-check/verdict.h"
#include "mdnsproxyctl/doctor.h"

namespace {

constexpr std::size_t kMostListFindings = 10;

// What is found this soon after the last rule was installed counts as having been there at the start.
constexpr std::uint64_t kFirstLook = 10'000'000'000;

std::vector<std::string> names_of(const std::vector<MachineLink>& links) {
  std::vector<std::string> names;
  std::ranges::transform(links, std::back_inserter(names), &MachineLink::name);
  return names;
}

using RuleKey = std::tuple<std::string, std::string, std::string>;

// Whether the daemon has the rules that the lists hold now.
bool are_the_same(const std::vector<RuleView>& rules, const std::vector<Installation>& installations) {
  std::set<RuleKey> held;
  std::set<RuleKey> listed;
  for (const RuleView& each : rules) {
    held.emplace(each.from, each.to, each.type);
  }
  for (const Installation& each : installations) {
    listed.emplace(each.if_from, each.if_to, each.service_type);
  }
  return held == listed;
}

std::string seconds(std::uint64_t nanoseconds) {
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(nanoseconds) / 1e9);
  return text.data();
}

// What can be said of the last start: when it was, and how long it took until what was there was announced.
void examine_start(Examination& examination) {
  const StateView& view = examination.session.state.view;
  std::uint64_t ready = view.started;
  for (const RuleView& each : view.rules) {
    ready = std::max(ready, each.since);
  }
  std::size_t first = 0;
  std::uint64_t complete = ready;
  for (const InstanceView& each : view.instances) {
    if (each.state == StateOfInstance::forwarded && each.found <= ready + kFirstLook) {
      first += 1;
      complete = std::max(complete, each.since);
    }
  }
  examination.well.push_back(
      {"start", "last start " + utc_time(view.started, examination.session.clocks) + "; " +
                    std::to_string(view.rules.size()) + " rules installed after " + seconds(ready - view.started) +
                    (first == 0 ? std::string(", and nothing to announce then")
                                : "; announcements of " + std::to_string(first) + " services complete after " +
                                      seconds(complete - view.started))});
}

void examine_link(Examination& examination, const RuleLink& held) {
  const MachineLink* const link = find_link(examination.links, held.name);
  if (link == nullptr && held.index == 0) {
    add_finding(examination, HealthSeverity::error, shown(held.name), "there is no such interface",
                "make the interface, or name another one in the rules");
    return;
  }
  const std::vector<HealthFinding> found =
      link_findings(held.name, held.index != 0 ? held.index : link->index, examination.links);
  examination.findings.insert(examination.findings.end(), found.begin(), found.end());
  if (found.empty() && link != nullptr) {
    std::string text = "up, can multicast, index " + std::to_string(link->index) + ":";
    for (const std::string& each : link->addresses) {
      text += " " + each;
    }
    examination.well.push_back({shown(held.name), text});
  }
}

bool is_of_the_daemon(const HealthFinding& finding) {
  return finding.subject == "daemon" || finding.subject == "limit" || finding.subject == "rules";
}

}  // namespace

void examine_lists(Examination& examination) {
  const Options& options = examination.session.options;
  const Verdict verdict = check_files(
      {options.services_file, options.rules_file, options.settings_file, false, names_of(examination.links)});
  for (std::size_t i = 0; i < std::min(verdict.findings.size(), kMostListFindings); ++i) {
    const Finding& each = verdict.findings[i];
    add_finding(examination, each.severity == Severity::error ? HealthSeverity::error : HealthSeverity::warning,
                "lists", shown(each.file) + ":" + std::to_string(each.position.line) + ": " + shown(each.message),
                each.cure.empty() ? "mdnsproxy-check says more" : shown(each.cure));
  }
  const StateView& view = examination.session.state.view;
  const bool complete = !verdict.end && view.rules_left_out == 0 && view.phase == StatePhase::running;
  if (examination.session.is_running() && complete && !are_the_same(view.rules, verdict.installations)) {
    add_finding(
        examination, HealthSeverity::warning, "lists",
        "the daemon has other rules than " + shown(options.rules_file) + " holds now: it was changed after the start",
        "systemctl reload mdnsproxy");
  } else if (verdict.findings.empty()) {
    examination.well.push_back({"lists", shown(options.rules_file) + " and " + shown(options.services_file) + ": " +
                                             std::to_string(verdict.installations.size()) + " rules, no mistake"});
  }
}

void examine_daemon(Examination& examination) {
  const Session& session = examination.session;
  if (!session.is_running()) {
    examination.findings.push_back(absence_finding(session));
  } else {
    const std::vector<HealthFinding> found = findings_of(session, examination.links);
    const std::size_t before = examination.findings.size();
    std::ranges::copy_if(found, std::back_inserter(examination.findings), is_of_the_daemon);
    if (examination.findings.size() == before) {
      const StateView& view = session.state.view;
      examination.well.push_back({"daemon", "it runs, process " + std::to_string(view.pid) + ", version " +
                                                shown(view.version) + ", at most " +
                                                std::to_string(view.counter(StateCounter::high_water)) + " of " +
                                                std::to_string(view.limit) + " services at a time"});
    }
    examine_start(examination);
  }
  StateView view;
  view.rules = examination.rules;
  for (const RuleLink& each : rule_links(view)) {
    // What is held by a process that is gone is nobody's.
    examine_link(examination, {each.name, session.is_running() ? each.index : 0});
  }
}
