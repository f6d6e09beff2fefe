// SPDX-License-Identifier: MIT
// Files of a test's own through mdnsproxy-check's parts. A file that is not given is in order and says nothing.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "mdnsproxy-check/report.h"
#include "mdnsproxy-check/verdict.h"
#include "unit/scratch_directory.h"

class CheckTest : public testing::Test {
 protected:
  CheckTest();

  void GivenServices(const std::string& text) { directory_.write("services", text); }
  void GivenRules(const std::string& text) { directory_.write("rules", text); }
  void GivenSettings(const std::string& text) { directory_.write("settings", text); }

  // What a check finds, one line each: "rules:3:1: warning: text; cure: text", paths shortened to "services", "rules",
  // "settings".
  std::vector<std::string> Findings();

  // What will be forwarded: "_ipp._tcp br0->br1".
  std::vector<std::string> Forwarded();

  int ExitStatus() { return exit_status(check_files(request_)); }
  Verdict Check() { return check_files(request_); }
  std::string Shortened(std::string text) const;

  ScratchDirectory directory_;
  CheckRequest request_;
};

// A rules list of one rule.
std::string rule(const std::string& service, const std::string& rule_type, const std::string& if_from = "br0",
                 const std::string& if_to = "br1", const std::string& bidirectional = "no");

// A services list of one service with these types.
std::string service(const std::string& name, const std::vector<std::string>& types);
