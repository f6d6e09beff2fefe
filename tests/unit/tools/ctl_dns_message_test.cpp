// SPDX-License-Identifier: MIT
// Questions of our own as they go out, and answers of strangers as they come in.
#include "mdnsproxyctl/dns_message.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<std::uint8_t> bytes(const std::string& text) { return {text.begin(), text.end()}; }

// A response with this many answers, which follow.
std::string response(char answers) { return std::string("\0\0\x84\0\0\0\0", 7) + answers + std::string(4, '\0'); }

// The fields between a record's name and its data.
std::string fields(char type, char size) {
  return std::string(1, '\0') + type + std::string("\0\1\0\0\0\x78\0", 7) + size;
}

const std::string kType("\4_ipp\4_tcp\5local\0", 17);

}  // namespace

TEST(DnsQuery, IsAskedInTheWordsOfTheStandard) {
  EXPECT_EQ(encode_query(0x1234, {{{"a.b", "_ipp", "_tcp", "local"}, DnsType::srv}}),
            bytes(std::string("\x12\x34\0\0\0\1\0\0\0\0\0\0", 12) + "\3a.b" + kType + std::string("\0\x21\0\1", 4)));
}

TEST(DnsQuery, CutsALabelThatIsTooLong) {
  const auto message = encode_query(0, {{{std::string(200, 'x')}, DnsType::ptr}});
  EXPECT_EQ(message.size(), 12U + 1 + 63 + 1 + 4);
}

TEST(DnsName, IsComparedWithoutCase) {
  EXPECT_EQ(dns_name("_ipp._tcp.local."), (DnsName{"_ipp", "_tcp", "local"}));
  EXPECT_TRUE(same_name({"Printer", "local"}, {"pRINTER", "LOCAL"}));
  EXPECT_FALSE(same_name({"a", "b"}, {"a.b"}));
  EXPECT_FALSE(same_name({"a"}, {"a", "b"}));
}

TEST(DnsResponse, FollowsCompression) {
  const auto records = decode_response(bytes(response(1) + kType + fields(12, 4) + "\1A\xc0\x0c"));
  ASSERT_TRUE(records);
  ASSERT_THAT(*records, SizeIs(1));
  EXPECT_THAT(records->front().name, ElementsAre("_ipp", "_tcp", "local"));
  EXPECT_THAT(records->front().target, ElementsAre("A", "_ipp", "_tcp", "local"));
}

TEST(DnsResponse, KnowsAddressesPortsAndTheEntryOfAGateway) {
  const auto records = decode_response(bytes(response(3) + kType + fields(1, 4) + std::string("\x0a\1\0\2", 4) +
                                             "\xc0\x0c" + fields(33, 8) + std::string("\0\0\0\0\2\x77\xc0\x0c", 8) +
                                             "\xc0\x0c" + fields(16, 18) + "\3a=1\x0dvender=Zenmor"));
  ASSERT_TRUE(records);
  ASSERT_THAT(*records, SizeIs(3));
  EXPECT_EQ((*records)[0].address, "10.1.0.2");
  EXPECT_EQ((*records)[1].port, 631);
  EXPECT_TRUE((*records)[2].through_gateway);
}

TEST(DnsResponse, ALongerEntryIsNotTheGateways) {
  const auto records = decode_response(bytes(response(1) + kType + fields(16, 15) + "\x0evender=Zenmor2"));
  ASSERT_TRUE(records);
  ASSERT_THAT(*records, SizeIs(1));
  EXPECT_FALSE(records->front().through_gateway);
}

TEST(DnsResponse, IsNoQuestionAndNoPieceOfAHeader) {
  EXPECT_FALSE(decode_response(bytes(std::string(12, '\0'))));
  EXPECT_FALSE(decode_response(bytes(response(1).substr(0, 3))));
}

TEST(DnsResponse, KeepsWhatStoodBeforeTheDamage) {
  const std::string good = kType + fields(1, 4) + "\1\2\3\4";
  for (const std::string& damage : {std::string("\xc0\xff"), std::string("\x40"), kType + fields(1, 4) + "\1", kType}) {
    const auto records = decode_response(bytes(response(2) + good + damage));
    ASSERT_TRUE(records);
    EXPECT_THAT(*records, SizeIs(1));
  }
}

TEST(DnsResponse, APointerToItselfEnds) {
  const auto records = decode_response(bytes(response(1) + "\xc0\x0c" + fields(1, 4) + "\1\2\3\4"));
  ASSERT_TRUE(records);
  EXPECT_THAT(*records, IsEmpty());
}

TEST(DnsResponse, DataOfAWrongSizeIsLeftOut) {
  const auto records =
      decode_response(bytes(response(2) + kType + fields(28, 4) + "\1\2\3\4\xc0\x0c" + fields(33, 1) + "x"));
  ASSERT_TRUE(records);
  EXPECT_THAT(*records, IsEmpty());
}
