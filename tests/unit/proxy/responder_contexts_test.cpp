// SPDX-License-Identifier: MIT
#include <cstdint>

#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
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

const void* Pointer(const void* pointer) { return pointer; }

class ResponderContexts : public ProxyTest {
 protected:
  ResponderContexts() {
    bridge_ = GivenRule("_ipp._tcp");
    ForgetMessages();
    MarkCalls();
  }

  ResponderContext* Added(const char* name) {
    EXPECT_EQ(add_responder_context(bridge_, name), 0);
    return Instance(name);
  }

  // An instance with every reference, record and context set.
  ResponderContext* Full(const char* name) {
    ResponderContext* instance = Added(name);
    instance->reg_service_ref = Registered();
    instance->resolve_service_ref = Resolved();
    instance->query_addrv4_ref = Queried(kDNSServiceType_A);
    instance->query_addrv6_ref = Queried(kDNSServiceType_AAAA);
    instance->query_subtype_ref = Queried(kDNSServiceType_PTR);
    instance->dns_record_ptr = Recorded(kDNSServiceType_A);
    instance->dns_recordv6_ptr = Recorded(kDNSServiceType_AAAA);
    instance->subtype_record_ptr = Recorded(kDNSServiceType_PTR);
    instance->Addr_query_context = NewAddrQueryContext();
    instance->subtype_query_context = static_cast<struct subtype_query_context*>(
        zmk_malloc(sizeof(struct subtype_query_context), __FILE__, __LINE__));
    MarkCalls();
    ForgetMessages();
    return instance;
  }

  static struct Addr_query_context* NewAddrQueryContext() {
    auto* result =
        static_cast<struct Addr_query_context*>(zmk_malloc(sizeof(struct Addr_query_context), __FILE__, __LINE__));
    *result = {};
    return result;
  }
  static DNSServiceRef Registered() {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    DNSServiceRegister(&ref, kFlagsShareConnection, 3, "x", "_ipp._tcp", "local", "h", 0, 0, nullptr,
                       callback_ServiceRegister, nullptr);
    return ref;
  }
  static DNSServiceRef Resolved() {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    DNSServiceResolve(&ref, kFlagsShareConnection, 2, "x", "_ipp._tcp", "local", callback_ServiceResolve, nullptr);
    return ref;
  }
  static DNSServiceRef Queried(std::uint16_t rrtype) {
    DNSServiceRef ref = gDNSServiceRef_Shared;
    DNSServiceQueryRecord(&ref, kFlagsShareConnection, 2, "h", rrtype, 1, callback_ServiceQueryRecord, nullptr);
    return ref;
  }
  static DNSRecordRef Recorded(std::uint16_t rrtype) {
    DNSRecordRef record = nullptr;
    DNSServiceRegisterRecord(gDNSServiceRef_RegisterRecord, &record, kFlagsProxiedRecord, 3, "h", rrtype, 1, 0, nullptr,
                             0, callback_ServiceRegisterRecord, nullptr);
    return record;
  }

  // Everything that an instance owns but its name and its labels, in the order of its teardown.
  static std::vector<const void*> Holdings(const ResponderContext& instance) {
    return {instance.dns_record_ptr,       instance.dns_recordv6_ptr, instance.subtype_record_ptr,
            instance.query_addrv4_ref,     instance.query_addrv6_ref, instance.resolve_service_ref,
            instance.query_subtype_ref,    instance.reg_service_ref,  instance.Addr_query_context,
            instance.subtype_query_context};
  }

  // What the instance holds at each release that its teardown traces.
  static std::vector<std::vector<const void*>> HoldingsDuringTeardown(BridgeContext* bridge,
                                                                      ResponderContext* instance) {
    std::vector<std::vector<const void*>> seen;
    fake_syslog::on_message([&seen, instance] {
      if (fake_syslog::lines().back().text.starts_with("del_responder_context(): REMOVE:")) {
        seen.push_back(Holdings(*instance));
      }
    });
    del_responder_context(bridge, instance);
    fake_syslog::on_message(nullptr);
    return seen;
  }

  BridgeContext* bridge_;
};

using ResponderContextsDeathTest = ResponderContexts;

// --- Finding and adding ----------------------------------------------------------------------------------------------

