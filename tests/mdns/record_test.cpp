// SPDX-License-Identifier: MIT
#include "mdns/wire/record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mdns/wire/name.h"
#include "support/wire.h"

namespace mdns {
namespace {

using wire::label;
using wire::name;
using wire::number16;
using wire::srv;

const std::string kTwoNames = name("a.local") + name("b.local");

// Well-formed rdata of each type whose form is known.
const std::pair<std::uint16_t, std::string> kWellFormed[] = {
    {kTypeA, std::string(4, '\1')},
    {kTypeAaaa, std::string(16, '\1')},
    {kTypeNs, name("a.local")},
    {kTypeCname, name("a.local")},
    {kTypePtr, name("a.local")},
    {kTypeDname, name("a.local")},
    {kTypeMx, number16(1) + name("a.local")},
    {kTypeAfsdb, number16(1) + name("a.local")},
    {kTypeRt, number16(1) + name("a.local")},
    {kTypeKx, number16(1) + name("a.local")},
    {kTypeSrv, srv(631, "a.local")},
    {kTypeSoa, kTwoNames + std::string(20, '\1')},
    {kTypeRp, kTwoNames},
    {kTypePx, number16(1) + kTwoNames},
    {kTypeNsec, name("a.local") + std::string("\0\1\x40", 3)},
    {kTypeHinfo, label("PC") + label("Linux")},
    {kTypeTxt, label("a=1") + label("b=2")},
};

TEST(IsRdata, TakesWhatIsWellFormedAndNothingShorterOrLonger) {
  for (const auto& [type, rdata] : kWellFormed) {
    EXPECT_TRUE(is_rdata(type, rdata)) << type;
    EXPECT_FALSE(is_rdata(type, rdata + '\1')) << type;
    EXPECT_FALSE(is_rdata(type, "")) << type;
    for (std::size_t size = 0; size < rdata.size(); ++size) {
      const bool ends_between_strings = type == kTypeTxt && size == 4;
      EXPECT_EQ(is_rdata(type, rdata.substr(0, size)), ends_between_strings) << type << ' ' << size;
    }
  }
}

TEST(IsRdata, TakesAnyLengthOfATypeThatIsNotKnown) {
  EXPECT_TRUE(is_rdata(65280, ""));
  EXPECT_TRUE(is_rdata(65280, "anything"));
}

TEST(IsRdata, TakesATxtOfOneEmptyString) { EXPECT_TRUE(is_rdata(kTypeTxt, std::string(1, '\0'))); }

TEST(IsRdata, WantsTwoStringsOfHinfo) {
  EXPECT_FALSE(is_rdata(kTypeHinfo, label("PC")));
  EXPECT_FALSE(is_rdata(kTypeHinfo, label("PC") + label("Linux") + label("6")));
}

TEST(IsRdata, WantsTheWindowsOfATypeMapInOrderAndOf1To32Bytes) {
  const auto is_map = [](const std::string& map) { return is_rdata(kTypeNsec, name("a.local") + map); };
  EXPECT_TRUE(is_map(std::string("\0\x20", 2) + std::string(32, '\1')));
  EXPECT_TRUE(is_map(std::string("\0\1\x40\1\1\x40", 6)));
  EXPECT_FALSE(is_map(std::string("\0\x21", 2) + std::string(33, '\1')));
  EXPECT_FALSE(is_map(std::string("\0\0", 2)));
  EXPECT_FALSE(is_map(std::string("\1\1\x40\0\1\x40", 6)));
  EXPECT_FALSE(is_map(std::string("\0\1\x40\0\1\x40", 6)));
  EXPECT_FALSE(is_map(std::string("\0\2\x40", 3)));
}

TEST(RdataForm, HasNamesForTheTypesWhoseNamesAreCompressed) {
  EXPECT_EQ(rdata_form(kTypePtr).names, 1);
  EXPECT_EQ(rdata_form(kTypeSrv).names, 1);
  EXPECT_EQ(rdata_form(kTypeNsec).names, 1);
  EXPECT_EQ(rdata_form(kTypeTxt).names, 0);
  EXPECT_EQ(rdata_form(kTypeA).names, 0);
}

TEST(SameRdata, IgnoresCaseInNames) {
  EXPECT_TRUE(same_rdata(kTypePtr, name("A.local"), name("a.LOCAL")));
  EXPECT_TRUE(same_rdata(kTypeSrv, srv(631, "HOST.local"), srv(631, "host.local")));
  EXPECT_TRUE(same_rdata(kTypeRp, name("A.local") + name("B.local"), kTwoNames));
  EXPECT_FALSE(same_rdata(kTypePtr, name("b.local"), name("a.local")));
}

TEST(SameRdata, MindsItElsewhere) {
  EXPECT_FALSE(same_rdata(kTypeTxt, label("A"), label("a")));
  EXPECT_FALSE(same_rdata(kTypeSrv, srv(0x4141, "a.local"), srv(0x6161, "a.local")));
  EXPECT_FALSE(same_rdata(kTypeMx, "AA" + name("a.local"), "aa" + name("a.local")));
  const std::string map("\0\1", 2);
  EXPECT_FALSE(same_rdata(kTypeNsec, name("a.local") + map + "A", name("a.local") + map + "a"));
}

TEST(CompareRecords, OrdersByTypeThenByBytesWithoutASign) {
  EXPECT_LT(compare_records(kTypeTxt, "z", kTypeSrv, "a"), 0);
  EXPECT_GT(compare_records(kTypeSrv, "a", kTypeTxt, "z"), 0);
  EXPECT_EQ(compare_records(kTypeA, "same", kTypeA, "same"), 0);
  // The example of RFC 6762 section 8.2: 169.254.99.200 is earlier than 169.254.200.50.
  EXPECT_LT(compare_records(kTypeA, "\xA9\xFE\x63\xC8", kTypeA, "\xA9\xFE\xC8\x32"), 0);
}

TEST(CompareRecords, TakesTheOneThatRunsOutFirstForTheEarlier) {
  EXPECT_LT(compare_records(kTypeTxt, "ab", kTypeTxt, "abc"), 0);
  EXPECT_GT(compare_records(kTypeTxt, "b", kTypeTxt, "abc"), 0);
}

TEST(CompareRecords, LeavesLettersAsTheyAre) {
  EXPECT_LT(compare_records(kTypePtr, name("A"), kTypePtr, name("a")), 0);
}

TEST(UsualTtl, IsShortForHostsAndAddresses) {
  for (const std::uint16_t type : {kTypeA, kTypeAaaa, kTypeSrv, kTypeHinfo}) {
    EXPECT_EQ(usual_ttl(name("a.local"), type), 120u) << type;
  }
  EXPECT_EQ(usual_ttl(name("1.0.254.169.in-addr.arpa"), kTypePtr), 120u);
  EXPECT_EQ(usual_ttl(name("_ipp._tcp.local"), kTypePtr), 4500u);
  EXPECT_EQ(usual_ttl(name("a._ipp._tcp.local"), kTypeTxt), 4500u);
}

TEST(TargetOf, IsTheNameThatPtrAndSrvPointTo) {
  EXPECT_EQ(target_of(kTypePtr, name("a.local")), name("a.local"));
  EXPECT_EQ(target_of(kTypeSrv, srv(631, "a.local")), name("a.local"));
  EXPECT_EQ(target_of(kTypeCname, name("a.local")), "");
  EXPECT_EQ(target_of(kTypePtr, "\4abc"), "");
  EXPECT_EQ(target_of(kTypeSrv, "abc"), "");
}

}  // namespace
}  // namespace mdns
