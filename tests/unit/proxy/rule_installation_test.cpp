// SPDX-License-Identifier: MIT
#include <semaphore.h>
#include <syslog.h>

#include "fakes/failing_memory.h"
#include "fakes/fake_process.h"
#include "fakes/fake_semaphore.h"
#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "platform/ut_array.h"
#include "runtime/runtime.h"
#include "tables/tables.h"
#include "unit/proxy/proxy_test.h"

namespace {

// Cannot happen: the array itself says how long it is. Only a damaged array would have an element less.
bool gElementsAreMissing = false;

}  // namespace

// Takes the place of index_array_at (the linker's --wrap, by its C++ name).
extern "C" const std::int32_t* __real__Z14index_array_atPK8UT_arrayj(const UT_array* array, unsigned position);
extern "C" const std::int32_t* __wrap__Z14index_array_atPK8UT_arrayj(const UT_array* array, unsigned position);
extern "C" const std::int32_t* __wrap__Z14index_array_atPK8UT_arrayj(const UT_array* array, unsigned position) {
  return gElementsAreMissing ? nullptr : __real__Z14index_array_atPK8UT_arrayj(array, position);
}

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class AddProxyRule : public ProxyTest {
 protected:
  AddProxyRule() { fake_process::start(); }
  ~AddProxyRule() override { fake_process::stop(); }

  // The destinations of a type from an interface, in the order of the table.
  static std::vector<std::int32_t> Destinations(std::int32_t if_from, const char* service_type) {
    const ServiceTypeToIfTo_t* record =
        hash_get_ServiceTypeToIfToArray(hash_find_gHashRulesIfFrom(if_from), hash_getId_ServiceTypeToId(service_type));
    std::vector<std::int32_t> destinations;
    for (unsigned i = 0; record != nullptr && i < array_count(record->if_to_array); ++i) {
      destinations.push_back(*index_array_at(record->if_to_array, i));
    }
    return destinations;
  }

  static std::vector<std::string> Retries() {
    std::vector<std::string> retries;
    for (const std::string& trace : Traces()) {
      if (trace.starts_with("******")) {
        retries.push_back(trace);
      }
    }
    return retries;
  }
};

using AddProxyRuleDeathTest = AddProxyRule;

TEST_F(AddProxyRule, BrowsesOnTheSourceInterface) {
  const BridgeContext* bridge = GivenRule("_ipp._tcp", "br0", "br1");
  EXPECT_THAT(
      Calls(),
      ElementsAre("DNSServiceBrowse on=connection1 flags=0x4000 if=2 regtype=_ipp._tcp domain=local -> browse1"));
  EXPECT_EQ(bridge->ref, LastCall("DNSServiceBrowse").ref);
  EXPECT_EQ(bridge->if_from, kBr0);
  EXPECT_EQ(bridge->if_to, kBr1);
  EXPECT_EQ(bridge->responder_contexts, nullptr);
  EXPECT_STREQ(bridge->subtype_service_type, "");
}

TEST_F(AddProxyRule, RecordsTheRuleInTheTables) {
  GivenRule("_ipp._tcp", "br0", "br1");
  EXPECT_EQ(hash_getId_ServiceTypeToId("_ipp._tcp"), 1);
  EXPECT_EQ(hash_count_RulesIfFrom(), 1U);
  EXPECT_THAT(Destinations(kBr0, "_ipp._tcp"), ElementsAre(kBr1));
}

TEST_F(AddProxyRule, TracesEachStepOfAFirstRule) {
  const BridgeContext* bridge = GivenRule("_ipp._tcp", "br0", "br1");
  std::vector<std::string> own;
  for (const std::string& trace : Traces()) {
    if (trace.starts_with("add_proxy_rule()")) {
      own.push_back(trace);
    }
  }
  EXPECT_THAT(
      own, ElementsAre(
               "add_proxy_rule(): START: service_type = _ipp._tcp, if_from = br0, if_to = br1",
               "add_proxy_rule(): couldn't find existing gHashRulesIfFrom_t if_from_index = 2, creating one now...",
               "add_proxy_rule(): couldn't find existing svctype hash for service_type_index = 1 inside of main hash "
               "for if_from_index = 2, creating one now...",
               "add_proxy_rule(): adding new if_to_index = 3 to array...",
               "add_proxy_rule(): No registering BROWSE for _ipp._tcp.local if_from_index = 2, if_to_index = 3",
               printed("add_proxy_rule(): SUCCESS: MyDNSServiceBrowse(sdref_airplay) call returned success for "
                       "sdref=%p _ipp._tcp.local if_from_index = 2, if_to_index = 3\n",
                       static_cast<const void*>(bridge->ref))));
}

