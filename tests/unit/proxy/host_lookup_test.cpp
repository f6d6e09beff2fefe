// SPDX-License-Identifier: MIT
#include <array>

#include "fakes/fake_zmk.h"
#include "platform/nss_mdns.h"
#include "proxy/host_addresses.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAreArray;
using testing::ExitedWithCode;

class HostLookup : public ProxyTest {
 protected:
  HostLookup() : real_library_(gNssMdnsLibrary) { gNssMdnsLibrary = FAKE_NSS_MDNS_LIBRARY; }
  ~HostLookup() override { gNssMdnsLibrary = real_library_; }

  // What is left in an address that nothing was written to.
  static constexpr std::uint8_t kUntouched = 0xEE;

  const char* real_library_;
  std::array<std::uint8_t, 4> ipv4_ = {kUntouched, kUntouched, kUntouched, kUntouched};
  std::array<std::uint8_t, 16> ipv6_ = {kUntouched};
};

using HostLookupDeathTest = HostLookup;

TEST_F(HostLookup, GivesAHostsIpv4Address) {
  EXPECT_EQ(hostname_to_ip("printer.local", ipv4_.data()), 0);
  EXPECT_THAT(ipv4_, ElementsAreArray(address_bytes("192.0.2.7")));
  EXPECT_THAT(Traces(), Contains("\nhostname_to_ip(): addr_list[0]: 192.0.2.7"));
}

TEST_F(HostLookup, PassesOverLinkLocalIpv4Addresses) {
  EXPECT_EQ(hostname_to_ip("twohomes.local", ipv4_.data()), 0);
  EXPECT_THAT(ipv4_, ElementsAreArray(address_bytes("192.0.2.9")));
  EXPECT_THAT(Traces(), AllOf(Contains("\nhostname_to_ip(): addr_list[0]: 169.254.1.2"),
                              Contains("\nhostname_to_ip(): addr_list[1]: 192.0.2.9")));
}

TEST_F(HostLookup, GivesAHostsIpv6AddressThatIsNotLinkLocal) {
  EXPECT_EQ(hostname_to_ipv6("printer.local", ipv6_.data()), 0);
  EXPECT_THAT(ipv6_, ElementsAreArray(address_bytes("2001:db8::7")));
  EXPECT_THAT(Traces(), AllOf(Contains("\nhostname_to_ipv6(): addr_list[0]: fe80::7"),
                              Contains("\nhostname_to_ipv6(): addr_list[1]: 2001:db8::7")));
}

TEST_F(HostLookup, HasRoomForAnEntryOf1024Bytes) {
  EXPECT_EQ(hostname_to_ip("roomy.local", ipv4_.data()), 0);
  EXPECT_THAT(ipv4_, ElementsAreArray(address_bytes("192.0.2.8")));
  EXPECT_EQ(hostname_to_ipv6("roomy.local", ipv6_.data()), 0);
  EXPECT_THAT(ipv6_, ElementsAreArray(address_bytes("2001:db8::8")));
}

TEST_F(HostLookup, SaysItsStart) {
  hostname_to_ip("printer.local", ipv4_.data());
  EXPECT_THAT(Traces(), Contains("hostname_to_ip(): START: hostname = printer.local ..."));
  hostname_to_ipv6("printer.local", ipv6_.data());
  EXPECT_THAT(Traces(), Contains("hostname_to_ipv6(): START: hostname = printer.local ..."));
}

TEST_F(HostLookup, WithoutAUsableAddressTheOutputIsUntouched) {
  for (const char* host : {"linklocal.local", "misfit.local", "nobody.local", "big.local"}) {
    EXPECT_EQ(hostname_to_ip(host, ipv4_.data()), 1) << host;
    EXPECT_EQ(hostname_to_ipv6(host, ipv6_.data()), 1) << host;
  }
  EXPECT_EQ(hostname_to_ip(nullptr, ipv4_.data()), 1);
  EXPECT_EQ(hostname_to_ipv6(nullptr, ipv6_.data()), 1);
  EXPECT_EQ(ipv4_[0], kUntouched);
  EXPECT_EQ(ipv6_[0], kUntouched);
}

TEST_F(HostLookup, WithoutTheLibraryThereIsNoAddress) {
  gNssMdnsLibrary = "/nowhere/libnss_mdns.so.2";
  EXPECT_EQ(hostname_to_ip("printer.local", ipv4_.data()), 1);
  EXPECT_EQ(hostname_to_ipv6("printer.local", ipv6_.data()), 1);
}

TEST_F(HostLookup, KeepsNoMemory) {
  const ZmkUsage before = zmk_usage();
  hostname_to_ip("printer.local", ipv4_.data());
  hostname_to_ip("nobody.local", ipv4_.data());
  hostname_to_ipv6("printer.local", ipv6_.data());
  hostname_to_ipv6("nobody.local", ipv6_.data());
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
}

TEST_F(HostLookupDeathTest, ALackOfMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(1);
  const auto says_start_and_error = [](const std::string& start) {
    return AllOf(says(start), says("syslog(4): ERROR 1301171518: malloc failed, exiting.\n"));
  };
  EXPECT_EXIT(hostname_to_ip("printer.local", ipv4_.data()), ExitedWithCode(20),
              says_start_and_error("hostname_to_ip(): START: hostname = printer.local ..."));
  EXPECT_EXIT(hostname_to_ipv6("printer.local", ipv6_.data()), ExitedWithCode(20),
              says_start_and_error("hostname_to_ipv6(): START: hostname = printer.local ..."));
}

}  // namespace
