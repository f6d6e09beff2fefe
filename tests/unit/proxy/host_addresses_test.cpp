// SPDX-License-Identifier: MIT
#include "proxy/host_addresses.h"

#include "runtime/runtime.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::SizeIs;

const void* Pointer(const void* pointer) { return pointer; }

// An instance whose queries are running.
class AddressAnswer : public ProxyTest {
 protected:
  AddressAnswer() {
    GivenResolvedInstance();
    Forget();
  }

  void Forget() {
    MarkCalls();
    ForgetMessages();
  }
  std::vector<std::uint8_t> HeldV4() const {
    const std::uint8_t* held = Instance()->Addr_query_context->addr_v4;
    return {held, held + 4};
  }
  std::vector<std::uint8_t> HeldV6() const {
    const std::uint8_t* held = Instance()->Addr_query_context->addr_v6;
    return {held, held + 16};
  }
};

using AddressAnswerDeathTest = AddressAnswer;

constexpr const char* kRegisterA =
    "DNSServiceRegisterRecord on=connection2 flags=0x10 if=3 name=printer.local. rrtype=1 rrclass=1 rdata=c0000201 "
    "ttl=0 -> "
    "record1";
constexpr const char* kRegisterService =
    "DNSServiceRegister on=connection1 flags=0x4010 if=3 name=My Printer regtype=_ipp._tcp domain=local "
    "host=printer.local. "
    "port=631 txt=0d76656e6465723d5a656e6d6f7209747874766572733d31 -> service1";

// --- IPv4 ------------------------------------------------------------------------------------------------------------

TEST_F(AddressAnswer, TheFirstAddressRegistersTheRecordAndThenTheInstance) {
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Calls(), ElementsAre(kRegisterA, kRegisterService));
  EXPECT_EQ(Instance()->dns_record_ptr, LastCall("DNSServiceRegisterRecord").record);
  EXPECT_STREQ(static_cast<const char*>(LastCall("DNSServiceRegisterRecord").context), "My Printer.local");
  EXPECT_EQ(HeldV4(), address_bytes("192.0.2.1"));
}

TEST_F(AddressAnswer, AnIpv4AnswerIsTraced) {
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Traces(),
              AllOf(Contains(around_line(
                        "-----callback_ServiceQueryRecord-----",
                        printed("----process_queryrecord_hostaddr: %p--", Pointer(Instance()->query_addrv4_ref)))),
                    Contains(printed(
                        "\nprocess_queryrecord_hostaddr(): START: sdref = %p, flags = 2, ifIndex = 2, errorCode = 0, "
                        "fullname = printer.local., rrtype = 1, rrclass = 1, rdlen = 4, ttl = 120 ...",
                        Pointer(Instance()->query_addrv4_ref))),
                    Contains(around_line("&&&&&&&&&process_queryrecord_hostaddr-----",
                                         "----interface_index = 2---result->IfIndex = 2--")),
                    Contains(around_line("-----process_queryrecord_hostaddr-----", "---first query---"))));
  std::vector<std::string> addresses = Traces();
  std::erase_if(addresses, [](const std::string& trace) { return !trace.starts_with("\nthe "); });
  EXPECT_THAT(addresses,
              ElementsAre("\nthe query ipv4 string ():  192.0.2.1", "\nthe the old ipv4 string ():  0.0.0.0"));
}

TEST_F(AddressAnswer, ADifferentAddressUpdatesTheRecord) {
  AddressAnswers("192.0.2.1");
  Forget();
  AddressAnswers("192.0.2.2");
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceUpdateRecord on=connection2 flags=0x0 record1 rdata=c0000202 ttl=0"));
  EXPECT_EQ(HeldV4(), address_bytes("192.0.2.2"));
  EXPECT_THAT(
      Traces(),
      AllOf(Contains("\nthe the old ipv4 string ():  192.0.2.1"),
            Contains(around_line("MyDNSServiceUpdateRecord########process_queryrecord_hostaddr#############",
                                 printed("----service_context = %p----service_context->dns_record_ptr = %p---sa_addr= "
                                         "20200c0---",
                                         Pointer(Instance()), Pointer(Instance()->dns_record_ptr))))));
}

