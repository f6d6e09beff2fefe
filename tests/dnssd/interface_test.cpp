// SPDX-License-Identifier: MIT
// What programs and libraries of the dns_sd.h interface rely on in each other: values and types, compared when this is
// compiled. It is compiled with our header, as part of dnssd_unit_test, and with another one (tests/portability): where
// both pass, either may stand in for the other.
#include <dns_sd.h>

#include <cstdint>
#include <type_traits>

#include "dnssd/dnssd.h"
#include "gtest/gtest.h"

namespace {

using std::uint16_t;
using std::uint32_t;
using Error = std::int32_t;
using Ref = _DNSServiceRef_t*;
using Record = _DNSRecordRef_t*;

static_assert(std::is_same_v<DNSServiceFlags, uint32_t>);
static_assert(std::is_same_v<DNSServiceErrorType, Error>);
static_assert(std::is_same_v<DNSServiceRef, Ref>);
static_assert(std::is_same_v<DNSRecordRef, Record>);

// --- Values ----------------------------------------------------------------------------------------------------------

static_assert(kDNSServiceFlagsMoreComing == 0x1);
static_assert(kDNSServiceFlagsAdd == 0x2);
static_assert(kDNSServiceFlagsNoAutoRename == 0x8);
static_assert(kDNSServiceFlagsShared == 0x10);
static_assert(kDNSServiceFlagsUnique == 0x20);
static_assert(kDNSServiceFlagsLongLivedQuery == 0x100);
static_assert(kDNSServiceFlagsForceMulticast == 0x400);

static_assert(kDNSServiceErr_NoError == 0);
static_assert(kDNSServiceErr_Unknown == -65537);
static_assert(kDNSServiceErr_NoMemory == -65539);
static_assert(kDNSServiceErr_BadParam == -65540);
static_assert(kDNSServiceErr_BadReference == -65541);
static_assert(kDNSServiceErr_BadState == -65542);
static_assert(kDNSServiceErr_BadFlags == -65543);
static_assert(kDNSServiceErr_Unsupported == -65544);
static_assert(kDNSServiceErr_NameConflict == -65548);
static_assert(kDNSServiceErr_BadInterfaceIndex == -65552);
static_assert(kDNSServiceErr_Refused == -65553);
static_assert(kDNSServiceErr_NoAuth == -65555);

static_assert(kDNSServiceInterfaceIndexAny == 0);
static_assert(static_cast<uint32_t>(kDNSServiceInterfaceIndexLocalOnly) == 0xFFFFFFFF);

static_assert(kDNSServiceClass_IN == 1);
static_assert(kDNSServiceType_A == 1);
static_assert(kDNSServiceType_CNAME == 5);
static_assert(kDNSServiceType_PTR == 12);
static_assert(kDNSServiceType_TXT == 16);
static_assert(kDNSServiceType_AAAA == 28);
static_assert(kDNSServiceType_SRV == 33);
static_assert(kDNSServiceType_ANY == 255);

// --- Callbacks and functions -----------------------------------------------------------------------------------------

static_assert(std::is_same_v<DNSServiceBrowseReply,
                             void (*)(Ref, uint32_t, uint32_t, Error, const char*, const char*, const char*, void*)>);
static_assert(std::is_same_v<DNSServiceResolveReply, void (*)(Ref, uint32_t, uint32_t, Error, const char*, const char*,
                                                              uint16_t, uint16_t, const unsigned char*, void*)>);
static_assert(std::is_same_v<DNSServiceQueryRecordReply, void (*)(Ref, uint32_t, uint32_t, Error, const char*, uint16_t,
                                                                  uint16_t, uint16_t, const void*, uint32_t, void*)>);
static_assert(std::is_same_v<DNSServiceRegisterReply,
                             void (*)(Ref, uint32_t, Error, const char*, const char*, const char*, void*)>);
static_assert(std::is_same_v<DNSServiceRegisterRecordReply, void (*)(Ref, Record, uint32_t, Error, void*)>);

template <typename Wanted, typename Function>
constexpr bool has_type(Function*) {
  return std::is_same_v<Wanted, Function>;
}

static_assert(has_type<Error(Ref*)>(DNSServiceCreateConnection));
static_assert(has_type<int(Ref)>(DNSServiceRefSockFD));
static_assert(has_type<Error(Ref)>(DNSServiceProcessResult));
static_assert(has_type<void(Ref)>(DNSServiceRefDeallocate));
static_assert(has_type<Error(Ref*, uint32_t, uint32_t, const char*, const char*, DNSServiceBrowseReply, void*)>(
    DNSServiceBrowse));
static_assert(has_type<Error(Ref*, uint32_t, uint32_t, const char*, const char*, const char*, DNSServiceResolveReply,
                             void*)>(DNSServiceResolve));
static_assert(has_type<Error(Ref*, uint32_t, uint32_t, const char*, uint16_t, uint16_t, DNSServiceQueryRecordReply,
                             void*)>(DNSServiceQueryRecord));
static_assert(has_type<Error(Ref*, uint32_t, uint32_t, const char*, const char*, const char*, const char*, uint16_t,
                             uint16_t, const void*, DNSServiceRegisterReply, void*)>(DNSServiceRegister));
static_assert(has_type<Error(Ref, Record*, uint32_t, uint32_t, const char*, uint16_t, uint16_t, uint16_t, const void*,
                             uint32_t, DNSServiceRegisterRecordReply, void*)>(DNSServiceRegisterRecord));
static_assert(has_type<Error(Ref, Record, uint32_t, uint16_t, const void*, uint32_t)>(DNSServiceUpdateRecord));
static_assert(has_type<Error(Ref, Record, uint32_t)>(DNSServiceRemoveRecord));

// --- What some headers are too old for -------------------------------------------------------------------------------

TEST(Interface, ValuesThatNotEveryHeaderNamesAreTheUsualOnes) {
  EXPECT_EQ(dnssd::kFlagsShareConnection, 0x4000u);
  EXPECT_EQ(dnssd::kErrServiceNotRunning, -65563);
#if !defined(MDNSPROXY_INSTALLED_DNS_SD_H)
  EXPECT_EQ(DNSServiceFlags{kDNSServiceFlagsShareConnection}, dnssd::kFlagsShareConnection);
  EXPECT_EQ(DNSServiceErrorType{kDNSServiceErr_ServiceNotRunning}, dnssd::kErrServiceNotRunning);
#endif
}

}  // namespace
