// SPDX-License-Identifier: MIT
#include "proxy/call_layer.h"

#include <arpa/inet.h>

#include <array>
#include <functional>

#include "runtime/runtime.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Each wrapper with arguments of its own, on something that the library accepts.
class CallLayer : public ProxyTest {
 protected:
  CallLayer() {
    bridge_.if_from = kBr0;
    bridge_.if_to = kBr1;
  }

  DNSServiceErrorType Browse() {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    return MyDNSServiceBrowse(&ref, 0x4000, 2, "_ipp._tcp", "local", callback_ServiceBrowse, &bridge_);
  }
  DNSServiceErrorType Resolve() {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    return MyDNSServiceResolve(&ref, 0x4000, 2, "My Printer", "_ipp._tcp.", "local.", callback_ServiceResolve,
                               &bridge_);
  }
  DNSServiceErrorType Query() {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    return MyDNSServiceQueryRecord(&ref, 0x4500, 2, "printer.local.", 28, 1, callback_ServiceQueryRecord, &bridge_);
  }
  DNSServiceErrorType Register(const void* txt =
                                   "\x03"
                                   "a=b") {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    return MyDNSServiceRegister(&ref, 0x80004010, 3, "My Printer", "_ipp._tcp", "local", "printer.local.", htons(631),
                                txt != nullptr ? 4 : 0, txt, callback_ServiceRegister, &bridge_);
  }
  DNSServiceErrorType RegisterRecord() {
    return MyDNSServiceRegisterRecord(gDNSServiceRef_RegisterRecord, &record_, 0x08000010, 3, "printer.local.", 1, 1, 4,
                                      address_.data(), 0, callback_ServiceRegisterRecord, nullptr);
  }
  DNSServiceErrorType UpdateRecord() {
    return MyDNSServiceUpdateRecord(gDNSServiceRef_RegisterRecord, record_, 0, 4, address_.data(), 0);
  }
  DNSServiceErrorType RemoveRecord() { return MyDNSServiceRemoveRecord(gDNSServiceRef_RegisterRecord, record_, 0); }

  struct Wrapper {
    const char* wrapped;
    std::function<DNSServiceErrorType()> call;
  };
  // In an order in which each call is a right one.
  std::vector<Wrapper> EveryWrapper() {
    return {{"DNSServiceBrowse", [this] { return Browse(); }},
            {"DNSServiceResolve", [this] { return Resolve(); }},
            {"DNSServiceQueryRecord", [this] { return Query(); }},
            {"DNSServiceRegister", [this] { return Register(); }},
            {"DNSServiceRegisterRecord", [this] { return RegisterRecord(); }},
            {"DNSServiceUpdateRecord", [this] { return UpdateRecord(); }},
            {"DNSServiceRemoveRecord", [this] { return RemoveRecord(); }}};
  }

  BridgeContext bridge_ = {};
  DNSRecordRef record_ = nullptr;
  std::array<std::uint8_t, 4> address_ = {192, 0, 2, 1};
};

TEST_F(CallLayer, PassesArgumentsAndResultThrough) {
  for (const Wrapper& wrapper : EveryWrapper()) {
    EXPECT_EQ(wrapper.call(), kDNSServiceErr_NoError) << wrapper.wrapped;
  }
  EXPECT_THAT(
      Calls(),
      ElementsAre(
          "DNSServiceBrowse on=connection1 flags=0x4000 if=2 regtype=_ipp._tcp domain=local -> browse1",
          "DNSServiceResolve on=connection1 flags=0x4000 if=2 name=My Printer regtype=_ipp._tcp. domain=local. -> "
          "resolve1",
          "DNSServiceQueryRecord on=connection1 flags=0x4500 if=2 name=printer.local. rrtype=28 rrclass=1 -> query1",
          "DNSServiceRegister on=connection1 flags=0x80004010 if=3 name=My Printer regtype=_ipp._tcp domain=local "
          "host=printer.local. port=631 txt=03613d62 -> service1",
          "DNSServiceRegisterRecord on=connection2 flags=0x8000010 if=3 name=printer.local. rrtype=1 rrclass=1 "
          "rdata=c0000201 ttl=0 -> record1",
          "DNSServiceUpdateRecord on=connection2 flags=0x0 record1 rdata=c0000201 ttl=0",
          "DNSServiceRemoveRecord on=connection2 flags=0x0 record1"));
}

