// SPDX-License-Identifier: MIT
#include "dnssd/operations/handover_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dnssd/base/names.h"

namespace dnssd {
namespace {

using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

mdns::Published an_address() {
  return {name_of({"printer", "local"}),
          {mdns::kTypeA, 120, "\x0a\x01\x02\x07"},
          mdns::Claim::yielding,
          1,
          {5, mdns::kLongAgo}};
}

Handover a_handover() {
  const mdns::Published text{name_of({"P", "_ipp", "_tcp", "local"}),
                             {mdns::kTypeTxt, 4500, std::string("\x00", 1)},
                             mdns::Claim::unique,
                             0,
                             {7, 8}};
  return {"boot",
          4026531840,
          9,
          {{2, "br0", {an_address(), text}, {{name_of({"printer", "local"}), 3}}}, {3, "br1", {}, {}}}};
}

std::string bytes_with(const mdns::Published& record) {
  return handover_to_bytes({"boot", 1, 9, {{2, "br0", {record}, {}}}});
}

TEST(HandoverFile, IsReadAsItWasWritten) {
  const std::optional<Handover> read = handover_from_bytes(handover_to_bytes(a_handover()));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->boot, "boot");
  EXPECT_EQ(read->network, 4026531840u);
  EXPECT_EQ(read->written_at, 9);
  ASSERT_THAT(read->interfaces, SizeIs(2));
  EXPECT_EQ(read->interfaces[0].index, 2u);
  EXPECT_EQ(read->interfaces[0].name, "br0");
  EXPECT_THAT(read->interfaces[0].hosts, UnorderedElementsAre(Pair(name_of({"printer", "local"}), 3)));
  EXPECT_THAT(read->interfaces[1].records, IsEmpty());
  ASSERT_THAT(read->interfaces[0].records, SizeIs(2));
  const mdns::Published& record = read->interfaces[0].records[0];
  EXPECT_EQ(record.name, an_address().name);
  EXPECT_EQ(record.data.type, mdns::kTypeA);
  EXPECT_EQ(record.data.ttl, 120u);
  EXPECT_EQ(record.data.rdata, an_address().data.rdata);
  EXPECT_EQ(record.claim, mdns::Claim::yielding);
  EXPECT_EQ(record.announcements_left, 1);
  EXPECT_EQ(record.multicast_at, an_address().multicast_at);
}

TEST(HandoverFile, IsNothingWhenAnyByteOfItIsMissingOrAnother) {
  const std::string whole = handover_to_bytes(a_handover());
  for (std::size_t at = 0; at < whole.size(); ++at) {
    EXPECT_FALSE(handover_from_bytes(std::string_view(whole).substr(0, at))) << at;
    std::string other = whole;
    other[at] = static_cast<char>(other[at] ^ 0x20);
    EXPECT_FALSE(handover_from_bytes(other)) << at;
  }
  EXPECT_FALSE(handover_from_bytes(whole + '\0'));
}

TEST(HandoverFile, HoldsOnlyWhatCanBePublished) {
  EXPECT_TRUE(handover_from_bytes(bytes_with(an_address())));
  mdns::Published record = an_address();
  record.data.rdata = "\x0a";
  EXPECT_FALSE(handover_from_bytes(bytes_with(record)));
  record = an_address();
  record.name = "printer";
  EXPECT_FALSE(handover_from_bytes(bytes_with(record)));
  record = an_address();
  record.claim = mdns::Claim::exclusive;
  EXPECT_FALSE(handover_from_bytes(bytes_with(record)));
  record = an_address();
  record.announcements_left = 3;
  EXPECT_FALSE(handover_from_bytes(bytes_with(record)));
}

TEST(HandoverFile, HoldsNothingThatWasSentAfterItWasWritten) {
  mdns::Published record = an_address();
  record.multicast_at = {9, 9};
  EXPECT_TRUE(handover_from_bytes(bytes_with(record)));
  record.multicast_at = {9, 10};
  EXPECT_FALSE(handover_from_bytes(bytes_with(record)));
}

}  // namespace
}  // namespace dnssd
