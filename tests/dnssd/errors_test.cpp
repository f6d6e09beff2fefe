// SPDX-License-Identifier: MIT
// The error codes of the functions of dns_sd.h, where no network is needed to get them.
#include <dns_sd.h>
#include <gtest/gtest.h>
#include <sys/select.h>

#include <cstdint>
#include <string>

namespace {

constexpr DNSServiceFlags kShare = 0x4000;
constexpr std::uint32_t kNoSuchInterface = 0x7FFFFFFE;
constexpr std::uint32_t kAnyInterface = kDNSServiceInterfaceIndexAny;
constexpr std::uint32_t kLocalOnly = kDNSServiceInterfaceIndexLocalOnly;

void on_browse(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType, const char*, const char*, const char*,
               void*) {}
void on_resolve(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType, const char*, const char*, uint16_t,
                uint16_t, const unsigned char*, void*) {}
void on_query(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType, const char*, uint16_t, uint16_t, uint16_t,
              const void*, uint32_t, void*) {}
void on_register(DNSServiceRef, DNSServiceFlags, DNSServiceErrorType, const char*, const char*, const char*, void*) {}
void on_record(DNSServiceRef, DNSRecordRef, DNSServiceFlags, DNSServiceErrorType, void*) {}

DNSServiceRef wild(std::uintptr_t value) { return reinterpret_cast<DNSServiceRef>(value); }
DNSRecordRef wild_record(std::uintptr_t value) { return reinterpret_cast<DNSRecordRef>(value); }

class Errors : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DNSServiceCreateConnection(&connection_), kDNSServiceErr_NoError); }
  void TearDown() override { DNSServiceRefDeallocate(connection_); }

  DNSServiceErrorType Browse(const char* type, const char* domain, std::uint32_t index,
                             DNSServiceBrowseReply callback) {
    DNSServiceRef ref = connection_;
    return DNSServiceBrowse(&ref, kShare, index, type, domain, callback, nullptr);
  }
  DNSServiceErrorType Register(DNSServiceFlags flags, const char* name, const char* type, const char* domain,
                               const char* host, const std::string& txt, DNSServiceRegisterReply callback) {
    DNSServiceRef ref = connection_;
    return DNSServiceRegister(&ref, kShare | flags, kNoSuchInterface, name, type, domain, host, 1,
                              static_cast<uint16_t>(txt.size()), txt.data(), callback, nullptr);
  }
  DNSServiceErrorType RegisterRecord(DNSServiceFlags flags, const char* name, std::uint16_t rrclass, const void* rdata,
                                     DNSServiceRegisterRecordReply callback) {
    DNSRecordRef record = nullptr;
    return DNSServiceRegisterRecord(connection_, &record, flags, kNoSuchInterface, name, kDNSServiceType_A, rrclass, 4,
                                    rdata, 0, callback, nullptr);
  }

  DNSServiceRef connection_ = nullptr;
};

