// SPDX-License-Identifier: MIT
// The rules list into installed rules, and every way in which it ends the process.

#include <gmock/gmock.h>

#include <string>

#include "config/config.h"
#include "fakes/fake_add_proxy_rule.h"
#include "fakes/fake_process.h"
#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "unit/config/config_test.h"

namespace {

using fake_add_proxy_rule::rules;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kServices =
    "<mdnsservice name=\"Three\"><service type=\"_a._tcp\"/><service type=\"_b._tcp\"/><service "
    "type=\"_c._tcp\"/></mdnsservice>"
    "<mdnsservice name=\"Nothing\"></mdnsservice>";

class RulesFile : public ConfigTest {
 protected:
  RulesFile() {
    parse_services(kServices);
    fake_syslog::reset();
  }
};

using RulesFileDeath = RulesFile;

TEST_F(RulesFile, ANamedServiceInstallsItsTypesInOrder) {
  EXPECT_EQ(parse_rules(rule("Three", "0", "br1", "br0", "false")), 0);
  EXPECT_THAT(rules(), ElementsAre("_a._tcp br1->br0", "_b._tcp br1->br0", "_c._tcp br1->br0"));
}

TEST_F(RulesFile, ABidirectionalNamedServiceAlternatesPerType) {
  parse_rules(rule("Three", "0", "br1", "br0", "yes"));
  EXPECT_THAT(rules(), ElementsAre("_a._tcp br1->br0", "_a._tcp br0->br1", "_b._tcp br1->br0", "_b._tcp br0->br1",
                                   "_c._tcp br1->br0", "_c._tcp br0->br1"));
}

TEST_F(RulesFile, ALiteralTypeIsInstalledWithoutTheServicesList) {
  parse_rules(rule("_ipp._tcp", "1", "br0", "br2", "0") + rule("Three", "1", "br0", "br2", "1"));
  EXPECT_THAT(rules(), ElementsAre("_ipp._tcp br0->br2", "Three br0->br2", "Three br2->br0"));
}

TEST_F(RulesFile, RuleTypesAreDecidedByTheirFirstCharacter) {
  parse_rules(rule("Nothing", "0x", "br0", "br1", "0") + rule("_a._tcp", "1abc", "br0", "br1", "0") +
              rule("_b._tcp", "10", "br0", "br1", "0"));
  EXPECT_THAT(rules(), ElementsAre("_a._tcp br0->br1", "_b._tcp br0->br1"));
}

TEST_F(RulesFile, BooleanWordsAreDecidedByTheirFirstCharacter) {
  for (const char* word : {"Yes", "TRUE", "1", "t"}) {
    fake_add_proxy_rule::reset();
    parse_rules(rule("_a._tcp", "1", "br0", "br1", word));
    EXPECT_THAT(rules(), ElementsAre("_a._tcp br0->br1", "_a._tcp br1->br0")) << word;
  }
  for (const char* word : {"No", "false", "0"}) {
    fake_add_proxy_rule::reset();
    parse_rules(rule("_a._tcp", "1", "br0", "br1", word));
    EXPECT_THAT(rules(), ElementsAre("_a._tcp br0->br1")) << word;
  }
}

TEST_F(RulesFile, AServiceWithoutTypesInstallsNothing) {
  EXPECT_EQ(parse_rules(rule("Nothing", "0", "br0", "br1", "1")), 0);
  EXPECT_THAT(rules(), IsEmpty());
  EXPECT_THAT(pauses(), ElementsAre("usleep(500000)"));
}

TEST_F(RulesFile, AFileWithoutARuleInstallsNothingAndDoesNotPause) {
  EXPECT_EQ(parse_rules("<list><!-- mdnsservice rule_type if_from if_to --></list>"), 0);
  EXPECT_THAT(rules(), IsEmpty());
  EXPECT_THAT(pauses(), IsEmpty());
}

TEST_F(RulesFile, TheSameRuleTwiceIsHandedOnTwice) {
  parse_rules(rule("_a._tcp", "1", "br0", "br1", "0") + rule("_a._tcp", "1", "br0", "br1", "0"));
  EXPECT_THAT(rules(), ElementsAre("_a._tcp br0->br1", "_a._tcp br0->br1"));
}

TEST_F(RulesFile, AnEmptyValueIsTheTextBehindIt) {
  parse_rules("<r mdnsservice=\"\" note=\"x\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"0\"/>");
  EXPECT_THAT(rules(), ElementsAre(" note= br0->br1"));
}

TEST_F(RulesFile, ATagThatIsNeverClosedEndsTheScan) {
  EXPECT_EQ(parse_rules(rule("_a._tcp", "1", "br0", "br1", "0") +
                        "<r mdnsservice=\"_b._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"0\""),
            0);
  EXPECT_THAT(rules(), ElementsAre("_a._tcp br0->br1"));
}

TEST_F(RulesFile, EachRuleTagPausesHalfASecondBeforeItsFirstType) {
  std::vector<std::size_t> rules_at_pause;
  fake_process::on_call("usleep", [&] { rules_at_pause.push_back(rules().size()); });
  parse_rules(rule("Three", "0", "br1", "br0", "1") + "<list>" + rule("_a._tcp", "1", "br1", "br0", "0"));
  EXPECT_THAT(pauses(), ElementsAre("usleep(500000)", "usleep(500000)"));
  EXPECT_THAT(rules_at_pause, ElementsAre(0U, 6U));
}

TEST_F(RulesFile, LeavesNothingOfItselfInMemory) {
  parse_rules(rule("Three", "0", "br1", "br0", "1") + rule("_a._tcp", "1", "br1", "br0", "0"));
  EXPECT_EQ(live_blocks_of_config(), 0U);
}

TEST_F(RulesFile, IsReadUpToItsLastByte) {
  const std::string content = "<r mdnsservice=\"_a._tcp\"rule_type=\"1\"if_from=\"x\"if_to=\"y\"bidirectional=\"0\">";
  EXPECT_EQ(parse_rules_stream(content, content), 0);
  EXPECT_THAT(rules(), ElementsAre("_a._tcp x->y"));
}

TEST_F(RulesFile, ReturnsWhatClosingTheStreamGave) {
  EXPECT_EQ(parse_rules_from_a_stream_that_does_not_close(rule("_a._tcp", "1", "br0", "br1", "0")), EOF);
  EXPECT_THAT(rules(), ElementsAre("_a._tcp br0->br1"));
}

TEST_F(RulesFile, InDebugModeEachRuleIsShown) {
  switch_to_debug_mode();
  parse_rules(rule("_a._tcp", "1", "br1", "br0", "tomato") + rule("_b._tcp", "1", "br1", "br0", "no"));
  const std::string stars = "\n" + std::string(93, '*') + "\n\n\tFound mdnsproxyrule: mdnsservice = ";
  EXPECT_THAT(debug_messages(),
              ElementsAre("parse_rulesfile(): START",
                          stars + "_a._tcp, rule_type = 1, if_from = br1, if_to = br0, bidirectional = tomato, "
                                  "bidirectional_boolAsInt = 1\n",
                          "\t BIDIRECTIONAL = 1, so adding inverse rule....",
                          stars + "_b._tcp, rule_type = 1, if_from = br1, if_to = br0, bidirectional = no, "
                                  "bidirectional_boolAsInt = 0\n"));
}

TEST_F(RulesFile, InDebugModeTheInverseRuleIsShownBetweenTheTwo) {
  gDBG = 1;
  gLogLevel = gLOG_DBG;
  testing::internal::CaptureStderr();
  parse_rules(rule("Three", "0", "br1", "br0", "1"));
  const std::string shown = testing::internal::GetCapturedStderr();
  for (const char* type : {"_a._tcp", "_b._tcp", "_c._tcp"}) {
    const std::string call = std::string("add_proxy_rule\\(") + type;
    EXPECT_THAT(
        shown,
        ContainsRegex(call + ", br1, br0\\)\nmdnsproxy.c:[0-9]+:\t BIDIRECTIONAL = 1, so adding inverse rule....\n" +
                      call + ", br0, br1\\)\n"));
  }
}

TEST_F(RulesFile, InDebugModeARuleIsShownBeforeItsPause) {
  switch_to_debug_mode();
  std::size_t messages_at_pause = 0;
  fake_process::on_call("usleep", [&] { messages_at_pause = debug_messages().size(); });
  parse_rules(rule("_a._tcp", "1", "br1", "br0", "no"));
  EXPECT_EQ(messages_at_pause, 2U);
}

TEST_F(RulesFile, InSyslogModeItSaysNothingOfItsOwn) {
  parse_rules(rule("_a._tcp", "1", "br1", "br0", "1"));
  EXPECT_THAT(fake_syslog::lines(), IsEmpty());
}

TEST_F(RulesFileDeath, APathThatIsNotThereEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules_of_missing_path(), ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011401: rules config file stat invalid: " + rules_path() + "\n"),
                    says("status file: 120\n"), says("stream closed"), Not(says("syslog(3): cannot"))));
}

