// SPDX-License-Identifier: MIT
#include "config/rule_values.h"

#include <cstring>

namespace {

bool begins_with_one_of(const char* text, const char* characters) {
  return text[0] != '\0' && std::strchr(characters, text[0]) != nullptr;
}

}  // namespace

int parse_bool_string(const char* text) {
  if (text == nullptr) {
    return -1;
  }
  if (begins_with_one_of(text, "1TYty")) {
    return 1;
  }
  return begins_with_one_of(text, "0FNfn") ? 0 : -1;
}

RuleType classify_rule_type(const char* text) {
  switch (text[0]) {
    case '0':
      return RuleType::named_service;
    case '1':
      return RuleType::literal_type;
    default:
      return RuleType::invalid;
  }
}
