// SPDX-License-Identifier: MIT
// What the values of a rule mean.
#pragma once

// A boolean word, decided by its first character alone: 1 for one of "1TYty", 0 for one of "0FNfn", -1 for any other,
// for an empty text and for null.
int parse_bool_string(const char* text);

// How a rule's mdnsservice value is read.
enum class RuleType {
  named_service,  // a name of the services list
  literal_type,   // a DNS-SD service type as it stands
  invalid,
};

// Decided by the first character alone: '0' a named service, '1' a literal type.
RuleType classify_rule_type(const char* text);
