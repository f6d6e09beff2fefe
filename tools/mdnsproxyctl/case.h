// SPDX-License-Identifier: MIT
// One service and its way from the link where it is to a client, as `why` examines it step by step.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mdnsproxyctl/filter.h"
#include "mdnsproxyctl/health.h"

// What is asked about. Empty links: any.
struct WhyQuestion {
  std::string subject;  // a service's name, or a service type
  std::string from;
  std::string to;
};

// One step that was examined. Every step has been; where an answer is not to be had, `ok` is nothing and the detail
// says why.
struct Step {
  const char* name;
  std::optional<bool> ok;
  std::string detail;
  std::string cure;  // of one that fails
};

struct Case {
  const Session& session;
  WhyQuestion question;
  std::vector<MachineLink> links;
  std::vector<RuleView> rules;             // those that the question is about: of the state file, or else of the rules
                                           // list
  const InstanceView* instance = nullptr;  // null: the daemon does not know the service
  std::vector<Step> steps;
  StateReason reason = StateReason::none;    // found out here, when the daemon does not know it
  std::optional<FilterReading> filter = {};  // once it has been read
};

// Whether the question is about a service type.
bool is_type(const std::string& subject);

// The type without a subtype in front, "_ipp._tcp".
std::string base_type(const std::string& type);

// The rules that the daemon has, or would have: those of its lists, when there is no state file to ask.
std::vector<RuleView> rules_of(const Session& session);

void add_step(Case& the_case, const char* name, std::optional<bool> ok, const std::string& detail,
              const std::string& cure = "");

// The steps of a service that the daemon knows, in the order of its way; ends with the first that fails.
void examine_known(Case& the_case);

// The steps of one that it does not know: who hears it, where, and which rule there is for it.
void examine_unknown(Case& the_case);

// --- The packet filter

// Whether it lets multicast DNS pass between a link and this machine, both ways. Nothing: that is not known, and `text`
// says why.
struct FilterVerdict {
  std::optional<bool> passes;
  std::string text;
  std::string cure;  // when it does not
};
FilterVerdict judge_multicast(Case& the_case, const MachineLink& link);

// The step of a client's packets to this address of a service that the daemon knows, and of the answers. Returns
// whether the way goes on.
bool examine_filter(Case& the_case, const std::string& address);

// --- The other link

// The steps of a service that is announced there: under which name, who answers for it, and who else does. Returns
// whether the way goes on.
bool examine_other_link(Case& the_case);
