// SPDX-License-Identifier: MIT
// The service type ids, and the types of each service name.

#include <gmock/gmock.h>

#include <cstdio>
#include <string>

#include "fakes/fake_semaphore.h"
#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "tables/tables.h"
#include "unit/tables/daemon_test.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::Not;

using ServiceTypeTable = DaemonTest;
using ServiceTypeTableDeath = DaemonTest;

TEST_F(ServiceTypeTable, AnEmptyTableKnowsNoType) {
  EXPECT_EQ(hash_getId_ServiceTypeToId("_ipp._tcp"), -1);
  EXPECT_EQ(hash_count_ServiceTypeToId(), 0U);
}

TEST_F(ServiceTypeTable, DistinctTypesGetConsecutiveIdsFromOne) {
  EXPECT_EQ(hash_add_ServiceTypeToId("_ipp._tcp"), 1);
  EXPECT_EQ(hash_add_ServiceTypeToId("_raop._tcp"), 2);
  EXPECT_EQ(hash_add_ServiceTypeToId("_smb._tcp"), 3);
  EXPECT_EQ(hash_getId_ServiceTypeToId("_ipp._tcp"), 1);
  EXPECT_EQ(hash_getId_ServiceTypeToId("_raop._tcp"), 2);
  EXPECT_EQ(hash_getId_ServiceTypeToId("_smb._tcp"), 3);
}

TEST_F(ServiceTypeTable, AddingATypeAgainReturnsItsIdAndChangesNothing) {
  hash_add_ServiceTypeToId("_ipp._tcp");
  hash_add_ServiceTypeToId("_raop._tcp");
  EXPECT_EQ(hash_add_ServiceTypeToId("_ipp._tcp"), 1);
  EXPECT_EQ(hash_count_ServiceTypeToId(), 2U);
}

TEST_F(ServiceTypeTable, TypesAreComparedWhole) {
  hash_add_ServiceTypeToId("_ipp._tcp");
  EXPECT_EQ(hash_getId_ServiceTypeToId("_ipp._tc"), -1);
  EXPECT_EQ(hash_getId_ServiceTypeToId("_IPP._tcp"), -1);
  EXPECT_EQ(hash_getId_ServiceTypeToId("_ipp._tcp."), -1);
}

TEST_F(ServiceTypeTable, TheTableKeepsItsOwnCopyOfTheType) {
  std::string type = "_ipp._tcp";
  hash_add_ServiceTypeToId(type.c_str());
  type = "_xxx._tcp";
  EXPECT_EQ(hash_getId_ServiceTypeToId("_ipp._tcp"), 1);
}

TEST_F(ServiceTypeTable, LookUpAndInsertionAreCriticalSectionsOfTheirOwn) {
  hash_add_ServiceTypeToId("_ipp._tcp");
  EXPECT_THAT(fake_semaphore::calls(), ElementsAre("wait gServiceTypeToIdSemaphore", "post gServiceTypeToIdSemaphore",
                                                   "wait gServiceTypeToIdSemaphore", "post gServiceTypeToIdSemaphore"));
}

TEST_F(ServiceTypeTable, AddingAKnownTypeAndCountingTakeOneSectionEach) {
  hash_add_ServiceTypeToId("_ipp._tcp");
  fake_semaphore::reset();
  hash_add_ServiceTypeToId("_ipp._tcp");
  EXPECT_THAT(fake_semaphore::calls(), ElementsAre("wait gServiceTypeToIdSemaphore", "post gServiceTypeToIdSemaphore"));
  fake_semaphore::reset();
  hash_count_ServiceTypeToId();
  EXPECT_THAT(fake_semaphore::calls(), ElementsAre("wait gServiceTypeToIdSemaphore", "post gServiceTypeToIdSemaphore"));
}

TEST_F(ServiceTypeTable, EveryOperationLeavesItsTraceAtDebugLevel) {
  hash_add_ServiceTypeToId("_ipp._tcp");
  hash_count_ServiceTypeToId();
  EXPECT_THAT(fake_syslog::texts(LOG_DEBUG),
              ElementsAre("hash_add_ServiceTypeToId(): START: service_type = _ipp._tcp...  ",
                          "hash_getId_ServiceTypeToId(): START: service_type = _ipp._tcp...  ",
                          "hash_getId_ServiceTypeToId(): returning service_type_id = -1 for service_type = _ipp._tcp\n",
                          "hash_add_ServiceTypeToId(): returning service_type_id = 1 for service_type = _ipp._tcp\n",
                          "hash_count_ServiceTypeToId(): START...\n"));
}

