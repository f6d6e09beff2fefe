// SPDX-License-Identifier: MIT
// Scanner findings as lines of text, so that a test compares a whole file's worth at once.
#pragma once

#include <string>
#include <vector>

// What the services scanner makes of a text, one line an item: "begins NAME", "type TYPE", "ends NAME", "missing end
// tag", "missing name", "missing type of NAME". Goes on after an error, and fails the test if an item's offsets do not
// point at its phrase and value in the text as it was. The text is `bytes` up to its first zero.
std::vector<std::string> scan_services(const std::string& bytes);

// What the rules scanner makes of a text: "rule SERVICE|RULE_TYPE|IF_FROM|IF_TO|BIDIRECTIONAL", "other tag without
// WORD...", "missing WORD of SERVICE" ("missing mdnsservice"), "unclosed tag". The same checks of the offsets.
std::vector<std::string> scan_rules(const std::string& bytes);
