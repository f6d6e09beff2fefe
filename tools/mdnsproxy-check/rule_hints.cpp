// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/rule_hints.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "config/rule_values.h"

namespace {

constexpr std::string_view kRuleElement = "mdnsproxyrule";

// A tag of another name that holds as many of the five words was meant as a rule all the same.
constexpr std::ptrdiff_t kWordsOfAMeantRule = 3;

// Words that say what they mean. Any other is judged by its first character.
constexpr std::array<std::string_view, 10> kPlainBooleans = {"1", "0",   "t",  "f",    "y",
                                                             "n", "yes", "no", "true", "false"};

// One tag under examination.
struct RuleTag {
  const RulesSource& source;
  const RulesItem& item;
  Findings& findings;
};

void warn(const RuleTag& tag, std::size_t offset, const std::string& message, const std::string& cure) {
  const SourceText& text = tag.source.text;
  tag.findings.push_back({Severity::warning, text.path, position_of(text, offset), message, cure, 0});
}

std::string_view text_of(const RuleTag& tag) {
  return text_between(tag.source.text, tag.item.tag_offset, tag.item.tag_end);
}

std::string_view element_of(const RuleTag& tag) {
  const std::string_view text = text_of(tag).substr(1);
  return text.substr(0, text.find_first_of(" \t\r\n\f\v/\"'="));
}

bool is_word_byte(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-'; }

// --- Not a rule ------------------------------------------------------------------------------------------------------

std::vector<std::string> missing_words(const RulesItem& item) {
  std::vector<std::string> words;
  for (std::size_t i = 0; i < kRuleWords.size(); ++i) {
    if (!item.attributes[i].present) {
      words.emplace_back(kRuleWords[i]);
    }
  }
  return words;
}

bool is_meant_as_rule(const RuleTag& tag) {
  const auto present = std::count_if(tag.item.attributes.begin(), tag.item.attributes.end(),
                                     [](const RuleAttribute& each) { return each.present; });
  return same_ignoring_case(element_of(tag), kRuleElement) || present >= kWordsOfAMeantRule;
}

void explain_other_tag(const RuleTag& tag) {
  if (lies_in(tag.source.comments, tag.item.tag_offset) || !is_meant_as_rule(tag)) {
    return;
  }
  const std::vector<std::string> words = missing_words(tag.item);
  warn(tag, tag.item.tag_offset, "this rule lacks " + joined(words, "nothing") + " and is skipped",
       "add " + words.front() + "=\"...\" to it, in small letters and before the first \">\"");
}

void explain_unclosed_tag(const RuleTag& tag) {
  warn(tag, tag.item.tag_offset, "there is no \">\" after this \"<\": the daemon reads no further",
       "write the missing \">\"");
}

// --- A rule ----------------------------------------------------------------------------------------------------------

bool is_quoted(const RuleTag& tag, std::size_t offset) {
  const std::string_view before = text_between(tag.source.text, tag.item.tag_offset, offset);
  return std::count(before.begin(), before.end(), '"') % 2 == 1;
}

bool is_part_of_word(const RuleTag& tag, std::size_t offset, std::string_view word) {
  const std::string& text = tag.source.text.text;
  return is_word_byte(text[offset - 1]) || is_word_byte(text[offset + word.size()]);
}

void explain_word(const RuleTag& tag, std::size_t which) {
  const std::size_t offset = tag.item.attributes[which].word_offset;
  const std::string word = kRuleWords[which];
  if (is_quoted(tag, offset)) {
    warn(tag, offset,
         "the word " + word + " stands inside a value, and the daemon takes the first one that it finds in the tag",
         "write the attribute " + word + " before this value, or change the value");
  } else if (is_part_of_word(tag, offset, word)) {
    warn(tag, offset,
         "the word " + word +
             " stands inside a longer word, and the daemon takes the first one that it finds in the tag",
         "write the attribute " + word + " by itself and before this word");
  }
}

void explain_empty_value(const RuleTag& tag, const RuleAttribute& attribute) {
  const std::size_t quote = find_empty_value(tag.source.text, attribute.word_offset, tag.item.tag_end);
  if (quote != std::string::npos) {
    const std::string taken = attribute.value != nullptr ? formatted("the daemon takes \"%s\" for it", attribute.value)
                                                         : std::string("the daemon does not see it");
    warn(tag, quote, "empty value: " + taken, "write the value between the two quotes");
  }
}

void explain_single_quotes(const RuleTag& tag) {
  const std::size_t quote = find_single_quote(tag.source.text, tag.item.tag_offset, tag.item.tag_end);
  if (quote != std::string::npos) {
    warn(tag, quote, "single quotes do not delimit a value", "use double quotes");
  }
}

void explain_comment(const RuleTag& tag) {
  const std::size_t word = attribute_of(tag.item, RuleWord::mdnsservice).word_offset;
  if (lies_in(tag.source.comments, word)) {
    warn(tag, tag.item.tag_offset, "this rule stands in a comment, but the daemon knows no comments: it is in force",
         "delete it, or change one of its five words");
  }
}

void explain_first_characters(const RuleTag& tag) {
  const RuleAttribute& type = attribute_of(tag.item, RuleWord::rule_type);
  if (classify_rule_type(type.value) != RuleType::invalid && type.value[1] != '\0') {
    warn(tag, type.value_offset,
         formatted("of rule_type only the first character counts: \"%s\" is %c", type.value, type.value[0]),
         "write 0 or 1");
  }
  const RuleAttribute& boolean = attribute_of(tag.item, RuleWord::bidirectional);
  const int meaning = parse_bool_string(boolean.value);
  const auto is_value = [&boolean](std::string_view word) { return same_ignoring_case(word, boolean.value); };
  if (meaning >= 0 && std::none_of(kPlainBooleans.begin(), kPlainBooleans.end(), is_value)) {
    warn(tag, boolean.value_offset,
         formatted("of bidirectional only the first character counts: \"%s\" is %s", boolean.value,
                   meaning == 1 ? "yes" : "no"),
         "write yes or no");
  }
}

void explain_rule(const RuleTag& tag) {
  explain_comment(tag);
  explain_single_quotes(tag);
  for (std::size_t i = 0; i < kRuleWords.size(); ++i) {
    explain_word(tag, i);
    explain_empty_value(tag, tag.item.attributes[i]);
  }
  if (tag.item.kind == RulesItemKind::rule) {
    explain_first_characters(tag);
  }
}

}  // namespace

void explain_rule_tag(const RulesSource& source, const RulesItem& item, Findings& findings) {
  const RuleTag tag = {source, item, findings};
  switch (item.kind) {
    case RulesItemKind::rule:
    case RulesItemKind::missing_value:
      explain_rule(tag);
      break;
    case RulesItemKind::other_tag:
      explain_other_tag(tag);
      break;
    case RulesItemKind::unclosed_tag:
      explain_unclosed_tag(tag);
      break;
    case RulesItemKind::end:
      break;
  }
}