TEST_F(CallLayer, GivesEveryOperationItsCallbackAndContext) {
  Browse();
  Resolve();
  Query();
  Register();
  RegisterRecord();
  for (const char* function :
       {"DNSServiceBrowse", "DNSServiceResolve", "DNSServiceQueryRecord", "DNSServiceRegister"}) {
    EXPECT_EQ(LastCall(function).context, &bridge_) << function;
  }
  ForgetMessages();
  fake_dns_sd::deliver(LastCall("DNSServiceBrowse").ref, fake_dns_sd::BrowseReply{});
  fake_dns_sd::deliver(LastCall("DNSServiceResolve").ref, fake_dns_sd::ResolveReply{.error = kDNSServiceErr_Unknown});
  fake_dns_sd::deliver(LastCall("DNSServiceQueryRecord").ref, fake_dns_sd::QueryReply{.error = kDNSServiceErr_Unknown});
  fake_dns_sd::deliver(LastCall("DNSServiceRegister").ref, fake_dns_sd::RegisterReply{});
  fake_dns_sd::deliver_record(record_, 0, kDNSServiceErr_NoError);
  EXPECT_THAT(Traces(), AllOf(Contains(HasSubstr("callback_ServiceBrowse(): START")),
                              Contains(HasSubstr("callback_ServiceResolve(): START")),
                              Contains(HasSubstr("callback_ServiceRegister(): START")),
                              Contains(HasSubstr("callback_ServiceRegisterRecord(): START"))));
}

TEST_F(CallLayer, TracesEachCallBeforeItIsMade) {
  for (const Wrapper& wrapper : EveryWrapper()) {
    const std::vector<std::size_t>& calls_at_traces = WatchCallsAt("");
    const std::size_t before = fake_dns_sd::calls().size();
    wrapper.call();
    EXPECT_THAT(calls_at_traces, ElementsAre(before)) << wrapper.wrapped;
  }
}

TEST_F(CallLayer, TracesTheArgumentsOfEachCallAndNothingElse) {
  for (const Wrapper& wrapper : EveryWrapper()) {
    wrapper.call();
  }
  EXPECT_THAT(
      Traces(),
      ElementsAre(
          "\nMyDNSServiceBrowse(): START: flags = 16384, interfaceIndex = 2, regtype = _ipp._tcp, domain = local, "
          "(BridgeContext*)context->if_from = 2, ->if_to = 3 ...",
          "\nMyDNSServiceResolve(): START: flags = 16384, interfaceIndex = 2, name = My Printer, regtype = _ipp._tcp., "
          "domain = local....",
          "\nMyDNSServiceQueryRecord(): START: flags = 17664, interfaceIndex = 2, name = printer.local., rrtype = 28, "
          "rrclass = 1...",
          printed("\nMyDNSServiceRegister(): START: flags = 80004010, interfaceIndex = 3, name = My Printer, regtype = "
                  "_ipp._tcp, "
                  "domain = local, host = printer.local., port = %d, txtLen = 4, txtRecord = \x03"
                  "a=b",
                  htons(631)),
          "\nMyDNSServiceRegisterRecord(): START: flags = 8000010, interfaceIndex = 3, fullname = printer.local., "
          "rrtype = 1, "
          "rrclass = 1, rdlen = 4, ttl = 0",
          "MyDNSServiceUpdateRecord():flags = 0 ,rdlen = 4\n", "\nMyDNSServiceRemoveRecord(): START: flags = 0"));
  EXPECT_THAT(Warnings(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CallLayer, ReturnsTheLibrarysErrorAndLogsNothingForIt) {
  for (const Wrapper& wrapper : EveryWrapper()) {
    wrapper.call();
  }
  const std::vector<std::string> traces = Traces();
  RegisterRecord();
  ForgetMessages();
  for (const Wrapper& wrapper : EveryWrapper()) {
    fake_dns_sd::fail_call(wrapper.wrapped, 1, kDNSServiceErr_Refused);
    EXPECT_EQ(wrapper.call(), kDNSServiceErr_Refused) << wrapper.wrapped;
  }
  EXPECT_EQ(Traces(), traces);
  EXPECT_THAT(Warnings(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
  RemoveRecord();
}

TEST_F(CallLayer, TracesTxtDataUpToItsFirstZeroByte) {
  Register(
      "\x03"
      "a\0b");
  EXPECT_THAT(Traces(), Contains(testing::EndsWith("txtLen = 4, txtRecord = \x03"
                                                   "a")));
  EXPECT_EQ(LastCall("DNSServiceRegister").data, (std::vector<std::uint8_t>{3, 'a', 0, 'b'}));
}

TEST_F(CallLayer, TracesAMissingTxtRecord) {
  Register(nullptr);
  EXPECT_THAT(Traces(), Contains(testing::EndsWith("txtLen = 0, txtRecord = (null)")));
}

TEST_F(CallLayer, WritesTracesToTheDebugStreamOnlyAboveLevelFour) {
  switch_to_debug_mode();
  gLogLevel = 4;
  for (const Wrapper& wrapper : EveryWrapper()) {
    wrapper.call();
  }
  EXPECT_EQ(directory().read("debug"), "");
  gLogLevel = 5;
  MyDNSServiceUpdateRecord(gDNSServiceRef_RegisterRecord, nullptr, 0, 4, address_.data(), 0);
  EXPECT_THAT(directory().read("debug"),
              testing::MatchesRegex("mdnsproxy\\.c:[0-9]+:MyDNSServiceUpdateRecord\\(\\):flags = 0 ,rdlen = 4\n\n"));
  EXPECT_EQ(fake_dns_sd::misuses().size(), 1U) << "there is no null record";
  fake_dns_sd::reset();
}

}  // namespace
