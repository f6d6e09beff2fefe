// SPDX-License-Identifier: MIT
#include "platform/vcms_if.h"

#include <gmock/gmock.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

extern "C" int __wrap_ioctl(int file, unsigned long request, ...);

namespace {

// The one interface that there is, as the kernel would answer for it.
struct Interface {
  std::string name;
  unsigned short hardware;
  unsigned char address[6];
};

const Interface* gInterface;

class InterfaceMac : public testing::Test {
 protected:
  InterfaceMac() { GivenInterface("br0", ARPHRD_ETHER); }
  ~InterfaceMac() override { gInterface = nullptr; }

  void GivenInterface(const std::string& name, unsigned short hardware) {
    interface_ = {name, hardware, {0x02, 0x00, 0xAB, 0xCD, 0xEF, 0x0A}};
    gInterface = &interface_;
  }

  int Ask(const char* name) { return vcms_if_getMacAddress(name, text_); }

  char text_[18] = "untouched";

 private:
  Interface interface_;
};

}  // namespace

int __wrap_ioctl(int, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  ifreq* asked = va_arg(args, ifreq*);
  va_end(args);
  if (request != SIOCGIFHWADDR || gInterface == nullptr || gInterface->name != asked->ifr_name) {
    errno = ENODEV;
    return -1;
  }
  asked->ifr_hwaddr.sa_family = gInterface->hardware;
  std::memcpy(asked->ifr_hwaddr.sa_data, gInterface->address, sizeof(gInterface->address));
  return 0;
}

TEST_F(InterfaceMac, IsLowerCaseText) {
  EXPECT_EQ(Ask("br0"), 0);
  EXPECT_STREQ(text_, "02:00:ab:cd:ef:0a");
}

TEST_F(InterfaceMac, IsMissingForAnUnknownInterface) {
  EXPECT_NE(Ask("br1"), 0);
  EXPECT_STREQ(text_, "untouched");
}

TEST_F(InterfaceMac, IsMissingForAnInterfaceThatIsNoEthernet) {
  GivenInterface("lo", ARPHRD_LOOPBACK);
  EXPECT_NE(Ask("lo"), 0);
  EXPECT_STREQ(text_, "untouched");
}

TEST_F(InterfaceMac, IsMissingForANameThatNoInterfaceCanHave) {
  GivenInterface("interface012345", ARPHRD_ETHER);
  EXPECT_EQ(Ask("interface012345"), 0) << "fifteen characters are the most";
  EXPECT_NE(Ask("interface0123456"), 0) << "and are not what a longer name is cut to";
  EXPECT_NE(Ask(""), 0);
}
