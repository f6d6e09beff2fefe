// SPDX-License-Identifier: MIT
#include <functional>

#include "fakes/fake_syslog.h"
#include "runtime/runtime.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const std::int32_t gCountAtStart = gResponderCount;

TEST(ResponderCount, StartsAtZero) { EXPECT_EQ(gCountAtStart, 0); }

class BrowseReply : public ProxyTest {
 protected:
  BrowseReply() { Forget(); }

  void Forget() {
    MarkCalls();
    ForgetMessages();
  }

  void Browses(const fake_dns_sd::BrowseReply& reply) { fake_dns_sd::deliver(Rule()->ref, reply); }
};

using BrowseReplyDeathTest = BrowseReply;

TEST_F(BrowseReply, AnAddedInstanceIsResolvedWhereItWasSeen) {
  GivenRule("_ipp._tcp");
  Forget();
  Browses({.flags = kDNSServiceFlagsAdd,
           .interfaceIndex = 9,
           .name = "My Printer",
           .type = "_ipp._tcp.",
           .domain = "local."});
  EXPECT_THAT(Calls(),
              ElementsAre("DNSServiceResolve on=connection1 flags=0x4000 if=9 name=My Printer regtype=_ipp._tcp. "
                          "domain=local. -> resolve1"));
  EXPECT_EQ(LastCall("DNSServiceResolve").context, Rule());
  ASSERT_NE(Instance("My Printer"), nullptr);
  EXPECT_EQ(Instance("My Printer")->resolve_service_ref, LastCall("DNSServiceResolve").ref);
  EXPECT_EQ(gResponderCount, 1);
}

TEST_F(BrowseReply, TheResolveIsStartedBeforeTheInstanceIsKept) {
  GivenRule("_ipp._tcp");
  const std::vector<std::size_t>& calls = WatchCallsAt("add_responder_context()");
  const std::size_t before = fake_dns_sd::calls().size();
  BrowseAdds("My Printer");
  EXPECT_THAT(calls, ElementsAre(before + 1));
}

TEST_F(BrowseReply, AnAddIsTraced) {
  GivenRule("_ipp._tcp");
  Forget();
  BrowseAdds("My Printer");
  EXPECT_THAT(Traces(),
              AllOf(Contains(printed("\ncallback_ServiceBrowse(): START: sdref = %p, flags = 2, ifIndex = 2, errorCode "
                                     "= 0, replyName = My Printer, replyType = _ipp._tcp., replyDomain = local. ...",
                                     static_cast<const void*>(Rule()->ref))),
                    Contains("callback_ServiceBrowse(): Operation: Add"),
                    Contains("callback_ServiceBrowse(): ADD: Now attempting to DNSServiceResolve()...")));
}

TEST_F(BrowseReply, ASecondAddReplyForAKnownInstanceStartsNothing) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Forget();
  BrowseAdds("My Printer");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Traces(), AllOf(Contains("callback_ServiceBrowse(): ADD: This service is already added, skip it"),
                              Not(Contains(HasSubstr("Now attempting to DNSServiceResolve")))));
  EXPECT_EQ(gResponderCount, 1);
}

TEST_F(BrowseReply, AnAddReplyWithAnErrorIsIgnored) {
  GivenRule("_ipp._tcp");
  Forget();
  Browses({.flags = kDNSServiceFlagsAdd, .error = kDNSServiceErr_Unknown, .name = "My Printer"});
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): ADD: Error code -65537"));
  EXPECT_EQ(gResponderCount, 0);
}

TEST_F(BrowseReply, AnAddReplyWithAnErrorLeavesAKnownInstanceAlone) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Forget();
  Browses({.flags = kDNSServiceFlagsAdd, .error = kDNSServiceErr_Unknown, .name = "My Printer"});
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Traces(), AllOf(Contains("callback_ServiceBrowse(): ADD: Error code -65537"),
                              Not(Contains(HasSubstr("get_responder_context_by_name()")))))
      << "the error is looked at first";
  EXPECT_NE(Instance("My Printer"), nullptr);
}

TEST_F(BrowseReply, AnAddReplyWithoutANameIsIgnored) {
  GivenRule("_ipp._tcp");
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    Forget();
    Browses({.flags = kDNSServiceFlagsAdd, .name = name});
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): ADD: a reply without a name, ignored"));
    EXPECT_EQ(gResponderCount, 0);
  }
}

TEST_F(BrowseReply, TheNameAloneIsTheKey) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Forget();
  Browses({.flags = kDNSServiceFlagsAdd, .name = "My Printer", .type = "_raop._tcp.", .domain = "elsewhere."});
  EXPECT_THAT(Calls(), IsEmpty());
  Browses({.name = "My Printer", .type = "_raop._tcp.", .domain = "elsewhere."});
  EXPECT_EQ(Instance("My Printer"), nullptr);
}

TEST_F(BrowseReply, MoreComingMakesNoDifference) {
  GivenRule("_ipp._tcp");
  Browses({.flags = kDNSServiceFlagsAdd | kDNSServiceFlagsMoreComing, .name = "My Printer"});
  EXPECT_NE(Instance("My Printer"), nullptr);
  Browses({.flags = kDNSServiceFlagsMoreComing, .name = "My Printer"});
  EXPECT_EQ(Instance("My Printer"), nullptr);
}