TEST_F(ResponderContexts, AnEmptyTableHoldsNothing) {
  EXPECT_EQ(get_responder_context_by_name(bridge_, "My Printer"), nullptr);
  EXPECT_THAT(
      Traces(),
      ElementsAre(
          printed("get_responder_context_by_name(): start bridge_context_ptr=%p, name=My Printer", Pointer(bridge_)),
          printed(
              "get_responder_context_by_name(): START: bridge_context_ptr=%p, service_context=%p, if_from=2 if_to=3, "
              "name = My Printer, ref=%p...  ",
              Pointer(bridge_), Pointer(nullptr), Pointer(bridge_->ref))));
}

TEST_F(ResponderContexts, AMissingNameIsNeverFound) {
  Added("My Printer");
  EXPECT_EQ(get_responder_context_by_name(bridge_, nullptr), nullptr);
}

TEST_F(ResponderContexts, AnAddedInstanceIsFoundWithEverythingButItsNameEmpty) {
  ResponderContext* instance = Added("My Printer");
  EXPECT_EQ(get_responder_context_by_name(bridge_, "My Printer"), instance);
  EXPECT_STREQ(instance->name, "My Printer");
  EXPECT_EQ(instance->reg_service_ref, nullptr);
  EXPECT_EQ(instance->resolve_service_ref, nullptr);
  EXPECT_EQ(instance->query_addrv4_ref, nullptr);
  EXPECT_EQ(instance->query_addrv6_ref, nullptr);
  EXPECT_EQ(instance->query_subtype_ref, nullptr);
  EXPECT_EQ(instance->dns_record_ptr, nullptr);
  EXPECT_EQ(instance->dns_recordv6_ptr, nullptr);
  EXPECT_EQ(instance->subtype_record_ptr, nullptr);
  EXPECT_EQ(instance->Addr_query_context, nullptr);
  EXPECT_EQ(instance->subtype_query_context, nullptr);
  EXPECT_EQ(instance->subtype_record_label, nullptr);
  EXPECT_THAT(Traces(),
              Contains(printed("add_responder_context(): bridge_context_ptr=%p, service_context=%p,if_from = 2, "
                               "if_to = 3, name=My Printer, ref=%p... ",
                               Pointer(bridge_), Pointer(instance), Pointer(bridge_->ref))));
}

TEST_F(ResponderContexts, TheNameIsACopy) {
  char name[] = "My Printer";
  EXPECT_EQ(add_responder_context(bridge_, name), 0);
  name[0] = 'X';
  EXPECT_NE(Instance("My Printer"), nullptr);
}

TEST_F(ResponderContexts, ASecondAddOfANameChangesNothing) {
  ResponderContext* instance = Full("My Printer");
  const std::vector<const void*> before = Holdings(*instance);
  EXPECT_THAT(before, Not(Contains(nullptr)));
  EXPECT_EQ(add_responder_context(bridge_, "My Printer"), -1);
  EXPECT_EQ(Instance("My Printer"), instance);
  EXPECT_EQ(Holdings(*instance), before);
  EXPECT_THAT(Traces(), Contains("hash_add_responder_context(): name of My Printer already exist."));
  EXPECT_EQ(HASH_COUNT(bridge_->responder_contexts), 1U);
}

TEST_F(ResponderContexts, AMissingNameIsNotAdded) {
  EXPECT_EQ(add_responder_context(bridge_, nullptr), -1);
  EXPECT_EQ(bridge_->responder_contexts, nullptr);
}

TEST_F(ResponderContexts, NamesAreComparedByteForByte) {
  EXPECT_NE(Added("Printer"), Added("printer"));
  EXPECT_NE(Added("Print"), Added("Printer "));
  EXPECT_NE(Added(""), nullptr);
  EXPECT_EQ(HASH_COUNT(bridge_->responder_contexts), 5U);
}

TEST_F(ResponderContexts, RulesHaveTablesOfTheirOwn) {
  ResponderContext* first = Added("My Printer");
  BridgeContext* other = GivenRule("_ipp._tcp", "br0", "br2");
  EXPECT_EQ(get_responder_context_by_name(other, "My Printer"), nullptr);
  EXPECT_EQ(add_responder_context(other, "My Printer"), 0);
  EXPECT_NE(get_responder_context_by_name(other, "My Printer"), first);
}

TEST_F(ResponderContexts, TheCountIsNotTouched) {
  gResponderCount = 7;
  ResponderContext* instance = Added("My Printer");
  EXPECT_EQ(gResponderCount, 7);
  del_responder_context(bridge_, instance);
  EXPECT_EQ(gResponderCount, 7);
}

