// SPDX-License-Identifier: MIT
// What the packet filter does to a packet, by what nft says of it.
#include "mdnsproxyctl/filter.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

constexpr const char* kFrom = R"({"match":{"op":"==","left":{"meta":{"key":"iifname"}},"right":"br10"}})";
constexpr const char* kUdp5353 =
    R"({"match":{"op":"==","left":{"payload":{"protocol":"udp","field":"dport"}},"right":5353}})";
constexpr const char* kDrop = R"({"counter":{"packets":19,"bytes":1900}},{"drop":null})";
constexpr const char* kAccept = R"({"accept":null})";

// A ruleset with a base chain of this hook and policy, and a chain "other" beside it.
class Filter : public testing::Test {
 protected:
  void Hook(const std::string& hook, const std::string& policy = "accept", int priority = 0,
            const std::string& family = "inet") {
    objects += R"(,{"chain":{"family":")" + family + R"(","table":"filter","name":")" + hook +
               R"(","handle":1,"type":"filter","hook":")" + hook + R"(","prio":)" + std::to_string(priority) +
               R"(,"policy":")" + policy + R"("}},{"chain":{"family":")" + family +
               R"(","table":"filter","name":"other","handle":2}})";
  }
  void Rule(const std::string& chain, const std::string& statements, const std::string& family = "inet") {
    objects += R"(,{"rule":{"family":")" + family + R"(","table":"filter","chain":")" + chain + R"(","handle":)" +
               std::to_string(++handle) + R"(,"expr":[)" + statements + "]}}";
  }
  static std::string Match(const std::string& left, const std::string& right, const std::string& op = "==") {
    return R"({"match":{"op":")" + op + R"(","left":)" + left + R"(,"right":)" + right + "}}";
  }
  FilterJudgement Judge(const FilterPacket& packet) {
    const auto chains = filter_chains(R"({"nftables":[{"metainfo":{"version":"1.0.6"}})" + objects + "]}");
    EXPECT_TRUE(chains);
    return judge_packet(chains.value_or(std::vector<FilterChain>{}), packet);
  }
  FilterFate Fate(const FilterPacket& packet) { return Judge(packet).fate; }

  const MachineLink br10 = {"br10", 2, true, true, {"10.1.0.1", "fe80::1"}};
  const MachineLink br20 = {"br20", 3, true, true, {"10.2.0.1", "fd00:2::1"}};
  const FilterPacket multicast = *multicast_from(br10, false);
  const std::vector<FilterPacket> client = client_packets(br20, "br10", "10.1.0.2", 631, true);

 private:
  std::string objects;
  int handle = 100;
};

const std::string kSource = R"({"payload":{"protocol":"ip","field":"saddr"}})";
const std::string kTcpPort = R"({"payload":{"protocol":"tcp","field":"dport"}})";

}  // namespace

TEST_F(Filter, WithoutAChainEverythingPasses) {
  EXPECT_EQ(Fate(multicast), FilterFate::passes);
  EXPECT_FALSE(filter_chains("no JSON"));
  EXPECT_FALSE(filter_chains("{}"));
  EXPECT_FALSE(filter_chains(R"({"nftables":3})"));
}

TEST_F(Filter, SavedRulesOfTheOlderIptablesAreSeen) {
  const std::string accepts = "# Generated\n*filter\n:INPUT ACCEPT [12:3456]\n:FORWARD ACCEPT [0:0]\n:own - [0:0]\n";
  EXPECT_FALSE(has_saved_rules(""));
  EXPECT_FALSE(has_saved_rules(accepts + "COMMIT\n"));
  EXPECT_FALSE(has_saved_rules(accepts + "COMMIT\n*nat\n:OUTPUT DROP [0:0]\n-A POSTROUTING -j MASQUERADE\nCOMMIT\n"));
  EXPECT_TRUE(has_saved_rules(accepts + "-A INPUT -p udp -m udp --dport 5353 -j DROP\nCOMMIT\n"));
  EXPECT_TRUE(has_saved_rules(accepts + "[3:120] -A INPUT -j DROP\nCOMMIT\n"));
  EXPECT_TRUE(has_saved_rules("*filter\n:FORWARD DROP [0:0]\nCOMMIT\n"));
  EXPECT_TRUE(has_saved_rules("*nat\n-A POSTROUTING -j MASQUERADE\nCOMMIT\n*raw\n-A PREROUTING -j DROP\nCOMMIT\n"));
}

TEST_F(Filter, ADropIsNamedWithItsCounter) {
  Hook("input");
  Rule("input", std::string(kFrom) + "," + kUdp5353 + "," + kDrop);
  const FilterJudgement judgement = Judge(multicast);
  EXPECT_EQ(judgement.fate, FilterFate::dropped);
  EXPECT_EQ(judgement.packets, 19U);
  EXPECT_EQ(drop_text(judgement, "they"),
            "nft counts 19 packets dropped by chain input of table inet filter (the rule with handle 101)");
  EXPECT_EQ(passing_command(judgement, multicast),
            "nft insert rule inet filter input iifname \"br10\" udp dport 5353 accept");
  EXPECT_EQ(Fate(*multicast_from(br20, false)), FilterFate::passes) << "another link";
  EXPECT_EQ(Fate(*multicast_from(br10, true)), FilterFate::dropped) << "inet is both families";
}

TEST_F(Filter, AnAcceptBeforeADropDecides) {
  Hook("input");
  Rule("input", std::string(kUdp5353) + "," + kAccept);
  Rule("input", kDrop);
  EXPECT_EQ(Fate(multicast), FilterFate::passes);
}

