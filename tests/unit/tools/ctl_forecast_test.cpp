// SPDX-License-Identifier: MIT
// What the state file alone tells of other rules; nobody is asked on the links here.
#include "mdnsproxyctl/forecast.h"

#include <gmock/gmock.h>

#include "mdnsproxyctl/discovery.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ForecastTest : public testing::Test {
 protected:
  ForecastTest() {
    session.options.no_network = true;
    session.state.outcome = StateOutcome::ok;
    session.state.view.writer_lives = true;
    session.state.view.limit = 3;
    session.state.view.rules = {{1, "br0", "br1", 2, 3, "_ipp._tcp", 0}, {2, "br1", "br2", 3, 4, "_ipp._tcp", 0}};
  }
  void GivenService(std::uint32_t rule, const char* name, StateOfInstance state = StateOfInstance::forwarded,
                    StateReason reason = StateReason::none) {
    session.state.view.instances.push_back({rule, state, reason, name, name, "lp.local.", {"192.0.2.1"}, 631, 5, 7});
  }
  RuleView rule(const char* from, const char* to, const char* type = "_ipp._tcp") {
    return {1, from, to, 0, 0, type, 0};
  }

  // "+name state from>to" and "-name from>to", and "?link".
  std::vector<std::string> Changes(const std::vector<RuleView>& rules) {
    const Forecast outlook = forecast(session, rules, links);
    std::vector<std::string> texts;
    for (const InstanceView& each : outlook.come) {
      const RuleView& way = outlook.rules[each.rule];
      texts.push_back("+" + each.name + " " + state_word(each.state) + " " + way.from + ">" + way.to);
    }
    for (const InstanceView* each : outlook.go) {
      const RuleView& way = session.state.view.rules[each->rule];
      texts.push_back("-" + each->name + " " + way.from + ">" + way.to);
    }
    for (const Unasked& each : outlook.unasked) {
      texts.push_back("?" + each.link + ": " + each.why);
    }
    return texts;
  }

  Session session;
  std::vector<MachineLink> links = {{"br0", 2, true, true, {}}, {"br1", 3, true, true, {}}, {"br2", 4, true, true, {}}};
};

TEST_F(ForecastTest, TheSameRulesChangeNothing) {
  GivenService(0, "A");
  EXPECT_THAT(Changes({rule("br0", "br1"), rule("br1", "br2")}), IsEmpty());
}

TEST_F(ForecastTest, WhatARuleHadGoesWithIt) {
  GivenService(0, "A");
  GivenService(1, "B");
  EXPECT_THAT(Changes({rule("br1", "br2")}), ElementsAre("-A br0>br1"));
}

TEST_F(ForecastTest, WhatIsWatchedForOneLinkIsKnownForAnother) {
  GivenService(0, "A");
  GivenService(0, "Mute", StateOfInstance::waiting, StateReason::no_address);
  GivenService(0, "Taken", StateOfInstance::refused, StateReason::conflict);
  EXPECT_THAT(Changes({rule("br0", "br2"), rule("br1", "br2")}),
              ElementsAre("+A forwarded br0>br2", "+Mute waiting br0>br2", "+Taken forwarded br0>br2", "-A br0>br1",
                          "-Mute br0>br1", "-Taken br0>br1"))
      << "a name that is taken on one link may be free on another";
}

TEST_F(ForecastTest, WhatNobodyWatchesHasToBeAskedFor) {
  EXPECT_THAT(Changes({rule("br2", "br0"), rule("br1", "br2")}), ElementsAre("?br2: --no-network"));
}

TEST_F(ForecastTest, ALinkThatWasMadeAnewIsNotWatched) {
  links[0].index = 9;
  EXPECT_THAT(Changes({rule("br0", "br1"), rule("br1", "br2")}), ElementsAre("?br0: --no-network"));
}

TEST_F(ForecastTest, TheCopyOfAServiceThatGoesIsNotExpected) {
  GivenService(0, "A");
  GivenService(1, "A", StateOfInstance::refused, StateReason::through_gateway);
  EXPECT_THAT(Changes({rule("br1", "br0")}), ElementsAre("-A br0>br1", "-A br1>br2"));
  EXPECT_THAT(Changes({rule("br0", "br1"), rule("br1", "br0")}), ElementsAre("+A refused br1>br0", "-A br1>br2"));
}

TEST_F(ForecastTest, BeyondTheLimitNothingIsForwarded) {
  for (const char* name : {"A", "B"}) {
    GivenService(0, name);
  }
  EXPECT_THAT(Changes({rule("br0", "br1"), rule("br0", "br2")}),
              ElementsAre("+A forwarded br0>br2", "+B refused br0>br2"));
}

TEST_F(ForecastTest, WithoutADaemonNothingGoes) {
  GivenService(0, "A");
  session.state.view.writer_lives = false;
  EXPECT_THAT(Changes({rule("br1", "br2")}), ElementsAre("?br1: --no-network"));
}

TEST(LinkLocal, IsWhatMeansNothingOnAnotherLink) {
  EXPECT_TRUE(is_link_local("169.254.7.7") && is_link_local("fe80::1") && is_link_local("febf::1"));
  EXPECT_FALSE(is_link_local("169.253.7.7") || is_link_local("192.0.2.1") || is_link_local("fd00::1") ||
               is_link_local(""));
}

}  // namespace