// --- Removal ---------------------------------------------------------------------------------------------------------

TEST_F(BrowseReply, ARemovedInstanceIsTornDown) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Forget();
  BrowseRemoves("My Printer");
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRefDeallocate resolve1"));
  EXPECT_EQ(Instance("My Printer"), nullptr);
  EXPECT_EQ(gResponderCount, 0);
  EXPECT_THAT(Traces(),
              AllOf(Contains("callback_ServiceBrowse(): Operation: Rmv"),
                    Contains("callback_ServiceBrowse(): REMOVE: Now attempting to remove the record and the service "
                             "register from the other interfaces..."),
                    Not(Contains(HasSubstr("REMOVE:  failed")))));
}

TEST_F(BrowseReply, ARegisteredInstanceLeavesNothingBehind) {
  GivenRule("_ipp._tcp");
  const ZmkUsage before = zmk_usage();
  BrowseAdds("My Printer");
  Resolves("My\\032Printer._ipp._tcp.local.");
  AddressAnswers("192.0.2.1");
  AddressAnswers("2001:db8::1");
  Forget();
  BrowseRemoves("My Printer");
  EXPECT_THAT(Calls(),
              ElementsAre("DNSServiceRemoveRecord on=connection2 flags=0x0 record1",
                          "DNSServiceRemoveRecord on=connection2 flags=0x0 record2", "DNSServiceRefDeallocate query1",
                          "DNSServiceRefDeallocate query2", "DNSServiceRefDeallocate service1"));
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  EXPECT_EQ(zmk_usage().bytes, before.bytes);
  EXPECT_EQ(fake_dns_sd::live_records(), 0U);
  EXPECT_EQ(fake_dns_sd::live_operations(), 1U) << "the browse";
}

TEST_F(BrowseReply, ARemovalIsOneWhateverItsErrorCode) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Browses({.error = kDNSServiceErr_Unknown, .name = "My Printer"});
  EXPECT_EQ(Instance("My Printer"), nullptr);
}

TEST_F(BrowseReply, AnUnknownInstanceIsNotRemoved) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Forget();
  BrowseRemoves("Other");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): REMOVE:  service is already removed. skip"));
  EXPECT_EQ(gResponderCount, 1);
}

TEST_F(BrowseReply, AnErrorReplyWithoutANameRemovesNothing) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    Forget();
    Browses({.error = kDNSServiceErr_Unknown, .name = name});
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): REMOVE:  service is already removed. skip"));
    EXPECT_NE(Instance("My Printer"), nullptr);
    EXPECT_EQ(gResponderCount, 1);
  }
}

TEST_F(BrowseReply, TheCountNeverGoesBelowZero) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  gResponderCount = 0;
  BrowseRemoves("My Printer");
  EXPECT_EQ(gResponderCount, 0);
}

TEST_F(BrowseReply, AnInstanceComesBackAfterItsRemoval) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  BrowseRemoves("My Printer");
  BrowseAdds("My Printer");
  EXPECT_NE(Instance("My Printer"), nullptr);
  EXPECT_THAT(Calls("DNSServiceResolve"), SizeIs(2));
}

// --- A table that changes under the handler's hands: cannot happen, is noticed ---------------------------------------

// Does something inside the nth message of all that begins so.
void InsideMessage(const std::string& beginning, int nth, std::function<void()> action) {
  fake_syslog::on_message([beginning, left = nth, action]() mutable {
    if (fake_syslog::lines().back().text.starts_with(beginning) && --left == 0) {
      action();
    }
  });
}

TEST_F(BrowseReply, ANewInstanceThatIsNotFoundIsReportedAndItsResolveGoesOn) {
  GivenRule("_ipp._tcp");
  Forget();
  InsideMessage("add_responder_context(): ", 1, [this] { del_responder_context(Rule(), Rule()->responder_contexts); });
  BrowseAdds("My Printer");
  EXPECT_THAT(Warnings(), ElementsAre("ERROR 13013016492: callback_ServiceBrowse(): REMOVE: "
                                      "bridge_context_ptr->dns_record_service_ptr == NULL, unhandled case, exiting."));
  EXPECT_TRUE(fake_dns_sd::is_live(LastCall("DNSServiceResolve").ref));
  EXPECT_EQ(gResponderCount, 0);
}

TEST_F(BrowseReply, ARemovedInstanceThatIsStillFoundIsReported) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Forget();
  InsideMessage("get_responder_context_by_name(): start ", 2, [this] { add_responder_context(Rule(), "My Printer"); });
  BrowseRemoves("My Printer");
  EXPECT_THAT(Traces(), Contains(printed("callback_ServiceBrowse(): REMOVE:  failed %p",
                                         static_cast<const void*>(Instance("My Printer")))));
  EXPECT_EQ(gResponderCount, 0);
}

// --- Several rules and the limit -------------------------------------------------------------------------------------

