// SPDX-License-Identifier: MIT
// Where a tag of the rules list is something else to the daemon than to its writer.
#pragma once

#include <vector>

#include "config/rules_scanner.h"
#include "mdnsproxy-check/source_text.h"

struct RulesSource {
  SourceText text;
  std::vector<Stretch> comments;
};

// Appends a warning for each of: words that a rule lacks, a word inside a value or inside a longer word, an empty
// value, single quotes, a rule in a comment, a value of which only the first character counts, a tag without its end.
void explain_rule_tag(const RulesSource& source, const RulesItem& item, Findings& findings);
