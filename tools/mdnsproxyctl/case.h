// SPDX-License-Identifier: MIT
// One service and its way from the link where it is to a client, as `why` examines it step by step.
#pragma once

#include <optional>
#include <string>
#include <vector>

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
  std::vector<RuleView> rules;             // those that the question is about: of the state file, or else of the rules list
  const InstanceView* instance = nullptr;  // null: the daemon does not know the service
  std::vector<Step> steps;
  StateReason reason = StateReason::none;  // found out here, when the daemon does not know it
};

// Whether the question is about a service type.
bool is_type(const std::string& subject);

// The type without a subtype in front, "_ipp._tcp".
std::string base_type(const std::string& type);

void add_step(Case& the_case, const char* name, std::optional<bool> ok, const std::string& detail, const std::string& cure = "");

// The steps of a service that the daemon knows, in the order of its way; ends with the first that fails.
void examine_known(Case& the_case);

// The steps of one that it does not know: who hears it, where, and which rule there is for it.
void examine_unknown(Case& the_case);
