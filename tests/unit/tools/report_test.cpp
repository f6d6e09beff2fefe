// SPDX-License-Identifier: MIT
#include "unit/tools/check_test.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

using Report = CheckTest;

TEST_F(Report, TextEndsWithTheTableOfWhatWillBeForwarded) {
  GivenServices(service("Printing", {"_ipp._tcp"}));
  GivenRules(rule("Printing", "0", "br0", "br1", "yes") + rule("_x-long-one._udp", "1", "br2", "br0"));
  EXPECT_EQ(Shortened(text_report(Check(), request_)),
            "Will be forwarded:\n"
            "  FROM  TO   TYPE              SERVICE   RULE\n"
            "  br0   br1  _ipp._tcp         Printing  rules:1\n"
            "  br1   br0  _ipp._tcp         Printing  rules:1\n"
            "  br2   br0  _x-long-one._udp  -         rules:2\n");
}

TEST_F(Report, ARepeatedRuleStandsInTheTableOnce) {
  GivenRules(rule("_a._tcp", "1") + rule("_a._tcp", "1"));
  EXPECT_THAT(Shortened(text_report(Check(), request_)), EndsWith("RULE\n  br0   br1  _a._tcp  -        rules:1\n"));
}

TEST_F(Report, WithoutARuleTextSaysThatNothingWillBeForwarded) {
  EXPECT_EQ(text_report(Check(), request_), "Nothing will be forwarded: there is no rule.\n");
}

TEST_F(Report, WithAnErrorTextSaysHowTheDaemonEnds) {
  GivenRules(rule("_a._tcp", "1") + rule("Missing", "0"));
  EXPECT_THAT(text_report(Check(), request_),
              EndsWith("Nothing will be forwarded: the daemon ends with status 120.\n"));
}

TEST_F(Report, AFindingIsOneLineWhateverItsValueHolds) {
  GivenRules(rule("a\nb\033", "2"));
  EXPECT_THAT(Findings(), testing::ElementsAre(HasSubstr("mdnsservice=\"a\\x0ab\\x1b\"")));
}

TEST_F(Report, JsonHoldsFindingsAndForwarding) {
  GivenServices(service("Printing", {"_ipp._tcp"}) + service("Empty", {}));
  GivenRules(rule("Printing", "0", "br0", "br1", "yes"));
  EXPECT_EQ(Shortened(json_report(Check(), request_)), R"({
  "services_file": "services",
  "rules_file": "rules",
  "settings_file": "settings",
  "exit_status": 1,
  "findings": [
    {
      "file": "services",
      "line": 4,
      "column": 2,
      "message": "service \"Empty\" has no types: its rules forward nothing",
      "severity": "warning",
      "cure": "add <service type=\"...\"/> before its </mdnsservice>"
    }
  ],
  "forwarding": [
    {
      "from": "br0",
      "to": "br1",
      "type": "_ipp._tcp",
      "line": 1,
      "service": "Printing",
      "inverse": false
    },
    {
      "from": "br1",
      "to": "br0",
      "type": "_ipp._tcp",
      "line": 1,
      "service": "Printing",
      "inverse": true
    }
  ]
}
)");
}

TEST_F(Report, JsonGivesTheStatusOfAnErrorAndForwardsNothing) {
  GivenRules(rule("_a._tcp", "1") + rule("_b._tcp", "2"));
  const std::string report = json_report(Check(), request_);
  EXPECT_THAT(report, HasSubstr("\"status\": 120"));
  EXPECT_THAT(report, HasSubstr("\"forwarding\": []"));
}

TEST_F(Report, JsonSurvivesBytesThatAreNotUtf8) {
  GivenRules(rule("\xff\xfe", "2"));
  const std::string report = json_report(Check(), request_);
  EXPECT_THAT(report, HasSubstr("\xef\xbf\xbd"));
  EXPECT_THAT(report, Not(HasSubstr("\xff")));
}

}  // namespace
