// SPDX-License-Identifier: MIT
#include "proxy/proxy.h"
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
using testing::StartsWith;

// An instance "My Printer" whose subtype query is running.
class SubtypeAnswer : public ProxyTest {
 protected:
  SubtypeAnswer() {
    GivenRule("_universal._ipp._tcp");
    BrowseAdds("My Printer");
    Resolves("My\\032Printer._ipp._tcp.local.");
    Forget();
  }

  void Forget() {
    MarkCalls();
    ForgetMessages();
  }
  void ExpectQueryGoesOn() {
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_TRUE(fake_dns_sd::is_live(Instance()->query_subtype_ref));
    EXPECT_NE(Instance()->subtype_query_context, nullptr);
    EXPECT_EQ(Instance()->subtype_record_ptr, nullptr);
  }

  const std::vector<std::uint8_t> kMyPrinter = wire_name({"My Printer", "_ipp", "_tcp", "local"});
};

using SubtypeAnswerDeathTest = SubtypeAnswer;

TEST_F(SubtypeAnswer, ThatNamesTheInstanceIsRegisteredAndEndsTheQuery) {
  const ZmkUsage before = zmk_usage();
  SubtypeAnswers(kMyPrinter);
  EXPECT_THAT(
      Calls(),
      ElementsAre("DNSServiceRegisterRecord on=connection2 flags=0x10 if=3 name=_universal._sub._ipp._tcp.local. "
                  "rrtype=12 rrclass=1 rdata=0a4d79205072696e746572045f697070045f746370056c6f63616c00 ttl=0 -> "
                  "record1",
                  "DNSServiceRefDeallocate query3"));
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").data, kMyPrinter);
  EXPECT_EQ(Instance()->subtype_record_ptr, LastCall("DNSServiceRegisterRecord").record);
  EXPECT_EQ(Instance()->query_subtype_ref, nullptr);
  EXPECT_EQ(Instance()->subtype_query_context, nullptr);
  EXPECT_EQ(zmk_usage().blocks, before.blocks - 1);
}

TEST_F(SubtypeAnswer, IsTraced) {
  const void* query = Instance()->query_subtype_ref;
  SubtypeAnswers(kMyPrinter);
  EXPECT_THAT(
      Traces(),
      AllOf(Contains(around_line("-----callback_ServiceQueryRecord-----",
                                 printed("----process_queryrecord_PTR: %p--", query))),
            Contains(printed(
                "\nprocess_queryrecord_PTR(): START: sdref = %p, flags = 2, ifIndex = 2, errorCode = 0, fullname = "
                "printer.local., rrtype = 12, rrclass = 1, rdlen = 28, ttl = 120 ...",
                query)),
            Contains("process_queryrecord_PTR(): +++++++++hostname = My Printer++++++++"),
            Contains(around_line("process_queryrecord_PTR,",
                                 ",register PTR record,service type:_universal._sub._ipp._tcp.local., service name:My "
                                 "Printer._ipp._tcp.local.")),
            Contains(printed("process_queryrecord_PTR(): calling DNSServiceRefDeallocate(sdref = %p)...", query))));
}

TEST_F(SubtypeAnswer, SaysThatTheQueryEndsBeforeItDoes) {
  const std::size_t first = fake_dns_sd::calls().size();
  const std::vector<std::size_t>& calls = WatchCallsAt("process_queryrecord_PTR(): calling DNSServiceRefDeallocate");
  SubtypeAnswers(kMyPrinter);
  EXPECT_THAT(calls, ElementsAre(first + 1)) << "after the registration";
}

TEST_F(SubtypeAnswer, ARefusalIsReportedOnceTheQueryHasEnded) {
  const std::size_t first = fake_dns_sd::calls().size();
  const std::vector<std::size_t>& calls = WatchCallsAt("callback_ServiceRegisterRecord(): FAIL");
  fake_dns_sd::fail_call("DNSServiceRegisterRecord", 1, kDNSServiceErr_BadParam);
  SubtypeAnswers(kMyPrinter);
  EXPECT_THAT(calls, ElementsAre(first + 2)) << "the registration and the end of the query";
}

TEST_F(SubtypeAnswer, ForAnotherKnownInstanceIsIgnored) {
  BrowseAdds("Other");
  BrowseAdds("My Printer");  // known already; the words of the test are about it again
  Forget();
  SubtypeAnswers(wire_name({"Other", "_ipp", "_tcp", "local"}));
  ExpectQueryGoesOn();
  EXPECT_THAT(Traces(), Contains(around_line(
                            "process_queryrecord_PTR,",
                            ",don't register PTR record because of different service name:Other._ipp._tcp.local. "
                            "vs My Printer._ipp._tcp.local.")));
  EXPECT_THAT(Warnings(), IsEmpty());
  SubtypeAnswers(kMyPrinter);
  EXPECT_NE(Instance()->subtype_record_ptr, nullptr);
}

