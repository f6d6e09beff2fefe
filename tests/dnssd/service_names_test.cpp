// SPDX-License-Identifier: MIT
#include "dnssd/base/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace dnssd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ServiceType, IsAnApplicationAndATransport) {
  const std::optional<ServiceType> type = parse_service_type("_ipp._tcp");
  ASSERT_TRUE(type);
  EXPECT_EQ(type_text(type->name), "_ipp._tcp.");
  EXPECT_EQ(name_to_text(type->name), "_ipp._tcp.local.");
  EXPECT_THAT(type->subtypes, IsEmpty());
  EXPECT_TRUE(parse_service_type("_IPP._UDP."));
}

TEST(ServiceType, TakesSubtypesBehindCommas) {
  EXPECT_THAT(parse_service_type("_ipp._tcp,_universal,_color")->subtypes, ElementsAre("_universal", "_color"));
}

TEST(ServiceType, RefusesEverythingElse) {
  for (const char* text : {"", "_ipp", "ipp._tcp", "_ipp._sctp", "_ipp._tcp.local", "_._tcp", "_i p._tcp", "_ipp._tcp,",
                           "_ipp._tcp,a.b", "_universal._ipp._tcp"}) {
    EXPECT_FALSE(parse_service_type(text)) << text;
  }
}

TEST(BrowseType, TakesTheSubtypeFirstOrLast) {
  for (const char* text : {"_universal._ipp._tcp", "_ipp._tcp,_universal", "_universal._ipp._tcp."}) {
    const std::optional<ServiceType> type = parse_browse_type(text);
    ASSERT_TRUE(type) << text;
    EXPECT_EQ(name_to_text(subtype_name(*type, type->subtypes[0])), "_universal._sub._ipp._tcp.local.") << text;
  }
  EXPECT_THAT(parse_browse_type("_ipp._tcp")->subtypes, IsEmpty());
  EXPECT_FALSE(parse_browse_type("_ipp._tcp,_a,_b"));
  EXPECT_FALSE(parse_browse_type("_a._b._ipp._tcp"));
}

TEST(NextServiceName, CountsUp) {
  EXPECT_EQ(next_service_name("Printer"), "Printer (2)");
  EXPECT_EQ(next_service_name("Printer (2)"), "Printer (3)");
  EXPECT_EQ(next_service_name("Printer (9)"), "Printer (10)");
}

TEST(NextServiceName, LeavesOtherBracketsInTheName) {
  EXPECT_EQ(next_service_name("Printer (1)"), "Printer (1) (2)");
  EXPECT_EQ(next_service_name("Printer (x)"), "Printer (x) (2)");
  EXPECT_EQ(next_service_name("Printer(2)"), "Printer(2) (2)");
  EXPECT_EQ(next_service_name("Printer ()"), "Printer () (2)");
  EXPECT_EQ(next_service_name("Printer (99999999999)"), "Printer (99999999999) (2)");
}

TEST(NextServiceName, CutsALongNameBetweenCharacters) {
  const std::string name = std::string(57, 'x') + "éé";  // 61 bytes; room is 59
  EXPECT_EQ(next_service_name(name), std::string(57, 'x') + "é (2)");
  const std::string odd = std::string(58, 'x') + "éé";
  EXPECT_EQ(next_service_name(odd), std::string(58, 'x') + " (2)");
  EXPECT_LE(next_service_name(std::string(63, 'x')).size(), kLabelMax);
}

TEST(TruncateUtf8, NeverCutsThroughACharacter) {
  EXPECT_EQ(truncate_utf8("aé", 2), "a");
  EXPECT_EQ(truncate_utf8("aé", 3), "aé");
  EXPECT_EQ(truncate_utf8("日本", 5), "日");
}

TEST(Domain, IsLocalAlone) {
  for (const char* domain : {static_cast<const char*>(nullptr), "", "local", "local.", "LOCAL"}) {
    EXPECT_TRUE(is_local_domain(domain));
  }
  EXPECT_FALSE(is_local_domain("example.com."));
  EXPECT_FALSE(is_local_domain("local.."));
}

}  // namespace
}  // namespace dnssd