TEST_F(RulesFileDeath, AnEmptyFileEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules_stream("", ""), ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011401: rules config file stat invalid: " + rules_path() + "\n"),
                    says("status file: 120\n"), says("stream closed")));
}

TEST_F(RulesFileDeath, ABufferThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_rules("none"), ExitedWithCode(exit_status(20)),
      AllOf(says("syslog(4): ERROR 12013011401: cannot alloc buf for rules config file: " + rules_path() + "\n"),
            says("status file: 20\n"), says("stream closed"), Not(says("syslog(3): cannot"))));
}

TEST_F(RulesFileDeath, AStreamShorterThanItsPathEndsTheProcess) {
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_rules_stream(std::string(4999, 'x'), std::string(5000, 'x')), ExitedWithCode(exit_status(120)),
      AllOf(says("syslog(4): ERROR 12013011401: read error size :5000 bytes, rules config file " + rules_path() + "\n"),
            says("status file: 120\n"), says("stream closed"), says("text freed"), Not(says("syslog(3): read error"))));
}

// The plain line is on the debug stream, which is standard error here, before the line that ends the process.
TEST_F(RulesFileDeath, InDebugModeAPlainLineComesFirst) {
  gDBG = 1;
  gLogLevel = 2;
  EXPECT_EXIT(
      parse_rules_of_missing_path(), ExitedWithCode(exit_status(120)),
      ContainsRegex(":cannot find rules config file: [^\n]*rules.xml\nsyslog\\(4\\): ERROR 12013011401: rules config"));
  EXPECT_EXIT(
      parse_rules_stream("x", "xx"), ExitedWithCode(exit_status(120)),
      ContainsRegex(":read error size :2 bytes, rules config file [^\n]*rules.xml\nsyslog\\(4\\): ERROR 12013011401"));
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(
      parse_rules("none"), ExitedWithCode(exit_status(20)),
      ContainsRegex(":cannot alloc buf for rules config file: [^\n]*rules.xml\nsyslog\\(4\\): ERROR 12013011401"));
}