TEST_F(AddressAnswer, ARepeatedIpv4AddressDoesNothing) {
  AddressAnswers("192.0.2.1");
  Forget();
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(AddressAnswer, LinkLocalIpv4AddressesAreLoggedAndIgnored) {
  AddressAnswers("169.254.0.0");
  AddressAnswers("169.254.7.9");
  AddressAnswers("169.254.255.255");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_EQ(HeldV4(), address_bytes("0.0.0.0"));
  EXPECT_THAT(
      Traces(),
      Contains(around_line("-----process_queryrecord_hostaddr-----", "---ignore the link local addr---")).Times(3));
}

TEST_F(AddressAnswer, NeighboursOfTheLinkLocalRangeAreUsed) {
  AddressAnswers("169.253.0.1");
  EXPECT_EQ(HeldV4(), address_bytes("169.253.0.1"));
  AddressAnswers("169.255.0.1");
  EXPECT_EQ(HeldV4(), address_bytes("169.255.0.1"));
  AddressAnswers("168.254.0.1");
  EXPECT_EQ(HeldV4(), address_bytes("168.254.0.1"));
}

TEST_F(AddressAnswer, ALinkLocalAddressDoesNotReplaceAHeldOne) {
  AddressAnswers("192.0.2.1");
  Forget();
  AddressAnswers("169.254.7.9");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_EQ(HeldV4(), address_bytes("192.0.2.1"));
}

TEST_F(AddressAnswer, AZeroFirstAddressRegistersNothing) {
  AddressAnswers("0.0.0.0");
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(AddressAnswer, AfterAZeroAddressTheNextOneIsAFirstOneAgain) {
  AddressAnswers("192.0.2.1");
  AddressAnswers("0.0.0.0");
  EXPECT_EQ(HeldV4(), address_bytes("0.0.0.0"));
  Forget();
  AddressAnswers("192.0.2.2");
  EXPECT_THAT(Calls(),
              ElementsAre("DNSServiceRegisterRecord on=connection2 flags=0x10 if=3 name=printer.local. rrtype=1 "
                          "rrclass=1 rdata=c0000202 ttl=0 -> record2"));
  EXPECT_EQ(Instance()->dns_record_ptr, LastCall("DNSServiceRegisterRecord").record);
}

TEST_F(AddressAnswer, ARefusedARecordIsReportedAndTriedAgain) {
  fake_dns_sd::fail_call("DNSServiceRegisterRecord", 1, kDNSServiceErr_BadParam);
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Warnings(), ElementsAre("callback_ServiceRegisterRecord(): FAIL: "
                                      "MyDNSServiceRegisterRecord(sdref_registerrecord) call failed: -65540"));
  EXPECT_THAT(Calls("DNSServiceRegister"), IsEmpty());
  EXPECT_EQ(Instance()->dns_record_ptr, nullptr);
  EXPECT_EQ(HeldV4(), address_bytes("0.0.0.0"));
  AddressAnswers("192.0.2.1");
  EXPECT_NE(Instance()->dns_record_ptr, nullptr);
  EXPECT_THAT(Calls("DNSServiceRegister"), SizeIs(1));
}

TEST_F(AddressAnswer, ARefusedIpv4UpdateIsReportedAndTriedAgain) {
  AddressAnswers("192.0.2.1");
  fake_dns_sd::fail_call("DNSServiceUpdateRecord", 1, kDNSServiceErr_BadReference);
  AddressAnswers("192.0.2.2");
  EXPECT_THAT(Warnings(),
              ElementsAre("MyDNSServiceUpdateRecord(): FAIL: MyDNSServiceUpdateRecord  call failed: -65541"));
  EXPECT_EQ(HeldV4(), address_bytes("192.0.2.1"));
  AddressAnswers("192.0.2.2");
  EXPECT_THAT(Calls("DNSServiceUpdateRecord"), SizeIs(2));
  EXPECT_EQ(HeldV4(), address_bytes("192.0.2.2"));
}

// --- IPv6 ------------------------------------------------------------------------------------------------------------

TEST_F(AddressAnswer, AFirstIpv6AddressRegistersTheRecordAndThenTheInstance) {
  AddressAnswers("2001:db8::1");
  EXPECT_THAT(Calls(),
              ElementsAre("DNSServiceRegisterRecord on=connection2 flags=0x10 if=3 name=printer.local. rrtype=28 "
                          "rrclass=1 rdata=20010db8000000000000000000000001 ttl=0 -> record1",
                          kRegisterService));
  EXPECT_EQ(Instance()->dns_recordv6_ptr, LastCall("DNSServiceRegisterRecord").record);
  EXPECT_STREQ(static_cast<const char*>(LastCall("DNSServiceRegisterRecord").context), "My Printer.local");
  EXPECT_EQ(HeldV6(), address_bytes("2001:db8::1"));
  EXPECT_THAT(Traces(), Contains("\nget the ipv6 address 2001:db8::1"));
}

TEST_F(AddressAnswer, TheInstanceIsRegisteredOnce) {
  AddressAnswers("192.0.2.1");
  AddressAnswers("2001:db8::1");
  AddressAnswers("192.0.2.2");
  AddressAnswers("2001:db8::2");
  AddressAnswers("2001:db8::2");
  EXPECT_THAT(Calls("DNSServiceRegister"), SizeIs(1));
}

TEST_F(AddressAnswer, ADifferentIpv6AddressUpdatesTheRecord) {
  AddressAnswers("2001:db8::1");
  Forget();
  AddressAnswers("2001:db8::2");
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceUpdateRecord on=connection2 flags=0x0 record1 "
                                   "rdata=20010db8000000000000000000000002 ttl=0"));
  EXPECT_EQ(HeldV6(), address_bytes("2001:db8::2"));
  EXPECT_THAT(Traces(),
              Contains(around_line("-----process_queryrecord_hostaddr-----", "---the IPV6 address changed---")));
}

