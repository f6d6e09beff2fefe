// SPDX-License-Identifier: MIT
// What is wrong with the daemon and its links, as far as the state file and the machine tell.
#pragma once

#include <string>
#include <vector>

#include "mdnsproxyctl/machine.h"
#include "mdnsproxyctl/session.h"

enum class HealthSeverity { warning, error };

struct HealthFinding {
  HealthSeverity severity;
  std::string subject;  // a link, "daemon", "rules" or "limit"
  std::string text;     // without a full stop; made by `shown` where it holds a stranger's words
  std::string cure;
};

// The worst first. None unless the daemon runs.
std::vector<HealthFinding> findings_of(const Session& session, const std::vector<MachineLink>& links);

// That the daemon does not run, or that nobody knows: `absence` as a finding. The session must be one without a running
// daemon.
HealthFinding absence_finding(const Session& session);

// The findings about one link that rules name, with the index that the daemon holds it by.
std::vector<HealthFinding> link_findings(const std::string& name, int daemon_index,
                                         const std::vector<MachineLink>& links);

// The findings as the schema has them.
Json findings_json(const std::vector<HealthFinding>& findings);

// One line each.
std::string findings_text(const std::vector<HealthFinding>& findings);

// kUnwell with an error among them, kWorthALook with a warning, else kWell.
int findings_status(const std::vector<HealthFinding>& findings);

// The exit status of a command that shows everything: base_status, and of a daemon that runs the worse one of
// findings_status and of kWorthALook for a service that waits or is refused.
int overall_status(const Session& session, const std::vector<HealthFinding>& findings);

// A link of the rules, by name and the index that the daemon holds it by.
struct RuleLink {
  std::string name;
  int index;
};

// Each once, in the order of the rules.
std::vector<RuleLink> rule_links(const StateView& view);
