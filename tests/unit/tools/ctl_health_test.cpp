// SPDX-License-Identifier: MIT
// What is called unwell, by the state file and the machine's links.
#include "mdnsproxyctl/health.h"

#include <gmock/gmock.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

class Health : public testing::Test {
 protected:
  Health() {
    session.state.outcome = StateOutcome::ok;
    session.clocks = {1000 * kSecond, 2000 * kSecond};
    view().writer_lives = true;
    view().pid = static_cast<std::uint32_t>(getpid());
    view().started = kSecond;
    view().beat = 999 * kSecond;
    view().phase = StatePhase::running;
    view().waiting = true;
    view().limit = 2001;
    view().rules = {{2, "br0", "br1", 2, 3, "_ipp._tcp", kSecond}};
  }
  StateView& view() { return session.state.view; }
  std::vector<std::string> Findings() {
    std::vector<std::string> texts;
    for (const HealthFinding& each : findings_of(session, links)) {
      texts.push_back((each.severity == HealthSeverity::error ? "error: " : "warning: ") + each.subject + ": " +
                      each.text);
    }
    return texts;
  }

  Session session;
  std::vector<MachineLink> links = {{"br0", 2, true, true, {"192.0.2.1"}}, {"br1", 3, true, true, {"192.0.2.9"}}};
};

}  // namespace

TEST_F(Health, NothingIsWrong) {
  EXPECT_THAT(Findings(), IsEmpty());
  view().beat = kSecond;
  EXPECT_THAT(Findings(), IsEmpty()) << "an idle daemon waits for days";
}

TEST_F(Health, ADaemonThatIsBusyForSecondsHangs) {
  view().waiting = false;
  EXPECT_THAT(Findings(), IsEmpty()) << "a second ago it waited";
  view().beat = 990 * kSecond;
  EXPECT_THAT(Findings(), ElementsAre("error: daemon: it hangs: it has been busy with one thing for 10 s"));
}

TEST_F(Health, AStartUpThatStandsStillHangs) {
  view().phase = StatePhase::starting;
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("warning: daemon: it is still starting")));
  view().beat = 900 * kSecond;
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("error: daemon: it hangs: its start-up")));
}

TEST_F(Health, ALinkIsDeadWhenItsIndexIsAnotherOne) {
  links[1].index = 9;
  EXPECT_THAT(Findings(),
              ElementsAre("error: br1: DEAD: the daemon holds it by index 3, and it has been made anew with index 9"));
  links.pop_back();
  EXPECT_THAT(Findings(),
              ElementsAre("error: br1: DEAD: the daemon holds it by index 3, and there is no such interface"));
}

TEST_F(Health, ALinkHasToBeUpAndToMulticastAndToHaveAnAddress) {
  links[0].up = false;
  links[1].addresses.clear();
  EXPECT_THAT(Findings(), ElementsAre("error: br0: it is down", "error: br1: it has no address"));
  links[0].multicast = false;
  EXPECT_EQ(Findings().front(), "error: br0: it cannot multicast");
}

TEST_F(Health, TheLimitIsAnErrorOnceItRefuses) {
  view().instances.push_back({0, StateOfInstance::refused, StateReason::limit, "A", "", "", {}, 0, kSecond, kSecond});
  EXPECT_THAT(Findings(), ElementsAre("error: limit: the limit of 2001 services is reached; refused: 1"));
}

TEST_F(Health, TheWorstComesFirst) {
  view().phase = StatePhase::starting;
  links[0].up = false;
  EXPECT_EQ(Findings().front(), "error: br0: it is down");
  EXPECT_EQ(findings_status(findings_of(session, links)), kUnwell);
}

TEST_F(Health, NothingIsSaidOfADaemonThatIsGone) {
  view().writer_lives = false;
  links.clear();
  EXPECT_THAT(Findings(), IsEmpty());
  EXPECT_THAT(absence(session), HasSubstr("it was killed or crashed"));
}
