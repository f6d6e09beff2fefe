// SPDX-License-Identifier: MIT
// State files that are none, or not whole, or not the daemon's.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "unit/state/state_fixture.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class BrokenStateFile : public StateTest {
 protected:
  BrokenStateFile() {
    GivenRule(rule());
    GivenForwarded("A", this);
  }
  // A copy of the file that a process which is gone has left, changed.
  std::string Changed(const std::function<void(StateImage&)>& change) {
    static StateImage image;
    image = *gStateImage;
    change(image);
    directory_.write("copy", std::string(reinterpret_cast<const char*>(&image), sizeof image));
    return directory_.path_of("copy");
  }
  static void ExpectUnusable(const std::string& path, const std::string& why) {
    const StateReading reading = read_state_file(path);
    EXPECT_EQ(reading.outcome, StateOutcome::unusable) << path;
    EXPECT_THAT(reading.message, HasSubstr(why)) << path;
  }
};

}  // namespace

TEST_F(BrokenStateFile, IsNotThere) {
  EXPECT_EQ(read_state_file(directory_.path_of("nothing")).outcome, StateOutcome::missing);
  EXPECT_EQ(read_state_file(path() + "/below-a-file").outcome, StateOutcome::missing);
}

TEST_F(BrokenStateFile, IsCutShortAnywhere) {
  const std::string whole = directory_.read("state");
  for (const std::size_t length :
       {std::size_t{0}, std::size_t{1}, sizeof(StateHead) - 1, sizeof(StateHead), whole.size() / 2, whole.size() - 1}) {
    directory_.write("copy", whole.substr(0, length));
    ExpectUnusable(directory_.path_of("copy"), "short");
  }
}

TEST_F(BrokenStateFile, IsCutShortWhileItIsOpen) {
  directory_.write("copy", directory_.read("state"));
  const int file = open(directory_.path_of("copy").c_str(), O_RDONLY);
  ASSERT_EQ(truncate(directory_.path_of("copy").c_str(), 100), 0);
  EXPECT_EQ(read_state(file).outcome, StateOutcome::unusable);
  close(file);
}

TEST_F(BrokenStateFile, IsSomethingElse) {
  directory_.write("copy", std::string(sizeof(StateImage), 'x'));
  ExpectUnusable(directory_.path_of("copy"), "no state file");
  directory_.write("copy", "");
  ASSERT_EQ(truncate(directory_.path_of("copy").c_str(), off_t{1} << 40), 0);
  ExpectUnusable(directory_.path_of("copy"), "no state file");
  ExpectUnusable(directory_.path(), "no regular file");
  ExpectUnusable("/dev/zero", "no regular file");
  ASSERT_EQ(mkfifo(directory_.path_of("fifo").c_str(), 0600), 0);
  ExpectUnusable(directory_.path_of("fifo"), "no regular file");
  std::filesystem::create_symlink(path(), directory_.path_of("link"));
  ExpectUnusable(directory_.path_of("link"), "symbolic link");
}

TEST_F(BrokenStateFile, BelongsToSomebodyElse) {
  if (geteuid() != 0) {
    GTEST_FAIL() << "this needs root";
  }
  const std::string copy = Changed([](StateImage&) {});
  EXPECT_EQ(read_state_file(copy).outcome, StateOutcome::ok);
  ASSERT_EQ(chown(copy.c_str(), 65534, 65534), 0);
  ExpectUnusable(copy, "belongs to user 65534");
}

TEST_F(BrokenStateFile, HasAnotherLayout) {
  const StateReading reading = read_state_file(Changed([](StateImage& image) { image.head.major = 7; }));
  EXPECT_EQ(reading.outcome, StateOutcome::other_layout);
  EXPECT_THAT(reading.message, HasSubstr("layout 7.1"));
}

TEST_F(BrokenStateFile, ALaterMinorVersionIsRead) {
  EXPECT_EQ(read_state_file(Changed([](StateImage& image) { image.head.minor = 9; })).outcome, StateOutcome::ok);
}

