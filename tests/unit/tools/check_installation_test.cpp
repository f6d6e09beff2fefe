// SPDX-License-Identifier: MIT
// What the checker foretells of rule installation, held against the daemon's own: unknown interfaces, types that the
// DNS-SD library refuses, and rules that are there already.

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

#include "config/config.h"
#include "fakes/fake_dns_sd.h"
#include "fakes/fake_if_nameindex.h"
#include "fakes/fake_process.h"
#include "fakes/fake_syslog.h"
#include "mdnsproxy-check/verdict.h"
#include "runtime/runtime.h"
#include "tables/tables.h"
#include "unit/child_process.h"
#include "unit/tables/daemon_test.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Installing : public DaemonTest {
 protected:
  Installing() : services_(directory().path_of("services")), rules_(directory().path_of("rules")) {
    gSettings.services_file = services_.c_str();
    gSettings.rules_file = rules_.c_str();
    fake_if_nameindex::set({{2, "br0"}, {3, "br1"}});
    directory().write("services", "<!-- none -->");
  }

  void GivenRule(const char* type, const char* if_from, const char* if_to, const char* bidirectional = "no") {
    rules_text_ += std::string("<r mdnsservice=\"") + type + "\" rule_type=\"1\" if_from=\"" + if_from + "\" if_to=\"" +
                   if_to + "\" bidirectional=\"" + bidirectional + "\">\n";
    directory().write("rules", rules_text_);
  }

  Verdict Check() const {
    return check_files(
        {services_, rules_, directory().path_of("no-settings"), false, std::vector<std::string>{"br0", "br1"}});
  }

  // Runs the daemon's initialisation in a process of its own. Its standard output holds the text of its end, or its
  // browses.
  ChildProcess Install(DNSServiceErrorType browse_error = kDNSServiceErr_NoError) const;

  std::string services_;
  std::string rules_;
  std::string rules_text_;
};

void print_end() {
  const std::vector<std::string> warnings = fake_syslog::texts(LOG_WARNING);
  std::cout << (warnings.empty() ? "" : warnings.back()) << std::flush;
}

ChildProcess Installing::Install(DNSServiceErrorType browse_error) const {
  return run_in_child([this, browse_error] {
    fake_syslog::reset();  // the record exists from here on, and so outlives the report at the end
    std::atexit(print_end);
    fake_process::start();
    DNSServiceCreateConnection(&gDNSServiceRef_Shared);
    if (browse_error != kDNSServiceErr_NoError) {
      fake_dns_sd::fail_next("DNSServiceBrowse", 4, browse_error);
    }
    FindInterfaces();
    InitFromConfigFiles(services_.c_str(), rules_.c_str());
    for (const fake_dns_sd::Call& each : fake_dns_sd::calls("DNSServiceBrowse")) {
      std::cout << each.regtype << " from " << each.interfaceIndex << "\n";
    }
    std::cout.flush();
    _exit(0);
  });
}

TEST_F(Installing, AnUnknownSourceEndsTheDaemonAsForetold) {
  GivenRule("_a._tcp", "br7", "br8");
  const ChildProcess daemon = Install();
  EXPECT_EQ(daemon.exit_status, Check().end->status) << describe(daemon);
  EXPECT_EQ(daemon.out, Check().end->message);
}

TEST_F(Installing, AnUnknownDestinationEndsTheDaemonAsForetold) {
  GivenRule("_a._tcp", "br0", "br8");
  const ChildProcess daemon = Install();
  EXPECT_EQ(daemon.exit_status, Check().end->status) << describe(daemon);
  EXPECT_EQ(daemon.out, Check().end->message);
}

TEST_F(Installing, ARefusedTypeEndsTheDaemonAsForetold) {
  GivenRule("_a._tcp.local", "br0", "br1");
  const ChildProcess daemon = Install(kDNSServiceErr_BadParam);
  EXPECT_EQ(daemon.exit_status, exit_status(Check().end->status)) << describe(daemon);
  EXPECT_EQ(daemon.out, Check().end->message);
}

TEST_F(Installing, ARepeatedRuleIsNotInstalledAgain) {
  GivenRule("_a._tcp", "br0", "br1", "yes");
  GivenRule("_a._tcp", "br1", "br0");
  GivenRule("_b._tcp", "br1", "br0");
  EXPECT_EQ(Install().out, "_a._tcp from 2\n_a._tcp from 3\n_b._tcp from 3\n");
  std::vector<std::string> foretold;
  for (const Installation& each : Check().installations) {
    if (!each.repeated) {
      foretold.push_back(each.service_type + " " + each.if_from);
    }
  }
  EXPECT_THAT(foretold, ElementsAre("_a._tcp br0", "_a._tcp br1", "_b._tcp br1"));
}

}  // namespace