TEST_F(ResponderContextsDeathTest, ALackOfMemoryEndsTheProcess) {
  const auto add_without = [this](void (*order)(unsigned)) {
    order(1);
    add_responder_context(bridge_, "My Printer");
  };
  EXPECT_EXIT(add_without(fake_zmk::fail_malloc), ExitedWithCode(20),
              says("syslog(4): ERROR 102046: malloc failed, exiting."));
  EXPECT_EXIT(add_without(fake_zmk::fail_strdup), ExitedWithCode(20),
              says("syslog(4): ERROR 102047: strdup failed, exiting."));
}

// --- Taking apart ----------------------------------------------------------------------------------------------------

TEST_F(ResponderContexts, EverythingIsReleasedInTheFixedOrder) {
  del_responder_context(bridge_, Full("My Printer"));
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRemoveRecord on=connection2 flags=0x0 record1",  // A
                                   "DNSServiceRemoveRecord on=connection2 flags=0x0 record2",  // AAAA
                                   "DNSServiceRemoveRecord on=connection2 flags=0x0 record3",  // subtype
                                   "DNSServiceRefDeallocate query1",                           // A
                                   "DNSServiceRefDeallocate query2",                           // AAAA
                                   "DNSServiceRefDeallocate resolve1", "DNSServiceRefDeallocate query3",
                                   "DNSServiceRefDeallocate service1"));
  EXPECT_EQ(bridge_->responder_contexts, nullptr);
}

TEST_F(ResponderContexts, EachReleaseIsTraced) {
  ResponderContext* instance = Full("My Printer");
  const ResponderContext was = *instance;
  del_responder_context(bridge_, instance);
  std::vector<std::string> own;
  for (const std::string& trace : Traces()) {
    if (trace.starts_with("del_responder_context()")) {
      own.push_back(trace);
    }
  }
  EXPECT_THAT(
      own,
      ElementsAre(
          printed("del_responder_context(): bridge_context_ptr=%p, service_context=%p,if_from = 2, if_to = 3, name=My "
                  "Printer, "
                  "ref=%d ... ",
                  Pointer(bridge_), Pointer(instance), static_cast<int>(reinterpret_cast<std::intptr_t>(bridge_->ref))),
          printed("del_responder_context(): REMOVE:  dns_record_ptr :%p", Pointer(was.dns_record_ptr)),
          printed("del_responder_context(): REMOVE:  dns_recordv6_ptr=%p", Pointer(was.dns_recordv6_ptr)),
          printed("del_responder_context(): REMOVE:  subtype_record_ptr=%p", Pointer(was.subtype_record_ptr)),
          printed("del_responder_context(): REMOVE:  query_addrv4_ref=%p", Pointer(was.query_addrv4_ref)),
          printed("del_responder_context(): REMOVE:  query_addrv6_ref=%p", Pointer(was.query_addrv6_ref)),
          printed("del_responder_context(): REMOVE:  resolve_service_ref=%p", Pointer(was.resolve_service_ref)),
          printed("del_responder_context(): REMOVE:  query_subtype_ref=%p", Pointer(was.query_subtype_ref)),
          printed("del_responder_context(): REMOVE:  reg_service_ref=%p", Pointer(was.reg_service_ref)),
          printed("del_responder_context(): REMOVE:  Addr_query_context=%p", Pointer(was.Addr_query_context)),
          printed("del_responder_context(): REMOVE:  subtype_query_context=%p", Pointer(was.subtype_query_context))));
}

TEST_F(ResponderContexts, EachReleaseIsTracedBeforeItHappens) {
  ResponderContext* instance = Full("My Printer");
  const std::size_t first = fake_dns_sd::calls().size();
  const std::vector<std::size_t>& calls = WatchCallsAt("del_responder_context(): REMOVE:");
  del_responder_context(bridge_, instance);
  EXPECT_THAT(calls, ElementsAre(first, first + 1, first + 2, first + 3, first + 4, first + 5, first + 6, first + 7,
                                 first + 8, first + 8))
      << "eight calls, then the two contexts";
}

TEST_F(ResponderContexts, WhatHasBeenReleasedIsForgottenAtOnce) {
  ResponderContext* instance = Full("My Printer");
  std::vector<const void*> left = Holdings(*instance);
  const std::vector<std::vector<const void*>> seen = HoldingsDuringTeardown(bridge_, instance);
  ASSERT_EQ(seen.size(), left.size());
  for (std::size_t released = 0; released < left.size(); ++released) {
    EXPECT_EQ(seen[released], left) << "before release " << released;
    left[released] = nullptr;
  }
}

