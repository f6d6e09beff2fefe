// SPDX-License-Identifier: MIT
#include "unit/tools/check_test.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using RulesCheck = CheckTest;

TEST_F(RulesCheck, FileErrorsAreTheDaemonsOwn) {
  request_.rules_file = directory_.path_of("nowhere");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(HasSubstr("ERROR 12013011401: cannot find rules config file: nowhere"),
                                            HasSubstr("status 120"))));
  request_.rules_file = directory_.path_of("rules");
  GivenRules("");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("ERROR 12013011401: rules config file stat invalid: rules")));
  request_.rules_file = directory_.path();
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("ERROR 12013011401: read error size :")));
}

TEST_F(RulesCheck, AWordWithoutAValueIsAnErrorAtTheWord) {
  GivenRules("\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to bidirectional=yes/>\n");
  EXPECT_THAT(Findings(),
              Contains(AllOf(StartsWith("rules:2:66: error: ERROR 12013011405: in rules: missing if_to attribute"),
                             HasSubstr("cure: write a value between double quotes: if_to="))));
}

TEST_F(RulesCheck, EachWordHasItsOwnError) {
  const auto first_error = [this](const std::string& text) {
    GivenRules(text);
    const std::string message = Check().end->message;
    return message.substr(0, message.find(':'));
  };
  EXPECT_EQ(first_error("<r rule_type if_from if_to bidirectional mdnsservice/>"), "ERROR 12013011402");
  EXPECT_EQ(first_error("<r if_from if_to bidirectional mdnsservice=\"a\" rule_type/>"), "ERROR 12013011403");
  EXPECT_EQ(first_error("<r if_to bidirectional mdnsservice=\"a\" rule_type=\"1\" if_from/>"), "ERROR 12013011404");
  EXPECT_EQ(first_error("<r bidirectional mdnsservice=\"a\" rule_type=\"1\" if_from=\"b\" if_to/>"),
            "ERROR 12013011405");
  EXPECT_EQ(first_error("<r mdnsservice=\"a\" rule_type=\"1\" if_from=\"b\" if_to=\"c\" bidirectional/>"),
            "ERROR 12013011406");
}

TEST_F(RulesCheck, AValueThatIsNoBooleanWordIsAnErrorAtTheValue) {
  GivenRules(rule("_a._tcp", "1", "br0", "br1", "maybe"));
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("rules:1:93: error: ERROR 12013011407"), HasSubstr("found value is: maybe"),
                                HasSubstr("cure: write bidirectional=\"yes\" or"))));
}

TEST_F(RulesCheck, AnUnknownServiceIsAnErrorThatNamesTheKnownOnes) {
  GivenServices(service("Printing", {"_ipp._tcp"}) + service("Casting", {"_googlecast._tcp"}));
  GivenRules(rule("Printers", "0"));
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("rules:1:29: error: ERROR 12013011408"), HasSubstr("Printing, Casting"))));
}

TEST_F(RulesCheck, AnUnknownRuleTypeIsAnErrorOnceTheBooleanWordIsRight) {
  GivenRules(rule("_a._tcp", "2"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("error: ERROR 12013011409")));
  GivenRules(rule("_a._tcp", "2", "br0", "br1", "maybe"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("error: ERROR 12013011407")));
}

TEST_F(RulesCheck, AnUnknownInterfaceIsAnErrorThatNamesTheKnownOnes) {
  GivenRules(rule("_a._tcp", "1", "br9", "br8", "yes"));
  EXPECT_THAT(Findings(), ElementsAre(AllOf(HasSubstr("INTERFACE LOOKUP ERROR 111833"), HasSubstr("'br9'"),
                                            HasSubstr("status 40"), HasSubstr("lo, br0, br1, br2")),
                                      AllOf(HasSubstr("INTERFACE LOOKUP ERROR 111834"), HasSubstr("'br8'"))));
}

TEST_F(RulesCheck, WithoutAListOfInterfacesAnyExists) {
  request_.interfaces.reset();
  GivenRules(rule("_a._tcp", "1", "br9", "br8"));
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(RulesCheck, ARuleForAServiceWithoutTypesNeverLooksAtItsInterfaces) {
  GivenServices(service("Empty", {}));
  GivenRules(rule("Empty", "0", "br9", "br8"));
  EXPECT_EQ(ExitStatus(), 1);
}

TEST_F(RulesCheck, ATypeThatTheDnsSdLibraryRefusesEndsTheDaemon) {
  GivenRules(rule("_a._tcp.local", "1"));
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("rules:1:29: error: ERROR 131813: MyDNSServiceBrowse  call failed: -65540"),
                                HasSubstr("status 600, exit status 88"), HasSubstr("write it without a domain"))));
}

TEST_F(RulesCheck, TypesAlternateTheirDirections) {
  GivenServices(service("A", {"_a._tcp", "_b._tcp"}));
  GivenRules(rule("A", "0", "br0", "br1", "yes"));
  EXPECT_THAT(Forwarded(), ElementsAre("_a._tcp br0->br1", "_a._tcp br1->br0", "_b._tcp br0->br1", "_b._tcp br1->br0"));
}

