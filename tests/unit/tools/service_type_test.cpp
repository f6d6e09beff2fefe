// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/service_type.h"

#include <gmock/gmock.h>

#include "mdnsproxy-check/library_types.h"

using testing::HasSubstr;

namespace {

TEST(ServiceType, TypesInUseHaveNoFault) {
  for (const char* type : {"_ipp._tcp", "_sleep-proxy._udp", "_universal._ipp._tcp", "_nvstream_dbd._tcp", "_6in4._udp",
                           "a\\.b._ipp._tcp"}) {
    EXPECT_FALSE(find_type_fault(type).has_value()) << type;
    EXPECT_TRUE(library_accepts_type(type)) << type;
  }
}

TEST(ServiceType, WhatTheLibraryRefusesIsAlwaysAFault) {
  for (const char* type : {"", "ipp", "_ipp", "ipp._tcp", "_ipp._sctp", "_ipp._tcp.local", "_ipp.tcp", "_i pp._tcp",
                           "_a._b._ipp._tcp", "._tcp", "_._tcp"}) {
    EXPECT_TRUE(find_type_fault(type).has_value()) << type;
    EXPECT_FALSE(library_accepts_type(type)) << type;
  }
}

TEST(ServiceType, ANameOf15CharactersIsTheLongest) {
  EXPECT_FALSE(find_type_fault("_" + std::string(15, 'a') + "._tcp").has_value());
  EXPECT_TRUE(find_type_fault("_" + std::string(16, 'a') + "._tcp").has_value());
}

TEST(ServiceType, TheCureFitsTheMistake) {
  EXPECT_THAT(find_type_fault("_ipp._tcp.local")->cure, HasSubstr("without a domain"));
  EXPECT_THAT(find_type_fault("_ipp._tcp.")->cure, HasSubstr("without a domain"));
  EXPECT_THAT(find_type_fault("_universal._sub._ipp._tcp")->cure, HasSubstr("without \"_sub\""));
  EXPECT_THAT(find_type_fault("ipp")->cure, HasSubstr("write an underscore"));
}

}  // namespace