TEST_F(ServiceTypeTableDeath, ARecordThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_ServiceTypeToId("_ipp._tcp"), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 101946: malloc failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(ServiceTypeTableDeath, ATypeCopyThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_strdup(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_ServiceTypeToId("_ipp._tcp"), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 101944: strdup failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(ServiceTypeTableDeath, AHashTableThatFindsNoMemoryEndsTheProcessWithoutAWord) {
  fake_zmk::fail_malloc(2);
  EXPECT_EXIT(tell_status_at_exit(); hash_add_ServiceTypeToId("_ipp._tcp"), ExitedWithCode(exit_status(-1)),
                                     AllOf(Not(says("syslog(4)")), Not(says("syslog(3)")), says("status file: \n")));
}

class ServiceNameTable : public DaemonTest {
 protected:
  static UT_array* types(const std::vector<std::string>& texts) {
    UT_array* array = text_array_new();
    for (const std::string& text : texts) {
      text_array_push(array, text.c_str());
    }
    return array;
  }

  // For a name that is not taken over by the table, since the process ends.
  UT_array* given_types(const std::vector<std::string>& texts) { return given_ = types(texts); }

  ~ServiceNameTable() override { array_free(given_); }

 private:
  UT_array* given_ = nullptr;
};

using ServiceNameTableDeath = ServiceNameTable;

TEST_F(ServiceNameTable, AnEmptyTableKnowsNoName) {
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray("AirPlay"), nullptr);
  EXPECT_EQ(hash_count_ServiceNameToServiceTypesArray(), 0U);
}

TEST_F(ServiceNameTable, TheArrayIsTakenOverAsItIs) {
  UT_array* airplay = types({"_airplay._tcp", "_raop._tcp"});
  const ServiceNameToServiceTypesArray_t* record = hash_add_ServiceNameToServiceTypesArray("AirPlay", airplay);
  EXPECT_STREQ(record->service_name, "AirPlay");
  EXPECT_EQ(record->service_types, airplay);
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray("AirPlay"), airplay);
  EXPECT_STREQ(text_array_at(airplay, 1), "_raop._tcp");
}

TEST_F(ServiceNameTable, AServiceWithoutTypesHasAnEmptyArray) {
  hash_add_ServiceNameToServiceTypesArray("Nothing", types({}));
  const UT_array* found = hash_getArray_ServiceNameToServiceTypesArray("Nothing");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(array_count(found), 0U);
}

TEST_F(ServiceNameTable, NamesThatDifferInCaseAreDifferentServices) {
  UT_array* upper = types({"_a._tcp"});
  UT_array* lower = types({"_b._tcp"});
  hash_add_ServiceNameToServiceTypesArray("Print", upper);
  hash_add_ServiceNameToServiceTypesArray("print", lower);
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray("Print"), upper);
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray("print"), lower);
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray("Prin"), nullptr);
  EXPECT_EQ(hash_count_ServiceNameToServiceTypesArray(), 2U);
}

TEST_F(ServiceNameTable, AnEmptyNameIsANameLikeAnyOther) {
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray(""), nullptr);
  UT_array* nameless = types({"_a._tcp"});
  hash_add_ServiceNameToServiceTypesArray("", nameless);
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray(""), nameless);
}

TEST_F(ServiceNameTable, TheTableKeepsItsOwnCopyOfTheName) {
  std::string name = "AirPlay";
  UT_array* airplay = types({});
  hash_add_ServiceNameToServiceTypesArray(name.c_str(), airplay);
  name = "xxxxxxx";
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray("AirPlay"), airplay);
}

TEST_F(ServiceNameTable, NothingHereTakesASemaphore) {
  hash_add_ServiceNameToServiceTypesArray("AirPlay", types({}));
  hash_getArray_ServiceNameToServiceTypesArray("AirPlay");
  hash_count_ServiceNameToServiceTypesArray();
  EXPECT_THAT(fake_semaphore::calls(), IsEmpty());
}

TEST_F(ServiceNameTable, ANullNameHasNoArray) {
  hash_add_ServiceNameToServiceTypesArray("AirPlay", types({}));
  fake_syslog::reset();
  EXPECT_EQ(hash_getArray_ServiceNameToServiceTypesArray(nullptr), nullptr);
  EXPECT_THAT(fake_syslog::texts(LOG_DEBUG),
              ElementsAre("hash_getArray_ServiceNameToServiceTypesArray(): START: aServiceName = (null) ...",
                          "hash_getArray_ServiceNameToServiceTypesArray(): (aServiceName == NULL), returning NULL..."));
}

