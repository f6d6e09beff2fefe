// SPDX-License-Identifier: MIT
// The rules list format, finding by finding, and what a rule's values mean.

#include "config/rules_scanner.h"

#include <gmock/gmock.h>

#include <string>

#include "config/rule_values.h"
#include "unit/config/scanned.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kEveryWord = " mdnsservice rule_type if_from if_to bidirectional";

std::string without_any_word() { return std::string("other tag without") + kEveryWord; }

TEST(RulesScanner, YieldsTheFiveValuesOfEachRuleInFileOrder) {
  EXPECT_THAT(scan_rules("<mdnsproxyrule mdnsservice=\"AirPlay\" rule_type=\"0\" if_from=\"br1\" if_to=\"br0\" "
                         "bidirectional=\"false\"/>\n"
                         "<mdnsproxyrule mdnsservice=\"_ipp._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br2\" "
                         "bidirectional=\"yes\"/>\n"),
              ElementsAre("rule AirPlay|0|br1|br0|false", "rule _ipp._tcp|1|br0|br2|yes"));
}

TEST(RulesScanner, AFileWithoutATagHoldsNothing) {
  EXPECT_THAT(scan_rules(""), IsEmpty());
  EXPECT_THAT(scan_rules("mdnsservice=\"A\" rule_type=\"0\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              IsEmpty());
}

TEST(RulesScanner, AttributesMayStandInAnyOrderWithOrWithoutEqualsSignAndSlash) {
  EXPECT_THAT(scan_rules("<rule bidirectional \"0\" if_to\"b\" if_from : \"a\" rule_type=\"1\" mdnsservice =\"S\">"),
              ElementsAre("rule S|1|a|b|0"));
}

TEST(RulesScanner, TheElementNameIsNotLookedAt) {
  EXPECT_THAT(scan_rules("<anything mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("rule S|1|a|b|0"));
}

TEST(RulesScanner, ATagThatLacksAWordIsPassedOver) {
  EXPECT_THAT(scan_rules("<r rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"
                         "<r mdnsservice=\"S\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"
                         "<r mdnsservice=\"S\" rule_type=\"1\" if_to=\"b\" bidirectional=\"0\"/>"
                         "<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" bidirectional=\"0\"/>"
                         "<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\"/>"
                         "<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("other tag without mdnsservice", "other tag without rule_type", "other tag without if_from",
                          "other tag without if_to", "other tag without bidirectional", "rule S|1|a|b|0"));
}

TEST(RulesScanner, DeclarationsEnclosingElementsAndClosingTagsArePassedOver) {
  EXPECT_THAT(scan_rules("<?xml version=\"1.0\"?><list></list><!-- note -->"),
              ElementsAre(without_any_word(), without_any_word(), without_any_word(), without_any_word()));
}

TEST(RulesScanner, WordsAreCaseSensitive) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" IF_FROM=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("other tag without if_from"));
}

TEST(RulesScanner, ATagRunsToTheNextClosingBracketSoACommentBeforeItsRuleIsOneTagWithIt) {
  EXPECT_THAT(
      scan_rules("<!-- <r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/> -->"),
      ElementsAre("rule S|1|a|b|0"));
}

TEST(RulesScanner, AClosingBracketInsideAValueEndsTheTag) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S>\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("other tag without rule_type if_from if_to bidirectional"));
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0>\"/>"),
              ElementsAre("missing bidirectional of S"));
}

TEST(RulesScanner, AWordWithoutAQuotedValueIsMissingAndTheOnesBeforeItAreTaken) {
  EXPECT_THAT(scan_rules("<r bidirectional=\"0\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" mdnsservice=S/>"),
              ElementsAre("missing mdnsservice"));
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" bidirectional=\"0\" if_from=\"a\" if_to=\"b\" rule_type=1/>"),
              ElementsAre("missing rule_type of S"));
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" bidirectional=\"0\" if_to=\"b\" if_from=a/>"),
              ElementsAre("missing if_from of S"));
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" bidirectional=\"0\" if_to=b/>"),
              ElementsAre("missing if_to of S"));
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=0/>"),
              ElementsAre("missing bidirectional of S"));
}

TEST(RulesScanner, AValueWithoutItsClosingQuoteIsMissing) {
  EXPECT_THAT(scan_rules("<r bidirectional=\"0\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" mdnsservice=\"S/>"),
              ElementsAre("missing mdnsservice"));
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0/>"),
              ElementsAre("missing bidirectional of S"));
}

TEST(RulesScanner, SingleQuotesAreNoQuotes) {
  EXPECT_THAT(scan_rules("<r mdnsservice='S' rule_type='1' if_from='a' if_to='b' bidirectional='0'/>"),
              ElementsAre("missing mdnsservice"));
}

TEST(RulesScanner, AdjacentQuotesAreOneDelimiterSoAnEmptyValueTakesTheTextAfterIt) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" bidirectional=\"\" if_to=\"b\"/>"),
              ElementsAre("rule S|1|a|b| if_to="));
}

