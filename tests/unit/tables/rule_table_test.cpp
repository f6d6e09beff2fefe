// SPDX-License-Identifier: MIT
// The rule table's outer level, and the look-up in its inner one.

#include <gmock/gmock.h>

#include <limits>

#include "fakes/fake_semaphore.h"
#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "tables/tables.h"
#include "unit/tables/daemon_test.h"
#include "unit/tables/rule_tables.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::Not;

using RuleTable = DaemonTest;
using RuleTableDeath = DaemonTest;

TEST_F(RuleTable, AnEmptyTableHasNoSource) {
  EXPECT_EQ(hash_find_gHashRulesIfFrom(3), nullptr);
  EXPECT_EQ(hash_count_RulesIfFrom(), 0U);
}

TEST_F(RuleTable, AnAddedSourceIsFoundAndNoOther) {
  gHashRulesIfFrom_t* added = hash_add_RulesIfFrom(3);
  EXPECT_EQ(added->if_index, 3);
  EXPECT_EQ(added->serviceType_to_ifTo_hash, nullptr);
  EXPECT_EQ(hash_find_gHashRulesIfFrom(3), added);
  EXPECT_EQ(hash_find_gHashRulesIfFrom(4), nullptr);
  EXPECT_EQ(hash_count_RulesIfFrom(), 1U);
}

TEST_F(RuleTable, AnyIndexIsAKey) {
  for (const std::int32_t index : {0, -1, 256, 65536, std::numeric_limits<std::int32_t>::max()}) {
    const gHashRulesIfFrom_t* added = hash_add_RulesIfFrom(index);
    EXPECT_EQ(hash_find_gHashRulesIfFrom(index), added) << index;
  }
  EXPECT_EQ(hash_count_RulesIfFrom(), 5U);
}

TEST_F(RuleTable, AddingASourceTwiceMakesTwoRecords) {
  const gHashRulesIfFrom_t* first = hash_add_RulesIfFrom(3);
  const gHashRulesIfFrom_t* second = hash_add_RulesIfFrom(3);
  EXPECT_NE(first, second);
  EXPECT_EQ(second->if_index, 3);
  EXPECT_EQ(hash_count_RulesIfFrom(), 2U);
}

TEST_F(RuleTable, TheInnerRecordOfATypeIsFoundAndNoOther) {
  gHashRulesIfFrom_t* source = hash_add_RulesIfFrom(3);
  const ServiceTypeToIfTo_t* first = add_destinations(source, 1, {5});
  const ServiceTypeToIfTo_t* second = add_destinations(source, 2, {5, 6});
  EXPECT_EQ(hash_get_ServiceTypeToIfToArray(source, 1), first);
  EXPECT_EQ(hash_get_ServiceTypeToIfToArray(source, 2), second);
  EXPECT_EQ(hash_get_ServiceTypeToIfToArray(source, 3), nullptr);
}

TEST_F(RuleTable, ANullSourceAndOneWithoutTypesHaveNoInnerRecordAndTakeNoSemaphore) {
  const gHashRulesIfFrom_t* source = hash_add_RulesIfFrom(3);
  fake_semaphore::reset();
  fake_syslog::reset();
  EXPECT_EQ(hash_get_ServiceTypeToIfToArray(nullptr, 1), nullptr);
  EXPECT_EQ(hash_get_ServiceTypeToIfToArray(source, 1), nullptr);
  EXPECT_THAT(fake_semaphore::calls(), IsEmpty());
  const char* start = "hash_get_ServiceTypeToIfToArray(): START: service_type_index = 1 ...";
  const char* nothing =
      "hash_get_ServiceTypeToIfToArray(): (inHash == NULL) || (inHash->serviceType_to_ifTo_hash == NULL), returning "
      "NULL...";
  EXPECT_THAT(fake_syslog::texts(LOG_DEBUG), ElementsAre(start, nothing, start, nothing));
}

TEST_F(RuleTable, EveryOperationIsOneCriticalSectionAndLeavesItsTrace) {
  gHashRulesIfFrom_t* source = hash_add_RulesIfFrom(3);
  add_destinations(source, 1, {5});
  hash_find_gHashRulesIfFrom(3);
  hash_count_RulesIfFrom();
  hash_get_ServiceTypeToIfToArray(source, 1);
  EXPECT_THAT(
      fake_semaphore::calls(),
      ElementsAre("wait gRulesSemaphore", "post gRulesSemaphore", "wait gRulesSemaphore", "post gRulesSemaphore",
                  "wait gRulesSemaphore", "post gRulesSemaphore", "wait gRulesSemaphore", "post gRulesSemaphore"));
  EXPECT_THAT(
      fake_syslog::texts(LOG_DEBUG),
      ElementsAre("hash_add_RulesIfFrom(): START: if_index = 3...\n",
                  "hash_find_gHashRulesIfFrom(): START: if_index = 3...", "hash_count_RulesIfFrom(): START...\n",
                  "hash_get_ServiceTypeToIfToArray(): START: service_type_index = 1 ..."));
}

TEST_F(RuleTableDeath, ARecordThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(tell_status_at_exit();
              hash_add_RulesIfFrom(3), ExitedWithCode(exit_status(20)),
              AllOf(says("syslog(4): ERROR 111709: malloc failed, exiting.\n"), says("status file: 20\n")));
}

TEST_F(RuleTableDeath, AHashTableThatFindsNoMemoryEndsTheProcessWithoutAWord) {
  fake_zmk::fail_malloc(2);
  EXPECT_EXIT(tell_status_at_exit(); hash_add_RulesIfFrom(3), ExitedWithCode(exit_status(-1)),
                                     AllOf(Not(says("syslog(4)")), Not(says("syslog(3)")), says("status file: \n")));
}

}  // namespace