// At this verbosity only the rule itself, which is a trace, is not seen.
TEST_F(RulesFileDeath, InDebugModeAnErrorOfARuleHasNoPlainLine) {
  gDBG = 1;
  gLogLevel = 2;
  EXPECT_EXIT(parse_rules(rule("S", "1", "a", "b", "maybe")), ExitedWithCode(exit_status(120)),
              StartsWith("syslog(4): ERROR 12013011407"));
  EXPECT_EXIT(parse_rules(rule("S", "0", "a", "b", "0")), ExitedWithCode(exit_status(120)),
              StartsWith("syslog(4): ERROR 12013011408"));
  EXPECT_EXIT(parse_rules(rule("S", "2", "a", "b", "0")), ExitedWithCode(exit_status(120)),
              StartsWith("syslog(4): ERROR 12013011409"));
  EXPECT_EXIT(parse_rules("<r mdnsservice rule_type if_from if_to bidirectional>"), ExitedWithCode(exit_status(120)),
              StartsWith("syslog(4): ERROR 12013011402"));
}

TEST_F(RulesFileDeath, AMissingServiceEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules("<r rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\" mdnsservice=/>"),
              ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011402: in " + rules_path() +
                         ": missing mdnsservice attribute in <mdnsproxyrule> tag\n"),
                    says("status file: 120\n"), says("stream closed"), says("text freed")));
}

