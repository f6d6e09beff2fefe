// SPDX-License-Identifier: MIT
#include "platform/nss_mdns.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class HostLookup : public testing::Test {
 protected:
  HostLookup() : real_library_(gNssMdnsLibrary) { gNssMdnsLibrary = FAKE_NSS_MDNS_LIBRARY; }
  ~HostLookup() override { gNssMdnsLibrary = real_library_; }

  std::vector<std::string> Ask(const char* name) {
    result_ = nss_mdns_gethostbyname(name, &host_, buffer_, sizeof(buffer_), &errno_, &h_errno_);
    return Addresses();
  }

  std::vector<std::string> Ask(const char* name, int family) {
    result_ = nss_mdns_gethostbyname2(name, family, &host_, buffer_, sizeof(buffer_), &errno_, &h_errno_);
    return Addresses();
  }

  int result_ = 0;
  int errno_ = 0;
  int h_errno_ = 0;

 private:
  std::vector<std::string> Addresses() const {
    std::vector<std::string> texts;
    for (char** address = result_ == 0 ? host_.h_addr_list : nullptr; address != nullptr && *address != nullptr;
         ++address) {
      char text[INET6_ADDRSTRLEN];
      texts.emplace_back(inet_ntop(host_.h_addrtype, *address, text, sizeof(text)));
    }
    return texts;
  }

  const char* real_library_;
  hostent host_ = {};
  alignas(16) char buffer_[1024];
};

}  // namespace

TEST_F(HostLookup, AsksTheLibraryForIpv4) {
  EXPECT_THAT(Ask("twohomes.local"), ElementsAre("169.254.1.2", "192.0.2.9"));
}

TEST_F(HostLookup, AsksTheLibraryForOneFamily) {
  EXPECT_THAT(Ask("printer.local", AF_INET6), ElementsAre("fe80::7", "2001:db8::7"));
  EXPECT_THAT(Ask("printer.local", AF_INET), ElementsAre("192.0.2.7"));
}

TEST_F(HostLookup, PassesOnThatANameIsUnknown) {
  Ask("nobody.local");
  EXPECT_NE(result_, 0);
  EXPECT_EQ(h_errno_, HOST_NOT_FOUND);
  Ask("nobody.local", AF_INET6);
  EXPECT_NE(result_, 0);
}

TEST_F(HostLookup, PassesOnThatTheBufferIsTooSmall) {
  Ask("big.local");
  EXPECT_NE(result_, 0);
  EXPECT_EQ(errno_, ERANGE);
}

TEST_F(HostLookup, FailsWithoutTheLibraryAndTriesAgain) {
  gNssMdnsLibrary = "/nonexistent/libnss_mdns.so.2";
  Ask("printer.local");
  EXPECT_NE(result_, 0);
  EXPECT_EQ(errno_, ENOENT);
  EXPECT_EQ(h_errno_, NO_RECOVERY);
  Ask("printer.local", AF_INET6);
  EXPECT_NE(result_, 0);
  gNssMdnsLibrary = FAKE_NSS_MDNS_LIBRARY;
  EXPECT_THAT(Ask("printer.local"), ElementsAre("192.0.2.7"));
}

TEST_F(HostLookup, FailsWithALibraryThatLacksTheFunctions) {
  gNssMdnsLibrary = "libm.so.6";
  EXPECT_THAT(Ask("printer.local"), IsEmpty());
  EXPECT_EQ(h_errno_, NO_RECOVERY);
  EXPECT_THAT(Ask("printer.local", AF_INET6), IsEmpty());
  EXPECT_EQ(errno_, ENOENT);
}

TEST(HostLookupLibrary, IsTheOneOfNssMdns) { EXPECT_STREQ(gNssMdnsLibrary, "libnss_mdns.so.2"); }
