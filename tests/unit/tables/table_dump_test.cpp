// SPDX-License-Identifier: MIT
// The dump: every line of it, and where it goes.

#include <gmock/gmock.h>

#include "fakes/fake_syslog.h"
#include "runtime/runtime.h"
#include "tables/tables.h"
#include "unit/tables/daemon_test.h"
#include "unit/tables/rule_tables.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

class TableDump : public DaemonTest {
 protected:
  static void given_service(const char* name, const std::vector<const char*>& types) {
    UT_array* array = text_array_new();
    for (const char* type : types) {
      text_array_push(array, type);
    }
    hash_add_ServiceNameToServiceTypesArray(name, array);
  }

  // The dump's own lines, without the count operations' traces.
  static std::vector<std::string> dumped_lines() {
    std::vector<std::string> lines;
    for (const std::string& text : fake_syslog::texts(LOG_DEBUG)) {
      if (!text.starts_with("hash_count_")) {
        lines.push_back(text);
      }
    }
    return lines;
  }
};

TEST_F(TableDump, EmptyTablesHaveOnlyTheirHeadings) {
  switch_to_debug_mode();
  debug_printOutAllHashInfo();
  EXPECT_THAT(
      fake_syslog::texts(LOG_DEBUG),
      ElementsAre("hash_count_ifNameToIndex(): START...\n", "\n\n*****>>>>>>>>>>> 0 total in the gHashIfNameToIndex:\n",
                  "hash_count_ServiceNameToServiceTypesArray(): START...\n",
                  "\n\n*****>>>>>>>>>>> 0 total in the gHashServiceNameToServiceTypesArray:\n",
                  "hash_count_ServiceTypeToId(): START...\n",
                  "\n\n*****>>>>>>>>>>> 0 total in the gHashServiceTypeToId:\n", "hash_count_RulesIfFrom(): START...\n",
                  "\n\n*****>>>>>>>>>>> 0 total ifFrom's in the gHashRulesIfFrom\n"));
}

TEST_F(TableDump, EveryRecordHasItsLineInTheOrderOfInsertion) {
  hash_add_IfNameToIndex("lo", 1);
  hash_add_IfNameToIndex("br0", 5);
  given_service("AirPlay", {"_airplay._tcp", "_raop._tcp"});
  given_service("Nothing", {});
  given_service("AirPrint", {"_ipp._tcp"});
  hash_add_ServiceTypeToId("_ipp._tcp");
  hash_add_ServiceTypeToId("_airplay._tcp");
  switch_to_debug_mode();
  fake_syslog::reset();
  debug_printOutAllHashInfo();
  EXPECT_THAT(
      dumped_lines(),
      ElementsAre("\n\n*****>>>>>>>>>>> 2 total in the gHashIfNameToIndex:\n",
                  "\t>>> (0) if_name = lo >>> if_index = 1", "\t>>> (1) if_name = br0 >>> if_index = 5",
                  "\n\n*****>>>>>>>>>>> 3 total in the gHashServiceNameToServiceTypesArray:\n",
                  "\t>>> (0) service_name = AirPlay >>> service_type = _airplay._tcp",
                  "\t>>> (0) service_name = AirPlay >>> service_type = _raop._tcp",
                  "\t>>> (2) service_name = AirPrint >>> service_type = _ipp._tcp",
                  "\n\n*****>>>>>>>>>>> 2 total in the gHashServiceTypeToId:\n",
                  "\t>>> (0) service_type = _ipp._tcp >>> id = 1", "\t>>> (1) service_type = _airplay._tcp >>> id = 2",
                  "\n\n*****>>>>>>>>>>> 0 total ifFrom's in the gHashRulesIfFrom\n"));
}

TEST_F(TableDump, RulesAreNumberedByLevelAndTheThirdNumberIsAlwaysZero) {
  gHashRulesIfFrom_t* first = hash_add_RulesIfFrom(3);
  add_destinations(first, 1, {5, 6});
  add_destinations(first, 4, {6});
  add_destinations(hash_add_RulesIfFrom(6), 1, {3});
  hash_add_RulesIfFrom(9);
  switch_to_debug_mode();
  fake_syslog::reset();
  debug_printOutAllHashInfo();
  std::vector<std::string> lines = dumped_lines();
  lines.erase(lines.begin(), lines.begin() + 3);
  EXPECT_THAT(lines,
              ElementsAre("\n\n*****>>>>>>>>>>> 3 total ifFrom's in the gHashRulesIfFrom\n",
                          "\t>>> (0) if_index = 3: ", "\t\t>>> (0, 0) service_type_index = 1: ", "\t\t\t(0, 0, 0): 5",
                          "\t\t\t(0, 0, 0): 6", "\t\t>>> (0, 1) service_type_index = 4: ", "\t\t\t(0, 1, 0): 6",
                          "\t>>> (1) if_index = 6: ", "\t\t>>> (1, 0) service_type_index = 1: ", "\t\t\t(1, 0, 0): 3",
                          "\t>>> (2) if_index = 9: "));
}

TEST_F(TableDump, InDebugModeOnlyItsStartLineIsOnTheDebugStreamWhichThenGoesOn) {
  switch_to_debug_mode();
  gDBG = 7;
  debug_printOutAllHashInfo();
  log_message(LOG_DEBUG, "after");
  EXPECT_THAT(debug_messages(), ElementsAre("debug_printOutAllHashInfo(): START....\n", "after"));
  EXPECT_EQ(gDBG, 7);
  EXPECT_THAT(fake_syslog::lines(), Each(Field(&fake_syslog::Line::priority, LOG_DEBUG)));
  EXPECT_THAT(fake_syslog::masks(), IsEmpty()) << "the mask is the operator's";
}

TEST_F(TableDump, InSyslogModeItsStartLineIsInTheSystemLogToo) {
  debug_printOutAllHashInfo();
  EXPECT_EQ(fake_syslog::texts(LOG_DEBUG).front(), "debug_printOutAllHashInfo(): START....\n");
  EXPECT_EQ(gDBG, 0);
}

}  // namespace