TEST_F(RulesFileDeath, AMissingRuleTypeEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules("<r mdnsservice=\"S\" if_from=\"a\" if_to=\"b\" bidirectional=\"0\" rule_type=/>"),
              ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011403: in " + rules_path() +
                         ": missing rule_type attribute for <mdnsproxyrule mdnsservice=\"S\">\n"),
                    says("status file: 120\n"), says("stream closed"), says("text freed")));
}

TEST_F(RulesFileDeath, AMissingSourceEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_to=\"b\" bidirectional=\"0\" if_from=/>"),
              ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011404: in " + rules_path() +
                         ": missing if_from attribute for <mdnsproxyrule mdnsservice=\"S\">\n"),
                    says("status file: 120\n"), says("stream closed"), says("text freed")));
}

TEST_F(RulesFileDeath, AMissingDestinationEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" bidirectional=\"0\" if_to=/>"),
              ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011405: in " + rules_path() +
                         ": missing if_to attribute for <mdnsproxyrule mdnsservice=\"S\">\n"),
                    says("status file: 120\n"), says("stream closed"), says("text freed")));
}

TEST_F(RulesFileDeath, AMissingBooleanWordEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=/>"),
              ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011406: in " + rules_path() +
                         ": missing bidirectional attribute for <mdnsproxyrule mdnsservice=\"S\">\n"),
                    says("status file: 120\n"), says("stream closed"), says("text freed"), Not(says("paused"))));
}

TEST_F(RulesFileDeath, AnEmptyValueMayTakeTheQuoteOfTheNextAttribute) {
  EXPECT_EXIT(parse_rules("<r mdnsservice=\"\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"0\"/>"),
              ExitedWithCode(exit_status(120)),
              says("missing rule_type attribute for <mdnsproxyrule mdnsservice=\" rule_type=\">"));
}

TEST_F(RulesFileDeath, AValueWithoutItsClosingQuoteIsMissing) {
  EXPECT_EXIT(parse_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=\"0/>"),
              ExitedWithCode(exit_status(120)), says("syslog(4): ERROR 12013011406"));
}

TEST_F(RulesFileDeath, AnInvalidBooleanWordEndsTheProcessBeforeThePause) {
  for (const char* word : {"maybe", "2"}) {
    EXPECT_EXIT(
        tell_status_at_exit();
        parse_rules(rule("S", "9", "br0", "br1", word)), ExitedWithCode(exit_status(120)),
        AllOf(says("syslog(4): ERROR 12013011407: in " + rules_path() +
                   ": invalid value for bidirectional attribute for <mdnsproxyrule mdnsservice=\"S\"> -- value must be "
                   "one of: { 1, YES, yes, TRUE, true, 0, no, NO, false, FALSE }, found value is: " +
                   word + "\n"),
              says("status file: 120\n"), says("stream closed"), says("text freed"), Not(says("paused")),
              Not(says("add_proxy_rule"))));
  }
}

