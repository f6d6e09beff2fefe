// SPDX-License-Identifier: MIT
#include "proxy/names.h"

#include <cstring>

#include "unit/proxy/proxy_test.h"

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::SizeIs;

// The next label of *cursor as copy_next_label gives it, in a room of `size` bytes.
std::string NextLabel(const char** cursor, int n = 1, std::size_t size = kNameSize) {
  std::vector<char> room(size + 1, '#');
  EXPECT_EQ(copy_next_label(room.data(), room.data() + size, cursor, n), 0);
  EXPECT_EQ(room.back(), '#') << "written past the end of the room";
  return room.data();
}

std::string FirstLabels(const char* name, int n) {
  const char* cursor = name;
  return NextLabel(&cursor, n);
}

// The text as an exact heap block, so that a memory checker sees every step past its zero.
std::vector<char> Exact(const std::string& text) { return {text.c_str(), text.c_str() + text.size() + 1}; }

std::string Unescaped(const std::string& text) {
  const std::vector<char> source = Exact(text);
  std::vector<char> room(source.size());
  const char* end = ConvertDomainNameToCString_UnEnsacpe(source.data(), room.data());
  EXPECT_EQ(*end, '\0');
  return {room.data(), static_cast<std::size_t>(end - room.data())};
}

std::string FirstLabelOnly(const std::string& text) {
  std::vector<char> name = Exact(text);
  EXPECT_EQ(terminate_at_first_label(name.data()), name.data());
  return name.data();
}

TEST(CountLabels, CountsUnescapedDots) {
  EXPECT_EQ(count_labels("_ipp._tcp"), 2);
  EXPECT_EQ(count_labels("_universal._ipp._tcp"), 3);
  EXPECT_EQ(count_labels("a\\.b.c"), 2);
  EXPECT_EQ(count_labels("one"), 1);
}

TEST(CountLabels, StopsAtAnEmptyLabel) {
  EXPECT_EQ(count_labels("a.b."), 2);
  EXPECT_EQ(count_labels("a..b.c"), 1);
  EXPECT_EQ(count_labels(".a.b"), 0);
  EXPECT_EQ(count_labels(""), 0);
  EXPECT_EQ(count_labels(nullptr), 0);
}

TEST(CountLabels, StaysWithinATextThatEndsInABackslash) {
  EXPECT_EQ(count_labels(Exact("a.b\\").data()), 2);
  EXPECT_EQ(count_labels(Exact("\\").data()), 1);
}

TEST(CountLabels, CopesWithALabelLongerThanAnyName) {
  EXPECT_EQ(count_labels(Exact(std::string(5000, 'x')).data()), 5);
}

TEST(CopyNextLabel, KeepsEscapesAndMovesBehindTheDot) {
  const char* cursor = "a\\.b._tcp.local.";
  EXPECT_EQ(NextLabel(&cursor), "a\\.b");
  EXPECT_STREQ(cursor, "_tcp.local.");
  EXPECT_EQ(NextLabel(&cursor, 2), "_tcp.local");
  EXPECT_STREQ(cursor, "");
}

TEST(CopyNextLabel, CopiesUpToTheNthDot) {
  EXPECT_EQ(FirstLabels("a.b.c.d", 3), "a.b.c");
  EXPECT_EQ(FirstLabels("a.b", 3), "a.b");
  EXPECT_EQ(FirstLabels("a.b", 0), "a");
}

TEST(CopyNextLabel, AnEscapedBackslashEscapesNothing) { EXPECT_EQ(FirstLabels("a\\\\.b", 1), "a\\\\"); }

TEST(CopyNextLabel, NeverMovesPastTheTerminatingZero) {
  for (const char* text : {"", "a", "a\\", "\\", "\\."}) {
    const std::vector<char> name = Exact(text);
    const char* cursor = name.data();
    NextLabel(&cursor);
    EXPECT_EQ(cursor, name.data() + std::strlen(text)) << text;
    EXPECT_EQ(NextLabel(&cursor), "") << text;
    EXPECT_EQ(cursor, name.data() + std::strlen(text)) << text;
  }
}

