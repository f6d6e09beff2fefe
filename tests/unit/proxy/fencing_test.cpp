// SPDX-License-Identifier: MIT
#include <filesystem>
#include <string>

#include "fakes/fake_zmk.h"
#include "platform/platform.h"
#include "unit/proxy/proxy_test.h"

namespace {

// The MAC address of br0; "": there is no br0.
std::string gBr0Mac;

}  // namespace

// Takes the place of vcms_if_getMacAddress (the linker's --wrap, by its C++ name).
extern "C" int __wrap__Z21vcms_if_getMacAddressPKcPc(const char* if_name, char* text);
extern "C" int __wrap__Z21vcms_if_getMacAddressPKcPc(const char* if_name, char* text) {
  if (std::string_view(if_name) != "br0" || gBr0Mac.empty()) {
    return -1;
  }
  gBr0Mac.copy(text, kMacAddressTextSize - 1);
  return 0;
}

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;

constexpr const char* kAnchor = "02:00:00:00:00:01";
constexpr const char* kOther = "02:00:00:00:00:02";

class Fencing : public ProxyTest {
 protected:
  Fencing() : path_(directory().path_of("mdnsproxy.conf")), real_path_(gVcmSettingsFile) {
    gVcmSettingsFile = path_.c_str();
    gBr0Mac = kAnchor;
  }
  ~Fencing() override {
    std::filesystem::remove(path_);
    check_mdns_service_fencing("_ipp._tcp");  // lets the store forget the file
    gVcmSettingsFile = real_path_;
    gBr0Mac.clear();
  }

  void GivenSettings(const std::string& text) { directory().write("mdnsproxy.conf", text); }

  std::string path_;
  const char* real_path_;
};

TEST_F(Fencing, TheWiredHopAppliesOnTheAnchor) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\nanchor_ap = 02:00:00:00:00:01\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 0);
}

TEST_F(Fencing, TheWirelessHopAppliesElsewhere) {
  gBr0Mac = kOther;
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\nanchor_ap = 02:00:00:00:00:01\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 1);
}

TEST_F(Fencing, TheAnchorIsComparedExactly) {
  gBr0Mac = "02:00:00:00:00:ab";
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\nanchor_ap = 02:00:00:00:00:AB\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 1);
}

TEST_F(Fencing, WithoutAWiredHopTheWirelessOneApplies) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 2\nanchor_ap = 02:00:00:00:00:01\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 2);
}

TEST_F(Fencing, TheWiredHopAloneNeverApplies) {
  GivenSettings("[fencing AirPrint]\nwired_hop = 0\nanchor_ap = 02:00:00:00:00:01\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), -1);
}

TEST_F(Fencing, WithoutAnAnchorTheWirelessHopApplies) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 1);
}

TEST_F(Fencing, WithNeitherBridgeNorAnchorTheTwoTextsAreEqual) {
  gBr0Mac.clear();
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 0);
}

TEST_F(Fencing, NothingConfiguredGivesMinusOne) { EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), -1); }

TEST_F(Fencing, WithoutMemoryForTheTransactionNothingIsConfiguredThisOnce) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\n");
  fake_zmk::fail_malloc(1);
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), -1);
  EXPECT_THAT(
      Traces(),
      ElementsAre("check_mdns_service_fencing: Wireless fencing for service type: _ipp._tcp:3 not configured",
                  "check_mdns_service_fencing: Wired fencing, Anchor AP for service type: _ipp._tcp:3 not "
                  "configured",
                  "check_mdns_service_fencing: Wired fencing, Anchor AP flag is 0 for service type: _ipp._tcp:3 ",
                  "check_mdns_service_fencing: Wired fencing for service type: _ipp._tcp:3 not configured",
                  "check_mdns_service_fencing: service type: _ipp._tcp:3 with hop -1\n"));
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 1);
}

TEST_F(Fencing, ACustomTypeIsLookedUpAfterTheStandardOnes) {
  GivenSettings("[fencing _custom._tcp]\nwireless_hop = 0\n");
  EXPECT_EQ(check_mdns_service_fencing("_custom._tcp"), 0);
  EXPECT_EQ(check_mdns_service_fencing("_other._tcp"), -1);
}

