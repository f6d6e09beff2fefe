// SPDX-License-Identifier: MIT
// The page and the JSON of `report`, by the state file and the machine's links.
#include "mdnsproxyctl/report.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <regex>

#include "mdnsproxyctl/json.h"
#include "unit/tools/markup_reader.h"

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kNow = 200'000 * kSecond;

class ReportTest : public testing::Test {
 protected:
  ReportTest() {
    session.options.state_file = "/run/state";
    session.state.outcome = StateOutcome::ok;
    session.clocks = {kNow, 1'700'000'000 * kSecond};
    view().writer_lives = true;
    view().pid = static_cast<std::uint32_t>(getpid());
    view().started = kSecond;
    view().beat = kNow;
    view().phase = StatePhase::running;
    view().waiting = true;
    view().limit = 2001;
    view().version = "1.2.3";
    view().rules_file = "/etc/rules";
    view().rules = {{2, "br0", "br1", 2, 3, "_ipp._tcp", kSecond}};
  }
  StateView& view() { return session.state.view; }

  void GivenService(const std::string& name, StateOfInstance state, StateReason reason = StateReason::none,
                    const std::string& name_there = "") {
    view().instances.push_back(
        {0, state, reason, name, name_there, "host.local.", {"192.0.2.7"}, 631, kNow, kNow - 60 * kSecond});
  }
  void GivenForwarded(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string name = "Printer " + std::to_string(i);
      GivenService(name, StateOfInstance::forwarded, StateReason::none, name);
    }
  }
  void GivenEvent(const std::string& name, std::uint64_t seconds_ago, StateOfInstance after,
                  StateReason reason = StateReason::none) {
    view().events.push_back(
        {view().events_written++, kNow - seconds_ago * kSecond, 0, StateOfInstance::none, after, reason, name});
  }

  // The page, which has to be well-formed, and its parts.
  std::string Page() {
    const std::string page = report_page(report_of(examination, host));
    reading = read_markup(page);
    EXPECT_THAT(reading.fault, IsEmpty());
    return page;
  }
  std::string Text() { return Page().empty() ? "" : reading.text; }
  std::ptrdiff_t Tags(const std::string& tag) {
    Page();
    return std::ranges::count(reading.tags, tag);
  }
  Json Answer() { return report_json(report_of(examination, host)); }
  std::vector<std::string> Events() {
    std::vector<std::string> texts;
    const Json answer = Answer();
    for (const Json& each : answer["events"]) {
      texts.push_back(each["service"].get<std::string>() + " " + each["state"].get<std::string>());
    }
    return texts;
  }

  Session session;
  std::string host = "gw1";
  Examination examination = {
      session, {{"br0", 2, true, true, {"192.0.2.1"}}, {"br1", 3, true, true, {"198.51.100.1"}}}, {}, {}, {}, {}};
  MarkupReading reading;
};

}  // namespace

// --- What it says

TEST_F(ReportTest, SaysWhoseItIsAndWhenItWasMade) {
  EXPECT_THAT(Text(), AllOf(StartsWith("\nmdnsproxy on gw1, 2023-11-14 22:13:20"), HasSubstr("version 1.2.3"),
                            HasSubstr("rules of /etc/rules"), HasSubstr("state file /run/state"),
                            HasSubstr("running for 2 d 7 h")));
}

TEST_F(ReportTest, WithoutServicesShowsLinksAndRules) {
  EXPECT_THAT(Text(),
              AllOf(HasSubstr("br0up, index 2 \u00b7 192.0.2.1"), HasSubstr("br1up, index 3 \u00b7 198.51.100.1"),
                    HasSubstr("line 2, one way: _ipp._tcpno service"), HasSubstr("There were none.")));
}

