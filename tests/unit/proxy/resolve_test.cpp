// SPDX-License-Identifier: MIT
#include <arpa/inet.h>

#include <cstring>

#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::SizeIs;

const void* Pointer(const void* pointer) { return pointer; }

// A rule, and an instance "My Printer" whose resolve is running.
class ResolveReply : public ProxyTest {
 protected:
  ResolveReply() { Start("_ipp._tcp"); }

  void Start(const char* service_type) {
    GivenRule(service_type);
    BrowseAdds("My Printer");
    Forget();
  }
  void Forget() {
    MarkCalls();
    ForgetMessages();
  }

  static constexpr const char* kFullname = "My\\032Printer._ipp._tcp.local.";
};

using ResolveReplyDeathTest = ResolveReply;

// --- The two address queries -----------------------------------------------------------------------------------------

TEST_F(ResolveReply, EndsTheResolveAndAsksForBothKindsOfAddress) {
  ResolvesAs({.interfaceIndex = 9, .fullname = kFullname, .hosttarget = "printer.local.", .port = 631});
  EXPECT_THAT(
      Calls(),
      ElementsAre(
          "DNSServiceRefDeallocate resolve1",
          "DNSServiceQueryRecord on=connection1 flags=0x4500 if=9 name=printer.local. rrtype=1 rrclass=1 -> query1",
          "DNSServiceQueryRecord on=connection1 flags=0x4500 if=9 name=printer.local. rrtype=28 rrclass=1 -> "
          "query2"));
  EXPECT_EQ(Instance()->resolve_service_ref, nullptr);
  EXPECT_EQ(Instance()->query_addrv4_ref, Calls("DNSServiceQueryRecord")[0].ref);
  EXPECT_EQ(Instance()->query_addrv6_ref, Calls("DNSServiceQueryRecord")[1].ref);
  EXPECT_EQ(Instance()->query_subtype_ref, nullptr);
  EXPECT_EQ(Instance()->subtype_query_context, nullptr);
  for (const fake_dns_sd::Call& query : Calls("DNSServiceQueryRecord")) {
    EXPECT_EQ(query.context, Instance()->Addr_query_context);
  }
}

TEST_F(ResolveReply, KeepsTheResolvedData) {
  const std::string txt(
      "\x09txtvers=1\x02"
      "a\0",
      13);
  ResolvesAs({.interfaceIndex = 9,
              .fullname = kFullname,
              .hosttarget = "printer.local.",
              .port = 631,
              .txtLen = static_cast<std::uint16_t>(txt.size()),
              .txt = reinterpret_cast<const unsigned char*>(txt.data())});
  const Addr_query_context* result = Instance()->Addr_query_context;
  ASSERT_NE(result, nullptr);
  EXPECT_STREQ(result->service_name, "My Printer");
  EXPECT_STREQ(result->service_type, "_ipp._tcp");
  EXPECT_STREQ(result->hosttarget, "printer.local.");
  EXPECT_EQ(result->opaqueport, htons(631));
  EXPECT_EQ(result->txtLen, 13);
  EXPECT_EQ(std::memcmp(result->txt, txt.data(), txt.size()), 0);
  EXPECT_EQ(result->IfIndex, 9U);
  EXPECT_EQ(result->bridge_context_ptr, Rule());
  EXPECT_EQ(result->record_label, nullptr);
  EXPECT_THAT(result->addr_v4, Each(0));
  EXPECT_THAT(result->addr_v6, Each(0));
}

