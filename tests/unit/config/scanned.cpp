// SPDX-License-Identifier: MIT
#include "unit/config/scanned.h"

#include <gtest/gtest.h>

#include "config/rules_scanner.h"
#include "config/services_scanner.h"

namespace {

// The findings of one file are fewer than its bytes, so a scan that yields more has gone astray.
bool goes_on_for_ever(const std::vector<std::string>& lines, const std::string& bytes) {
  return lines.size() > bytes.size() + 1;
}

void expect_text_at(const std::string& bytes, std::size_t offset, const std::string& text) {
  ASSERT_LE(offset, bytes.size());
  EXPECT_EQ(bytes.substr(offset, text.size()), text) << "at offset " << offset;
}

void expect_offsets(const std::string& bytes, const ServicesItem& item, const char* phrase) {
  expect_text_at(bytes, item.phrase_offset, phrase);
  if (item.value != nullptr) {
    expect_text_at(bytes, item.value_offset, item.value);
  } else {
    EXPECT_EQ(item.value_offset, 0U);
  }
}

void expect_end(const ServicesItem& item) {
  EXPECT_EQ(item.kind, ServicesItemKind::end) << "the end stays the end";
  EXPECT_EQ(item.phrase_offset, 0U);
  EXPECT_EQ(item.value_offset, 0U);
}

std::string line_of(const std::string& bytes, const ServicesItem& item) {
  switch (item.kind) {
    case ServicesItemKind::service_begins:
      expect_offsets(bytes, item, kServiceStartPhrase);
      EXPECT_STREQ(item.service, item.value);
      return std::string("begins ") + item.value;
    case ServicesItemKind::type:
      expect_offsets(bytes, item, kServiceTypePhrase);
      return std::string("type ") + item.value;
    case ServicesItemKind::service_ends:
      expect_offsets(bytes, item, kServiceEndTag);
      EXPECT_EQ(item.value, nullptr);
      return std::string("ends ") + item.service;
    case ServicesItemKind::missing_end_tag:
      expect_offsets(bytes, item, kServiceStartPhrase);
      EXPECT_EQ(item.service, nullptr);
      return "missing end tag";
    case ServicesItemKind::missing_name:
      expect_offsets(bytes, item, kServiceStartPhrase);
      EXPECT_EQ(item.service, nullptr);
      return "missing name";
    case ServicesItemKind::missing_type:
      expect_offsets(bytes, item, kServiceTypePhrase);
      EXPECT_EQ(item.value, nullptr);
      return std::string("missing type of ") + item.service;
    case ServicesItemKind::end:
      break;
  }
  return "end";
}

void expect_offsets(const std::string& bytes, const RulesItem& item) {
  expect_text_at(bytes, item.tag_offset, "<");
  expect_text_at(bytes, item.tag_end, ">");
  for (std::size_t i = 0; i < kRuleWords.size(); ++i) {
    const RuleAttribute& attribute = item.attributes[i];
    if (!attribute.present) {
      EXPECT_EQ(attribute.word_offset, 0U);
    } else {
      expect_text_at(bytes, attribute.word_offset, kRuleWords[i]);
      EXPECT_GE(attribute.word_offset, item.tag_offset);
      EXPECT_LT(attribute.word_offset, item.tag_end);
    }
    if (attribute.value != nullptr) {
      expect_text_at(bytes, attribute.value_offset, attribute.value);
    } else {
      EXPECT_EQ(attribute.value_offset, 0U);
    }
  }
}

void expect_end(const RulesItem& item) {
  EXPECT_EQ(item.kind, RulesItemKind::end) << "the end stays the end";
  EXPECT_EQ(item.tag_offset, 0U);
  EXPECT_EQ(item.tag_end, 0U);
}

std::string line_of_rule(const RulesItem& item) {
  std::string line = "rule ";
  for (const RuleAttribute& attribute : item.attributes) {
    line += std::string(attribute.value) + (&attribute != &item.attributes.back() ? "|" : "");
  }
  return line;
}

std::string line_of_other_tag(const RulesItem& item) {
  std::string line = "other tag without";
  for (std::size_t i = 0; i < kRuleWords.size(); ++i) {
    EXPECT_EQ(item.attributes[i].value, nullptr);
    line += item.attributes[i].present ? "" : std::string(" ") + kRuleWords[i];
  }
  return line;
}

std::string line_of_missing_value(const RulesItem& item) {
  const char* service = attribute_of(item, RuleWord::mdnsservice).value;
  EXPECT_EQ(attribute_of(item, item.missing).value, nullptr);
  return std::string("missing ") + kRuleWords[static_cast<std::size_t>(item.missing)] +
         (service != nullptr ? std::string(" of ") + service : "");
}

std::string line_of(const std::string& bytes, const RulesItem& item) {
  switch (item.kind) {
    case RulesItemKind::rule:
      expect_offsets(bytes, item);
      return line_of_rule(item);
    case RulesItemKind::other_tag:
      expect_offsets(bytes, item);
      return line_of_other_tag(item);
    case RulesItemKind::missing_value:
      expect_offsets(bytes, item);
      return line_of_missing_value(item);
    case RulesItemKind::unclosed_tag:
      expect_text_at(bytes, item.tag_offset, "<");
      EXPECT_EQ(item.tag_end, 0U);
      return "unclosed tag";
    case RulesItemKind::end:
      break;
  }
  return "end";
}

// What a scanner finds, up to the end, which it has to repeat.
template <typename Kind, typename Scanner>
std::vector<std::string> scan(Scanner new_scanner(char*), const std::string& bytes) {
  std::string buffer = bytes;
  Scanner scanner = new_scanner(buffer.data());
  std::vector<std::string> lines;
  for (auto item = next_item(scanner); item.kind != Kind::end; item = next_item(scanner)) {
    lines.push_back(line_of(bytes, item));
    if (goes_on_for_ever(lines, bytes)) {
      ADD_FAILURE() << "more findings than bytes";
      break;
    }
  }
  expect_end(next_item(scanner));
  return lines;
}

}  // namespace

std::vector<std::string> scan_services(const std::string& bytes) {
  return scan<ServicesItemKind>(services_scanner, bytes);
}

std::vector<std::string> scan_rules(const std::string& bytes) { return scan<RulesItemKind>(rules_scanner, bytes); }