TEST_F(BrokenStateFile, ThatOfTheFirstMinorVersionHasNoLinks) {
  state_link(7, {});
  const StateReading reading = read_state_file(Changed([](StateImage& image) {
    image.head.minor = 0;
    image.head.links = image.head.link_size = 0;
  }));
  EXPECT_EQ(reading.outcome, StateOutcome::ok);
  EXPECT_THAT(reading.view.links, IsEmpty());
}

TEST_F(BrokenStateFile, HasADamagedHead) {
  const std::vector<std::function<void(StateHead&)>> damages = {
      [](StateHead& head) { head.head_size = 0; },
      [](StateHead& head) { head.head_size = 0xFFFFFFF8; },
      [](StateHead& head) { head.global_size = 8; },
      [](StateHead& head) { head.rules = 0xFFFFFFFF; },
      [](StateHead& head) { head.instance_size = 7; },
      [](StateHead& head) { head.instances = 0; },
      [](StateHead& head) { head.event_size = 0x80000000; },
      [](StateHead& head) { head.rules = head.instances = head.events = 65536; }};
  for (const auto& damage : damages) {
    ExpectUnusable(Changed([&](StateImage& image) { damage(image.head); }), "head is damaged");
  }
}

TEST_F(BrokenStateFile, IsScribbledOver) {
  const std::vector<std::function<void(StateImage&)>> scribbles = {
      [](StateImage& image) { image.global.rules = kStateRules + 1; },
      [](StateImage& image) { image.global.pid = 0; },
      [](StateImage& image) { image.global.phase = static_cast<StatePhase>(99); },
      [](StateImage& image) { image.instances[0].state = static_cast<StateOfInstance>(9); },
      [](StateImage& image) { image.instances[0].reason = static_cast<StateReason>(200); },
      [](StateImage& image) { image.instances[0].rule = 1; },
      [](StateImage& image) { image.events[0].rule = 0xFFFFFFFF; }};
  for (const auto& scribble : scribbles) {
    ExpectUnusable(Changed(scribble), "damaged");
  }
}

TEST_F(BrokenStateFile, TextsWithoutAnEndEndWithTheirField) {
  const std::string copy = Changed([](StateImage& image) {
    std::memset(image.instances[0].name, 'n', sizeof image.instances[0].name);
    std::memset(image.rules[0].type, 't', sizeof image.rules[0].type);
  });
  const StateReading reading = read_state_file(copy);
  ASSERT_EQ(reading.outcome, StateOutcome::ok);
  EXPECT_EQ(reading.view.instances[0].name, std::string(kStateNameSize, 'n'));
  EXPECT_EQ(reading.view.rules[0].type, std::string(kStateTypeSize, 't'));
}

TEST_F(BrokenStateFile, AHalfWrittenRecordOfAProcessThatIsGoneIsNotBelieved) {
  const StateReading reading = read_state_file(Changed([](StateImage& image) { ++image.instances[0].sequence; }));
  ASSERT_EQ(reading.outcome, StateOutcome::ok);
  EXPECT_FALSE(reading.view.writer_lives);
  EXPECT_TRUE(reading.view.torn);
  EXPECT_THAT(reading.view.instances, IsEmpty());
  ExpectUnusable(Changed([](StateImage& image) { ++image.global.sequence; }), "killed");
}

TEST_F(BrokenStateFile, ARecordThatKeepsChangingIsLeftOut) {
  ++gStateImage->instances[0].sequence;
  const StateView view = Read();
  EXPECT_TRUE(view.writer_lives);
  EXPECT_FALSE(view.torn);
  EXPECT_EQ(view.changing, 1U);
  EXPECT_THAT(view.instances, IsEmpty());
  ++gStateImage->instances[0].sequence;
  EXPECT_THAT(Read().instances, SizeIs(1));
}