TEST_F(ReportTest, ShowsEachServiceWithAnArrowOrTheReason) {
  GivenService("Well", StateOfInstance::forwarded, StateReason::none, "Well");
  GivenService("Twice", StateOfInstance::forwarded, StateReason::none, "Twice (2)");
  GivenService("Ghost", StateOfInstance::waiting, StateReason::no_address);
  GivenService("Local", StateOfInstance::refused, StateReason::link_local_only);
  EXPECT_THAT(Text(), AllOf(HasSubstr("Wellhost.local. \u00b7 port 631 \u00b7 192.0.2.7forwarded for 1 minWell"),
                            HasSubstr("forwarded for 1 minTwice (2)its own name was taken there"),
                            HasSubstr("its host has no addresswaiting for 1 min"),
                            HasSubstr("its host has only link-local addressesrefused for 1 min"),
                            HasSubstr("2 forwarded, 2 not")));
  EXPECT_THAT(Text(), AllOf(HasSubstr("2 forwarded"), HasSubstr("1 waiting1 no address"),
                            HasSubstr("1 refused1 link local only"), HasSubstr("4 / 2001 of the limit")));
  EXPECT_LT(reading.text.find("Local"), reading.text.find("Ghost")) << "the worst first";
  EXPECT_LT(reading.text.find("Ghost"), reading.text.find("Well"));
}

TEST_F(ReportTest, ARuleOfSeveralTypesIsOneBoxForEachDirection) {
  view().rules = {{2, "br0", "br1", 2, 3, "_ipp._tcp", kSecond},
                  {2, "br0", "br1", 2, 3, "_ipps._tcp", kSecond},
                  {2, "br1", "br0", 3, 2, "_ipp._tcp", kSecond},
                  {2, "br1", "br0", 3, 2, "_ipps._tcp", kSecond},
                  {5, "br0", "br1", 2, 3, "_http._tcp", kSecond}};
  GivenService("Well", StateOfInstance::forwarded);
  EXPECT_EQ(Tags("div class=\"way\""), 2);
  EXPECT_EQ(Tags("div class=\"rule\""), 3);
  EXPECT_THAT(reading.text,
              AllOf(HasSubstr("line 2, both ways: _ipp._tcp, _ipps._tcp"), HasSubstr("line 5, one way: _http._tcp"),
                    HasSubstr("Well_ipp._tcp \u00b7 host.local.")));
}

TEST_F(ReportTest, WhatTheDaemonItselfHasForwardedIsCountedAndNotListedTheOtherWay) {
  view().rules.push_back({2, "br1", "br0", 3, 2, "_ipp._tcp", kSecond});
  GivenService("Well", StateOfInstance::forwarded, StateReason::none, "Well (2)");
  for (const char* name : {"Well (2)", "Well"}) {
    GivenService(name, StateOfInstance::refused, StateReason::through_gateway);
    view().instances.back().rule = 1;
  }
  EXPECT_THAT(Text(), HasSubstr("0 forwarded, 1 not; 1 that went the other way and do not come back"));
  EXPECT_EQ(Tags("li class=\"bad\""), 2) << "the tile, and the one that another gateway has forwarded";
}

TEST_F(ReportTest, ChecksAreTheFindingsAndThenWhatIsWell) {
  examination.findings = {{HealthSeverity::error, "br1", "DEAD", "restart it"},
                          {HealthSeverity::warning, "buffers", "small", "make them larger"}};
  examination.well = {{"daemon", "it runs"}, {"routes", "all there"}};
  const Json answer = Answer();
  EXPECT_EQ(answer["checks"], Json::parse(R"([
      {"result": "error", "subject": "br1", "text": "DEAD", "cure": "restart it"},
      {"result": "warning", "subject": "buffers", "text": "small", "cure": "make them larger"},
      {"result": "well", "subject": "daemon", "text": "it runs", "cure": null},
      {"result": "well", "subject": "routes", "text": "all there", "cure": null}])"));
  EXPECT_EQ(answer["not_looked_at"], Json::array());
  EXPECT_THAT(Text(), AllOf(HasSubstr("errorbr1DEADrestart it\nwarningbufferssmall"), HasSubstr("2 / 4 checks failed"),
                            HasSubstr("errors: 1, warnings: 1"), HasSubstr("2 checks are well")));
  EXPECT_THAT(reading.text, Not(HasSubstr("not looked at")));
}