TEST_F(AddProxyRule, GivesEachDestinationABrowseOfItsOwn) {
  const BridgeContext* first = GivenRule("_ipp._tcp", "br0", "br1");
  const BridgeContext* second = GivenRule("_ipp._tcp", "br0", "br2");
  EXPECT_NE(first, second);
  EXPECT_NE(first->ref, second->ref);
  EXPECT_THAT(Destinations(kBr0, "_ipp._tcp"), ElementsAre(kBr1, kBr2));
  EXPECT_EQ(HASH_COUNT(gHashRulesIfFrom->serviceType_to_ifTo_hash), 1U);
}

TEST_F(AddProxyRule, KeepsTypesOfOneSourceApart) {
  GivenRule("_ipp._tcp", "br0", "br1");
  GivenRule("_raop._tcp", "br0", "br2");
  GivenRule("_ipp._tcp", "br1", "br0");
  EXPECT_THAT(Destinations(kBr0, "_ipp._tcp"), ElementsAre(kBr1));
  EXPECT_THAT(Destinations(kBr0, "_raop._tcp"), ElementsAre(kBr2));
  EXPECT_THAT(Destinations(kBr1, "_ipp._tcp"), ElementsAre(kBr0));
  EXPECT_EQ(hash_count_RulesIfFrom(), 2U);
}

TEST_F(AddProxyRule, ReportsARepeatedRuleAndSkipsIt) {
  GivenRule("_ipp._tcp", "br0", "br1");
  ForgetMessages();
  const ZmkUsage before = zmk_usage();
  EXPECT_EQ(GivenRule("_ipp._tcp", "br0", "br1"), nullptr);
  EXPECT_EQ(zmk_usage(), before) << "no second context";
  EXPECT_THAT(Warnings(),
              ElementsAre("WARNING 111727: POSSIBLE ERROR: found existing if_to = br1 (if_to_index = 3) in array when "
                          "adding for if_from = br0 (if_from_index = 2) and service_type = _ipp._tcp "
                          "(service_type_index = 1)."));
  EXPECT_THAT(Traces(), Contains("add_proxy_rule(): adding new if_to_index = 3 to array..."))
      << "said before the check";
  EXPECT_THAT(Calls("DNSServiceBrowse"), SizeIs(1));
  EXPECT_TRUE(fake_dns_sd::is_live(Rule()->ref)) << "the first rule stays in force";
  EXPECT_THAT(Destinations(kBr0, "_ipp._tcp"), ElementsAre(kBr1));
}

TEST_F(AddProxyRule, ReportsEveryOccurrenceOfADuplicate) {
  GivenRule("_ipp._tcp", "br0", "br1");
  index_array_push(gHashRulesIfFrom->serviceType_to_ifTo_hash->if_to_array, kBr1);
  EXPECT_EQ(GivenRule("_ipp._tcp", "br0", "br1"), nullptr);
  EXPECT_THAT(Warnings(), SizeIs(2));
}

TEST_F(AddProxyRule, HoldsTheRuleSemaphoreOnlyToFindOrCreateTheTypesRecord) {
  GivenRule("_ipp._tcp", "br0", "br1");
  fake_semaphore::reset();
  GivenRule("_ipp._tcp", "br0", "br2");
  EXPECT_THAT(
      fake_semaphore::calls(),
      ElementsAre("wait gServiceTypeToIdSemaphore", "post gServiceTypeToIdSemaphore", "wait gIfNameToIndexSemaphore",
                  "post gIfNameToIndexSemaphore", "wait gIfNameToIndexSemaphore", "post gIfNameToIndexSemaphore",
                  "wait gRulesSemaphore", "post gRulesSemaphore", "wait gRulesSemaphore", "post gRulesSemaphore"));
}

// The outer record is there already; nothing but its inner table is guarded here.
TEST_F(AddProxyRule, MakesTheTypesRecordUnderTheSemaphoreAndGrowsItsListWithoutIt) {
  GivenRule("_raop._tcp", "br0", "br1");
  std::vector<std::string> held;
  fake_syslog::on_message([&held] {
    const std::string& text = fake_syslog::lines().back().text;
    if (text.starts_with("add_proxy_rule():")) {
      int value = -1;
      sem_getvalue(&gRulesSemaphore, &value);
      held.push_back(text.substr(0, 46) + (value == 0 ? " [held]" : " [free]"));
    }
  });
  GivenRule("_ipp._tcp", "br0", "br1");
  fake_syslog::on_message(nullptr);
  EXPECT_THAT(held, ElementsAre("add_proxy_rule(): START: service_type = _ipp._ [free]",
                                "add_proxy_rule(): couldn't find existing svcty [held]",
                                "add_proxy_rule(): adding new if_to_index = 3 t [free]",
                                "add_proxy_rule(): No registering BROWSE for _i [free]",
                                "add_proxy_rule(): SUCCESS: MyDNSServiceBrowse( [free]"));
}

