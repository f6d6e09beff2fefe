// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/health.h"

#include <algorithm>

#include "mdnsproxyctl/json.h"

namespace {

// A pass of the event loop takes milliseconds, and a step of start-up half a second.
constexpr std::uint64_t kLongestPass = 5'000'000'000;
constexpr std::uint64_t kLongestStep = 10'000'000'000;

void add(std::vector<HealthFinding>& findings, HealthSeverity severity, const std::string& subject,
         const std::string& text, const std::string& cure) {
  findings.push_back({severity, subject, text, cure});
}

void judge_process(const Session& session, std::vector<HealthFinding>& findings) {
  const StateView& view = session.state.view;
  const std::uint64_t silent = age(view.beat, session.clocks);
  const std::string restart = "systemctl restart mdnsproxy; if it happens again, report it with the journal";
  if (const std::optional<char> state = process_state(view.pid); state && (*state == 'T' || *state == 't')) {
    add(findings, HealthSeverity::error, "daemon",
        "process " + std::to_string(view.pid) + " is stopped (by a signal or a debugger)",
        "let it go on: kill -CONT " + std::to_string(view.pid));
  } else if (view.phase == StatePhase::running && !view.waiting && silent > kLongestPass) {
    add(findings, HealthSeverity::error, "daemon", "it hangs: it has been busy with one thing for " + duration(silent),
        restart);
  } else if (view.phase == StatePhase::starting && silent > kLongestStep) {
    add(findings, HealthSeverity::error, "daemon", "it hangs: its start-up has not gone on for " + duration(silent),
        restart);
  } else if (view.phase == StatePhase::ended) {
    add(findings, HealthSeverity::error, "daemon", "it is about to end with status " + std::to_string(view.exit_status),
        "look for the reason: journalctl -u mdnsproxy");
  } else if (view.phase == StatePhase::starting) {
    add(findings, HealthSeverity::warning, "daemon", "it is still starting: rules are being installed",
        "wait for a few seconds");
  }
}

void judge_rules(const StateView& view, std::vector<HealthFinding>& findings) {
  if (view.rules.empty() && view.phase == StatePhase::running) {
    add(findings, HealthSeverity::warning, "rules", "there is no rule: nothing is forwarded",
        "write rules into the rules list (mdnsproxy-rules(5)), check them with mdnsproxy-check, and restart");
  }
  if (view.rules_left_out > 0) {
    add(findings, HealthSeverity::warning, "rules",
        std::to_string(view.rules_left_out) + " rules have no room in the state file: they work, and are not shown",
        "use fewer rules");
  }
}

void judge_limit(const StateView& view, std::vector<HealthFinding>& findings) {
  const auto refused = std::ranges::count(view.instances, StateReason::limit, &InstanceView::reason);
  if (refused > 0) {
    add(findings, HealthSeverity::error, "limit",
        "the limit of " + std::to_string(view.limit) + " services is reached; refused: " + std::to_string(refused),
        "use fewer or narrower rules; what was refused is tried again after a restart");
  }
  if (const std::uint64_t left_out = view.counter(StateCounter::left_out); left_out > 0) {
    add(findings, HealthSeverity::warning, "limit",
        std::to_string(left_out) + " times a service had no room in the state file, and is not shown",
        "use fewer rules");
  }
}

}  // namespace

std::vector<RuleLink> rule_links(const StateView& view) {
  std::vector<RuleLink> links;
  const auto keep = [&](const std::string& name, int index) {
    if (std::ranges::find(links, name, &RuleLink::name) == links.end()) {
      links.push_back({name, index});
    }
  };
  for (const RuleView& rule : view.rules) {
    keep(rule.from, rule.from_index);
    keep(rule.to, rule.to_index);
  }
  return links;
}

std::vector<HealthFinding> link_findings(const std::string& name, int daemon_index,
                                         const std::vector<MachineLink>& links) {
  std::vector<HealthFinding> findings;
  const std::string subject = shown(name);
  const MachineLink* const link = find_link(links, name);
  const std::string dead = "DEAD: the daemon holds it by index " + std::to_string(daemon_index);
  const std::string restart =
      "systemctl restart mdnsproxy; so that this is done by itself, systemctl enable mdnsproxy-interface@" + subject;
  if (link == nullptr) {
    add(findings, HealthSeverity::error, subject, dead + ", and there is no such interface",
        "make the interface again; then " + restart);
  } else if (link->index != daemon_index) {
    add(findings, HealthSeverity::error, subject,
        dead + ", and it has been made anew with index " + std::to_string(link->index), restart);
  } else if (!link->multicast) {
    add(findings, HealthSeverity::error, subject, "it cannot multicast", "name another interface in the rules");
  } else if (!link->up) {
    add(findings, HealthSeverity::error, subject, "it is down", "ip link set " + subject + " up, or see to its cable");
  } else if (link->addresses.empty()) {
    add(findings, HealthSeverity::error, subject, "it has no address", "give it one");
  }
  return findings;
}

HealthFinding absence_finding(const Session& session) {
  constexpr std::string_view kBetween = ".\ncure: ";
  const std::string words = absence(session);
  const std::size_t end = words.find(kBetween);
  const std::size_t cure = end + kBetween.size();
  return {HealthSeverity::error, "daemon", words.substr(0, end), words.substr(cure, words.size() - cure - 1)};
}

std::vector<HealthFinding> findings_of(const Session& session, const std::vector<MachineLink>& links) {
  std::vector<HealthFinding> findings;
  if (!session.is_running()) {
    return findings;
  }
  judge_process(session, findings);
  for (const RuleLink& each : rule_links(session.state.view)) {
    const std::vector<HealthFinding> found = link_findings(each.name, each.index, links);
    findings.insert(findings.end(), found.begin(), found.end());
  }
  judge_limit(session.state.view, findings);
  judge_rules(session.state.view, findings);
  std::ranges::stable_sort(findings, std::ranges::greater(), &HealthFinding::severity);
  return findings;
}

Json findings_json(const std::vector<HealthFinding>& findings) {
  Json list = Json::array();
  for (const HealthFinding& each : findings) {
    list.push_back({{"severity", each.severity == HealthSeverity::error ? "error" : "warning"},
                    {"subject", each.subject},
                    {"text", each.text},
                    {"cure", each.cure}});
  }
  return list;
}

std::string findings_text(const std::vector<HealthFinding>& findings) {
  std::string text;
  for (const HealthFinding& each : findings) {
    text += std::string(each.severity == HealthSeverity::error ? "error: " : "warning: ") + each.subject + ": " +
            each.text + "; cure: " + each.cure + "\n";
  }
  return text;
}

int findings_status(const std::vector<HealthFinding>& findings) {
  const bool error = std::ranges::count(findings, HealthSeverity::error, &HealthFinding::severity) > 0;
  return error ? kUnwell : findings.empty() ? kWell : kWorthALook;
}

int overall_status(const Session& session, const std::vector<HealthFinding>& findings) {
  const auto is_forwarded = [](const InstanceView& each) { return each.state == StateOfInstance::forwarded; };
  if (!session.is_running()) {
    return base_status(session);
  }
  return std::max(std::ranges::all_of(session.state.view.instances, is_forwarded) ? kWell : kWorthALook,
                  static_cast<ExitStatus>(findings_status(findings)));
}