TEST_F(AddressAnswer, ARepeatedIpv6AddressIsRegisteredOnceMore) {
  AddressAnswers("2001:db8::1");
  Forget();
  AddressAnswers("2001:db8::1");
  EXPECT_THAT(Calls(),
              ElementsAre("DNSServiceRegisterRecord on=connection2 flags=0x10 if=3 name=printer.local. rrtype=28 "
                          "rrclass=1 rdata=20010db8000000000000000000000001 ttl=0 -> record2"));
  EXPECT_EQ(Instance()->dns_recordv6_ptr, LastCall("DNSServiceRegisterRecord").record);
}

TEST_F(AddressAnswer, AZeroIpv6AddressIsRegisteredLikeAnyOther) {
  AddressAnswers("::");
  EXPECT_THAT(Calls("DNSServiceRegisterRecord"), SizeIs(1));
  AddressAnswers("2001:db8::1");
  EXPECT_THAT(Calls("DNSServiceRegisterRecord"), SizeIs(2)) << "none was held";
  AddressAnswers("::");
  EXPECT_THAT(Calls("DNSServiceRegisterRecord"), SizeIs(3)) << "no update to a zero address";
  EXPECT_THAT(Calls("DNSServiceUpdateRecord"), IsEmpty());
}

TEST_F(AddressAnswer, LinkLocalIpv6AddressesAreIgnoredSilently) {
  AddressAnswers("fe80::1");
  AddressAnswers("febf::1");
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_EQ(HeldV6(), address_bytes("::"));
  EXPECT_EQ(Traces().back(), "\nget the ipv6 address febf::1");
}

TEST_F(AddressAnswer, NeighboursOfTheIpv6LinkLocalRangeAreUsed) {
  for (const char* address : {"fec0::1", "fe7f::1", "ff80::1", "fd80::1"}) {
    AddressAnswers(address);
    EXPECT_EQ(HeldV6(), address_bytes(address));
  }
}

TEST_F(AddressAnswerDeathTest, ARefusedAaaaRecordEndsTheProcess) {
  fake_dns_sd::fail_call("DNSServiceRegisterRecord", 1, kDNSServiceErr_BadParam);
  EXPECT_EXIT(
      AddressAnswers("2001:db8::1"), ExitedWithCode(exit_status(600)),
      says("syslog(4): callback_ServiceRegisterRecord(): FAIL: MyDNSServiceRegisterRecord(sdref_registerrecord) call "
           "failed: -65540\n"));
}

TEST_F(AddressAnswer, ARefusedIpv6UpdateIsReportedAndTriedAgain) {
  AddressAnswers("2001:db8::1");
  fake_dns_sd::fail_call("DNSServiceUpdateRecord", 1, kDNSServiceErr_BadReference);
  AddressAnswers("2001:db8::2");
  EXPECT_THAT(Warnings(),
              ElementsAre("MyDNSServiceUpdateRecord(): FAIL: MyDNSServiceUpdateRecord call failed: -65541"));
  EXPECT_EQ(HeldV6(), address_bytes("2001:db8::1"));
  AddressAnswers("2001:db8::2");
  EXPECT_EQ(HeldV6(), address_bytes("2001:db8::2"));
}

// --- Both ------------------------------------------------------------------------------------------------------------

TEST_F(AddressAnswer, ErrorCodeAndRemovalAreNotLookedAt) {
  const std::vector<std::uint8_t> address = address_bytes("192.0.2.1");
  fake_dns_sd::deliver(Instance()->query_addrv4_ref, fake_dns_sd::QueryReply{.flags = 0,
                                                                             .error = kDNSServiceErr_Unknown,
                                                                             .rrtype = kDNSServiceType_A,
                                                                             .rdlen = 4,
                                                                             .rdata = address.data()});
  EXPECT_THAT(Calls(), ElementsAre(kRegisterA, kRegisterService));
}

