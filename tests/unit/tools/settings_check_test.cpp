// SPDX-License-Identifier: MIT
#include "unit/tools/check_test.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using SettingsCheck = CheckTest;

TEST_F(SettingsCheck, AMissingFileIsAWarningOnlyWhenItWasAskedFor) {
  EXPECT_THAT(Findings(), IsEmpty());
  request_.settings_required = true;
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("settings:1:1: warning: the settings file cannot be read")));
}

TEST_F(SettingsCheck, EverySettingThatTheDaemonKnowsIsInOrder) {
  GivenSettings(
      "# comment\n[mdnsproxy]\nlog_level = disable ; now\n[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\n"
      "anchor_ap = 02:00:00:00:00:01\n[fencing _custom._tcp]\nwireless_hop = 0\n");
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(SettingsCheck, AMalformedLineCostsTheWholeFile) {
  GivenSettings("[mdnsproxy]\nlog_level = enable\nnonsense\n");
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("settings:3:1: warning:"), HasSubstr("takes nothing from this file"))));
}

TEST_F(SettingsCheck, AHopThatIsNoNumberIsAWarningAtItsLine) {
  GivenSettings("[fencing AirPrint]\n\n  wireless_hop = near\n");
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("settings:3:3: warning: wireless_hop is no number"), HasSubstr("near"))));
}

TEST_F(SettingsCheck, UnknownSettingsAndSectionsAreWarnings) {
  GivenSettings("[mdnsproxy]\ncolour = red\n[fencing AirPrint]\nhops = 1\n[Fencing AirPrint]\nwireless_hop = 1\n");
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("settings:2:1: warning: unknown setting \"colour\""),
                                      StartsWith("settings:4:1: warning: unknown setting \"hops\""),
                                      StartsWith("settings:6:1: warning: unknown section \"Fencing AirPrint\"")));
}

TEST_F(SettingsCheck, AServiceThatIsNoneIsAWarning) {
  GivenSettings("[fencing AirPrnt]\nwireless_hop = 1\n");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("\"AirPrnt\" is neither a standard service nor a service type")));
}

TEST_F(SettingsCheck, AWiredHopByItselfIsAWarning) {
  GivenSettings("[fencing AirPrint]\nwired_hop = 1\n");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("has no effect without wireless_hop")));
}

TEST_F(SettingsCheck, AnAnchorInCapitalsIsAWarning) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nanchor_ap = 02:00:00:00:00:AB\n");
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("settings:3:1: warning: anchor_ap \"02:00:00:00:00:AB\"")));
}

TEST_F(SettingsCheck, AStateFileThatIsNoAbsolutePathIsNone) {
  GivenSettings("[mdnsproxy]\nstate_file = /run/elsewhere/state\n");
  EXPECT_THAT(Findings(), IsEmpty());
  GivenSettings("[mdnsproxy]\nstate_file = run/state\n");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("settings:2:1: warning: state_file \"run/state\""),
                                            HasSubstr("begins with /"))));
}

TEST_F(SettingsCheck, ALogLevelThatIsNoneIsAWarning) {
  GivenSettings("[mdnsproxy]\nlog_level = debug\n");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("settings:2:1: warning: log_level \"debug\""),
                                            HasSubstr("write enable or disable"))));
}

TEST_F(SettingsCheck, AZeroByteCostsTheWholeFile) {
  GivenSettings("[mdnsproxy]\nlog_level = enable\n" + std::string("\0", 1));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("settings:3:1: warning: a zero byte")));
}

TEST_F(SettingsCheck, MistakesNeverStopTheDaemon) {
  GivenSettings("nonsense\n");
  EXPECT_EQ(ExitStatus(), 1);
}

}  // namespace
