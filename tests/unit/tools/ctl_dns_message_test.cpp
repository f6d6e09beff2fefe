// SPDX-License-Identifier: MIT
// Questions of our own as they go out, and answers of strangers as they come in.
#include "mdnsproxyctl/dns_message.h"

#include <gmock/gmock.h>

#include "support/wire.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<std::uint8_t> bytes(const std::string& text) { return {text.begin(), text.end()}; }

// A response with this many answers, which follow.
std::string response(unsigned answers) { return wire::header(0x8400, {.answers = answers}); }

const std::string kType = wire::name("_ipp._tcp.local");
const std::string kFirstName = wire::pointer(12);  // the name behind the header

constexpr unsigned kA = 1, kPtr = 12, kTxt = 16, kAaaa = 28, kSrv = 33;

}  // namespace

TEST(DnsQuery, IsAskedInTheWordsOfTheStandard) {
  EXPECT_EQ(encode_query(0x1234, {{{"a.b", "_ipp", "_tcp", "local"}, DnsType::srv}}),
            bytes(wire::header(0, {.questions = 1}, 0x1234) + wire::question(wire::label("a.b") + kType, kSrv)));
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
  const auto records = decode_response(bytes(response(1) + wire::record(kType, kPtr, wire::label("A") + kFirstName)));
  ASSERT_TRUE(records);
  ASSERT_THAT(*records, SizeIs(1));
  EXPECT_THAT(records->front().name, ElementsAre("_ipp", "_tcp", "local"));
  EXPECT_THAT(records->front().target, ElementsAre("A", "_ipp", "_tcp", "local"));
}

TEST(DnsResponse, KnowsAddressesPortsAndTheEntryOfAGateway) {
  const auto records =
      decode_response(bytes(response(3) + wire::record(kType, kA, std::string("\x0a\1\0\2", 4)) +
                            wire::record(kFirstName, kSrv, wire::srv_of(631, kFirstName)) +
                            wire::record(kFirstName, kTxt, wire::label("a=1") + wire::label("vender=Zenmor"))));
  ASSERT_TRUE(records);
  ASSERT_THAT(*records, SizeIs(3));
  EXPECT_EQ((*records)[0].address, "10.1.0.2");
  EXPECT_EQ((*records)[1].port, 631);
  EXPECT_TRUE((*records)[2].through_gateway);
}

TEST(DnsResponse, ALongerEntryIsNotTheGateways) {
  const auto records = decode_response(bytes(response(1) + wire::record(kType, kTxt, wire::label("vender=Zenmor2"))));
  ASSERT_TRUE(records);
  ASSERT_THAT(*records, SizeIs(1));
  EXPECT_FALSE(records->front().through_gateway);
}

TEST(DnsResponse, IsNoQuestionAndNoPieceOfAHeader) {
  EXPECT_FALSE(decode_response(bytes(std::string(12, '\0'))));
  EXPECT_FALSE(decode_response(bytes(response(1).substr(0, 3))));
}

TEST(DnsResponse, KeepsWhatStoodBeforeTheDamage) {
  const std::string good = wire::record(kType, kA, "\1\2\3\4");
  const std::string cut_short = good.substr(0, good.size() - 3);
  for (const std::string& damage : {std::string("\xc0\xff"), std::string("\x40"), cut_short, kType}) {
    const auto records = decode_response(bytes(response(2) + good + damage));
    ASSERT_TRUE(records);
    EXPECT_THAT(*records, SizeIs(1));
  }
}

TEST(DnsResponse, APointerToItselfEnds) {
  const auto records = decode_response(bytes(response(1) + wire::record(kFirstName, kA, "\1\2\3\4")));
  ASSERT_TRUE(records);
  EXPECT_THAT(*records, IsEmpty());
}

TEST(DnsResponse, DataOfAWrongSizeIsLeftOut) {
  const auto records = decode_response(
      bytes(response(2) + wire::record(kType, kAaaa, "\1\2\3\4") + wire::record(kFirstName, kSrv, "x")));
  ASSERT_TRUE(records);
  EXPECT_THAT(*records, IsEmpty());
}