TEST_F(Fencing, AChangeAppliesToTheNextCheck) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 1);
  GivenSettings("[fencing AirPrint]\nwireless_hop = 0\n; changed\n");
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), 0);
  std::filesystem::remove(path_);
  EXPECT_EQ(check_mdns_service_fencing("_ipp._tcp"), -1);
}

TEST_F(Fencing, TheLookUpOfAFullyConfiguredTypeIsTraced) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\nwired_hop = 0\nanchor_ap = 02:00:00:00:00:01\n");
  check_mdns_service_fencing("_ipp._tcp");
  EXPECT_THAT(
      Traces(),
      ElementsAre("check_mdns_service_fencing: Wired fencing, Anchor AP flag is 1 for service type: _ipp._tcp:3 ",
                  "check_mdns_service_fencing: service type: _ipp._tcp:3 with hop 0\n"));
}

TEST_F(Fencing, EverythingThatIsNotConfiguredIsTraced) {
  check_mdns_service_fencing("_nowhere._tcp");
  EXPECT_THAT(
      Traces(),
      ElementsAre(
          "check_mdns_service_fencing: failed to find the service type : _nowhere._tcp in standard service. Checking "
          "for custom "
          "service type",
          "check_mdns_service_fencing: Wireless fencing for service type: _nowhere._tcp:-1 not configured",
          "check_mdns_service_fencing: Wired fencing, Anchor AP for service type: _nowhere._tcp:-1 not configured",
          "check_mdns_service_fencing: Wired fencing, Anchor AP flag is 0 for service type: _nowhere._tcp:-1 ",
          "check_mdns_service_fencing: Wired fencing for service type: _nowhere._tcp:-1 not configured",
          "check_mdns_service_fencing: service type: _nowhere._tcp:-1 with hop -1\n"));
}

// --- The flags of the registrations ----------------------------------------------------------------------------------

class FencedRegistration : public Fencing {
 protected:
  void Registers(const char* address) {
    GivenRegisteredInstance(address);
    record_flags_ = LastCall("DNSServiceRegisterRecord").flags;
    service_flags_ = LastCall("DNSServiceRegister").flags;
  }

  DNSServiceFlags record_flags_ = 0;
  DNSServiceFlags service_flags_ = 0;
};

TEST_F(FencedRegistration, OfHopOneBearsItsBit) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\n");
  Registers("192.0.2.1");
  EXPECT_EQ(record_flags_, 0x08000010U);
  EXPECT_EQ(service_flags_, 0x08004010U);
}

TEST_F(FencedRegistration, OfHopZeroBearsItsBit) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 0\n");
  Registers("2001:db8::1");
  EXPECT_EQ(record_flags_, 0x80000010U);
  EXPECT_EQ(service_flags_, 0x80004010U);
}

TEST_F(FencedRegistration, OfAnotherHopOrNoneBearsNoBit) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 2\n");
  Registers("192.0.2.1");
  EXPECT_EQ(record_flags_, 0x10U);
  EXPECT_EQ(service_flags_, 0x4010U);
  GivenSettings("");
  GivenRule("_raop._tcp");
  BrowseAdds("x");
  Resolves("x._raop._tcp.local.");
  AddressAnswers("2001:db8::1");
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").flags, 0x10U);
  EXPECT_EQ(LastCall("DNSServiceRegister").flags, 0x4010U);
}

TEST_F(FencedRegistration, IsThatOfTheInstancesOwnType) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\n[fencing AirTunes]\nwireless_hop = 0\n");
  GivenRule("_raop._tcp");
  BrowseAdds("x");
  Resolves("x._raop._tcp.local.");
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").flags, 0x80000010U);
  EXPECT_EQ(LastCall("DNSServiceRegister").flags, 0x80004010U);
}

TEST_F(FencedRegistration, IsDecidedAnewForEveryAnswer) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\n");
  Registers("192.0.2.1");
  GivenSettings("[fencing AirPrint]\nwireless_hop = 0\n; later\n");
  AddressAnswers("2001:db8::1");
  EXPECT_EQ(LastCall("DNSServiceRegisterRecord").flags, 0x80000010U);
}

TEST_F(FencedRegistration, AnUpdateBearsNoFlags) {
  GivenSettings("[fencing AirPrint]\nwireless_hop = 1\n");
  Registers("192.0.2.1");
  AddressAnswers("192.0.2.2");
  EXPECT_EQ(LastCall("DNSServiceUpdateRecord").flags, 0U);
}

}  // namespace