TEST_F(ResolveReply, TracesItsSteps) {
  const DNSServiceRef resolve = Instance()->resolve_service_ref;
  Resolves(kFullname);
  EXPECT_THAT(
      Traces(),
      AllOf(Contains(printed(
                "\ncallback_ServiceResolve(): START: sdref = %p, flags = 0, ifIndex = 2, errorCode = 0, fullname = "
                "My\\032Printer._ipp._tcp.local., hosttarget = printer.local., opaqueport = %d, txtLen = 0 ...",
                Pointer(resolve), htons(631))),
            Contains("callback_ServiceResolve(): (BridgeContext*)context->if_from = 2, ->if_to = 3"),
            Contains(
                printed("callback_ServiceResolve(): calling DNSServiceRefDeallocate(sdref = %p)...", Pointer(resolve))),
            Contains(around_line(
                "callback_ServiceResolve,",
                printed(", vSvcQueIPV4RecRef=%p vSvcQueIPV6RecRef=%p result= %p", Pointer(Instance()->query_addrv4_ref),
                        Pointer(Instance()->query_addrv6_ref), Pointer(Instance()->Addr_query_context))))));
  EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(ResolveReply, SaysThatTheResolveEndsBeforeItDoes) {
  const std::size_t first = fake_dns_sd::calls().size();
  const std::vector<std::size_t>& calls = WatchCallsAt("callback_ServiceResolve(): calling DNSServiceRefDeallocate");
  Resolves(kFullname);
  EXPECT_THAT(calls, ElementsAre(first));
}

TEST_F(ResolveReply, AnEscapedDotBelongsToTheInstanceName) {
  BrowseAdds("a.b");
  Resolves("a\\.b._ipp._tcp.local.");
  ASSERT_NE(Instance("a.b")->Addr_query_context, nullptr);
  EXPECT_STREQ(Instance("a.b")->Addr_query_context->service_name, "a.b");
  EXPECT_STREQ(Instance("a.b")->Addr_query_context->service_type, "_ipp._tcp");
}

TEST_F(ResolveReply, EscapesOfTheNameAreUndone) {
  BrowseAdds("B\xc3\xbcro\\A\x01");
  Resolves("B\xc3\xbcro\\\\\\065\\001._ipp._tcp.local.");
  EXPECT_NE(Instance()->Addr_query_context, nullptr);
}

TEST_F(ResolveReply, AFullNameThatEndsEarlyLeavesTheTypeShort) {
  BrowseAdds("x");
  Resolves("x._ipp");
  EXPECT_STREQ(Instance("x")->Addr_query_context->service_type, "_ipp");
}

// --- TXT data --------------------------------------------------------------------------------------------------------

TEST_F(ResolveReply, TxtDataOf1008BytesIsKept) {
  Resolves(kFullname, "printer.local.", std::string(1008, 'x'));
  EXPECT_EQ(Instance()->Addr_query_context->txtLen, 1008);
  EXPECT_EQ(Instance()->Addr_query_context->txt[1007], 'x');
}

TEST_F(ResolveReply, TxtDataOf1009BytesIsNotKeptButItsLengthIs) {
  Resolves(kFullname, "printer.local.", std::string(1009, 'x'));
  EXPECT_EQ(Instance()->Addr_query_context->txtLen, 1009);
  EXPECT_THAT(Instance()->Addr_query_context->txt, Each(0));
  BrowseAdds("other");
  Resolves("other._ipp._tcp.local.", "printer.local.", std::string(65535, 'x'));
  EXPECT_EQ(Instance("other")->Addr_query_context->txtLen, 65535);
}

TEST_F(ResolveReply, MissingTxtDataCountsAsNone) {
  ResolvesAs({.fullname = kFullname, .hosttarget = "printer.local.", .txtLen = 20, .txt = nullptr});
  ASSERT_NE(Instance()->Addr_query_context, nullptr);
  EXPECT_EQ(Instance()->Addr_query_context->txtLen, 0);
}

TEST_F(ResolveReply, AnInstanceThatAProxyForwardedIsDropped) {
  Resolves(kFullname, "printer.local.",
           "\x03"
           "a=b\rvender=Zenmor\x01"
           "c");
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRefDeallocate resolve1"));
  EXPECT_EQ(Instance("My Printer"), nullptr);
  EXPECT_EQ(gResponderCount, 0);
  EXPECT_THAT(Traces(), Contains("This service is from zenmor mdnsproxy, will not fwd it again"));
}

TEST_F(ResolveReply, TheCountStaysAtZeroWhenAForwardedInstanceIsDropped) {
  gResponderCount = 0;
  Resolves(kFullname, "printer.local.", "\rvender=Zenmor");
  EXPECT_EQ(gResponderCount, 0);
}

TEST_F(ResolveReply, AForwardedInstanceThatIsAnnouncedAgainIsJudgedAfresh) {
  Resolves(kFullname, "printer.local.", "\rvender=Zenmor");
  BrowseRemoves("My Printer");
  BrowseAdds("My Printer");
  Resolves(kFullname);
  EXPECT_THAT(Calls("DNSServiceQueryRecord"), SizeIs(2));
}

TEST_F(ResolveReply, TheVendorEntryIsLookedForUpToTheFirstZeroByteOnly) {
  Resolves(kFullname, "printer.local.",
           std::string("\x01"
                       "a\0\rvender=Zenmor",
                       17));
  EXPECT_THAT(Calls("DNSServiceQueryRecord"), SizeIs(2));
}

TEST_F(ResolveReply, TheVendorEntryIsLookedForWithinTheTxtDataOnly) {
  const std::string txt = "\rvender=Zenmor";
  ResolvesAs({.fullname = kFullname,
              .hosttarget = "printer.local.",
              .txtLen = 13,
              .txt = reinterpret_cast<const unsigned char*>(txt.data())});
  EXPECT_THAT(Calls("DNSServiceQueryRecord"), SizeIs(2));
}

TEST_F(ResolveReply, TheVendorEntryCountsWithItsLengthByteAndCaseOnly) {
  Resolves(kFullname, "printer.local.", "\x0fvender=Zenmor22\x0dVENDER=Zenmor");
  EXPECT_THAT(Calls("DNSServiceQueryRecord"), SizeIs(2));
}

TEST_F(ResolveReply, TheVendorEntryIsFoundInTxtDataThatIsTooLongToKeep) {
  Resolves(kFullname, "printer.local.", std::string(2000, 'x') + "\rvender=Zenmor");
  EXPECT_THAT(Calls("DNSServiceQueryRecord"), IsEmpty());
}

// --- Replies that lead nowhere ---------------------------------------------------------------------------------------

TEST_F(ResolveReply, AnErrorReplyIsReportedAndChangesNothing) {
  const DNSServiceRef resolve = Instance()->resolve_service_ref;
  ResolvesAs({.error = kDNSServiceErr_Unknown, .fullname = kFullname, .hosttarget = "printer.local."});
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Warnings(), ElementsAre("callback_ServiceResolve(): Error code -65537"));
  EXPECT_EQ(Instance()->resolve_service_ref, resolve);
  EXPECT_TRUE(fake_dns_sd::is_live(resolve));
}

