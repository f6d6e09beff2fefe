// SPDX-License-Identifier: MIT
// The interface table: look-up, insertion, and what is made of the system's interface list.

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "fakes/fake_if_nameindex.h"
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

class InterfaceTable : public DaemonTest {
 protected:
  InterfaceTable() { fake_if_nameindex::reset(); }
};

using InterfaceTableDeath = InterfaceTable;

TEST_F(InterfaceTable, AnEmptyTableKnowsNoName) {
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br0"), -1);
  EXPECT_EQ(hash_count_ifNameToIndex(), 0U);
}

TEST_F(InterfaceTable, AnAddedInterfaceIsFoundByItsWholeName) {
  hash_add_IfNameToIndex("br0", 7);
  hash_add_IfNameToIndex("br10", 8);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br0"), 7);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br10"), 8);
  EXPECT_EQ(hash_count_ifNameToIndex(), 2U);
}

TEST_F(InterfaceTable, APrefixAnotherCaseOrATrailingBlankIsAnotherName) {
  hash_add_IfNameToIndex("br10", 8);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br1"), -1);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("BR10"), -1);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br10 "), -1);
  EXPECT_EQ(hash_getIndex_IfNameToIndex(""), -1);
}

TEST_F(InterfaceTable, TheTableKeepsItsOwnCopyOfTheName) {
  std::string name = "br0";
  hash_add_IfNameToIndex(name.c_str(), 7);
  name = "xxx";
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br0"), 7);
}

