// SPDX-License-Identifier: MIT
// The rules list scanner: which rules a file holds, tag by tag.
//
// The format is what this scanner accepts and no more; it only looks like XML. A tag is the text from a '<' to the next
// '>', whatever stands between (quotes do not protect a '>', a '<' inside is a character like any other). A tag that
// holds all five words below, in any order and anywhere, is a rule; every other one is passed over. The first
// occurrence of each word counts, and its value is the text between the first double quote after it and the next one.
// Needs nothing of the daemon, so that a program which only checks files judges them as the daemon does.
#pragma once

#include <array>
#include <cstddef>

// The attributes of a rule, in the order in which their values are taken.
enum class RuleWord : std::size_t { mdnsservice, rule_type, if_from, if_to, bidirectional };

inline constexpr std::array<const char*, 5> kRuleWords = {"mdnsservice", "rule_type", "if_from", "if_to",
                                                          "bidirectional"};

// One attribute of a tag. Offsets are counted in bytes from the start of the scanned buffer.
struct RuleAttribute {
  bool present;              // the word stands in the tag
  std::size_t word_offset;   // 0 when it does not
  const char* value;         // in the buffer, ended by a zero there; null: not taken
  std::size_t value_offset;  // 0 when it was not
};

enum class RulesItemKind {
  rule,           // all five values taken
  other_tag,      // lacks one word or more (see `present`); not looked at further
  missing_value,  // error: a word without a quoted value; the attributes before it in the order of RuleWord have theirs
  unclosed_tag,   // a '<' without any '>' after it, which ends the scan; nothing but `end` comes after it
  end,            // the text is at its end, here and in every later call
};

// One finding. Its texts stay as they are for the buffer's life.
struct RulesItem {
  RulesItemKind kind;
  std::size_t tag_offset;  // of the '<'; 0 for `end`
  std::size_t tag_end;     // of the '>'; 0 for `end` and `unclosed_tag`
  RuleWord missing;        // of a missing_value: the attribute that lacks it
  std::array<RuleAttribute, kRuleWords.size()> attributes;
};

// The attribute of that word.
inline const RuleAttribute& attribute_of(const RulesItem& item, RuleWord word) {
  return item.attributes[static_cast<std::size_t>(word)];
}

// Where a scan stands. Only the two functions below look inside.
struct RulesScanner {
  char* buffer;    // not owned
  char* next_tag;  // '<' of the next tag; null: none
};

// A scan of a text that ends at its first zero. The buffer is written to (delimiters become zeros) and must outlive the
// scan and every item of it.
RulesScanner rules_scanner(char* buffer);

// The next finding. The daemon ends at the first error; a checker may go on to find more.
RulesItem next_item(RulesScanner& scanner);