TEST(CopyNextLabel, KeepsTheLastByteOfTheRoomForTheTerminator) {
  const char* cursor = "abcdef.g";
  EXPECT_EQ(NextLabel(&cursor, 1, 4), "abc");
  EXPECT_STREQ(cursor, "ef.g") << "one past where the copy stopped";
  cursor = "abc.d";
  EXPECT_EQ(NextLabel(&cursor, 1, 4), "abc");
  EXPECT_STREQ(cursor, "d");
  cursor = "ab\\.c";
  EXPECT_EQ(NextLabel(&cursor, 1, 4), "ab\\") << "room for the backslash alone";
  cursor = "abc";
  EXPECT_EQ(NextLabel(&cursor, 1, 1), "");
}

TEST(CopyNextLabel, RefusesWithoutTextOrRoomAndTouchesNothing) {
  char room[4] = "abc";
  const char* cursor = nullptr;
  EXPECT_EQ(copy_next_label(room, room + sizeof room, &cursor, 1), -1);
  const char* const text = "x.y";
  cursor = text;
  EXPECT_EQ(copy_next_label(room, room, &cursor, 1), -1);
  EXPECT_EQ(cursor, text);
  EXPECT_STREQ(room, "abc");
}

TEST(Unescape, UndoesThePresentationFormat) {
  EXPECT_EQ(Unescaped("My\\032Printer"), "My Printer");
  EXPECT_EQ(Unescaped("a\\.b"), "a.b");
  EXPECT_EQ(Unescaped("a\\\\b"), "a\\b");
  EXPECT_EQ(Unescaped("\\065bc"), "Abc");
  EXPECT_EQ(Unescaped("B\xc3\xbcro"), "B\xc3\xbcro");
  EXPECT_EQ(Unescaped(""), "");
}

TEST(Unescape, TakesThreeCharactersBehindABackslashWhateverTheyAre) {
  EXPECT_EQ(Unescaped("\\abcX"),
            (std::string{static_cast<char>(('a' - '0') * 100 + ('b' - '0') * 10 + ('c' - '0')), 'X'}));
  EXPECT_EQ(Unescaped("\\321x"), "Ax") << "321 modulo 256 is 65";
  EXPECT_EQ(Unescaped("\\000x"), std::string("\0x", 2));
}

TEST(Unescape, NeverStepsOverTheTerminatingZero) {
  EXPECT_EQ(Unescaped("ab\\"), "ab");
  EXPECT_EQ(Unescaped("ab\\0"), "ab");
  EXPECT_EQ(Unescaped("ab\\06"), "ab");
  EXPECT_EQ(Unescaped("ab\\065"), "abA");
}

TEST(Unescape, TakesATextOf1009Characters) { EXPECT_THAT(Unescaped(std::string(1009, 'x')), SizeIs(1009)); }

using UnescapeDeathTest = ProxyTest;

TEST_F(UnescapeDeathTest, ALongerTextEndsTheProcess) {
  std::vector<char> room(2000);
  EXPECT_EXIT(ConvertDomainNameToCString_UnEnsacpe(std::string(1010, 'x').c_str(), room.data()),
              ExitedWithCode(exit_status(600)),
              says("syslog(4): ConvertDomainNameToCString_UnEnsacpe(): Error Invalid input parameters!\n"));
}

TEST_F(UnescapeDeathTest, AMissingTextOrRoomEndsTheProcess) {
  char room[4] = "";
  EXPECT_EXIT(ConvertDomainNameToCString_UnEnsacpe(nullptr, room), ExitedWithCode(exit_status(600)),
              says("Invalid input"));
  EXPECT_EXIT(ConvertDomainNameToCString_UnEnsacpe("x", nullptr), ExitedWithCode(exit_status(600)),
              says("Invalid input"));
}

TEST(TerminateAtFirstLabel, CutsAtTheFirstUnescapedDot) {
  EXPECT_EQ(FirstLabelOnly("a\\.b._ipp._tcp"), "a\\.b");
  EXPECT_EQ(FirstLabelOnly("a\\\\.b"), "a\\\\");
  EXPECT_EQ(FirstLabelOnly("plain"), "plain");
  EXPECT_EQ(FirstLabelOnly(""), "");
  EXPECT_EQ(FirstLabelOnly("a\\"), "a\\");
}

