// SPDX-License-Identifier: MIT
// What would become of the services with other rules than those that the daemon has.
#pragma once

#include <string>
#include <vector>

#include "mdnsproxyctl/machine.h"
#include "mdnsproxyctl/session.h"

// A link on which nobody was asked.
struct Unasked {
  std::string link;
  std::string why;
};

struct Forecast {
  std::vector<RuleView> rules;          // the new ones
  std::vector<InstanceView> come;       // by their index into `rules`; without a time, and without a name there
  std::vector<const InstanceView*> go;  // of the session
  std::vector<Unasked> unasked;         // each link once
};

// Compares the rules with those of the session. What a rule looks for that the daemon watches already is known from
// the state file; everything else is asked for on the links, some seconds long, unless the session's options forbid
// it. Without a running daemon everything would come and nothing go.
Forecast forecast(const Session& session, const std::vector<RuleView>& rules, const std::vector<MachineLink>& links);
