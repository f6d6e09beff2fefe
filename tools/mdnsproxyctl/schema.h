// SPDX-License-Identifier: MIT
// The objects of the JSON schema that more than one command answers with, and the counts in them.
#pragma once

#include <cstddef>

#include "mdnsproxyctl/health.h"
#include "mdnsproxyctl/session.h"

// How many services are in each state.
struct StateCounts {
  std::ptrdiff_t forwarded;
  std::ptrdiff_t waiting;
  std::ptrdiff_t refused;
};

StateCounts count_states(const StateView& view);

// Those of one rule, an index into view.rules.
StateCounts count_states(const StateView& view, std::size_t rule);

// The services that the limit counts: the daemon keeps nothing for those that it refused since there were too many, or
// since they came through a gateway.
std::ptrdiff_t count_living(const StateView& view);

// "used", "of" and "high_water".
Json limit_json(const StateView& view);

// A rule with its counts; `rule` is an index into view.rules.
Json rule_json(const StateView& view, std::size_t rule);

// A link as the daemon holds it and as it is now (null: gone), with what is wrong with it.
Json link_json(const Session& session, const RuleLink& held, const MachineLink* now,
               const std::vector<HealthFinding>& findings);

// An event, which must be one of the session's.
Json event_json(const Session& session, const EventView& event);
