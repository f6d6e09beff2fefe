// SPDX-License-Identifier: MIT
// The rules scanner over any text, and the words that it yields.
//
// Claims: it ends, each finding lies in the text, and a value is what stood there between two double quotes.

#include "config/rules_scanner.h"

#include <algorithm>

#include "config/rule_values.h"
#include "fuzz.h"

namespace {

void check_value(std::string_view original, const RulesItem& item, const RuleAttribute& attribute) {
  const std::string_view value = attribute.value;
  fuzz::claim(!value.empty(), "a value is never empty");
  fuzz::claim(value.find('"') == value.npos, "a value holds no quote");
  fuzz::claim(original.substr(attribute.value_offset, value.size()) == value,
              "a value stands in the text where it says");
  fuzz::claim(attribute.value_offset > attribute.word_offset, "a value stands behind its word");
  fuzz::claim(original[attribute.value_offset + value.size()] == '"', "a quote stands behind a value");
  fuzz::claim(attribute.value_offset + value.size() < item.tag_end, "a value stands in its tag");
}

void check_attributes(std::string_view original, const RulesItem& item) {
  for (std::size_t i = 0; i < item.attributes.size(); ++i) {
    const RuleAttribute& attribute = item.attributes[i];
    const std::string_view word = kRuleWords[i];
    fuzz::claim(!attribute.present || original.substr(attribute.word_offset, word.size()) == word,
                "a word stands in the text");
    if (attribute.value != nullptr)
      check_value(original, item, attribute);
  }
}

void check_rule(const RulesItem& item) {
  fuzz::claim(
      std::all_of(item.attributes.begin(), item.attributes.end(), [](const RuleAttribute& each) { return each.value; }),
      "a rule has all five values");
  const int both_ways = parse_bool_string(attribute_of(item, RuleWord::bidirectional).value);
  fuzz::claim(both_ways >= -1 && both_ways <= 1, "a boolean word is true, false or none");
}

void check_item(std::string_view original, const RulesItem& item) {
  if (item.kind == RulesItemKind::end)
    return;
  fuzz::claim(original[item.tag_offset] == '<', "a tag begins with '<'");
  if (item.kind == RulesItemKind::unclosed_tag)
    return;
  fuzz::claim(item.tag_end > item.tag_offset && original[item.tag_end] == '>', "a tag ends with '>'");
  check_attributes(original, item);
  if (item.kind == RulesItemKind::rule)
    check_rule(item);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::scan<RulesItemKind>(rules_scanner, check_item, data, size);
  return 0;
}
