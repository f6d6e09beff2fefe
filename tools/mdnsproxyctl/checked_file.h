// SPDX-License-Identifier: MIT
// What mdnsproxy-check says of a rules list, for the commands that take one.
#pragma once

#include <string>
#include <vector>

#include "mdnsproxy-check/reader.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/session.h"

struct CheckedFile {
  bool accepted = false;        // the daemon would start with it
  Json findings;                // an array, see mdnsproxy-check(1)
  std::string lines;            // the same for a person, one line each
  std::vector<RuleView> rules;  // as they would be installed, each once; without indices; empty unless accepted
};

// Checks the file, together with the session's services list, for the interfaces that this machine has.
CheckedFile check_rules_file(const Session& session, const std::string& path);

// Checks a text in the file's place, as the reader: a child process becomes that user. The text is called `path` in
// what is found. Only for root. Where the child fails, the text is not accepted, and the lines say so.
CheckedFile check_rules_text(const Session& session, const std::string& text, const std::string& path,
                             const Reader& reader);

// Whether two rules are for the same type between the same links.
bool same_way(const RuleView& one, const RuleView& other);