TEST_F(Filter, ThePolicyDecidesAtTheEnd) {
  Hook("forward", "drop");
  Rule("forward", Match(R"({"ct":{"key":"state"}})", R"(["established","related"])", "in") + "," + kAccept);
  const FilterJudgement judgement = Judge(client[0]);
  EXPECT_EQ(judgement.fate, FilterFate::dropped);
  EXPECT_THAT(judgement.place, HasSubstr("(its policy)"));
  EXPECT_EQ(
      passing_command(judgement, client[0]),
      "nft insert rule inet filter forward iifname \"br20\" oifname \"br10\" ip daddr 10.1.0.2 tcp dport 631 accept");
  EXPECT_EQ(Fate(client[1]), FilterFate::passes) << "the answers belong to a connection";
}

TEST_F(Filter, TheOtherFamilyIsNotConcerned) {
  Hook("input", "drop", 0, "ip6");
  EXPECT_EQ(Fate(multicast), FilterFate::passes);
  EXPECT_EQ(Fate(*multicast_from(br10, true)), FilterFate::dropped);
}

TEST_F(Filter, EveryBaseChainHasToAccept) {
  Hook("input");
  Rule("input", kAccept);
  Hook("prerouting", "drop", -300, "ip");
  EXPECT_THAT(Judge(multicast).place, HasSubstr("chain prerouting of table ip filter"));
}

TEST_F(Filter, ChainsAreFollowedAndLeft) {
  Hook("input", "drop");
  Rule("input", R"({"jump":{"target":"other"}})");
  Rule("other", std::string(kFrom) + R"(,{"return":null})");
  Rule("other", kAccept);
  EXPECT_EQ(Fate(multicast), FilterFate::dropped) << "it has returned, and the policy decides";
  EXPECT_EQ(Fate(*multicast_from(br20, false)), FilterFate::passes);
}

TEST_F(Filter, AChainThatJumpsToItselfHasAnEnd) {
  Hook("input");
  Rule("input", R"({"jump":{"target":"other"}})");
  Rule("other", R"({"jump":{"target":"other"}})");
  EXPECT_EQ(Fate(multicast), FilterFate::cannot_tell);
}

TEST_F(Filter, AddressesAreComparedWithPrefixesRangesAndSets) {
  Hook("input");
  Rule("input", Match(kSource, R"({"prefix":{"addr":"10.9.0.0","len":16}})") + "," + kDrop);
  Rule("input", Match(kSource, R"({"range":["10.1.0.2","10.1.0.9"]})") + "," + kDrop);
  Rule("input", Match(kSource, R"({"set":["10.1.0.3",{"prefix":{"addr":"10.2.0.0","len":24}}]})") + "," + kDrop);
  EXPECT_EQ(Fate(multicast), FilterFate::passes);
  EXPECT_THAT(Judge(*multicast_from(br20, false)).place, HasSubstr("handle 103"));
}

TEST_F(Filter, PortsAreComparedWithSetsRangesAndOrder) {
  Hook("forward");
  Rule("forward", Match(kTcpPort, R"({"set":[22,{"range":[80,90]}]})") + "," + kDrop);
  Rule("forward", Match(kTcpPort, "1024", ">=") + "," + kDrop);
  EXPECT_EQ(Fate(client[0]), FilterFate::passes);
  Rule("forward", Match(kTcpPort, R"({"set":[22,{"range":[600,700]}]})", "!=") + "," + kDrop);
  EXPECT_EQ(Fate(client[0]), FilterFate::passes);
  Rule("forward", Match(kTcpPort, "631") + R"(,{"reject":{"type":"tcp reset"}})");
  EXPECT_EQ(Fate(client[0]), FilterFate::dropped);
}

TEST_F(Filter, AVerdictMapIsLookedUp) {
  Hook("input", "drop");
  Rule("input", R"({"vmap":{"key":{"ct":{"key":"state"}},"data":{"set":[["invalid",{"drop":null}],)"
                R"(["established",{"accept":null}]]}}})");
  Rule("input", R"({"vmap":{"key":{"meta":{"key":"iifname"}},"data":{"set":[["br10",{"jump":{"target":"other"}}]]}}})");
  Rule("other", std::string(kUdp5353) + "," + kAccept);
  EXPECT_EQ(Fate(multicast), FilterFate::passes);
  EXPECT_EQ(Fate(*multicast_from(br20, false)), FilterFate::dropped);
}

TEST_F(Filter, WhatIsNotUnderstoodIsSaidToBe) {
  Hook("input", "drop");
  Rule("input", Match(kSource, R"("@trusted")") + "," + kAccept);
  const FilterJudgement judgement = Judge(multicast);
  EXPECT_EQ(judgement.fate, FilterFate::cannot_tell);
  EXPECT_THAT(judgement.place, HasSubstr("(the rule with handle 101)"));
}

TEST_F(Filter, AnUnknownDropBeforeAnAcceptIsADoubtToo) {
  Hook("input");
  Rule("input", R"({"xt":{"type":"match","name":"recent"}},)" + std::string(kDrop));
  EXPECT_EQ(Fate(multicast), FilterFate::cannot_tell);
}

TEST_F(Filter, AnUnknownRuleThatCanOnlyDropIsNoDoubtOfADrop) {
  Hook("input", "drop");
  Rule("input", Match(R"({"meta":{"key":"mark"}})", "1") + "," + kDrop);
  EXPECT_EQ(Fate(multicast), FilterFate::dropped);
}

TEST_F(Filter, WhatIsNotWellFormedIsPassedOver) {
  Hook("input");
  Rule("input", R"(3,"text",[],{},{"match":7},{"vmap":null},{"drop":null})");
  EXPECT_EQ(Fate(multicast), FilterFate::cannot_tell);
}
