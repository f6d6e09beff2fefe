// SPDX-License-Identifier: MIT
// The rules. They are installed one after another at start-up and stay.

#include <algorithm>

#include "state/record.h"
#include "state/state.h"

namespace {

const void* gRules[kStateRules];  // the caller's address for the rule of each slot
std::uint32_t gRuleCount = 0;     // slots in use
std::uint32_t gNextLine = 0;      // in the rules list, of the rule that is installed next; 0: not known

}  // namespace

void state_forget_rules() {
  gRuleCount = 0;
  gNextLine = 0;
}

// A walk over all of them, since a machine has a few dozen rules.
std::uint32_t state_rule_slot(const void* rule) {
  const void* const* const end = gRules + gRuleCount;
  const void* const* const found = std::find(static_cast<const void* const*>(gRules), end, rule);
  return found != end ? static_cast<std::uint32_t>(found - gRules) : kStateRules;
}

void state_rule_stands_at(const char* text, std::size_t offset) {
  if (gStateImage != nullptr) {
    gNextLine = 1 + static_cast<std::uint32_t>(std::count(text, text + offset, '\n'));
  }
}

void state_rule_installed(const void* rule, const char* type, const char* from, std::int32_t from_index, const char* to,
                          std::int32_t to_index) {
  if (gStateImage == nullptr) {
    return;
  }
  const std::uint64_t now = state_now();
  const RecordWriting writing_global(gStateImage->global);
  gStateImage->global.beat = now;
  if (gRuleCount == kStateRules) {
    ++gStateImage->global.rules_left_out;
    return;
  }
  StateRule& record = gStateImage->rules[gRuleCount];
  const RecordWriting writing(record);
  record.line = gNextLine;
  record.from_index = from_index;
  record.to_index = to_index;
  record.since = now;
  set_field(record.from, from);
  set_field(record.to, to);
  set_field(record.type, type);
  gRules[gRuleCount] = rule;
  gStateImage->global.rules = ++gRuleCount;
}
