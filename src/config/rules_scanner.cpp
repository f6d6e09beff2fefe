#include "config/rules_scanner.h"

#include <algorithm>
#include <cstring>

#include "config/quoted_value.h"

namespace {

std::size_t offset_of(const RulesScanner& scanner, const char* position) {
  return static_cast<std::size_t>(position - scanner.buffer);
}

// Every word is located before any value is taken: taking one writes zeros that would hide later words.
void find_words(const RulesScanner& scanner, const char* tag, RulesItem& item) {
  for (std::size_t i = 0; i < kRuleWords.size(); ++i) {
    const char* word = std::strstr(tag, kRuleWords[i]);
    item.attributes[i] = {word != nullptr, word != nullptr ? offset_of(scanner, word) : 0, nullptr, 0};
  }
}

bool has_every_word(const RulesItem& item) {
  return std::all_of(item.attributes.begin(), item.attributes.end(), [](const RuleAttribute& each) { return each.present; });
}

// False: this attribute has no quoted value. A word that stands inside a value taken before has none.
bool take_value(const RulesScanner& scanner, const char* tag_end, RuleAttribute& attribute) {
  const char* value = take_quoted_value(scanner.buffer + attribute.word_offset, tag_end).value;
  attribute.value = value;
  attribute.value_offset = value != nullptr ? offset_of(scanner, value) : 0;
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

}  // namespace

RulesScanner rules_scanner(char* buffer) { return {buffer, std::strchr(buffer, '<')}; }

RulesItem next_item(RulesScanner& scanner) {
  RulesItem item = {};
  item.kind = RulesItemKind::end;
  char* tag = scanner.next_tag;
  if (tag == nullptr) {
    return item;
  }
  item.tag_offset = offset_of(scanner, tag);
  char* tag_end = std::strchr(tag, '>');
  if (tag_end == nullptr) {
    item.kind = RulesItemKind::unclosed_tag;
    scanner.next_tag = nullptr;
    return item;
  }
  *tag_end = '\0';
  item.tag_end = offset_of(scanner, tag_end);
  scanner.next_tag = std::strchr(tag_end + 1, '<');
  find_words(scanner, tag, item);
  item.kind = RulesItemKind::other_tag;
  if (has_every_word(item)) {
    take_values(scanner, tag_end, item);
  }
  return item;
}