TEST_F(ResolveReply, AReplyForAnUnknownInstanceIsReportedAndItsResolveGoesOn) {
  Resolves("Other\\032Printer._ipp._tcp.local.");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Warnings(), ElementsAre("callback_ServiceResolve(): FAIL to find service context for  Other Printer"));
  EXPECT_TRUE(fake_dns_sd::is_live(Instance()->resolve_service_ref));
}

TEST_F(ResolveReply, AReplyWithoutNamesIsIgnored) {
  ResolvesAs({.fullname = nullptr, .hosttarget = "printer.local."});
  ResolvesAs({.fullname = kFullname, .hosttarget = nullptr});
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Warnings(), IsEmpty());
  EXPECT_NE(Instance()->resolve_service_ref, nullptr);
}

// --- Refused queries -------------------------------------------------------------------------------------------------

TEST_F(ResolveReply, ARefusedAQueryIsReportedAndTheOtherFamilyGoesOn) {
  fake_dns_sd::fail_call("DNSServiceQueryRecord", 1, kDNSServiceErr_Refused);
  Resolves(kFullname);
  EXPECT_THAT(Warnings(), ElementsAre("MyDNSServiceQueryRecord(): get IPV4 address FAIL: "
                                      "DNSServiceQueryRecord(sdref_bridge_reply) call failed: -65553"));
  EXPECT_EQ(Instance()->query_addrv4_ref, nullptr);
  EXPECT_NE(Instance()->query_addrv6_ref, nullptr);
  EXPECT_EQ(Instance()->Addr_query_context, LastCall("DNSServiceQueryRecord").context);
  AddressAnswers("2001:db8::1");
  EXPECT_NE(Instance()->reg_service_ref, nullptr);
}

TEST_F(ResolveReply, ARefusedAaaaQueryIsReportedAndTheOtherFamilyGoesOn) {
  fake_dns_sd::fail_call("DNSServiceQueryRecord", 2, kDNSServiceErr_Refused);
  Resolves(kFullname);
  EXPECT_THAT(Warnings(), ElementsAre("MyDNSServiceQueryRecord(): get IPV6 address FAIL: "
                                      "DNSServiceQueryRecord(sdref_bridge_reply) call failed: -65553"));
  EXPECT_NE(Instance()->query_addrv4_ref, nullptr);
  EXPECT_EQ(Instance()->query_addrv6_ref, nullptr);
  EXPECT_NE(Instance()->Addr_query_context, nullptr);
  AddressAnswers("192.0.2.1");
  EXPECT_NE(Instance()->reg_service_ref, nullptr);
}

TEST_F(ResolveReply, WithBothFamiliesRefusedTheInstanceStaysWithoutQueries) {
  Start("_universal._ipp._tcp");
  const ZmkUsage before = zmk_usage();
  fake_dns_sd::fail_next("DNSServiceQueryRecord", 2, kDNSServiceErr_Refused);
  Resolves(kFullname);
  EXPECT_THAT(Calls("DNSServiceQueryRecord"), SizeIs(2)) << "none for the subtype";
  EXPECT_THAT(Warnings(), SizeIs(2));
  EXPECT_THAT(Traces(),
              Contains(around_line("callback_ServiceResolve,",
                                   printed(",free result, result=%p", LastCall("DNSServiceQueryRecord").context))));
  ASSERT_NE(Instance(), nullptr);
  EXPECT_EQ(Instance()->Addr_query_context, nullptr);
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  BrowseRemoves("My Printer");
  EXPECT_EQ(Instance(), nullptr);
}

