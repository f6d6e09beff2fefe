// SPDX-License-Identifier: MIT
#include "config/rules_scanner.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "config/quoted_value.h"

namespace {

std::size_t offset_of(const RulesScanner& scanner, const char* position) {
  return static_cast<std::size_t>(position - scanner.buffer);
}

std::size_t offset_or_zero(const RulesScanner& scanner, const char* position) {
  return position != nullptr ? offset_of(scanner, position) : 0;
}

// Every word is located before any value is taken: taking one writes zeros that would hide later words.
std::array<RuleAttribute, kRuleWords.size()> find_words(const RulesScanner& scanner, const char* tag) {
  std::array<RuleAttribute, kRuleWords.size()> attributes = {};
  for (std::size_t i = 0; i < kRuleWords.size(); ++i) {
    const char* word = std::strstr(tag, kRuleWords[i]);
    attributes[i] = {word != nullptr, offset_or_zero(scanner, word), nullptr, 0};
  }
  return attributes;
}

bool has_every_word(const RulesItem& item) {
  return std::all_of(item.attributes.begin(), item.attributes.end(),
                     [](const RuleAttribute& each) { return each.present; });
}

// False: this attribute has no quoted value. A word that stands inside a value taken before has none.
bool take_value(const RulesScanner& scanner, const char* tag_end, RuleAttribute& attribute) {
  const char* value = take_quoted_value(scanner.buffer + attribute.word_offset, tag_end).value;
  attribute = {attribute.present, attribute.word_offset, value, offset_or_zero(scanner, value)};
  return value != nullptr;
}

void take_values(const RulesScanner& scanner, const char* tag_end, RulesItem& item) {
  item.kind = RulesItemKind::rule;
  for (std::size_t i = 0; i < item.attributes.size(); ++i) {
    if (!take_value(scanner, tag_end, item.attributes[i])) {
      item.kind = RulesItemKind::missing_value;
      item.missing = static_cast<RuleWord>(i);
      return;
    }
  }
}

RulesItem read_tag(RulesScanner& scanner, const char* tag, char* tag_end) {
  *tag_end = '\0';
  scanner.next_tag = std::strchr(tag_end + 1, '<');
  RulesItem item = {
      RulesItemKind::other_tag, offset_of(scanner, tag), offset_of(scanner, tag_end), {}, find_words(scanner, tag)};
  if (has_every_word(item)) {
    take_values(scanner, tag_end, item);
  }
  return item;
}

}  // namespace

RulesScanner rules_scanner(char* buffer) { return {buffer, std::strchr(buffer, '<')}; }

RulesItem next_item(RulesScanner& scanner) {
  char* tag = std::exchange(scanner.next_tag, nullptr);
  if (tag == nullptr) {
    return {RulesItemKind::end, 0, 0, {}, {}};
  }
  char* tag_end = std::strchr(tag, '>');
  if (tag_end == nullptr) {
    return {RulesItemKind::unclosed_tag, offset_of(scanner, tag), 0, {}, {}};
  }
  return read_tag(scanner, tag, tag_end);
}