TEST_F(RulesCheck, ARuleThatLacksAWordIsAWarningThatNamesTheWord) {
  GivenRules("\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" bidirectional=\"no\"/>\n");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("rules:2:1: warning: this rule lacks if_to and is skipped"),
                                            HasSubstr("add if_to=\"...\""))));
}

TEST_F(RulesCheck, AGreaterThanSignInAValueEndsTheRule) {
  GivenRules(rule("a>b", "1"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("lacks rule_type, if_from, if_to, bidirectional")));
}

TEST_F(RulesCheck, OtherTagsAreNotCommentedOn) {
  GivenRules(
      "<?xml version=\"1.0\"?>\n<mdnsproxyrules if_from=\"x\">\n<!-- if_from and if_to are interfaces, bidirectional a "
      "word "
      "-->\n</mdnsproxyrules>\n");
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(RulesCheck, AWordInsideAValueIsAWarningAtIt) {
  GivenRules(
      "<mdnsproxyrule mdnsservice=\"the bidirectional one\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" "
      "bidirectional=\"no\"/>\n");
  EXPECT_THAT(Findings(), Contains(StartsWith("rules:1:33: warning: the word bidirectional stands inside a value")));
}

TEST_F(RulesCheck, AWordInsideALongerWordIsAWarning) {
  GivenRules(
      "<mdnsserviceproxy id=\"7\" mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" "
      "bidirectional=\"no\"/>\n");
  EXPECT_THAT(Findings(), Contains(StartsWith("rules:1:2: warning: the word mdnsservice stands inside a longer word")));
}

TEST_F(RulesCheck, AnEmptyValueIsAWarningThatSaysWhatIsTakenInstead) {
  GivenRules(rule("_a._tcp", "1", "", "br1"));
  EXPECT_THAT(Findings(), Contains(AllOf(HasSubstr("warning: empty value: the daemon takes \" if_to=\" for it"),
                                         HasSubstr("cure: write the value"))));
}

TEST_F(RulesCheck, SingleQuotesAreAWarning) {
  GivenRules(
      "<mdnsproxyrule mdnsservice='_a._tcp' rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"/>\n");
  EXPECT_THAT(Findings(), Contains(StartsWith("rules:1:28: warning: single quotes do not delimit a value")));
}

TEST_F(RulesCheck, ARuleInACommentIsAWarningSinceItIsInForce) {
  GivenRules("<!-- " + rule("_a._tcp", "1") + "-->\n");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("stands in a comment")));
  EXPECT_THAT(Forwarded(), ElementsAre("_a._tcp br0->br1"));
}

TEST_F(RulesCheck, ADuplicateRuleIsOneWarningThatNamesTheFirstOnesLine) {
  GivenServices(service("A", {"_a._tcp", "_b._tcp"}));
  GivenRules(rule("A", "0") + rule("A", "0"));
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("rules:2:1: warning: duplicate rule"), HasSubstr("line 1"))));
  EXPECT_THAT(Forwarded(), ElementsAre("_a._tcp br0->br1", "_b._tcp br0->br1"));
}

TEST_F(RulesCheck, ARuleWhoseInverseIsThereAlreadyIsAWarning) {
  GivenRules(rule("_a._tcp", "1", "br0", "br1", "yes") + rule("_a._tcp", "1", "br1", "br0"));
  EXPECT_THAT(
      Findings(),
      ElementsAre(StartsWith("rules:2:1: warning: of this pair of rules one contains the inverse of the other")));
  GivenRules(rule("_a._tcp", "1", "br1", "br0") + rule("_a._tcp", "1", "br0", "br1", "yes"));
  EXPECT_THAT(
      Findings(),
      ElementsAre(StartsWith("rules:2:1: warning: of this pair of rules one contains the inverse of the other")));
}

TEST_F(RulesCheck, TwoRulesInOppositeDirectionsAreInOrder) {
  GivenRules(rule("_a._tcp", "1", "br0", "br1") + rule("_a._tcp", "1", "br1", "br0"));
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(RulesCheck, ARuleFromAnInterfaceToItselfIsOneWarning) {
  GivenRules(rule("_a._tcp", "1", "br0", "br0", "yes"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("are the same interface")));
}

TEST_F(RulesCheck, ValuesThatGoOnAfterTheirFirstCharacterAreWarnings) {
  GivenRules(rule("_a._tcp", "10", "br0", "br1", "never"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("\"10\" is 1"), HasSubstr("\"never\" is no")));
  GivenRules(rule("_a._tcp", "1", "br0", "br1", "TRUE"));
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(RulesCheck, ATagWithoutItsEndIsAWarning) {
  GivenRules(rule("_a._tcp", "1") + "<mdnsproxyrule mdnsservice=\"_b._tcp\"\n");
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("rules:2:1: warning: there is no \">\" after this \"<\"")));
}

}  // namespace