// --- Subtypes --------------------------------------------------------------------------------------------------------

TEST_F(AddProxyRule, KeepsATypeOfThreeLabelsAsTheSubtype) {
  EXPECT_STREQ(GivenRule("_universal._ipp._tcp")->subtype_service_type, "_universal._ipp._tcp");
  EXPECT_THAT(Traces(), Contains("subtype existed in service_type:_universal._ipp._tcp, and record in bridge context"));
  EXPECT_EQ(LastCall("DNSServiceBrowse").regtype, "_universal._ipp._tcp");
}

TEST_F(AddProxyRule, TypesOfTwoOrFourLabelsHaveNoSubtype) {
  EXPECT_STREQ(GivenRule("_ipp._tcp")->subtype_service_type, "");
  EXPECT_STREQ(GivenRule("_a._b._ipp._tcp")->subtype_service_type, "");
  EXPECT_THAT(Traces(), Not(Contains(HasSubstr("subtype existed"))));
}

TEST_F(AddProxyRule, CutsALongTypeToTheRoomOfTheSubtype) {
  const std::string subtype(55, 's');
  const std::string fits = subtype + "._a._tcp";
  ASSERT_THAT(fits, SizeIs(63));
  EXPECT_EQ(GivenRule(fits.c_str())->subtype_service_type, fits);
  const std::string longer = subtype + "._ab._tcp";
  EXPECT_EQ(GivenRule(longer.c_str())->subtype_service_type, longer.substr(0, 63));
  const std::string longest = std::string(1500, 's') + "._ipp._tcp";
  EXPECT_STREQ(GivenRule(longest.c_str())->subtype_service_type, "");
}

// --- Retries ---------------------------------------------------------------------------------------------------------

TEST_F(AddProxyRule, TriesARefusedBrowseFourTimesHalfASecondApart) {
  fake_dns_sd::fail_next("DNSServiceBrowse", 3, kDNSServiceErr_Unknown);
  const BridgeContext* bridge = GivenRule("_ipp._tcp");
  EXPECT_THAT(Calls("DNSServiceBrowse"), SizeIs(4));
  EXPECT_TRUE(fake_dns_sd::is_live(bridge->ref));
  EXPECT_THAT(Retries(),
              ElementsAre("******browser request send 1 times failed", "******browser request send 2 times failed",
                          "******browser request send 3 times failed"));
  EXPECT_THAT(fake_process::calls_of("usleep"), ElementsAre("usleep(500000)", "usleep(500000)", "usleep(500000)"));
}

TEST_F(AddProxyRule, PausesBetweenTwoTries) {
  std::vector<std::size_t> tries_before_pauses;
  std::vector<std::size_t> reports_before_pauses;
  fake_process::on_call("usleep", [&] {
    tries_before_pauses.push_back(Calls("DNSServiceBrowse").size());
    reports_before_pauses.push_back(Retries().size());
  });
  fake_dns_sd::fail_next("DNSServiceBrowse", 3, kDNSServiceErr_Unknown);
  GivenRule("_ipp._tcp");
  EXPECT_THAT(tries_before_pauses, ElementsAre(1, 2, 3));
  EXPECT_THAT(reports_before_pauses, ElementsAre(1, 2, 3));
}

// The reference that a refused browse has left behind is the next one's, not a fresh copy of the connection's.
TEST_F(AddProxyRule, CopiesTheConnectionOnceForAllTries) {
  fake_process::on_call("usleep", [] { gDNSServiceRef_Shared = gDNSServiceRef_RegisterRecord; });
  fake_dns_sd::fail_next("DNSServiceBrowse", 1, kDNSServiceErr_Unknown);
  GivenRule("_ipp._tcp");
  const std::vector<fake_dns_sd::Call> tries = Calls("DNSServiceBrowse");
  ASSERT_THAT(tries, SizeIs(2));
  EXPECT_EQ(tries[1].on, "connection1");
}

TEST_F(AddProxyRule, APromptBrowsePausesNothing) {
  GivenRule("_ipp._tcp");
  EXPECT_THAT(Retries(), IsEmpty());
  EXPECT_THAT(fake_process::calls_of("usleep"), IsEmpty());
}

TEST_F(AddProxyRuleDeathTest, AFourthRefusalEndsTheProcess) {
  fake_dns_sd::fail_next("DNSServiceBrowse", 4, kDNSServiceErr_Unknown);
  EXPECT_EXIT(add_proxy_rule("_ipp._tcp", "br0", "br1"), ExitedWithCode(exit_status(600)),
              AllOf(says("syslog(4): ERROR 131813: MyDNSServiceBrowse  call failed: -65537"),
                    says("send 3 times failed"), Not(says("send 4 times failed"))));
}

