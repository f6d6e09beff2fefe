// SPDX-License-Identifier: MIT
// Interfaces that exist, and on which nothing can be forwarded all the same.
#include <net/if.h>

#include "unit/tools/check_test.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr unsigned kWell = IFF_UP | IFF_RUNNING | IFF_MULTICAST | IFF_BROADCAST;

TEST(InterfaceFaults, OneThatIsUpAndCanMulticastHasNone) { EXPECT_THAT(fault_of("br0", kWell).message, IsEmpty()); }

TEST(InterfaceFaults, EachIsTheFirstThatHasToBeMended) {
  EXPECT_THAT(fault_of("lo", IFF_UP | IFF_RUNNING | IFF_LOOPBACK).message, HasSubstr("lo is the loopback interface"));
  EXPECT_THAT(fault_of("wg0", IFF_UP | IFF_RUNNING).message, HasSubstr("wg0 cannot multicast"));
  EXPECT_THAT(fault_of("br0", IFF_MULTICAST).message, HasSubstr("br0 is down"));
  EXPECT_THAT(fault_of("br0", IFF_MULTICAST | IFF_UP).message, HasSubstr("br0 is down"));
}

TEST(InterfaceFaults, OfThisMachineTheLoopbackInterfaceHasOne) {
  const Interfaces here = interfaces_here();
  EXPECT_THAT(here.names, testing::Contains("lo"));
  EXPECT_THAT(here.faults, testing::Contains(testing::Field(&InterfaceFault::name, "lo")));
}

class InterfaceWarnings : public CheckTest {
 protected:
  InterfaceWarnings() {
    request_.interface_faults = {fault_of("lo", IFF_UP | IFF_LOOPBACK), fault_of("br1", IFF_MULTICAST)};
  }
};

TEST_F(InterfaceWarnings, OneThatARuleNamesIsWarnedOfOnce) {
  GivenRules(rule("_ipp._tcp", "1", "br0", "br1") + rule("_ssh._tcp", "1", "br0", "br1"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("rules:1:75: warning: br1 is down")));
  EXPECT_EQ(ExitStatus(), 1);
}

TEST_F(InterfaceWarnings, TheLoopbackInterfaceIsWarnedOf) {
  GivenRules(rule("_ipp._tcp", "1", "lo", "br0"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("warning: lo is the loopback interface")));
}

TEST_F(InterfaceWarnings, OneThatNoRuleNamesIsNobodysBusiness) {
  GivenRules(rule("_ipp._tcp", "1", "br0", "br2"));
  EXPECT_THAT(Findings(), IsEmpty());
}

}  // namespace
