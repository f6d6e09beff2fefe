// SPDX-License-Identifier: MIT
#include "unit/tools/check_test.h"

#include <sstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CheckTest::CheckTest()
    : request_({directory_.path_of("services"), directory_.path_of("rules"), directory_.path_of("settings"), false,
                std::vector<std::string>{"lo", "br0", "br1", "br2"}}) {
  GivenServices("<!-- none -->\n");
  GivenRules("<!-- none -->\n");
}

std::string CheckTest::Shortened(std::string text) const {
  const std::string prefix = directory_.path() + "/";
  for (std::size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix)) {
    text.erase(at, prefix.size());
  }
  return text;
}

std::vector<std::string> CheckTest::Findings() {
  Verdict verdict = Check();
  std::istringstream report(Shortened(text_report(verdict, request_)));
  std::vector<std::string> lines;
  for (std::string line; lines.size() < verdict.findings.size() && std::getline(report, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> CheckTest::Forwarded() {
  std::vector<std::string> lines;
  for (const Installation& each : Check().installations) {
    if (!each.repeated) {
      lines.push_back(each.service_type + " " + each.if_from + "->" + each.if_to);
    }
  }
  return lines;
}

std::string rule(const std::string& service, const std::string& rule_type, const std::string& if_from,
                 const std::string& if_to, const std::string& bidirectional) {
  return "<mdnsproxyrule mdnsservice=\"" + service + "\" rule_type=\"" + rule_type + "\" if_from=\"" + if_from +
         "\" if_to=\"" + if_to + "\" bidirectional=\"" + bidirectional + "\"/>\n";
}

std::string service(const std::string& name, const std::vector<std::string>& types) {
  std::string text = "<mdnsservice name=\"" + name + "\">\n";
  for (const std::string& type : types) {
    text += "<service type=\"" + type + "\"/>\n";
  }
  return text + "</mdnsservice>\n";
}

namespace {

TEST_F(CheckTest, FilesInOrderFindNothing) {
  GivenServices("<?xml version=\"1.0\"?>\n<!-- the service types of a printer -->\n" +
                service("Printing", {"_ipp._tcp", "_ipps._tcp"}));
  GivenRules("<rules>\n" + rule("Printing", "0") + rule("_ssh._tcp", "1") + "</rules>\n");
  GivenSettings("[mdnsproxy]\nlog_level = enable\n");
  EXPECT_THAT(Findings(), IsEmpty());
  EXPECT_EQ(ExitStatus(), 0);
  EXPECT_THAT(Forwarded(), ElementsAre("_ipp._tcp br0->br1", "_ipps._tcp br0->br1", "_ssh._tcp br0->br1"));
}

TEST_F(CheckTest, WarningsAloneGiveExitStatus1) {
  GivenServices(service("Empty", {}));
  EXPECT_EQ(ExitStatus(), 1);
}

TEST_F(CheckTest, AnErrorGivesExitStatus2WhateverTheWarnings) {
  GivenServices(service("Empty", {}));
  GivenRules(rule("Missing", "0"));
  EXPECT_EQ(ExitStatus(), 2);
}

TEST_F(CheckTest, TheErrorThatTheDaemonMeetsFirstIsTheOneItEndsWith) {
  GivenServices("<mdnsservice name=\"A\"><service type></mdnsservice>\n");
  GivenRules(rule("Missing", "0"));
  const Verdict verdict = Check();
  ASSERT_TRUE(verdict.end.has_value());
  EXPECT_THAT(verdict.end->message, HasSubstr("131157"));
  EXPECT_EQ(verdict.end->status, 110);
}

TEST_F(CheckTest, FindingsOfAFileComeInTheOrderOfItsLines) {
  GivenServices("<mdnsservice  name=\"Skipped\"></mdnsservice>\n" + service("Empty", {}) +
                "<service type=\"_lost._tcp\"/>\n");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("services:1:1"), HasSubstr("services:2:2"), HasSubstr("services:4:1")));
}

}  // namespace
