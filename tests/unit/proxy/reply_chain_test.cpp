// SPDX-License-Identifier: MIT
// Replies in every order that a library could deliver them in, likely or not: whatever comes, no reference is released
// twice, none is forgotten, no context outlives its instance.

#include <random>

#include "runtime/runtime.h"
#include "support/seed.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ReplyChain : public ProxyTest {};

// --- Replies that name another instance than the one that was asked about --------------------------------------------

TEST_F(ReplyChain, AResolveThatAnswersForAnotherInstanceLeavesBothInOrder) {
  GivenRule("_ipp._tcp");
  BrowseAdds("second");
  BrowseAdds("first");
  Resolves("second._ipp._tcp.local.");  // the resolve of "first"
  EXPECT_EQ(Instance("first")->resolve_service_ref, nullptr) << "that resolve is over";
  EXPECT_TRUE(fake_dns_sd::is_live(Instance("second")->resolve_service_ref)) << "this one is not";
  EXPECT_NE(Instance("second")->Addr_query_context, nullptr);
  EXPECT_EQ(Instance("first")->Addr_query_context, nullptr);
  BrowseRemoves("first");
  BrowseRemoves("second");
  EXPECT_EQ(fake_dns_sd::live_operations(), 1U) << "the browse";
}

TEST_F(ReplyChain, AnInstanceThatIsResolvedAlreadyIsNotResolvedAgain) {
  GivenRule("_ipp._tcp");
  BrowseAdds("second");
  BrowseAdds("first");
  Resolves("second._ipp._tcp.local.");
  const Addr_query_context* result = Instance("second")->Addr_query_context;
  MarkCalls();
  BrowseAdds("second");  // known already; the words of the test are about it again
  Resolves("second._ipp._tcp.local.");
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRefDeallocate resolve1"));
  EXPECT_EQ(Instance("second")->Addr_query_context, result);
  EXPECT_THAT(Traces(), Contains("callback_ServiceResolve(): second is resolved already, skip it"));
}

TEST_F(ReplyChain, AResolveThatDropsAnotherInstanceIsOverItself) {
  GivenRule("_ipp._tcp");
  BrowseAdds("second");
  BrowseAdds("first");
  Resolves("second._ipp._tcp.local.", "printer.local.", "\rvender=Zenmor");
  EXPECT_EQ(Instance("second"), nullptr);
  EXPECT_EQ(Instance("first")->resolve_service_ref, nullptr);
  EXPECT_EQ(gResponderCount, 1);
}

TEST_F(ReplyChain, RulesInBothDirectionsForwardNothingTwice) {
  const BridgeContext* there = GivenRule("_ipp._tcp", "br0", "br1");
  const BridgeContext* back = GivenRule("_ipp._tcp", "br1", "br0");
  BrowseAdds("My Printer", there);
  fake_dns_sd::deliver(
      Instance("My Printer", there)->resolve_service_ref,
      fake_dns_sd::ResolveReply{.fullname = "My\\032Printer._ipp._tcp.local.", .hosttarget = "printer.local."});
  fake_dns_sd::deliver(Instance("My Printer", there)->query_addrv4_ref,
                       fake_dns_sd::QueryReply{.rrtype = kDNSServiceType_A, .rdlen = 4, .rdata = "\xc0\x00\x02\x01"});
  const std::vector<std::uint8_t> txt = LastCall("DNSServiceRegister").data;
  BrowseAdds("My Printer", back);
  fake_dns_sd::deliver(Instance("My Printer", back)->resolve_service_ref,
                       fake_dns_sd::ResolveReply{.fullname = "My\\032Printer._ipp._tcp.local.",
                                                 .hosttarget = "printer.local.",
                                                 .txtLen = static_cast<std::uint16_t>(txt.size()),
                                                 .txt = txt.data()});
  EXPECT_EQ(Instance("My Printer", back), nullptr);
  EXPECT_THAT(Calls("DNSServiceRegister"), SizeIs(1));
  EXPECT_EQ(gResponderCount, 1);
}

// --- Random chains ---------------------------------------------------------------------------------------------------

// One seed, one chain. Instances are few, so that replies meet each other; names are of the kinds that mislead.
class RandomChain {
 public:
  explicit RandomChain(std::uint64_t seed) : random_(seed) {}

  void Step(const std::vector<BridgeContext*>& rules) {
    BridgeContext* rule = rules[Below(rules.size())];
    switch (Below(8)) {
      case 0:
      case 1:
        Browse(rule, Below(4) == 0 ? 0 : kDNSServiceFlagsAdd);
        break;
      case 2:
      case 3:
        Resolve(rule);
        break;
      case 4:
        Refuse();
        break;
      default:
        Answer(rule);
        break;
    }
  }

 private:
  static constexpr const char* kNames[] = {"a", "b", "a.b", "a b", "a\\b", "A", "b._ipp", ""};
  static constexpr const char* kFullnames[] = {"a._ipp._tcp.local.",
                                               "b._ipp._tcp.local.",
                                               "a\\.b._ipp._tcp.local.",
                                               "a\\032b._ipp._tcp.local.",
                                               "a\\\\b._ipp._tcp.local.",
                                               "A._ipp._tcp.local.",
                                               "b\\._ipp._ipp._tcp.local.",
                                               "._ipp._tcp.local.",
                                               "a\\",
                                               "",
                                               "a.b"};
  static constexpr const char* kFirstLabels[] = {"a", "b", "a.b", "a b", "a\\\\b", "A", "b._ipp", ""};