TEST_F(AddProxyRuleDeathTest, WithoutASharedConnectionTheProcessEnds) {
  EXPECT_EXIT(
      {
        gDNSServiceRef_Shared = nullptr;
        add_proxy_rule("_ipp._tcp", "br0", "br1");
      },
      ExitedWithCode(exit_status(600)),
      says("syslog(4): ERROR 131811: (gDNSServiceRef_Shared == NULL), this should never happen.  Critical error, "
           "exiting."));
}

// --- Interfaces and memory -------------------------------------------------------------------------------------------

TEST_F(AddProxyRuleDeathTest, AnUnknownSourceEndsTheProcess) {
  EXPECT_EXIT(
      add_proxy_rule("_ipp._tcp", "wlan7", "nowhere"), ExitedWithCode(exit_status(40)),
      says(
          "syslog(4): INTERFACE LOOKUP ERROR 111833: Could not find interface named 'wlan7' on this system, please "
          "double-check the accuracy of the mdnsproxy rules config file: /tmp/mdnsproxyrule-list.xml.  Critical error, "
          "exiting."));
}

TEST_F(AddProxyRuleDeathTest, AnUnknownDestinationEndsTheProcess) {
  gSettings.rules_file = "/elsewhere/rules";
  EXPECT_EXIT(
      add_proxy_rule("_ipp._tcp", "br0", "wlan7"), ExitedWithCode(exit_status(40)),
      says(
          "syslog(4): INTERFACE LOOKUP ERROR 111834: Could not find interface named 'wlan7' on this system, please "
          "double-check the accuracy of the mdnsproxy rules config file: /elsewhere/rules.  Critical error, exiting."));
}

TEST_F(AddProxyRuleDeathTest, AnInterfaceOfIndexZeroCountsAsUnknown) {
  hash_add_IfNameToIndex("odd0", 0);
  EXPECT_EXIT(add_proxy_rule("_ipp._tcp", "odd0", "br1"), ExitedWithCode(exit_status(40)), says("111833"));
  EXPECT_EXIT(add_proxy_rule("_ipp._tcp", "br0", "odd0"), ExitedWithCode(exit_status(40)), says("111834"));
}

TEST_F(AddProxyRule, AnInterfaceOfIndexOneIsOneLikeAnyOther) {
  hash_add_IfNameToIndex("odd1", 1);
  EXPECT_EQ(GivenRule("_ipp._tcp", "odd1", "br1")->if_from, 1);
  EXPECT_EQ(GivenRule("_ipp._tcp", "br0", "odd1")->if_to, 1);
}

// The allocations of a further rule, its source and its type being known: the type's record, its list, the list's room,
// the context.
TEST_F(AddProxyRuleDeathTest, AnyLackOfMemoryEndsTheProcess) {
  GivenRule("_ipp._tcp", "br1", "br0");
  GivenRule("_raop._tcp", "br0", "br1");
  const auto rule_without_memory = [](unsigned nth) {
    fake_zmk::fail_malloc(nth);
    add_proxy_rule("_ipp._tcp", "br0", "br2");
  };
  EXPECT_EXIT(rule_without_memory(1), ExitedWithCode(20), says("syslog(4): ERROR 111710: malloc failed, exiting."));
  EXPECT_EXIT(rule_without_memory(2), ExitedWithCode(exit_status(800)),
              says("syslog(4): ERROR 111711: utarray_new() failed, exiting."));
  EXPECT_EXIT(rule_without_memory(3), ExitedWithCode(20), says("syslog(4): ERROR 1301171548: malloc failed, exiting."));
}

TEST_F(AddProxyRuleDeathTest, AListThatLosesAnElementUnderTheWalkEndsTheProcess) {
  GivenRule("_ipp._tcp", "br0", "br1");
  EXPECT_EXIT(
      {
        gElementsAreMissing = true;
        add_proxy_rule("_ipp._tcp", "br0", "br2");
      },
      ExitedWithCode(exit_status(800)),
      says("syslog(4): ERROR 111726: INTERNAL ERROR: Invalid return from loop over UT_array, exiting."));
}

TEST_F(AddProxyRuleDeathTest, AListThatCannotGrowEndsTheProcessWithoutAMessage) {
  GivenRule("_ipp._tcp", "br0", "br1");
  UT_array* list = gHashRulesIfFrom->serviceType_to_ifTo_hash->if_to_array;
  while (list->i < list->n) {
    index_array_push(list, kBr0);
  }
  const auto rule_without_memory = [] {
    failing_memory::fail_call(1);
    add_proxy_rule("_ipp._tcp", "br0", "br2");
  };
  EXPECT_EXIT(rule_without_memory(), ExitedWithCode(exit_status(-1)), Not(says("syslog(4)")));
}

}  // namespace