TEST_F(Errors, ANullReferencePointerIsABadParameter) {
  EXPECT_EQ(DNSServiceCreateConnection(nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceBrowse(nullptr, 0, 1, "_ipp._tcp", nullptr, on_browse, nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceResolve(nullptr, 0, 1, "n", "_ipp._tcp", "local", on_resolve, nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceQueryRecord(nullptr, 0, 1, "h.local", 1, 1, on_query, nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceRegister(nullptr, 0, 1, "n", "_ipp._tcp", nullptr, nullptr, 0, 0, nullptr, on_register, nullptr),
            kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceProcessResult(nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceRefSockFD(nullptr), -1);
  DNSServiceRefDeallocate(nullptr);
}

TEST_F(Errors, BrowseChecksItsArguments) {
  EXPECT_EQ(Browse(nullptr, nullptr, kNoSuchInterface, on_browse), kDNSServiceErr_BadParam);
  EXPECT_EQ(Browse("_ipp._tcp", nullptr, kNoSuchInterface, nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(Browse("ipp", nullptr, kNoSuchInterface, on_browse), kDNSServiceErr_BadParam);
  EXPECT_EQ(Browse("_a._b._ipp._tcp", nullptr, kNoSuchInterface, on_browse), kDNSServiceErr_BadParam);
  EXPECT_EQ(Browse("_ipp._tcp", "example.com", kNoSuchInterface, on_browse), kDNSServiceErr_Unsupported);
}

TEST_F(Errors, InterfacesAreNamedOneByOne) {
  EXPECT_EQ(Browse("_ipp._tcp", "local", kNoSuchInterface, on_browse), kDNSServiceErr_BadInterfaceIndex);
  EXPECT_EQ(Browse("_ipp._tcp", "local", kAnyInterface, on_browse), kDNSServiceErr_Unsupported);
  EXPECT_EQ(Browse("_ipp._tcp", "local", kLocalOnly, on_browse), kDNSServiceErr_Unsupported);
}

TEST_F(Errors, ResolveChecksItsArguments) {
  DNSServiceRef ref = connection_;
  const auto resolve = [&](const char* name, const char* type, const char* domain) {
    return DNSServiceResolve(&ref, kShare, kNoSuchInterface, name, type, domain, on_resolve, nullptr);
  };
  EXPECT_EQ(resolve(nullptr, "_ipp._tcp", "local"), kDNSServiceErr_BadParam);
  EXPECT_EQ(resolve("n", nullptr, "local"), kDNSServiceErr_BadParam);
  EXPECT_EQ(resolve("n", "_ipp._tcp", nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(resolve("", "_ipp._tcp", "local"), kDNSServiceErr_BadParam);
  EXPECT_EQ(resolve(std::string(64, 'x').c_str(), "_ipp._tcp", "local"), kDNSServiceErr_BadParam);
  EXPECT_EQ(resolve("n", "_ipp", "local"), kDNSServiceErr_BadParam);
  EXPECT_EQ(resolve("n", "_ipp._tcp", "example.com."), kDNSServiceErr_Unsupported);
  EXPECT_EQ(resolve("n", "_ipp._tcp.", "local."), kDNSServiceErr_BadInterfaceIndex);
}

TEST_F(Errors, QueryChecksItsArguments) {
  DNSServiceRef ref = connection_;
  const auto query = [&](const char* name, std::uint16_t rrtype, std::uint16_t rrclass) {
    return DNSServiceQueryRecord(&ref, kShare, kNoSuchInterface, name, rrtype, rrclass, on_query, nullptr);
  };
  EXPECT_EQ(query(nullptr, 1, 1), kDNSServiceErr_BadParam);
  EXPECT_EQ(query("", 1, 1), kDNSServiceErr_BadParam);
  EXPECT_EQ(query("a..b", 1, 1), kDNSServiceErr_BadParam);
  EXPECT_EQ(query("h.local", 0, 1), kDNSServiceErr_BadParam);
  EXPECT_EQ(query("h.local", 1, 3), kDNSServiceErr_Unsupported);
  EXPECT_EQ(query("h.local", kDNSServiceType_ANY, 1), kDNSServiceErr_Unsupported);
  EXPECT_EQ(query("h.local", 1, 1), kDNSServiceErr_BadInterfaceIndex);
}

TEST_F(Errors, RegisterChecksItsArguments) {
  const std::string txt("\3a=b");
  EXPECT_EQ(Register(0, "n", nullptr, nullptr, nullptr, txt, on_register), kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, "n", "_ipp", nullptr, nullptr, txt, on_register), kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, "n", "_ipp._tcp", "example.com", nullptr, txt, on_register), kDNSServiceErr_Unsupported);
  EXPECT_EQ(Register(0, "n", "_ipp._tcp", nullptr, "a..b", txt, on_register), kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, "n", "_ipp._tcp", nullptr, nullptr, "\5a=b", on_register), kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, "n", "_ipp._tcp", nullptr, nullptr, txt, nullptr), kDNSServiceErr_BadInterfaceIndex);
}

TEST_F(Errors, NoAutoRenameNeedsANameThatFitsAndSomebodyToTell) {
  const std::string long_name(64, 'x');
  EXPECT_EQ(Register(kDNSServiceFlagsNoAutoRename, nullptr, "_ipp._tcp", nullptr, nullptr, "", on_register),
            kDNSServiceErr_BadFlags);
  EXPECT_EQ(Register(kDNSServiceFlagsNoAutoRename, "n", "_ipp._tcp", nullptr, nullptr, "", nullptr),
            kDNSServiceErr_BadFlags);
  EXPECT_EQ(Register(kDNSServiceFlagsNoAutoRename, long_name.c_str(), "_ipp._tcp", nullptr, nullptr, "", on_register),
            kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, long_name.c_str(), "_ipp._tcp", nullptr, nullptr, "", on_register),
            kDNSServiceErr_BadInterfaceIndex);
}

TEST_F(Errors, ARecordIsSharedOrUnique) {
  EXPECT_EQ(RegisterRecord(0, "h.local", 1, "abcd", on_record), kDNSServiceErr_BadFlags);
  EXPECT_EQ(RegisterRecord(0x30, "h.local", 1, "abcd", on_record), kDNSServiceErr_BadFlags);
  EXPECT_EQ(RegisterRecord(0x10, "h.local", 1, "abcd", on_record), kDNSServiceErr_BadInterfaceIndex);
  EXPECT_EQ(RegisterRecord(0x20, "h.local", 1, "abcd", on_record), kDNSServiceErr_BadInterfaceIndex);
}

TEST_F(Errors, PrivateFlagBitsAreIgnored) {
  EXPECT_EQ(RegisterRecord(0x08000010, "h.local", 1, "abcd", on_record), kDNSServiceErr_BadInterfaceIndex);
  EXPECT_EQ(Register(0x80000010, "n", "_ipp._tcp", nullptr, nullptr, "", on_register),
            kDNSServiceErr_BadInterfaceIndex);
}

TEST_F(Errors, RegisterRecordChecksItsArguments) {
  EXPECT_EQ(RegisterRecord(0x10, nullptr, 1, "abcd", on_record), kDNSServiceErr_BadParam);
  EXPECT_EQ(RegisterRecord(0x10, "h.local", 1, nullptr, on_record), kDNSServiceErr_BadParam);
  EXPECT_EQ(RegisterRecord(0x10, "h.local", 1, "abcd", nullptr), kDNSServiceErr_BadParam);
  EXPECT_EQ(RegisterRecord(0x10, "h.local", 3, "abcd", on_record), kDNSServiceErr_Unsupported);
}

TEST_F(Errors, AWildReferenceIsRecognised) {
  for (const std::uintptr_t value :
       {std::uintptr_t{1}, std::uintptr_t{0xDEADBEE1}, reinterpret_cast<std::uintptr_t>(this)}) {
    EXPECT_EQ(DNSServiceRefSockFD(wild(value)), -1);
    EXPECT_EQ(DNSServiceProcessResult(wild(value)), kDNSServiceErr_BadReference);
    DNSServiceRefDeallocate(wild(value));
    DNSServiceRef ref = wild(value);
    EXPECT_EQ(DNSServiceBrowse(&ref, kShare, 1, "_ipp._tcp", nullptr, on_browse, nullptr), kDNSServiceErr_BadReference);
    EXPECT_EQ(DNSServiceRemoveRecord(connection_, wild_record(value), 0), kDNSServiceErr_BadReference);
    EXPECT_EQ(DNSServiceUpdateRecord(connection_, wild_record(value), 0, 4, "abcd", 0), kDNSServiceErr_BadReference);
  }
}

TEST_F(Errors, AStaleReferenceNeverNamesItsSuccessor) {
  DNSServiceRef stale = nullptr;
  ASSERT_EQ(DNSServiceCreateConnection(&stale), kDNSServiceErr_NoError);
  DNSServiceRefDeallocate(stale);
  for (int i = 0; i < 100; ++i) {
    DNSServiceRef successor = nullptr;
    ASSERT_EQ(DNSServiceCreateConnection(&successor), kDNSServiceErr_NoError);
    EXPECT_NE(successor, stale);
    DNSServiceRefDeallocate(stale);
    EXPECT_NE(DNSServiceRefSockFD(successor), -1);
    DNSServiceRefDeallocate(successor);
  }
  EXPECT_EQ(DNSServiceProcessResult(stale), kDNSServiceErr_BadReference);
}

TEST_F(Errors, UpdateWithoutARecordIsForARegistration) {
  EXPECT_EQ(DNSServiceUpdateRecord(connection_, nullptr, 0, 4, "\3a=b", 0), kDNSServiceErr_BadReference);
  EXPECT_EQ(DNSServiceUpdateRecord(connection_, nullptr, 0, 4, nullptr, 0), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceRemoveRecord(connection_, nullptr, 0), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceUpdateRecord(nullptr, nullptr, 0, 4, "\3a=b", 0), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceUpdateRecord(nullptr, wild_record(0xBAD1), 0, 4, "\3a=b", 0), kDNSServiceErr_BadParam);
  EXPECT_EQ(DNSServiceRemoveRecord(nullptr, wild_record(0xBAD1), 0), kDNSServiceErr_BadParam);
}

TEST_F(Errors, AllConnectionsHaveTheSameDescriptor) {
  DNSServiceRef second = nullptr;
  ASSERT_EQ(DNSServiceCreateConnection(&second), kDNSServiceErr_NoError);
  EXPECT_EQ(DNSServiceRefSockFD(connection_), DNSServiceRefSockFD(second));
  DNSServiceRefDeallocate(second);
  EXPECT_NE(DNSServiceRefSockFD(connection_), -1);
}

TEST_F(Errors, ProcessResultWithNothingToDoReturnsAtOnce) {
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(DNSServiceProcessResult(connection_), kDNSServiceErr_NoError);
}

// Every way in which a call that starts something can fail, over a reference that must stay what it was.
class FailedCall : public Errors {
 protected:
  void ExpectUntouched(DNSServiceRef was, DNSServiceFlags flags) {
    DNSServiceRef ref = was;
    for (const char* type : {"_ipp._tcp", "ipp"}) {
      for (const char* domain : {"local", "example.com"}) {
        EXPECT_NE(DNSServiceBrowse(&ref, flags, kNoSuchInterface, type, domain, on_browse, nullptr),
                  kDNSServiceErr_NoError);
        EXPECT_NE(DNSServiceResolve(&ref, flags, kNoSuchInterface, "n", type, domain, on_resolve, nullptr),
                  kDNSServiceErr_NoError);
        EXPECT_NE(DNSServiceRegister(&ref, flags, kNoSuchInterface, "n", type, domain, nullptr, 1, 0, nullptr,
                                     on_register, nullptr),
                  kDNSServiceErr_NoError);
        EXPECT_EQ(ref, was);
      }
    }
    for (const std::uint16_t rrclass : {std::uint16_t{1}, std::uint16_t{3}}) {
      EXPECT_NE(DNSServiceQueryRecord(&ref, flags, kNoSuchInterface, "h.local", 1, rrclass, on_query, nullptr),
                kDNSServiceErr_NoError);
    }
    EXPECT_NE(DNSServiceBrowse(&ref, flags, kNoSuchInterface, "_ipp._tcp", nullptr, nullptr, nullptr),
              kDNSServiceErr_NoError);
    EXPECT_EQ(ref, was);
  }
};

TEST_F(FailedCall, LeavesASharedConnectionAsItWas) { ExpectUntouched(connection_, kShare); }
TEST_F(FailedCall, LeavesWhatIsNoConnectionAsItWas) { ExpectUntouched(wild(0xBAD1), kShare); }
TEST_F(FailedCall, LeavesAReferenceThatIsNotYetOneAsItWas) { ExpectUntouched(wild(0xBAD1), 0); }

TEST_F(FailedCall, LeavesTheRecordReferenceAsItWas) {
  const DNSRecordRef was = wild_record(0xBAD1);
  DNSRecordRef record = was;
  const auto register_record = [&](DNSServiceRef connection, DNSServiceFlags flags, const char* name,
                                   std::uint16_t rrtype) {
    return DNSServiceRegisterRecord(connection, &record, flags, kNoSuchInterface, name, rrtype, 1, 4, "abcd", 0,
                                    on_record, nullptr);
  };
  EXPECT_EQ(register_record(connection_, 0x10, "h.local", 1), kDNSServiceErr_BadInterfaceIndex);
  EXPECT_EQ(register_record(connection_, 0x30, "h.local", 1), kDNSServiceErr_BadFlags);
  EXPECT_EQ(register_record(connection_, 0x10, "h.local", kDNSServiceType_ANY), kDNSServiceErr_Unsupported);
  EXPECT_EQ(register_record(connection_, 0x10, "h.local", 0), kDNSServiceErr_BadParam);
  EXPECT_EQ(register_record(connection_, 0x10, ".", 1), kDNSServiceErr_BadParam);
  EXPECT_EQ(register_record(nullptr, 0x10, "h.local", 1), kDNSServiceErr_BadParam);
  EXPECT_EQ(register_record(wild(0xBAD1), 0x10, "h.local", 1), kDNSServiceErr_BadReference);
  EXPECT_EQ(record, was);
}

TEST_F(Errors, NamesAndLabelsAreHeldToTheirLength) {
  const std::string label(63, 'x');
  const std::string long_label = label + "x";
  const std::string name = label + "." + label + "." + label + "." + std::string(61, 'y');  // 255 bytes on the wire
  DNSServiceRef ref = connection_;
  DNSRecordRef record = nullptr;
  const auto query = [&](const std::string& text) {
    return DNSServiceQueryRecord(&ref, kShare, kNoSuchInterface, text.c_str(), 1, 1, on_query, nullptr);
  };
  const auto register_record = [&](const std::string& text) {
    return DNSServiceRegisterRecord(connection_, &record, 0x10, kNoSuchInterface, text.c_str(), 1, 1, 4, "abcd", 0,
                                    on_record, nullptr);
  };
  for (const std::string& good : {name, name + ".", label, std::string("\\.\\."), std::string("local")}) {
    EXPECT_EQ(query(good), kDNSServiceErr_BadInterfaceIndex) << good;
    EXPECT_EQ(register_record(good), kDNSServiceErr_BadInterfaceIndex) << good;
  }
  for (const std::string& bad :
       {name + "y", name + ".z", long_label + ".local", std::string(5000, 'x'), std::string("..")}) {
    EXPECT_EQ(query(bad), kDNSServiceErr_BadParam) << bad;
    EXPECT_EQ(register_record(bad), kDNSServiceErr_BadParam) << bad;
  }
  EXPECT_EQ(Browse(("_" + label + "._tcp").c_str(), nullptr, kNoSuchInterface, on_browse), kDNSServiceErr_BadParam);
  EXPECT_EQ(Browse(("_ipp._tcp," + long_label).c_str(), nullptr, kNoSuchInterface, on_browse), kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, "n", "_ipp._tcp", nullptr, (long_label + ".local").c_str(), "", on_register),
            kDNSServiceErr_BadParam);
  EXPECT_EQ(Register(0, "n", ("_ipp._tcp," + long_label).c_str(), nullptr, nullptr, "", on_register),
            kDNSServiceErr_BadParam);
}

TEST(NoConnection, AFailedFirstCallLeavesNoEngineBehind) {
  DNSServiceRef ref = nullptr;
  EXPECT_EQ(DNSServiceBrowse(&ref, 0, kNoSuchInterface, "_ipp._tcp", nullptr, on_browse, nullptr),
            kDNSServiceErr_BadInterfaceIndex);
  EXPECT_EQ(ref, nullptr);
}

}  // namespace
