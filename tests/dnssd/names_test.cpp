// SPDX-License-Identifier: MIT
#include "dnssd/base/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace dnssd {
namespace {

TEST(ParseName, TakesTheTrailingDotOrNot) {
  EXPECT_EQ(parse_name("printer.local"), name_of({"printer", "local"}));
  EXPECT_EQ(parse_name("printer.local."), name_of({"printer", "local"}));
}

TEST(ParseName, UnescapesDotsBackslashesAndDecimals) {
  EXPECT_EQ(parse_name("Dr\\.\\032Smith\\\\x.local"), name_of({"Dr. Smith\\x", "local"}));
  EXPECT_EQ(parse_name("B\\195\\188ro.local"), name_of({"Büro", "local"}));
}

TEST(ParseName, TakesUtf8AsItIs) { EXPECT_EQ(parse_name("Büro.local"), name_of({"Büro", "local"})); }

TEST(ParseName, RefusesWhatIsNoName) {
  for (const char* text :
       {"..", ".local", "a..b", "a\\", "a\\25", "a\\999.b", "a\\256", "\\000.local", "\\255.local", "a.\xC3"}) {
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
  EXPECT_EQ(parse_name(three + std::string(63, 'y'))->size(), 189u + 64 + 1);
  EXPECT_EQ(parse_name(three + std::string(63, 'y') + ".z"), std::nullopt);
  EXPECT_FALSE(parse_name(three + label + "yy"));
}

TEST(ParseName, TheRootHasNoLabels) {
  EXPECT_EQ(parse_name("."), name_of({}));
  EXPECT_EQ(parse_name(""), std::string(1, '\0'));
}

TEST(NameOf, WritesLengthsAndAZero) { EXPECT_EQ(name_of({"a.b", "c"}), std::string("\3a.b\1c\0", 7)); }

TEST(NameToText, EscapesDotBackslashAndBytesUpTo32Only) {
  EXPECT_EQ(name_to_text(name_of({"Dr. Smith\\Dr. Johnson", "_ftp", "_tcp", "local"})),
            "Dr\\.\\032Smith\\\\Dr\\.\\032Johnson._ftp._tcp.local.");
  EXPECT_EQ(name_to_text(name_of({"a\tb\x7f(é)", "local"})), "a\\009b\x7f(é).local.");
  EXPECT_EQ(name_to_text(name_of({})), ".");
}

TEST(NameToText, IsUndoneByParsing) {
  for (int byte = 1; byte < 0x80; ++byte) {
    const std::string name = name_of({std::string(3, static_cast<char>(byte)), "local"});
    EXPECT_EQ(parse_name(name_to_text(name)), name) << byte;
  }
}

TEST(PrependLabel, RefusesWhatDoesNotFit) {
  const std::string rest = *parse_name("_ipp._tcp.local");
  EXPECT_EQ(prepend_label("My Printer.", rest), name_of({"My Printer.", "_ipp", "_tcp", "local"}));
  EXPECT_FALSE(prepend_label("", rest));
  EXPECT_FALSE(prepend_label(std::string(64, 'x'), rest));
  EXPECT_FALSE(prepend_label(std::string_view("a\0b", 3), rest));
  EXPECT_FALSE(prepend_label("a\xFF", rest));
}

TEST(IsText, TakesUtf8Alone) {
  for (const char* text :
       {"", "Büro", "ハロー", "\xF0\x9F\x96\xA8", "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(is_text(text)) << text;
  }
  for (const char* text : {"\xFF", "\x80", "a\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                           "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                           "\xF8\x88\x80\x80\x80", "\xE3\x83", "\xC3(", "\xE3\x83("}) {
    EXPECT_FALSE(is_text(text)) << text;
  }
  EXPECT_FALSE(is_text(std::string_view("a\0", 2)));
}

}  // namespace
}  // namespace dnssd