TEST_F(ReportTest, WhatCouldNotBeLookedAtIsNeitherWellNorFailed) {
  examination.well = {{"daemon", "it runs"}};
  examination.not_seen = {{"packet filter", "only root may read it"}};
  const Json answer = Answer();
  EXPECT_EQ(answer["checks"].size(), 1U);
  EXPECT_EQ(answer["not_looked_at"], Json::parse(R"([{"subject": "packet filter", "text": "only root may read it"}])"));
  EXPECT_THAT(Text(), AllOf(HasSubstr("1 check is well"), HasSubstr("1 check is well, not looked at: 1"),
                            HasSubstr("not looked atpacket filteronly root may read it")));
}

// --- Comings and goings

TEST_F(ReportTest, EventsAreThoseOfTheLastDayTheNewestFirst) {
  GivenEvent("Old", 86401, StateOfInstance::forwarded);
  GivenEvent("A", 86399, StateOfInstance::forwarded);
  GivenEvent("B", 60, StateOfInstance::none);
  EXPECT_THAT(Events(), ElementsAre("B gone", "A forwarded"));
  EXPECT_EQ(Answer()["events_from"], "2023-11-13T22:13:20Z");
  EXPECT_THAT(Text(), AllOf(HasSubstr("2023-11-14 22:12:20B_ipp._tcpbr0 \u2192 br1gone"), Not(HasSubstr("Old"))));
}

TEST_F(ReportTest, StepsOnTheWayAreNoEventsOfTheirOwn) {
  GivenEvent("A", 100, StateOfInstance::waiting, StateReason::resolving);
  GivenEvent("A", 99, StateOfInstance::refused, StateReason::link_local_only);
  GivenEvent("A", 98, StateOfInstance::forwarded);
  GivenEvent("B", 97, StateOfInstance::waiting, StateReason::no_address);
  GivenEvent("B", 20, StateOfInstance::forwarded);
  GivenEvent("C", 19, StateOfInstance::waiting, StateReason::no_address);
  EXPECT_THAT(Events(), ElementsAre("C waiting", "B forwarded", "B waiting", "A forwarded"));
}

TEST_F(ReportTest, WhatTheRingHasForgottenIsTold) {
  view().events_written = 300;
  GivenEvent("A", 60, StateOfInstance::forwarded);
  EXPECT_EQ(Answer()["events_from"], "2023-11-14T22:12:20Z");
  EXPECT_THAT(Text(), HasSubstr("Known from 2023-11-14 22:12:20 UTC on"));
}

TEST_F(ReportTest, ManyEventsAreFolded) {
  for (std::uint64_t i = 0; i < 256; ++i) {
    GivenEvent("A", 1000 - i, i % 2 == 0 ? StateOfInstance::forwarded : StateOfInstance::none);
  }
  EXPECT_THAT(Text(), HasSubstr("236 earlier ones"));
}

// --- A daemon that is gone

TEST_F(ReportTest, SaysThatTheDaemonIsGoneAndWhatCameBefore) {
  GivenForwarded(1);
  GivenEvent("Visitor", 60, StateOfInstance::forwarded);
  view().writer_lives = false;
  examination.links.clear();
  examination.findings = {absence_finding(session)};
  EXPECT_THAT(Text(), AllOf(HasSubstr("The daemon is not running."),
                            HasSubstr("errordaemonThe daemon is not running: it was killed"), HasSubstr("Visitor"),
                            Not(HasSubstr("Printer 0"))));
  EXPECT_EQ(Answer()["services"], Json::array());
  EXPECT_EQ(Answer()["limit"], nullptr);
  EXPECT_EQ(overall_status(session, {}), kNotRunning);
}

TEST_F(ReportTest, SaysThatNothingIsKnownWithoutAStateFile) {
  session.state = {StateOutcome::missing, "No such file or directory", {}};
  examination.findings = {absence_finding(session)};
  EXPECT_THAT(Text(),
              AllOf(HasSubstr("Nothing is known of the daemon."), HasSubstr("There is no state file /run/state")));
  EXPECT_EQ(Answer()["problem"], "/run/state: No such file or directory");
  EXPECT_EQ(Answer()["events_from"], nullptr);
  EXPECT_EQ(overall_status(session, {}), kNoState);
}