TEST_F(RulesFileDeath, AnUnknownServiceEndsTheProcessAfterThePause) {
  gSettings.services_file = "/etc/configured.xml";
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_rules(rule("three", "0", "br0", "br1", "1")), ExitedWithCode(exit_status(120)),
      AllOf(
          says("syslog(4): ERROR 12013011408: in " + rules_path() +
               ": invalid value for mdnsservice attribute for <mdnsproxyrule mdnsservice=\"three\"> -- value does not "
               "appear in services config file /etc/configured.xml, exiting.\n"),
          says("status file: 120\n"), says("stream closed"), says("text freed"), says("paused: usleep(500000)"),
          Not(says("add_proxy_rule"))));
}

TEST_F(RulesFileDeath, AServiceCopyThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_strdup(1);
  EXPECT_EXIT(tell_status_at_exit();
              parse_rules(rule("_a._tcp", "1", "br0", "br1", "1")), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 131437: strdup failed, exiting.\n"), says("status file: 20\n"),
                    says("stream closed"), says("text freed"), Not(says("add_proxy_rule"))));
}

TEST_F(RulesFileDeath, AnInvalidRuleTypeEndsTheProcessAfterThePause) {
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_rules(rule("Three", "2", "br0", "br1", "1")), ExitedWithCode(exit_status(120)),
      AllOf(
          says("syslog(4): ERROR 12013011409: in " + rules_path() +
               ": invalid value for rule_type for <mdnsproxyrule mdnsservice=\"Three\"> -- value must be one of: { 0, "
               "1 } -- the incorect value found is: 2\n"),
          says("status file: 120\n"), says("stream closed"), says("text freed"), says("paused: usleep(500000)"),
          Not(says("add_proxy_rule"))));
}

TEST_F(RulesFileDeath, RulesBeforeTheErrorHaveBeenInstalled) {
  EXPECT_EXIT(parse_rules(rule("_a._tcp", "1", "br0", "br1", "0") + rule("_b._tcp", "2", "br0", "br1", "0") +
                          rule("_c._tcp", "1", "br0", "br1", "0")),
              ExitedWithCode(exit_status(120)),
              AllOf(says("add_proxy_rule(_a._tcp, br0, br1)"), Not(says("add_proxy_rule(_b._tcp")),
                    Not(says("add_proxy_rule(_c._tcp")), says("found is: 2\n")));
}

TEST_F(RulesFileDeath, AMessageWhoseTextsFindNoMemoryComesWithoutThem) {
  fake_zmk::fail_strdup(1);
  EXPECT_EXIT(parse_rules("<r mdnsservice=\"S\" rule_type=\"1\" if_from=\"a\" if_to=\"b\" bidirectional=/>"),
              ExitedWithCode(exit_status(120)),
              says("missing bidirectional attribute for <mdnsproxyrule mdnsservice=\"(null)\">"));
  EXPECT_EXIT(parse_rules(rule("S", "0", "br0", "br1", "maybe")), ExitedWithCode(exit_status(120)),
              AllOf(says("mdnsservice=\"(null)\"> -- value must"), says("found value is: maybe\n")));
  EXPECT_EXIT(parse_rules(rule("S", "0", "br0", "br1", "1")), ExitedWithCode(exit_status(120)),
              says("mdnsservice=\"(null)\"> -- value does not appear"));
  fake_zmk::reset();
  fake_zmk::fail_strdup(2);
  EXPECT_EXIT(parse_rules(rule("S", "0", "br0", "br1", "maybe")), ExitedWithCode(exit_status(120)),
              AllOf(says("mdnsservice=\"S\"> -- value must"), says("found value is: (null)\n")));
  EXPECT_EXIT(parse_rules(rule("S", "2", "br0", "br1", "1")), ExitedWithCode(exit_status(120)),
              AllOf(says("mdnsservice=\"S\"> -- value must"), says("value found is: (null)\n")));
}

}  // namespace