TEST_F(SubtypeAnswer, ForAnUnknownInstanceIsReportedInTheWordsOfTheResolve) {
  SubtypeAnswers(wire_name({"Other", "_ipp", "_tcp", "local"}));
  ExpectQueryGoesOn();
  EXPECT_THAT(Warnings(), ElementsAre("callback_ServiceResolve(): FAIL to find service context for  Other"));
}

// The label is unescaped before the look-up, the whole name is compared as it came.
TEST_F(SubtypeAnswer, OfAnEscapedLabelFindsTheInstanceButIsNotItsName) {
  SubtypeAnswers(wire_name({"My\\032Printer", "_ipp", "_tcp", "local"}));
  ExpectQueryGoesOn();
  EXPECT_THAT(Warnings(), IsEmpty());
  EXPECT_THAT(Traces(), AllOf(Contains("process_queryrecord_PTR(): +++++++++hostname = My Printer++++++++"),
                              Contains(around_line("process_queryrecord_PTR,",
                                                   ",don't register PTR record because of different service name:"
                                                   "My\\032Printer._ipp._tcp.local. vs My Printer._ipp._tcp.local."))));
}

TEST_F(SubtypeAnswer, OfANameWithABackslashFindsNoInstance) {
  BrowseAdds("a\\b");
  Resolves("a\\\\b._ipp._tcp.local.");
  Forget();
  SubtypeAnswers(wire_name({"a\\b", "_ipp", "_tcp", "local"}));
  EXPECT_THAT(Calls(), IsEmpty()) << "its label goes through the unescaping once too often";
}

TEST_F(SubtypeAnswer, IsComparedExactly) {
  SubtypeAnswers(wire_name({"My Printer", "_IPP", "_tcp", "local"}));
  SubtypeAnswers(wire_name({"My Printer", "_ipp", "_tcp", "local", "x"}));
  SubtypeAnswers(wire_name({"My Printer", "_ipp", "_tcp"}));
  ExpectQueryGoesOn();
}

TEST_F(SubtypeAnswer, WithoutDataIsReported) {
  fake_dns_sd::deliver(Instance()->query_subtype_ref,
                       fake_dns_sd::QueryReply{.rrtype = kDNSServiceType_PTR, .rdlen = 10, .rdata = nullptr});
  ExpectQueryGoesOn();
  EXPECT_THAT(Warnings(), ElementsAre("process_queryrecord_PTR(): rdata is NULL"));
}

TEST_F(SubtypeAnswer, ErrorCodeAndRemovalAreNotLookedAt) {
  fake_dns_sd::deliver(Instance()->query_subtype_ref,
                       fake_dns_sd::QueryReply{.flags = 0,
                                               .error = kDNSServiceErr_Unknown,
                                               .rrtype = kDNSServiceType_PTR,
                                               .rdlen = static_cast<std::uint16_t>(kMyPrinter.size()),
                                               .rdata = kMyPrinter.data()});
  EXPECT_NE(Instance()->subtype_record_ptr, nullptr);
}

TEST_F(SubtypeAnswer, AnInstanceNameMayHoldADot) {
  BrowseAdds("a.b");
  Resolves("a\\.b._ipp._tcp.local.");
  SubtypeAnswers(wire_name({"a.b", "_ipp", "_tcp", "local"}));
  EXPECT_NE(Instance("a.b")->subtype_record_ptr, nullptr);
}

// "a" and "b" as two labels read like "a.b" as one; the record must not become that of "a", nor the context of "a.b" be
// lost.
TEST_F(SubtypeAnswer, ATextThatIsEqualByChanceIsAnotherInstance) {
  BrowseAdds("a");
  Resolves("a._ipp._tcp.local.");
  BrowseAdds("a.b");
  Resolves("a\\.b._ipp._tcp.local.");
  Forget();
  SubtypeAnswers(wire_name({"a", "b", "_ipp", "_tcp", "local"}));
  ExpectQueryGoesOn();
  EXPECT_NE(Instance("a")->query_subtype_ref, nullptr);
  EXPECT_NE(Instance("a")->subtype_query_context, nullptr);
}

TEST_F(SubtypeAnswer, ThatIsNoWholeNameIsIgnored) {
  std::vector<std::uint8_t> cut = kMyPrinter;
  cut.pop_back();
  SubtypeAnswers(cut);                                         // no terminating zero
  SubtypeAnswers({10, 'M', 'y'});                              // a label beyond the data
  SubtypeAnswers({0xC0, 0x0C});                                // a compression pointer
  SubtypeAnswers(wire_name({std::string(200, 'x'), "_ipp"}));  // a label of more than 63 bytes
  SubtypeAnswers({0});                                         // the root
  SubtypeAnswers({});
  ExpectQueryGoesOn();
}

TEST_F(SubtypeAnswer, ANameOf63BytesIsTaken) {
  const std::string name(63, 'n');
  BrowseAdds(name.c_str());
  Resolves((name + "._ipp._tcp.local.").c_str());
  SubtypeAnswers(wire_name({name, "_ipp", "_tcp", "local"}));
  EXPECT_NE(Instance()->subtype_record_ptr, nullptr);
}