TEST_F(InterfaceTable, AnyIndexIsStoredAsGiven) {
  hash_add_IfNameToIndex("zero", 0);
  hash_add_IfNameToIndex("low", std::numeric_limits<std::int32_t>::min());
  hash_add_IfNameToIndex("high", std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(hash_getIndex_IfNameToIndex("zero"), 0);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("low"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(hash_getIndex_IfNameToIndex("high"), std::numeric_limits<std::int32_t>::max());
}

TEST_F(InterfaceTable, LookUpAndInsertionAreCriticalSectionsOfTheirOwn) {
  hash_add_IfNameToIndex("br0", 7);
  EXPECT_THAT(fake_semaphore::calls(), ElementsAre("wait gIfNameToIndexSemaphore", "post gIfNameToIndexSemaphore",
                                                   "wait gIfNameToIndexSemaphore", "post gIfNameToIndexSemaphore"));
}

TEST_F(InterfaceTable, CountingIsACriticalSection) {
  hash_count_ifNameToIndex();
  EXPECT_THAT(fake_semaphore::calls(), ElementsAre("wait gIfNameToIndexSemaphore", "post gIfNameToIndexSemaphore"));
}

TEST_F(InterfaceTable, EveryOperationLeavesItsTraceAtDebugLevel) {
  hash_add_IfNameToIndex("br0", 7);
  hash_count_ifNameToIndex();
  EXPECT_THAT(fake_syslog::texts(LOG_DEBUG),
              ElementsAre("hash_add_IfNameToIndex(): START: if_name = br0, if_index = 7...  ",
                          "hash_getIndex_IfNameToIndex(): START: if_name = br0...  ",
                          "hash_getIndex_IfNameToIndex(): returning if_index = -1 for if_name = br0\n",
                          "hash_add_IfNameToIndex(): returning if_index = 7 for if_name = br0\n",
                          "hash_count_ifNameToIndex(): START...\n"));
}

TEST_F(InterfaceTableDeath, ANameThatIsThereEndsTheProcess) {
  hash_add_IfNameToIndex("br0", 0);
  EXPECT_EXIT(
      tell_status_at_exit();
      hash_add_IfNameToIndex("br0", 7), ExitedWithCode(exit_status(40)),
      AllOf(says("syslog(4): ERROR 102048: found two network interfaces with the same name (br0) -- this case is not "
                 "currently handled, exiting.\n"),
            says("status file: 40\n")));
}

TEST_F(InterfaceTableDeath, ARecordThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_IfNameToIndex("br0", 7), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 102046: malloc failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(InterfaceTableDeath, ANameCopyThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_strdup(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_IfNameToIndex("br0", 7), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 102047: strdup failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(InterfaceTableDeath, AHashTableThatFindsNoMemoryEndsTheProcessWithoutAWord) {
  fake_zmk::fail_malloc(2);
  EXPECT_EXIT(tell_status_at_exit(); hash_add_IfNameToIndex("br0", 7), ExitedWithCode(exit_status(-1)),
                                     AllOf(Not(says("syslog(4)")), Not(says("syslog(3)")), says("status file: \n")));
}

TEST_F(InterfaceTable, ASystemWithoutInterfacesGivesAnEmptyTable) {
  FindInterfaces();
  EXPECT_EQ(hash_count_ifNameToIndex(), 0U);
  EXPECT_EQ(fake_if_nameindex::live_lists(), 0U);
}

TEST_F(InterfaceTable, EveryInterfaceOfTheSystemIsAddedInItsOrder) {
  fake_if_nameindex::set({{1, "lo"}, {5, "br0"}, {3, "br1"}});
  FindInterfaces();
  EXPECT_EQ(hash_getIndex_IfNameToIndex("lo"), 1);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br0"), 5);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br1"), 3);
  EXPECT_EQ(hash_count_ifNameToIndex(), 3U);
  EXPECT_STREQ(gHashIfNameToIndex->if_name, "lo");
  EXPECT_EQ(fake_if_nameindex::calls(), 1U);
  EXPECT_EQ(fake_if_nameindex::live_lists(), 0U) << "the list is freed";
}

TEST_F(InterfaceTable, AnEntryWithIndexZeroAndANameIsAnInterface) {
  fake_if_nameindex::set({{0, "odd"}, {5, "br0"}});
  FindInterfaces();
  EXPECT_EQ(hash_getIndex_IfNameToIndex("odd"), 0);
  EXPECT_EQ(hash_getIndex_IfNameToIndex("br0"), 5);
}

TEST_F(InterfaceTable, TheFirstEntryWithNeitherIndexNorNameEndsTheList) {
  fake_if_nameindex::set({{5, "br0"}, {0, std::nullopt}, {6, "br1"}});
  FindInterfaces();
  EXPECT_EQ(hash_count_ifNameToIndex(), 1U);
}

TEST_F(InterfaceTable, InSyslogModeFindingInterfacesSaysNothingOfItsOwn) {
  fake_if_nameindex::set({{5, "br0"}});
  FindInterfaces();
  EXPECT_THAT(fake_syslog::texts(LOG_DEBUG),
              ElementsAre("hash_add_IfNameToIndex(): START: if_name = br0, if_index = 5...  ",
                          "hash_getIndex_IfNameToIndex(): START: if_name = br0...  ",
                          "hash_getIndex_IfNameToIndex(): returning if_index = -1 for if_name = br0\n",
                          "hash_add_IfNameToIndex(): returning if_index = 5 for if_name = br0\n"));
}

TEST_F(InterfaceTable, InDebugModeEveryEntryIsShownTheTerminatingOneToo) {
  fake_if_nameindex::set({{5, "br0"}});
  switch_to_debug_mode();
  FindInterfaces();
  EXPECT_THAT(debug_messages(),
              ElementsAre("\nFindInterfaces(): START: Finding interfaces and names...\n",
                          "\n\tInterface #0: if_index = 5, if_name = >>br0<<\n",
                          "hash_add_IfNameToIndex(): START: if_name = br0, if_index = 5...  ",
                          "hash_getIndex_IfNameToIndex(): START: if_name = br0...  ",
                          "hash_getIndex_IfNameToIndex(): returning if_index = -1 for if_name = br0\n",
                          "hash_add_IfNameToIndex(): returning if_index = 5 for if_name = br0\n",
                          "\n\tInterface #1: if_index = 0, if_name = >>(null)<<\n",
                          "\n\t>>> 1 Total interfaces found.\n", "hash_count_ifNameToIndex(): START...\n",
                          "\t>>> 1 total keys in hash via: hash_count_ifNameToIndex()\n\n"));
  EXPECT_THAT(fake_syslog::lines(), IsEmpty());
}

TEST_F(InterfaceTable, InDebugModeASystemWithoutInterfacesSumsUpToZero) {
  switch_to_debug_mode();
  FindInterfaces();
  EXPECT_THAT(debug_messages(),
              ElementsAre("\nFindInterfaces(): START: Finding interfaces and names...\n",
                          "\n\tInterface #0: if_index = 0, if_name = >>(null)<<\n",
                          "\n\t>>> 0 Total interfaces found.\n", "hash_count_ifNameToIndex(): START...\n",
                          "\t>>> 0 total keys in hash via: hash_count_ifNameToIndex()\n\n"));
}

TEST_F(InterfaceTable, EveryEntryIsShownAtTheHighestVerbosityOnly) {
  fake_if_nameindex::set({{5, "br0"}});
  switch_to_debug_mode();
  gLogLevel = gLOG_DBG - 1;
  FindInterfaces();
  EXPECT_THAT(debug_messages(), IsEmpty());
}

TEST_F(InterfaceTableDeath, AMissingInterfaceListEndsTheProcessWithItsReason) {
  fake_if_nameindex::fail(ENOBUFS);
  EXPECT_EXIT(
      tell_status_at_exit();
      FindInterfaces(), ExitedWithCode(exit_status(40)),
      AllOf(says("syslog(4): ERROR 401301141912: if_nameindex() failed with errno =  " + std::to_string(ENOBUFS) + " " +
                 std::strerror(ENOBUFS) + ", can't find interfaces so exiting.\n"),
            says("status file: 40\n")));
}

TEST_F(InterfaceTableDeath, TwoInterfacesOfOneNameEndTheProcessAtTheSecond) {
  fake_if_nameindex::set({{5, "br0"}, {6, "br1"}, {7, "br0"}, {8, "br2"}});
  EXPECT_EXIT(tell_status_at_exit();
              FindInterfaces(), ExitedWithCode(exit_status(40)),
              AllOf(says("returning if_index = 6 for if_name = br1"),
                    says("syslog(4): ERROR 102048: found two network interfaces with the same name (br0)"),
                    Not(says("br2")), says("status file: 40\n")));
}

}  // namespace
