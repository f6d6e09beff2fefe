// SPDX-License-Identifier: MIT
#include "dnssd/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace dnssd {
namespace {

using ::testing::ElementsAre;

std::span<const std::uint8_t> bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string wire(const Name& name) {
  const std::vector<std::uint8_t> data = name_to_wire(name);
  return {data.begin(), data.end()};
}

TEST(ParseName, TakesTheTrailingDotOrNot) {
  EXPECT_THAT(parse_name("printer.local")->labels, ElementsAre("printer", "local"));
  EXPECT_THAT(parse_name("printer.local.")->labels, ElementsAre("printer", "local"));
}

TEST(ParseName, UnescapesDotsBackslashesAndDecimals) {
  EXPECT_THAT(parse_name("Dr\\.\\032Smith\\\\x.local")->labels, ElementsAre("Dr. Smith\\x", "local"));
}

TEST(ParseName, TakesUtf8AsItIs) { EXPECT_THAT(parse_name("Büro.local")->labels, ElementsAre("Büro", "local")); }

TEST(ParseName, ReadsAvahisEscapes) { EXPECT_THAT(parse_name("B\\195\\188ro.local")->labels, ElementsAre("Büro", "local")); }

TEST(ParseName, RefusesWhatIsNoName) {
  for (const char* text : {"..", ".local", "a..b", "a\\", "a\\25", "a\\999.b", "a\\256", "\\000.local"}) {
    EXPECT_FALSE(parse_name(text)) << text;
  }
}

TEST(ParseName, HoldsLabelsTo63Bytes) {
  EXPECT_TRUE(parse_name(std::string(63, 'x') + ".local"));
  EXPECT_FALSE(parse_name(std::string(64, 'x') + ".local"));
}

TEST(ParseName, HoldsNamesTo255BytesOnTheWire) {
  const std::string label = std::string(62, 'x') + ".";  // 63 bytes on the wire
  const std::string three = label + label + label;       // 189
  EXPECT_EQ(wire(*parse_name(three + std::string(64 - 1, 'y'))).size(), 189u + 64 + 1);
  EXPECT_FALSE(parse_name(three + label + "yy"));
}

TEST(ParseName, TheRootHasNoLabels) {
  EXPECT_TRUE(parse_name(".")->labels.empty());
  EXPECT_TRUE(parse_name("")->labels.empty());
  EXPECT_EQ(wire(*parse_name(".")), std::string(1, '\0'));
}

TEST(NameToText, EscapesDotBackslashAndBytesUpTo32Only) {
  EXPECT_EQ(name_to_text(Name{{"Dr. Smith\\Dr. Johnson", "_ftp", "_tcp", "local"}}),
            "Dr\\.\\032Smith\\\\Dr\\.\\032Johnson._ftp._tcp.local.");
  EXPECT_EQ(name_to_text(Name{{"a\tb\x7f(é)", "local"}}), "a\\009b\x7f(é).local.");
}

TEST(NameToText, IsUndoneByParsing) {
  Name name{{"", "local"}};
  for (int byte = 1; byte < 256; ++byte) {
    name.labels[0] = std::string(3, static_cast<char>(byte));
    EXPECT_EQ(parse_name(name_to_text(name))->labels, name.labels) << byte;
    EXPECT_EQ(parse_name(name_to_avahi(name))->labels, name.labels) << byte;
  }
}

TEST(NameToWire, WritesLengthsAndAZero) { EXPECT_EQ(wire(Name{{"a.b", "c"}}), std::string("\3a.b\1c\0", 7)); }

TEST(PrependLabel, RefusesWhatDoesNotFit) {
  const Name rest = *parse_name("_ipp._tcp.local");
  EXPECT_THAT(prepend_label("My Printer.", rest)->labels, ElementsAre("My Printer.", "_ipp", "_tcp", "local"));
  EXPECT_FALSE(prepend_label("", rest));
  EXPECT_FALSE(prepend_label(std::string(64, 'x'), rest));
  EXPECT_FALSE(prepend_label(std::string_view("a\0b", 3), rest));
}

TEST(IsWireName, TakesExactlyOneUncompressedName) {
  EXPECT_TRUE(is_wire_name(bytes(std::string("\1a\5local\0", 9))));
  EXPECT_TRUE(is_wire_name(bytes(std::string(1, '\0'))));
}

TEST(IsWireName, RefusesPointersOverrunsAndRemains) {
  EXPECT_FALSE(is_wire_name({}));
  EXPECT_FALSE(is_wire_name(bytes(std::string("\1a", 2))));          // no end
  EXPECT_FALSE(is_wire_name(bytes(std::string("\5a\0", 3))));        // beyond the end
  EXPECT_FALSE(is_wire_name(bytes(std::string("\1a\xC0\x0C", 4))));  // a pointer
  EXPECT_FALSE(is_wire_name(bytes(std::string("\1a\0x", 4))));       // something behind
  EXPECT_FALSE(is_wire_name(bytes(std::string(300, '\1'))));
}

TEST(FoldCase, FoldsLettersOfAsciiAlone) { EXPECT_EQ(fold_case("ÀB[cD@Z"), "Àb[cd@z"); }

}  // namespace
}  // namespace dnssd