TEST_F(ResolveReplyDeathTest, ALackOfMemoryEndsTheProcess) {
  const auto resolve_without_memory = [this](unsigned nth) {
    fake_zmk::fail_malloc(nth);
    Resolves(kFullname);
  };
  EXPECT_EXIT(resolve_without_memory(1), ExitedWithCode(20),
              says("syslog(4): ERROR 1301171518: malloc failed, exiting.\n"));
  Start("_universal._ipp._tcp");
  EXPECT_EXIT(resolve_without_memory(2), ExitedWithCode(20),
              says("syslog(4): ERROR 1301171518: malloc failed, exiting.\n"));
}

// --- The subtype query -----------------------------------------------------------------------------------------------

class ResolveReplyOfASubtype : public ResolveReply {
 protected:
  ResolveReplyOfASubtype() { Start("_universal._ipp._tcp"); }
};

TEST_F(ResolveReplyOfASubtype, AsksForTheSubtypesPointers) {
  ResolvesAs({.interfaceIndex = 9, .fullname = kFullname, .hosttarget = "printer.local."});
  EXPECT_EQ(LastCall("DNSServiceQueryRecord").text,
            "DNSServiceQueryRecord on=connection1 flags=0x4500 if=9 name=_universal._sub._ipp._tcp.local. rrtype=12 "
            "rrclass=1 -> "
            "query3");
  const subtype_query_context* record_PTR = Instance()->subtype_query_context;
  ASSERT_NE(record_PTR, nullptr);
  EXPECT_EQ(LastCall("DNSServiceQueryRecord").context, record_PTR);
  EXPECT_EQ(Instance()->query_subtype_ref, LastCall("DNSServiceQueryRecord").ref);
  EXPECT_EQ(record_PTR->bridge_context_ptr, Rule());
  EXPECT_STREQ(record_PTR->subtype_query_name, "_universal._sub._ipp._tcp.local.");
  EXPECT_STREQ(record_PTR->service_fullname, "My Printer._ipp._tcp.local.");
}

TEST_F(ResolveReplyOfASubtype, TracesItsSteps) {
  Resolves(kFullname);
  EXPECT_THAT(
      Traces(),
      AllOf(Contains(around_line("callback_ServiceResolve,",
                                 ",query PTR record,servicetype:_universal._sub._ipp._tcp.local. on interface:2")),
            Contains(around_line("callback_ServiceResolve,",
                                 ",save record_PTR, service_name:My Printer._ipp._tcp.local., "
                                 "service_type:_universal._sub._ipp._tcp.local., on interface:2")),
            Contains(around_line("callback_ServiceResolve,", printed(",query PTR record, ref=%p record_PTR=%p",
                                                                     Pointer(Instance()->query_subtype_ref),
                                                                     Pointer(Instance()->subtype_query_context))))));
}

TEST_F(ResolveReplyOfASubtype, ARefusalIsReportedAndTheAddressesGoOn) {
  fake_dns_sd::fail_call("DNSServiceQueryRecord", 3, kDNSServiceErr_Refused);
  Resolves(kFullname);
  EXPECT_THAT(Warnings(),
              ElementsAre(printed("MyDNSServiceQueryRecord(): FAIL: DNSServiceQueryRecord(PTR query) call failed: "
                                  "-65553 record_PTR=%p",
                                  LastCall("DNSServiceQueryRecord").context)));
  EXPECT_EQ(Instance()->query_subtype_ref, nullptr);
  EXPECT_EQ(Instance()->subtype_query_context, nullptr);
  AddressAnswers("192.0.2.1");
  EXPECT_NE(Instance()->reg_service_ref, nullptr);
}

TEST_F(ResolveReplyOfASubtype, ASubtypeOf63BytesIsAskedForWhole) {
  const std::string subtype(63, 's');
  Start((subtype + "._ipp._tcp").c_str());
  Resolves(kFullname);
  EXPECT_EQ(LastCall("DNSServiceQueryRecord").name, subtype + "._sub._ipp._tcp.local.");
}

TEST_F(ResolveReplyOfASubtype, OnlyTheFirstLabelIsTheSubtype) {
  Start("_a\\.b._ipp._tcp");
  Resolves(kFullname);
  EXPECT_EQ(LastCall("DNSServiceQueryRecord").name, "_a\\.b._sub._ipp._tcp.local.");
}

}  // namespace
