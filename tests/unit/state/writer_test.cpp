// SPDX-License-Identifier: MIT
// What the daemon writes into its state file.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "unit/state/state_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class StateFile : public StateTest {};

class StateOfInstances : public StateTest {
 protected:
  StateOfInstances() { GivenRule(rule()); }
};

// States of the events, oldest first.
std::vector<std::string> told(const StateView& view) {
  constexpr const char* kStates[] = {"none", "forwarded", "waiting", "refused"};
  std::vector<std::string> texts;
  for (const EventView& each : view.events) {
    texts.push_back(each.name + " " + kStates[static_cast<int>(each.before)] + ">" +
                    kStates[static_cast<int>(each.after)]);
  }
  return texts;
}

}  // namespace

TEST_F(StateFile, SaysWhoWritesIt) {
  const StateView view = Read();
  EXPECT_EQ(view.pid, static_cast<std::uint32_t>(getpid()));
  EXPECT_EQ(view.version, "1.2.3");
  EXPECT_EQ(view.rules_file, "/etc/rules");
  EXPECT_EQ(view.limit, 2001U);
  EXPECT_EQ(view.phase, StatePhase::starting);
  EXPECT_TRUE(view.writer_lives) << "the lock is asked for through another open file";
}

TEST_F(StateFile, IsReadableForEverybodyWhateverTheMask) {
  const mode_t mask = umask(0077);
  Open();
  umask(mask);
  struct stat status = {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(StateFile, HasAllItsBlocks) {
  struct stat status = {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_GE(static_cast<std::size_t>(status.st_blocks) * 512, sizeof(StateImage));
}

TEST_F(StateFile, LeavesNothingElseInItsDirectory) {
  std::vector<std::string> names;
  for (const auto& each : std::filesystem::directory_iterator(directory_.path())) {
    names.push_back(each.path().filename().string());
  }
  EXPECT_THAT(names, ElementsAre("state"));
}

TEST_F(StateFile, TakesThePlaceOfALeftoverAndOfALinkToElsewhere) {
  directory_.write("victim", "precious");
  directory_.write("state.new", "left by a process that was killed");
  std::filesystem::remove(path());
  std::filesystem::create_symlink(directory_.path_of("victim"), path());
  Open();
  EXPECT_EQ(directory_.read("victim"), "precious");
  EXPECT_EQ(Read().version, "1.2.3");
}

TEST_F(StateFile, IsNotMadeThroughALinkAtItsFirstName) {
  directory_.write("victim", "precious");
  std::filesystem::create_symlink(directory_.path_of("victim"), directory_.path_of("state.new"));
  Open();
  EXPECT_EQ(directory_.read("victim"), "precious");
}

TEST_F(StateFile, IsSilentlyAbsentWhereItCannotBe) {
  gStateImage = nullptr;
  for (const std::string& place :
       {directory_.path_of("nowhere/state"), std::string("relative"), "/" + std::string(600, 'x')}) {
    state_open(place.c_str(), {"1.2.3", "/etc/rules", 2001});
    EXPECT_EQ(gStateImage, nullptr) << place;
  }
}

TEST_F(StateFile, DoesNotTakeThePlaceOfADirectory) {
  gStateImage = nullptr;
  const std::string place = directory_.path_of("directory");
  std::filesystem::create_directory(place);
  state_open(place.c_str(), {"1.2.3", "/etc/rules", 2001});
  EXPECT_EQ(gStateImage, nullptr);
  EXPECT_FALSE(directory_.has("directory.new"));
}

TEST_F(StateFile, WithoutOneEverythingDoesNothing) {
  gStateImage = nullptr;
  const std::uint8_t address[16] = {};
  state_runs();
  state_ends(1);
  state_waits();
  state_wakes();
  state_rule_stands_at("text", 2);
  GivenRule(rule());
  GivenForwarded("A", this);
  state_instance_link_local(rule(), "A", address, 4);
  state_instance_refused(rule(), "B", StateReason::limit);
  state_instance_gone(rule(), "A");
  EXPECT_EQ(gStateImage, nullptr);
}

TEST_F(StateFile, FollowsTheDaemonFromStartToEnd) {
  state_runs();
  EXPECT_EQ(Read().phase, StatePhase::running);
  state_waits();
  EXPECT_TRUE(Read().waiting);
  state_wakes();
  EXPECT_FALSE(Read().waiting);
  EXPECT_EQ(Read().counter(StateCounter::wakes), 1U);
  state_ends(110);
  EXPECT_EQ(Read().phase, StatePhase::ended);
  EXPECT_EQ(Read().exit_status, 110U);
}

TEST_F(StateFile, WritesItsBeatOnceASecond) {
  state_wakes();
  const std::uint64_t first = Read().beat;
  gStateImage->global.beat = first - 999'000'000 + 900'000'000;
  const std::uint64_t younger = gStateImage->global.beat;
  state_wakes();
  EXPECT_EQ(Read().beat, younger) << "less than a second ago";
  gStateImage->global.beat = first - 1'000'000'000;
  state_wakes();
  EXPECT_GE(Read().beat, first);
}

TEST_F(StateFile, HoldsRulesWithTheirLines) {
  const std::string text = "<a>\n<b>\n\n<c>";
  state_rule_stands_at(text.c_str(), text.find("<b>"));
  GivenRule(&text[0], "_ipp._tcp", "br0", "br1");
  GivenRule(&text[1], "_ipp._tcp", "br1", "br0");
  state_rule_stands_at(text.c_str(), text.find("<c>"));
  GivenRule(&text[2], "_universal._ipp._tcp", "br0", "a-name-of-16-bytes-or-more");
  const StateView view = Read();
  ASSERT_THAT(view.rules, SizeIs(3));
  EXPECT_EQ(view.rules[0].line, 2U);
  EXPECT_EQ(view.rules[1].line, 2U);
  EXPECT_EQ(view.rules[1].from, "br1");
  EXPECT_EQ(view.rules[2].line, 4U);
  EXPECT_EQ(view.rules[2].type, "_universal._ipp._tcp");
  EXPECT_EQ(view.rules[2].to, "a-name-of-16-by") << "cut to fit, terminated";
  EXPECT_EQ(view.rules[2].to_index, 3);
}

TEST_F(StateFile, CountsRulesThatHaveNoRoom) {
  const std::vector<char> rules(kStateRules + 2);
  for (const char& each : rules) {
    GivenRule(&each);
  }
  EXPECT_THAT(Read().rules, SizeIs(kStateRules));
  EXPECT_EQ(Read().rules_left_out, 2U);
  state_instance_found(&rules.back(), "of a rule that has none");
  EXPECT_THAT(Read().instances, IsEmpty());
  EXPECT_EQ(Read().counter(StateCounter::left_out), 1U);
}

TEST_F(StateOfInstances, FollowsOneFromItsDiscoveryToItsEnd) {
  state_instance_found(rule(), "A");
  EXPECT_EQ(Instance().reason, StateReason::resolving);
  Resolves("A");
  EXPECT_EQ(Instance().reason, StateReason::no_address);
  EXPECT_EQ(Instance().host, "printer.local.");
  EXPECT_EQ(Instance().port, 631);
  HasAddress("A");
  state_instance_registering(rule(), "A", this);
  EXPECT_EQ(Instance().reason, StateReason::probing);
  EXPECT_THAT(Instance().addresses, ElementsAre("192.0.2.1"));
  state_instance_registered(rule(), this, "A", StateReason::none);
  EXPECT_EQ(Instance().state, StateOfInstance::forwarded);
  EXPECT_EQ(Instance().name_there, "A");
  state_instance_gone(rule(), "A");
  EXPECT_THAT(Read().instances, IsEmpty());
  EXPECT_THAT(told(Read()), ElementsAre("A none>waiting", "A waiting>waiting", "A waiting>waiting",
                                        "A waiting>forwarded", "A forwarded>none"));
}

TEST_F(StateOfInstances, KeepsNothingOfOneThatIsGone) {
  GivenForwarded("Secret", this);
  state_instance_gone(rule(), "Secret");
  EXPECT_EQ(std::string(gStateImage->instances[0].name, kStateNameSize), std::string(kStateNameSize, '\0'));
  EXPECT_EQ(gStateImage->instances[0].host[0], '\0');
}

TEST_F(StateOfInstances, GivesThePlaceOfOneThatIsGoneToOneOther) {
  state_instance_found(rule(), "Gone");
  state_instance_gone(rule(), "Gone");
  state_instance_found(rule(), "One");
  state_instance_found(rule(), "Other");
  EXPECT_THAT(Read().instances, SizeIs(2));
}

TEST_F(StateOfInstances, KnowsTheNameThereByTheRegistration) {
  state_instance_found(rule(), "B");
  state_instance_registering(rule(), "B", &directory_);
  GivenForwarded("A", this, "B");
  const StateView view = Read();
  EXPECT_EQ(view.instances[0].state, StateOfInstance::waiting) << "B's own registration has not been answered";
  EXPECT_EQ(view.instances[1].name_there, "B");
  EXPECT_EQ(view.counter(StateCounter::renamed), 1U);
}

TEST_F(StateOfInstances, ALinkLocalAddressRefusesUntilAnotherComes) {
  const std::uint8_t link_local[4] = {169, 254, 7, 7};
  state_instance_found(rule(), "A");
  Resolves("A");
  state_instance_link_local(rule(), "A", link_local, sizeof link_local);
  EXPECT_EQ(Instance().state, StateOfInstance::refused);
  EXPECT_EQ(Instance().reason, StateReason::link_local_only);
  EXPECT_THAT(Instance().addresses, ElementsAre("169.254.7.7"));
  HasAddress("A");
  EXPECT_EQ(Instance().state, StateOfInstance::waiting);
  EXPECT_THAT(Instance().addresses, ElementsAre("192.0.2.1"));
  state_instance_link_local(rule(), "A", link_local, sizeof link_local);
  EXPECT_EQ(Instance().state, StateOfInstance::waiting) << "it has a better one";
}

TEST_F(StateOfInstances, ARefusedRegistrationSaysWhy) {
  GivenForwarded("A", this);
  state_instance_registered(rule(), this, "A", StateReason::conflict);
  EXPECT_EQ(Instance().reason, StateReason::conflict);
  state_instance_registering(rule(), "A", nullptr);
  EXPECT_EQ(Instance().state, StateOfInstance::refused);
  EXPECT_EQ(Instance().reason, StateReason::none);
}

TEST_F(StateOfInstances, AReplyForAnInstanceThatIsGoneChangesNothing) {
  GivenForwarded("A", this);
  state_instance_gone(rule(), "A");
  state_instance_found(rule(), "A");
  state_instance_registered(rule(), this, "A", StateReason::none);
  EXPECT_EQ(Instance().state, StateOfInstance::waiting);
}

TEST_F(StateOfInstances, OneThatCameThroughAGatewayStaysUntilItIsGone) {
  state_instance_found(rule(), "A");
  state_instance_refused(rule(), "A", StateReason::through_gateway);
  EXPECT_EQ(Instance().reason, StateReason::through_gateway);
  state_instance_gone(rule(), "A");
  EXPECT_THAT(Read().instances, IsEmpty());
}

TEST_F(StateOfInstances, RefusedOnesLeaveRoomForThoseThatLive) {
  const auto name = [](std::uint32_t i) { return "Device " + std::to_string(i); };
  for (std::uint32_t i = 0; i < kStateInstances; ++i) {
    state_instance_refused(rule(), name(i).c_str(), StateReason::limit);
  }
  EXPECT_THAT(Read().instances, SizeIs(kStateInstances - kStateLiveInstances));
  EXPECT_EQ(Read().counter(StateCounter::left_out), kStateLiveInstances);
  for (std::uint32_t i = 0; i < kStateLiveInstances; ++i) {
    state_instance_found(rule(), ("Live " + std::to_string(i)).c_str());
  }
  EXPECT_THAT(Read().instances, SizeIs(kStateInstances));
  EXPECT_EQ(Read().counter(StateCounter::high_water), kStateLiveInstances);
  state_instance_refused(rule(), "Live 0", StateReason::through_gateway);
  EXPECT_THAT(Read().instances, SizeIs(kStateInstances - 1)) << "one refused too many is not kept";
  state_instance_found(rule(), "Live again");
  EXPECT_THAT(Read().instances, SizeIs(kStateInstances));
}

TEST_F(StateOfInstances, KeepsNamesAsTheyCome) {
  const std::string japanese =
      "プリンタプリンタプリンタプリンタプリンタ"
      "プ";  // 63 bytes
  ASSERT_EQ(japanese.size(), 63U);
  const std::vector<std::string> names = {japanese, "<script>\n\x1b[2J\"'`$(reboot)\xe2\x80\xae", "\xff"};
  for (const std::string& each : names) {
    state_instance_found(rule(), each.c_str());
  }
  const StateView view = Read();
  ASSERT_THAT(view.instances, SizeIs(3));
  EXPECT_THAT((std::vector{view.instances[0].name, view.instances[1].name, view.instances[2].name}),
              testing::UnorderedElementsAreArray(names));
}

// So many that some of them share a bucket of the table.
TEST_F(StateOfInstances, KeepsLongNamesApartThatDifferInTheirLastByteAlone) {
  std::size_t count = 0;
  for (char last_but_one = 'a'; last_but_one <= 'z'; ++last_but_one) {
    for (char last = '0'; last <= 'z'; ++last, ++count) {
      state_instance_found(rule(), (std::string(61, 'x') + last_but_one + last).c_str());
    }
  }
  EXPECT_THAT(Read().instances, SizeIs(count));
}

TEST_F(StateOfInstances, TheRingKeepsTheNewestEvents) {
  for (std::uint32_t i = 0; i < kStateEvents; ++i) {
    state_instance_found(rule(), std::to_string(i).c_str());
    state_instance_gone(rule(), std::to_string(i).c_str());
  }
  const StateView view = Read();
  EXPECT_EQ(view.events_written, 2U * kStateEvents);
  ASSERT_THAT(view.events, SizeIs(kStateEvents));
  EXPECT_EQ(view.events.front().number, kStateEvents);
  EXPECT_EQ(view.events.back().name, std::to_string(kStateEvents - 1));
}

TEST_F(StateOfInstances, TwoRulesHaveTheirOwnInstanceOfOneName) {
  int other = 0;
  GivenRule(&other, "_ipp._tcp", "br0", "br2");
  state_instance_found(rule(), "A");
  state_instance_found(&other, "A");
  EXPECT_THAT(Read().instances, SizeIs(2));
  state_instance_gone(&other, "A");
  EXPECT_EQ(Instance().rule, 0U);
}

// --- Links

TEST_F(StateFile, HasTheLastFiguresOfEachLink) {
  StateLinkFigures figures = {1, 2, 3, 4, 5, {}, {}};
  state_link(7, figures);
  figures.received = 11;
  figures.siblings[0] = {4, {192, 0, 2, 9}};
  figures.siblings[1] = {6, {0xFE, 0x80}};
  state_link(8, {});
  state_link(7, figures);
  const StateView view = Read();
  ASSERT_THAT(view.links, SizeIs(2));
  const LinkView& link = view.links.front();
  EXPECT_EQ(link.index, 7);
  EXPECT_THAT((std::vector{link.received, link.ignored, link.lost, link.sent, link.conflicts}),
              ElementsAre(11U, 2U, 3U, 4U, 5U));
  EXPECT_THAT(link.siblings, ElementsAre("192.0.2.9", "fe80::"));
  EXPECT_THAT(view.links.back().siblings, IsEmpty());
}

TEST_F(StateFile, LeavesOutLinksBeyondItsRoom) {
  for (std::uint32_t index = 1; index <= kStateLinks + 2; ++index) {
    state_link(index, {});
  }
  EXPECT_THAT(Read().links, SizeIs(kStateLinks));
}

TEST_F(StateFile, SaysOncePerSecondThatTheFiguresAreDue) {
  EXPECT_FALSE(state_wakes());
  gStateImage->global.beat -= 1'000'000'000;
  EXPECT_TRUE(state_wakes());
  EXPECT_FALSE(state_wakes());
  gStateImage = nullptr;
  EXPECT_FALSE(state_wakes());
}