TEST_F(SubtypeAnswer, DataBehindTheNameIsPassedOnAsItCame) {
  std::vector<std::uint8_t> longer = kMyPrinter;
  longer.resize(3000, 0xAB);
  SubtypeAnswers(longer);
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").data, longer);
}

TEST_F(SubtypeAnswer, ALongListOfLabelsIsReadWithinBounds) {
  std::vector<std::string> labels(20000, "x");
  labels[0] = "My Printer";
  SubtypeAnswers(wire_name(labels));
  ExpectQueryGoesOn();
  EXPECT_THAT(Traces(), Contains(around_line("process_queryrecord_PTR,",
                                             ",don't register PTR record because of different service name: vs "
                                             "My Printer._ipp._tcp.local.")))
      << "no whole name within the bound";
}

TEST_F(SubtypeAnswer, ARefusedRecordEndsTheQueryAndReleasesItsContext) {
  const ZmkUsage before = zmk_usage();
  fake_dns_sd::fail_call("DNSServiceRegisterRecord", 1, kDNSServiceErr_BadParam);
  SubtypeAnswers(kMyPrinter);
  EXPECT_THAT(Warnings(), ElementsAre("callback_ServiceRegisterRecord(): FAIL: "
                                      "MyDNSServiceRegisterRecord(sdref_registerrecord) call failed: -65540"));
  EXPECT_THAT(Calls(), ElementsAre(StartsWith("DNSServiceRegisterRecord"), "DNSServiceRefDeallocate query3"));
  EXPECT_EQ(Instance()->query_subtype_ref, nullptr);
  EXPECT_EQ(Instance()->subtype_query_context, nullptr);
  EXPECT_EQ(Instance()->subtype_record_ptr, nullptr);
  EXPECT_EQ(zmk_usage().blocks, before.blocks - 1);
  AddressAnswers("192.0.2.1");
  EXPECT_NE(Instance()->reg_service_ref, nullptr) << "the addresses go on";
}

TEST_F(SubtypeAnswer, TheRecordGoesWithItsInstance) {
  SubtypeAnswers(kMyPrinter);
  AddressAnswers("192.0.2.1");
  Forget();
  BrowseRemoves("My Printer");
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRemoveRecord on=connection2 flags=0x0 record2",  // A
                                   "DNSServiceRemoveRecord on=connection2 flags=0x0 record1",  // subtype
                                   "DNSServiceRefDeallocate query1", "DNSServiceRefDeallocate query2",
                                   "DNSServiceRefDeallocate service1"));
  EXPECT_EQ(fake_dns_sd::live_records(), 0U);
}

TEST_F(SubtypeAnswer, TheReplyToTheRecordCarriesTheQueryName) {
  SubtypeAnswers(kMyPrinter);
  const DNSRecordRef record = Instance()->subtype_record_ptr;
  fake_dns_sd::deliver_record(record, kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  EXPECT_THAT(Traces(),
              Contains("callback_ServiceRegisterRecord(): Got a reply for record _universal._sub._ipp._tcp.local.: "));
  BrowseRemoves("My Printer");
  ForgetMessages();
  fake_dns_sd::deliver_record(record, kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  EXPECT_THAT(Traces(),
              Contains("callback_ServiceRegisterRecord(): Got a reply for record _universal._sub._ipp._tcp.local.: "));
}

// More records come and go, or are refused, than there are labels.
TEST_F(SubtypeAnswer, TheLabelOfARecordIsNotTakenByOthersThatComeAndGo) {
  SubtypeAnswers(kMyPrinter);
  const char* label = static_cast<const char*>(LastCall("DNSServiceRegisterRecord").context);
  GivenRule("_color._ipp._tcp", "br0", "br2");
  GivenSilence();
  for (int i = 0; i < 10000; ++i) {
    if (i % 2 != 0) {
      fake_dns_sd::fail_call("DNSServiceRegisterRecord", 1, kDNSServiceErr_BadParam);
    }
    BrowseAdds("Other");
    Resolves("Other._ipp._tcp.local.");
    SubtypeAnswers(wire_name({"Other", "_ipp", "_tcp", "local"}));
    BrowseRemoves("Other");
  }
  EXPECT_STREQ(label, "_universal._sub._ipp._tcp.local.");
}

TEST_F(SubtypeAnswerDeathTest, AConflictOverTheRecordEndsTheProcess) {
  SubtypeAnswers(kMyPrinter);
  EXPECT_EXIT(
      fake_dns_sd::deliver_record(Instance()->subtype_record_ptr, 0, kDNSServiceErr_NameConflict),
      ExitedWithCode(exit_status(600)),
      says("syslog(4): ERROR: 1301171622: callback_ServiceRegisterRecord(): Name in use, please choose another: name = "
           "_universal._sub._ipp._tcp.local., errorCode = -65548\n"));
}

TEST_F(SubtypeAnswer, TheRecordBearsNoFencingFlag) {
  SubtypeAnswers(kMyPrinter);
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").flags, 0x10U);
}

}  // namespace