TEST_F(AddressAnswer, OfAnotherTypeIsDropped) {
  for (const std::uint16_t rrtype : std::initializer_list<std::uint16_t>{0, 2, 5, 13, 16, 27, 29, 33, 255}) {
    fake_dns_sd::deliver(Instance()->query_addrv4_ref,
                         fake_dns_sd::QueryReply{.rrtype = rrtype, .rdlen = 4, .rdata = "\xc0\x00\x02\x01"});
  }
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Traces(), IsEmpty());
}

TEST_F(AddressAnswer, WithTooFewBytesIsLoggedAndIgnored) {
  QueryAnswers(kDNSServiceType_A, {192, 0, 2});
  QueryAnswers(kDNSServiceType_AAAA, std::vector<std::uint8_t>(15, 0x20));
  fake_dns_sd::deliver(Instance()->query_addrv4_ref,
                       fake_dns_sd::QueryReply{.rrtype = kDNSServiceType_A, .rdlen = 4, .rdata = nullptr});
  EXPECT_THAT(Calls(), IsEmpty());
  for (const char* length : {"3", "15", "0"}) {
    EXPECT_THAT(Traces(), Contains(around_line("-----process_queryrecord_hostaddr-----",
                                               printed("---ignore %s bytes that are no address---", length))));
  }
  EXPECT_EQ(HeldV4(), address_bytes("0.0.0.0"));
}

TEST_F(AddressAnswer, MoreBytesThanAnAddressAreLeftAside) {
  QueryAnswers(kDNSServiceType_A, {192, 0, 2, 1, 99});
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").data, address_bytes("192.0.2.1"));
}

TEST_F(AddressAnswer, ForAnInstanceThatIsNotKnownIsReported) {
  Addr_query_context lost = {};
  lost.bridge_context_ptr = Rule();
  std::snprintf(lost.service_name, sizeof lost.service_name, "Lost");
  callback_ServiceQueryRecord(nullptr, kDNSServiceFlagsAdd, 2, 0, "printer.local.", 1, 1, 4, "\xc0\x00\x02\x01", 120,
                              &lost);
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Warnings(), ElementsAre(around_line("--process_queryrecord_hostaddr---",
                                                  "--- FAIL to find service context for  Lost")));
}

TEST_F(AddressAnswer, TheLabelOfALongNameIsCutTo511Characters) {
  const std::string name(1008, 'n');
  BrowseAdds(name.c_str());
  Resolves((name + "._ipp._tcp.local.").c_str());
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(static_cast<const char*>(LastCall("DNSServiceRegisterRecord").context), name.substr(0, 511));
}

TEST_F(AddressAnswer, AHostTargetIsKeptUpTo511Characters) {
  const std::string host = std::string(600, 'h') + ".local.";
  BrowseAdds("Other");
  Resolves("Other._ipp._tcp.local.", host.c_str());
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(LastCall("DNSServiceQueryRecord").name, host.substr(0, 511));
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").name, host.substr(0, 511));
  EXPECT_EQ(LastCall("DNSServiceRegister").host, host.substr(0, 511));
}

TEST_F(AddressAnswer, OneHostUnderTwoServicesIsRegisteredForEach) {
  AddressAnswers("192.0.2.1");
  BrowseAdds("Other");
  Resolves("Other._ipp._tcp.local.");
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Calls("DNSServiceRegisterRecord"), SizeIs(2));
  BrowseRemoves("Other");
  EXPECT_THAT(Calls("DNSServiceRemoveRecord"), SizeIs(1));
  EXPECT_EQ(fake_dns_sd::live_records(), 1U);
}

TEST(LinkLocal, Ipv4) {
  const auto link_local = [](const char* text) {
    const std::vector<std::uint8_t> bytes = address_bytes(text);
    return is_ipv4_link_local(Ipv4Bytes(bytes.data(), 4));
  };
  EXPECT_TRUE(link_local("169.254.0.0"));
  EXPECT_TRUE(link_local("169.254.255.255"));
  EXPECT_FALSE(link_local("169.253.255.255"));
  EXPECT_FALSE(link_local("169.255.0.0"));
  EXPECT_FALSE(link_local("170.254.0.1"));
}

TEST(LinkLocal, Ipv6) {
  const auto link_local = [](const char* text) {
    const std::vector<std::uint8_t> bytes = address_bytes(text);
    return is_ipv6_link_local(Ipv6Bytes(bytes.data(), 16));
  };
  EXPECT_TRUE(link_local("fe80::"));
  EXPECT_TRUE(link_local("febf:ffff::1"));
  EXPECT_FALSE(link_local("fe7f::1"));
  EXPECT_FALSE(link_local("fec0::1"));
  EXPECT_FALSE(link_local("fd80::1"));
}

}  // namespace
