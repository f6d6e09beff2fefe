// SPDX-License-Identifier: MIT
// Initialisation: the order of the two files, the pause between them, and the files that cannot be opened.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <string>

#include "config/config.h"
#include "fakes/fake_add_proxy_rule.h"
#include "fakes/fake_process.h"
#include "fakes/fake_syslog.h"
#include "runtime/runtime.h"
#include "unit/config/config_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::Not;

class InitConfig : public ConfigTest {
 protected:
  void init() const { InitFromConfigFiles(services_path().c_str(), rules_path().c_str()); }
  void given_services(const std::string& content) const { directory().write("services.xml", content); }
  void given_rules(const std::string& content) const { directory().write("rules.xml", content); }
};

using InitConfigDeath = InitConfig;

constexpr const char* kServices = "<mdnsservice name=\"S\"><service type=\"_a._tcp\"/></mdnsservice>";

TEST_F(InitConfig, InstallsTheRulesOfTheServicesThatItHasRead) {
  given_services(kServices);
  given_rules(rule("S", "0", "br0", "br1", "1"));
  init();
  EXPECT_THAT(catalog(), ElementsAre("S: _a._tcp"));
  EXPECT_THAT(fake_add_proxy_rule::rules(), ElementsAre("_a._tcp br0->br1", "_a._tcp br1->br0"));
}

TEST_F(InitConfig, PausesASecondBetweenTheFilesAndOpensTheRulesOnlyThen) {
  given_services(kServices);
  std::vector<std::string> catalog_at_pause;
  fake_process::on_call("sleep", [&] {
    catalog_at_pause = catalog();
    given_rules(rule("S", "0", "br0", "br1", "0"));
  });
  init();
  EXPECT_THAT(catalog_at_pause, ElementsAre("S: _a._tcp"));
  EXPECT_THAT(fake_process::calls_of("sleep"), ElementsAre("sleep(1)"));
  EXPECT_THAT(fake_add_proxy_rule::rules(), ElementsAre("_a._tcp br0->br1"));
}

TEST_F(InitConfigDeath, SigtermEndsTheWaitForWhoeverWritesAFifo) {
  ASSERT_EQ(mkfifo(services_path().c_str(), 0600), 0);
  EXPECT_EXIT(
      {
        hold_handled_signals();
        install_signal_handler();
        raise(SIGTERM);
        init();
      },
      ExitedWithCode(10), "Received SIGTERM signal");
}

TEST_F(InitConfig, InSyslogModeOnlyItsStartIsLoggedAndNothingIsDumped) {
  given_services("none");
  given_rules("none");
  init();
  EXPECT_THAT(fake_syslog::lines(), ElementsAre(fake_syslog::Line{
                                        LOG_DEBUG, "InitFromConfigFiles(): START: aConfigServicesFilename = " +
                                                       services_path() + ", aConfigRulesFilename = " + rules_path()}));
}

TEST_F(InitConfig, InDebugModeEveryStepIsShownAndTheTablesAreDumpedToTheSystemLog) {
  given_services("none");
  given_rules("none");
  switch_to_debug_mode();
  init();
  const std::string stars = " *******************************\n";
  EXPECT_THAT(debug_messages(), ElementsAre("InitFromConfigFiles(): START: aConfigServicesFilename = " +
                                                services_path() + ", aConfigRulesFilename = " + rules_path(),
                                            "\n*************   Init: Config File Parsing: " + services_path() + stars,
                                            "parse_servicefile(): START",
                                            "\n\n\n*************   Init: Config File Parsing: " + rules_path() + stars,
                                            "parse_rulesfile(): START",
                                            "\n\n\n\t ********************* DONE WITH RULES ******************\n\n",
                                            "debug_printOutAllHashInfo(): START....\n"));
  EXPECT_THAT(fake_syslog::texts(LOG_DEBUG),
              Contains("\n\n*****>>>>>>>>>>> 0 total in the gHashServiceNameToServiceTypesArray:\n"));
}

TEST_F(InitConfig, EveryStepIsShownAtTheHighestVerbosityOnly) {
  given_services(kServices);
  given_rules(rule("S", "0", "br0", "br1", "1"));
  switch_to_debug_mode();
  gLogLevel = gLOG_DBG - 1;
  init();
  EXPECT_THAT(debug_messages(), IsEmpty());
}

TEST_F(InitConfigDeath, AServicesListThatCannotBeOpenedEndsTheProcess) {
  given_rules(rule("_a._tcp", "1", "br0", "br1", "0"));
  EXPECT_EXIT(tell_status_at_exit();
              init(), ExitedWithCode(exit_status(110)),
              AllOf(says("syslog(4): ERROR 100130114: cannot find services config file: " + services_path() + "\n"),
                    says("status file: 110\n"), Not(says("syslog(3): cannot find")), Not(says("add_proxy_rule"))));
}

TEST_F(InitConfigDeath, ARulesListThatCannotBeOpenedEndsTheProcess) {
  given_services(kServices);
  EXPECT_EXIT(tell_status_at_exit();
              init(), ExitedWithCode(exit_status(120)),
              AllOf(says("syslog(4): ERROR 12013011401: cannot find rules config file: " + rules_path() + "\n"),
                    says("status file: 120\n"), Not(says("syslog(3): cannot find"))));
}

// The plain line is on the debug stream, which is standard error here, before the line that ends the process.
TEST_F(InitConfigDeath, InDebugModeAPlainLineComesFirst) {
  gDBG = 1;
  gLogLevel = 2;
  EXPECT_EXIT(init(), ExitedWithCode(exit_status(110)),
              ContainsRegex(":cannot find services config file: [^\n]*services.xml\nsyslog\\(4\\): ERROR 100130114"));
  given_services(kServices);
  EXPECT_EXIT(
      init(), ExitedWithCode(exit_status(120)),
      ContainsRegex(":cannot find rules config file: [^\n]*rules.xml\nsyslog\\(4\\): ERROR 12013011401: cannot find"));
}

TEST_F(InitConfigDeath, AServiceUnknownToAnEmptyServicesListEndsTheProcess) {
  given_services("<list/>");
  given_rules(rule("S", "0", "br0", "br1", "0"));
  EXPECT_EXIT(init(), ExitedWithCode(exit_status(120)), says("syslog(4): ERROR 12013011408"));
}

}  // namespace