  std::size_t Below(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_); }
  template <std::size_t Size>
  const char* OneOf(const char* const (&texts)[Size]) {
    return texts[Below(Size)];
  }

  // An instance of the rule, or null.
  ResponderContext* Some(const BridgeContext* rule) {
    std::vector<ResponderContext*> all;
    for (ResponderContext* at = rule->responder_contexts; at != nullptr;
         at = static_cast<ResponderContext*>(at->hh.next)) {
      all.push_back(at);
    }
    return all.empty() ? nullptr : all[Below(all.size())];
  }

  void Browse(const BridgeContext* rule, DNSServiceFlags flags) {
    fake_dns_sd::deliver(rule->ref, fake_dns_sd::BrowseReply{.flags = flags,
                                                             .interfaceIndex = 2,
                                                             .name = Below(20) == 0 ? nullptr : OneOf(kNames),
                                                             .type = "_ipp._tcp.",
                                                             .domain = "local."});
  }

  void Resolve(const BridgeContext* rule) {
    const ResponderContext* instance = Some(rule);
    if (instance == nullptr || instance->resolve_service_ref == nullptr) {
      return;
    }
    const std::string txt(Below(10) == 0 ? "\rvender=Zenmor" : std::string(Below(1200), 'x'));
    fake_dns_sd::deliver(
        instance->resolve_service_ref,
        fake_dns_sd::ResolveReply{.error = Below(10) == 0 ? kDNSServiceErr_Unknown : kDNSServiceErr_NoError,
                                  .fullname = OneOf(kFullnames),
                                  .hosttarget = "host.local.",
                                  .txtLen = static_cast<std::uint16_t>(txt.size()),
                                  .txt = reinterpret_cast<const unsigned char*>(txt.data())});
  }

  void Answer(const BridgeContext* rule) {
    const ResponderContext* instance = Some(rule);
    if (instance == nullptr) {
      return;
    }
    const std::size_t kind = Below(3);
    const DNSServiceRef query = kind == 0   ? instance->query_addrv4_ref
                                : kind == 1 ? instance->query_addrv6_ref
                                            : instance->query_subtype_ref;
    if (query != nullptr) {
      const std::vector<std::uint8_t> rdata = kind == 2 ? Pointer() : Bytes(kind == 0 ? 4 : 16);
      const std::uint16_t rrtype = kind == 0   ? kDNSServiceType_A
                                   : kind == 1 ? kDNSServiceType_AAAA
                                               : kDNSServiceType_PTR;
      fake_dns_sd::deliver(query, fake_dns_sd::QueryReply{.flags = kDNSServiceFlagsAdd,
                                                          .rrtype = rrtype,
                                                          .rdlen = static_cast<std::uint16_t>(rdata.size()),
                                                          .rdata = rdata.data()});
    }
  }

  // Mostly a sound address out of few, so that it may repeat; now and then zero, link-local or too short.
  std::vector<std::uint8_t> Bytes(std::size_t size) {
    std::vector<std::uint8_t> bytes(Below(20) == 0 ? Below(size) : size, 0);
    if (bytes.size() == size && Below(10) != 0) {
      bytes[0] = Below(10) == 0 ? 169 : 32;
      bytes[1] = 254;
      bytes.back() = static_cast<std::uint8_t>(1 + Below(3));
    }
    return bytes;
  }

  std::vector<std::uint8_t> Pointer() {
    std::vector<std::uint8_t> wire = Below(5) == 0 ? wire_name({"a", "b", "_ipp", "_tcp", "local"})
                                                   : wire_name({OneOf(kFirstLabels), "_ipp", "_tcp", "local"});
    if (Below(10) == 0) {
      wire.resize(Below(wire.size()));
    }
    return wire;
  }

  // The next call of some function is refused. Refusals that end the process are left out: of browses, resolves and
  // AAAA records.
  void Refuse() {
    constexpr const char* kMayFail[] = {"DNSServiceQueryRecord", "DNSServiceRegister", "DNSServiceUpdateRecord",
                                        "DNSServiceRemoveRecord"};
    fake_dns_sd::fail_call(OneOf(kMayFail), 1, kDNSServiceErr_Unknown);
  }

  std::mt19937_64 random_;
};

TEST_F(ReplyChain, NoOrderOfRepliesReleasesTwiceOrForgets) {
  const std::uint64_t first = support::chosen_seed();
  const std::vector<BridgeContext*> rules = {GivenRule("_ipp._tcp", "br0", "br1"),
                                             GivenRule("_u._ipp._tcp", "br0", "br2")};
  GivenSilence();
  RandomChain chain(first);
  for (int step = 0; step < 20000; ++step) {
    chain.Step(rules);
    ASSERT_THAT(fake_dns_sd::misuses(), IsEmpty()) << "step " << step;
    ASSERT_EQ(gResponderCount, HASH_COUNT(rules[0]->responder_contexts) + HASH_COUNT(rules[1]->responder_contexts));
  }
  for (BridgeContext* rule : rules) {
    while (rule->responder_contexts != nullptr) {
      del_responder_context(rule, rule->responder_contexts);
    }
  }
  EXPECT_EQ(fake_dns_sd::live_operations(), 2U) << "the browses, seed " << first;
  EXPECT_EQ(InstanceBlocks(), 0U) << "seed " << first;
}

}  // namespace