TEST_F(ReportTest, StatusIsThatOfTheWorst) {
  EXPECT_EQ(overall_status(session, {}), kWell);
  EXPECT_EQ(overall_status(session, {{HealthSeverity::warning, "", "", ""}}), kWorthALook);
  GivenService("Ghost", StateOfInstance::waiting, StateReason::no_address);
  EXPECT_EQ(overall_status(session, {}), kWorthALook);
  EXPECT_EQ(overall_status(session, {{HealthSeverity::error, "", "", ""}}), kUnwell);
}

// --- Many services

TEST_F(ReportTest, AShortListIsOpenAndALongOneFoldedUnderItsCount) {
  GivenForwarded(12);
  GivenService("Ghost", StateOfInstance::waiting, StateReason::no_address);
  EXPECT_EQ(Tags("details"), 0);
  GivenForwarded(1);
  const std::string page = Page();
  EXPECT_THAT(reading.tags, Contains("details").Times(1));
  EXPECT_THAT(page, HasSubstr("<details><summary>13 forwarded</summary>"));
  EXPECT_LT(page.find("<bdi>Ghost"), page.find("<summary>13 forwarded")) << "what is not forwarded stays in sight";
}

TEST_F(ReportTest, IsSmallWith2001Services) {
  for (int i = 0; i < 2001; ++i) {
    const std::string name = std::to_string(i) + " Multifunction printer on the second floor";
    GivenService(name, StateOfInstance::forwarded, StateReason::none, i % 10 == 0 ? name + " (2)" : name);
    view().instances.back().host = "multifunction-printer-" + std::to_string(i) + ".local.";
    view().instances.back().addresses.emplace_back("2001:db8:1111:2222:3333:4444:5555:6666");
  }
  for (std::uint64_t i = 0; i < 256; ++i) {
    GivenEvent("Multifunction printer on the second floor", 1000 - i, StateOfInstance::forwarded);
  }
  const std::string page = Page();
  EXPECT_LT(page.size(), 1'200'000U);
  EXPECT_THAT(page, HasSubstr("<summary>2001 forwarded</summary>"));
  EXPECT_EQ(Answer()["services"].size(), 2001U);
}

// --- Strangers

TEST_F(ReportTest, NamesOfStrangersAreText) {
  const std::string script = "</bdi><script>alert(\"1\")</script><img src=x onerror='1'>&amp;";
  const std::string controls = "a\nb\x1b[31m\u202eright";
  const std::string japanese = "プリンタプリンタプリンタプリンタプリンタプ";
  for (const std::string& name : {script, controls, japanese}) {
    for (const StateOfInstance state :
         {StateOfInstance::forwarded, StateOfInstance::waiting, StateOfInstance::refused}) {
      GivenService(name, state, StateReason::none, name + "2");
    }
    view().instances.back().host = name;
    GivenEvent(name, 1, StateOfInstance::forwarded);
  }
  host = script;
  view().version = view().rules_file = session.options.state_file = script;
  view().rules[0].type = view().rules[0].from = script;
  const std::string page = Page();
  EXPECT_THAT(reading.isolated,
              AllOf(Contains(script), Contains("a\\010b\\027[31m\\226\\128\\174right"), Contains(japanese)));
  EXPECT_THAT(reading.tags, Each(Not(AnyOf(StartsWith("script"), StartsWith("img")))));
  EXPECT_THAT(page, Not(HasSubstr("\u202e")));
  EXPECT_EQ(Answer()["services"][0]["service"], script) << "JSON escapes by itself";
}

TEST_F(ReportTest, FetchesNothingAndRunsNothing) {
  GivenForwarded(20);
  GivenEvent("A", 1, StateOfInstance::forwarded);
  const std::string page = Page();
  EXPECT_FALSE(std::regex_search(page, std::regex("<script|@import|url\\(|https?:|src=|<a |<form| on[a-z]+=")));
  EXPECT_THAT(page, HasSubstr("default-src 'none'; style-src 'unsafe-inline'; img-src data:"));
}