TEST_F(ResponderContexts, TheContextsAreFreedLastButForTheNameAndTheRecord) {
  ResponderContext* instance = Full("My Printer");
  const std::size_t full = zmk_usage().blocks;
  std::vector<std::size_t> blocks;
  fake_syslog::on_message([&] {
    if (fake_syslog::lines().back().text.starts_with("del_responder_context(): REMOVE:")) {
      blocks.push_back(zmk_usage().blocks);
      EXPECT_EQ(Instance("My Printer"), instance) << "it stays in its table until the end";
    }
  });
  del_responder_context(bridge_, instance);
  fake_syslog::on_message(nullptr);
  EXPECT_THAT(blocks, ElementsAre(full, full, full, full, full, full, full, full, full, full - 1));
}

TEST_F(ResponderContexts, NothingIsLeftOfATornDownInstance) {
  const ZmkUsage before = zmk_usage();
  del_responder_context(bridge_, Full("My Printer"));
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  EXPECT_EQ(zmk_usage().bytes, before.bytes);
}

TEST_F(ResponderContexts, WithoutTheServiceItsAddressRecordsStayAndItsSubtypeRecordGoes) {
  ResponderContext* instance = Full("My Printer");
  DNSServiceRefDeallocate(instance->reg_service_ref);
  instance->reg_service_ref = nullptr;
  MarkCalls();
  del_responder_context(bridge_, instance);
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRemoveRecord on=connection2 flags=0x0 record3",
                                   "DNSServiceRefDeallocate query1", "DNSServiceRefDeallocate query2",
                                   "DNSServiceRefDeallocate resolve1", "DNSServiceRefDeallocate query3"));
  EXPECT_THAT(Traces(), Not(Contains(AnyOf(HasSubstr("dns_record_ptr"), HasSubstr("dns_recordv6_ptr")))));
  EXPECT_EQ(fake_dns_sd::live_records(), 2U) << "they go with the connection";
}

TEST_F(ResponderContexts, AddressRecordsThatStayAreNotForgotten) {
  ResponderContext* instance = Full("My Printer");
  DNSServiceRefDeallocate(instance->reg_service_ref);
  instance->reg_service_ref = nullptr;
  const ResponderContext was = *instance;
  const std::vector<std::vector<const void*>> seen = HoldingsDuringTeardown(bridge_, instance);
  ASSERT_EQ(seen.size(), 7U);
  EXPECT_EQ(seen.back()[0], was.dns_record_ptr);
  EXPECT_EQ(seen.back()[1], was.dns_recordv6_ptr);
  EXPECT_EQ(seen.back()[2], nullptr) << "the subtype record goes";
}

TEST_F(ResponderContexts, AFreshInstanceOnlyEndsItsResolve) {
  const ZmkUsage before = zmk_usage();
  ResponderContext* instance = Added("My Printer");
  instance->resolve_service_ref = Resolved();
  const DNSServiceRef resolve = instance->resolve_service_ref;
  MarkCalls();
  ForgetMessages();
  del_responder_context(bridge_, instance);
  EXPECT_THAT(Calls(), ElementsAre("DNSServiceRefDeallocate resolve1"));
  EXPECT_THAT(Traces(),
              ElementsAre(HasSubstr("name=My Printer"),
                          printed("del_responder_context(): REMOVE:  resolve_service_ref=%p", Pointer(resolve))));
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
}

TEST_F(ResponderContexts, OnlyTheOneInstanceGoes) {
  ResponderContext* first = Added("first");
  ResponderContext* second = Added("second");
  del_responder_context(bridge_, first);
  EXPECT_EQ(Instance("first"), nullptr);
  EXPECT_EQ(Instance("second"), second);
}

TEST_F(ResponderContexts, AfterTheLastOneAFreshTableIsMade) {
  del_responder_context(bridge_, Added("first"));
  EXPECT_EQ(bridge_->responder_contexts, nullptr);
  EXPECT_NE(Added("second"), nullptr);
}

TEST_F(ResponderContexts, RefusedRemovalsDoNotStopTheTeardown) {
  const ZmkUsage before = zmk_usage();
  ResponderContext* instance = Full("My Printer");
  fake_dns_sd::fail_next("DNSServiceRemoveRecord", 3, kDNSServiceErr_BadReference);
  del_responder_context(bridge_, instance);
  EXPECT_THAT(Calls("DNSServiceRemoveRecord"), testing::SizeIs(3));
  EXPECT_THAT(Calls("DNSServiceRefDeallocate"), testing::SizeIs(5));
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  EXPECT_THAT(Warnings(), IsEmpty());
}

}  // namespace