TEST(TerminateAtFirstLabel, OverwritesEveryUnescapedDot) {
  std::vector<char> name = Exact("a.b\\.c.d");
  terminate_at_first_label(name.data());
  EXPECT_EQ(std::string(name.data(), name.size() - 1), std::string("a\0b\\.c\0d", 8));
}

TEST(TerminateAtFirstLabel, GivesNullForNull) { EXPECT_EQ(terminate_at_first_label(nullptr), nullptr); }

// What wire_name_to_text makes of an exact block, and how much of it is left.
struct Converted {
  std::string text;
  std::size_t written;
  std::size_t left;

  bool operator==(const Converted&) const = default;
};

Converted ToText(const std::vector<std::uint8_t>& wire, std::size_t size = kNameSize) {
  std::vector<char> room(size + 1, '#');
  std::span<const std::uint8_t> rest(wire);
  const std::size_t written = wire_name_to_text(room.data(), size, rest);
  EXPECT_EQ(room.back(), '#') << "written past the end of the room";
  return {room.data(), written, rest.size()};
}

TEST(WireNameToText, JoinsLabelsWithDots) {
  EXPECT_EQ(ToText(wire_name({"My Printer", "_ipp", "_tcp", "local"})),
            (Converted{"My Printer._ipp._tcp.local.", 27, 0}));
}

TEST(WireNameToText, EscapesNothing) { EXPECT_EQ(ToText(wire_name({"a.b\\c", "local"})).text, "a.b\\c.local."); }

TEST(WireNameToText, GivesAnEmptyTextForTheRootAndStepsOverIt) { EXPECT_EQ(ToText({0, 7, 7}), (Converted{"", 0, 2})); }

TEST(WireNameToText, LeavesWhatFollowsTheName) {
  std::vector<std::uint8_t> wire = wire_name({"ab"});
  wire.push_back(0xFF);
  EXPECT_EQ(ToText(wire), (Converted{"ab.", 3, 1}));
}

TEST(WireNameToText, GivesAnEmptyTextForANameThatIsNotWhole) {
  EXPECT_EQ(ToText({}), (Converted{"", 0, 0}));
  EXPECT_EQ(ToText({5, 'a', 'b'}), (Converted{"", 0, 3}));
  EXPECT_EQ(ToText({3, 'a', 'b'}), (Converted{"", 0, 3})) << "one byte too few";
  EXPECT_EQ(ToText({2, 'a', 'b'}), (Converted{"", 0, 0})) << "no terminating zero";
  EXPECT_EQ(ToText({1, 'a', 0xC0, 0x0C}), (Converted{"", 0, 2})) << "a compression pointer";
  EXPECT_EQ(ToText(wire_name({std::string(64, 'x')})), (Converted{"", 0, 66})) << "a label has at most 63 bytes";
  EXPECT_EQ(ToText(wire_name({std::string(63, 'x')})), (Converted{std::string(63, 'x') + ".", 64, 0}));
}

TEST(WireNameToText, CutsATextThatDoesNotFit) {
  EXPECT_EQ(ToText(wire_name({"abc", "def"}), 6), (Converted{"abc.d", 5, 0}));
  EXPECT_EQ(ToText(wire_name({"abc", "def"}), 1), (Converted{"", 0, 0}));
}

TEST(JoinText, SaysWhetherEverythingFitted) {
  char room[6];
  EXPECT_TRUE(join_text(room, {"ab", "", "cde"}));
  EXPECT_STREQ(room, "abcde");
  EXPECT_FALSE(join_text(room, {"ab", "cdef"}));
  EXPECT_STREQ(room, "abcde");
  EXPECT_FALSE(join_text(room, {"abcdefgh", "i"}));
  EXPECT_STREQ(room, "abcde");
  EXPECT_TRUE(join_text(room, {}));
  EXPECT_STREQ(room, "");
  EXPECT_TRUE(copy_text(room, nullptr));
  EXPECT_STREQ(room, "");
}

}  // namespace