TEST_F(BrowseReply, TwoRulesResolveTheSameInstanceTwiceAndCountItTwice) {
  const BridgeContext* first = GivenRule("_ipp._tcp", "br0", "br1");
  const BridgeContext* second = GivenRule("_ipp._tcp", "br0", "br2");
  BrowseAdds("My Printer", first);
  BrowseAdds("My Printer", second);
  EXPECT_THAT(Calls("DNSServiceResolve"), SizeIs(2));
  EXPECT_EQ(gResponderCount, 2);
  BrowseRemoves("My Printer", first);
  EXPECT_EQ(Instance("My Printer", first), nullptr);
  EXPECT_NE(Instance("My Printer", second), nullptr);
  EXPECT_EQ(gResponderCount, 1);
}

TEST_F(BrowseReply, WithTwoThousandInstancesOneMoreIsTaken) {
  GivenRule("_ipp._tcp");
  gResponderCount = 2000;
  BrowseAdds("My Printer");
  EXPECT_NE(Instance("My Printer"), nullptr);
  EXPECT_EQ(gResponderCount, 2001);
}

TEST_F(BrowseReply, WithTwoThousandAndOneInstancesNoneIsTaken) {
  GivenRule("_ipp._tcp");
  gResponderCount = 2001;
  Forget();
  BrowseAdds("My Printer");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_EQ(Instance("My Printer"), nullptr);
  EXPECT_THAT(Errors(), ElementsAre("callback_ServiceBrowse(): Maxnum(2001) of responder reached..."));
  EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): ADD: Now attempting to DNSServiceResolve()..."));
  EXPECT_EQ(gResponderCount, 2001);
}

TEST_F(BrowseReply, AKnownInstanceIsNoneTooManyAtTheLimit) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  gResponderCount = 2001;
  BrowseAdds("My Printer");
  EXPECT_THAT(Errors(), IsEmpty());
  EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): ADD: This service is already added, skip it"));
}

TEST_F(BrowseReply, TheLimitHoldsForAllRulesTogether) {
  const BridgeContext* first = GivenRule("_ipp._tcp", "br0", "br1");
  const BridgeContext* second = GivenRule("_ipp._tcp", "br0", "br2");
  GivenSilence();
  for (int i = 0; i < 2100; ++i) {
    BrowseAdds(("printer " + std::to_string(i)).c_str(), i % 2 == 0 ? first : second);
  }
  EXPECT_EQ(gResponderCount, 2001);
  EXPECT_EQ(HASH_COUNT(first->responder_contexts) + HASH_COUNT(second->responder_contexts), 2001U);
  EXPECT_THAT(Calls("DNSServiceResolve"), SizeIs(2001));
}

TEST_F(BrowseReply, ARefusedInstanceIsForgottenAndJudgedAfresh) {
  GivenRule("_ipp._tcp");
  gResponderCount = 2001;
  BrowseAdds("My Printer");
  Forget();
  BrowseRemoves("My Printer");
  EXPECT_THAT(Traces(), Contains("callback_ServiceBrowse(): REMOVE:  service is already removed. skip"));
  EXPECT_EQ(gResponderCount, 2001);
  gResponderCount = 2000;
  BrowseAdds("My Printer");
  EXPECT_NE(Instance("My Printer"), nullptr);
}

TEST_F(BrowseReply, TheLimitComesFromTheSettings) {
  gSettings.responder_limit = 1;
  GivenRule("_ipp._tcp");
  BrowseAdds("one");
  BrowseAdds("two");
  BrowseAdds("three");
  EXPECT_EQ(gResponderCount, 2);
  EXPECT_THAT(Errors(), ElementsAre("callback_ServiceBrowse(): Maxnum(2) of responder reached..."));
}

// --- Ends of the process ---------------------------------------------------------------------------------------------

TEST_F(BrowseReplyDeathTest, AMissingContextEndsTheProcessOnBothPaths) {
  const std::string message =
      "syslog(4): ERROR 13013016491: callback_ServiceBrowse(): REMOVE: bridge_context_ptr == NULL, unhandled case, "
      "exiting.";
  EXPECT_EXIT(callback_ServiceBrowse(nullptr, kDNSServiceFlagsAdd, 2, 0, "x", "_ipp._tcp.", "local.", nullptr),
              ExitedWithCode(exit_status(600)), says(message));
  EXPECT_EXIT(callback_ServiceBrowse(nullptr, 0, 2, 0, "x", "_ipp._tcp.", "local.", nullptr),
              ExitedWithCode(exit_status(600)), says(message));
}

TEST_F(BrowseReplyDeathTest, ARefusedResolveEndsTheProcess) {
  GivenRule("_ipp._tcp");
  fake_dns_sd::fail_call("DNSServiceResolve", 1, kDNSServiceErr_NoMemory);
  EXPECT_EXIT(
      BrowseAdds("My Printer"), ExitedWithCode(exit_status(600)),
      says("syslog(4): ERROR 1301301638: INTERNAL ERROR:  DNSServiceResolve() call failed: -65539, CRITICAL ERROR, "
           "exiting."));
}

}  // namespace