TEST(RulesScanner, AnEmptyLastValueIsMissing) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"\">"),
              ElementsAre("missing bidirectional of S"));
}

TEST(RulesScanner, TheFirstOccurrenceOfAWordCounts) {
  EXPECT_THAT(
      scan_rules("<r if_from=\"x\" mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
      ElementsAre("rule S|1|x|b|0"));
}

TEST(RulesScanner, AWordInsideAValueTakenBeforeHasNoValueOfItsOwn) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"my if_to\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("missing if_to of my if_to"));
}

TEST(RulesScanner, AWordInsideAValueTakenLaterTakesTheTextBehindThatValue) {
  // if_from runs up to the opening quote of if_to, which is a zero when if_to's turn comes.
  EXPECT_THAT(scan_rules("<r bidirectional=\"if_from\" if_to=\"b\" mdnsservice=\"S\" rule_type=\"1\"/>"),
              ElementsAre("missing if_to of S"));
}

TEST(RulesScanner, AZeroLeftByAnEarlierValueEndsAPieceLikeTheQuoteThatStoodThere) {
  // if_from runs up to the opening quote of mdnsservice, which its own value has turned into a zero before.
  EXPECT_THAT(scan_rules("<r if_to=\"b\" bidirectional=\"0\" x=\"if_from\" mdnsservice=\"S\" rule_type=\"1\"/>"),
              ElementsAre("rule S|1| mdnsservice=|b|0"));
  EXPECT_THAT(scan_rules("<r bidirectional=\"1\" if_to=\"if_from\" mdnsservice=\"S\" rule_type=\"1\"/>"),
              ElementsAre("rule S|1| mdnsservice=|if_from|1"));
}

TEST(RulesScanner, TwoWordsBeforeOneValueShareItOnlyForTheFirstTaken) {
  EXPECT_THAT(scan_rules("<r mdnsservice rule_type=\"S\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("missing rule_type of S"));
}

TEST(RulesScanner, ABracketThatIsNeverClosedEndsTheScan) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\""),
              ElementsAre("unclosed tag"));
  EXPECT_THAT(
      scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>\n<r < <"),
      ElementsAre("rule S|1|a|b|0", "unclosed tag"));
}

TEST(RulesScanner, AClosingBracketWithoutATagIsPassedOver) {
  EXPECT_THAT(scan_rules("> <r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/> >"),
              ElementsAre("rule S|1|a|b|0"));
}

TEST(RulesScanner, AnEmptyTagIsATag) {
  EXPECT_THAT(scan_rules("<><>"), ElementsAre(without_any_word(), without_any_word()));
}

TEST(RulesScanner, AfterAMissingValueTheNextTagCanBeRead) {
  EXPECT_THAT(scan_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional/>"
                         "<r mdnsservice=\"T\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>"),
              ElementsAre("missing bidirectional of S", "rule T|1|a|b|0"));
}

TEST(RulesScanner, AZeroByteEndsTheText) {
  const std::string rule = "<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\"/>";
  EXPECT_THAT(scan_rules(rule + '\0' + rule), ElementsAre("rule S|1|a|b|0"));
  EXPECT_THAT(scan_rules(std::string("<r mdnsservice=\"S\"") + '\0' + ">"), ElementsAre("unclosed tag"));
}

TEST(BoolWord, OnlyTheFirstCharacterCounts) {
  for (const char* word : {"1", "T", "Y", "t", "y", "yes", "Yes", "TRUE", "tomato", "10"}) {
    EXPECT_EQ(parse_bool_string(word), 1) << word;
  }
  for (const char* word : {"0", "F", "N", "f", "n", "no", "No", "nope", "false", "01"}) {
    EXPECT_EQ(parse_bool_string(word), 0) << word;
  }
}

TEST(BoolWord, AnyOtherFirstCharacterIsInvalid) {
  std::string word = "?es";
  for (int character = 1; character < 256; ++character) {
    word[0] = static_cast<char>(character);
    if (std::string("1TYty0FNfn").find(word[0]) == std::string::npos) {
      EXPECT_EQ(parse_bool_string(word.c_str()), -1) << character;
    }
  }
}

TEST(BoolWord, NullAndEmptyAreInvalid) {
  EXPECT_EQ(parse_bool_string(nullptr), -1);
  EXPECT_EQ(parse_bool_string(""), -1);
}

TEST(RuleTypeValue, OnlyTheFirstCharacterCounts) {
  EXPECT_EQ(classify_rule_type("0"), RuleType::named_service);
  EXPECT_EQ(classify_rule_type("0x"), RuleType::named_service);
  EXPECT_EQ(classify_rule_type("1"), RuleType::literal_type);
  EXPECT_EQ(classify_rule_type("10"), RuleType::literal_type);
  EXPECT_EQ(classify_rule_type("1abc"), RuleType::literal_type);
  EXPECT_EQ(classify_rule_type("2"), RuleType::invalid);
  EXPECT_EQ(classify_rule_type(" 0"), RuleType::invalid);
  EXPECT_EQ(classify_rule_type(""), RuleType::invalid);
}

}  // namespace