TEST_F(ServiceNameTable, AMissIsLoggedAndAHitIsNot) {
  hash_add_ServiceNameToServiceTypesArray("AirPlay", types({}));
  fake_syslog::reset();
  hash_getArray_ServiceNameToServiceTypesArray("AirPlay");
  hash_getArray_ServiceNameToServiceTypesArray("Other");
  hash_count_ServiceNameToServiceTypesArray();
  EXPECT_THAT(
      fake_syslog::texts(LOG_DEBUG),
      ElementsAre(
          "hash_getArray_ServiceNameToServiceTypesArray(): START: aServiceName = AirPlay ...",
          "hash_getArray_ServiceNameToServiceTypesArray(): START: aServiceName = Other ...",
          "hash_getArray_ServiceNameToServiceTypesArray(): could not find a hash entry for ServiceName = Other, "
          "returning NULL...",
          "hash_count_ServiceNameToServiceTypesArray(): START...\n"));
}

TEST_F(ServiceNameTable, AnAdditionIsLoggedUnderTheTypeTablesFunction) {
  UT_array* airplay = types({"_airplay._tcp", "_raop._tcp"});
  hash_add_ServiceNameToServiceTypesArray("AirPlay", airplay);
  char start[200];
  std::snprintf(
      start, sizeof(start),
      "hash_add_ServiceTypeToId(): START: aServiceName = AirPlay, aServiceTypesArray = %p (ptr) with values: ",
      static_cast<void*>(airplay));
  EXPECT_THAT(
      fake_syslog::texts(LOG_DEBUG),
      ElementsAre(
          start, "\taServiceTypesArray[0]: _airplay._tcp", "\taServiceTypesArray[1]: _raop._tcp",
          "hash_getArray_ServiceNameToServiceTypesArray(): START: aServiceName = AirPlay ...",
          "hash_getArray_ServiceNameToServiceTypesArray(): could not find a hash entry for ServiceName = AirPlay, "
          "returning NULL..."));
}

TEST_F(ServiceNameTableDeath, ANameThatIsThereEndsTheProcessEvenWithTheSameTypes) {
  gSettings.services_file = "/etc/configured.xml";
  hash_add_ServiceNameToServiceTypesArray("AirPlay", types({"_airplay._tcp"}));
  UT_array* again = given_types({"_airplay._tcp"});
  EXPECT_EXIT(
      tell_status_at_exit();
      hash_add_ServiceNameToServiceTypesArray("AirPlay", again), ExitedWithCode(exit_status(110)),
      AllOf(says("syslog(4): ERROR 131125: existing hash found for service_name = AirPlay (likely in config file: "
                 "/etc/configured.xml), this is an unhandled case.  Exiting.\n"),
            says("status file: 110\n")));
}

TEST_F(ServiceNameTableDeath, AnEmptyServiceCountsAsThereToo) {
  hash_add_ServiceNameToServiceTypesArray("Nothing", types({}));
  UT_array* again = given_types({});
  EXPECT_EXIT(hash_add_ServiceNameToServiceTypesArray("Nothing", again), ExitedWithCode(exit_status(110)),
              says("ERROR 131125"));
}

TEST_F(ServiceNameTableDeath, ARecordThatFindsNoMemoryEndsTheProcess) {
  UT_array* airplay = given_types({"_airplay._tcp"});
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_ServiceNameToServiceTypesArray("AirPlay", airplay), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 131127: malloc failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(ServiceNameTableDeath, ANameCopyThatFindsNoMemoryEndsTheProcess) {
  UT_array* airplay = given_types({"_airplay._tcp"});
  fake_zmk::fail_strdup(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_ServiceNameToServiceTypesArray("AirPlay", airplay), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 131128: strdup failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(ServiceNameTableDeath, AHashTableThatFindsNoMemoryEndsTheProcessWithoutAWord) {
  UT_array* airplay = given_types({"_airplay._tcp"});
  fake_zmk::fail_malloc(2);
  EXPECT_EXIT(tell_status_at_exit(); hash_add_ServiceNameToServiceTypesArray("AirPlay", airplay),
                                     ExitedWithCode(exit_status(-1)),
                                     AllOf(Not(says("syslog(4)")), Not(says("syslog(3)")), says("status file: \n")));
}

}  // namespace
