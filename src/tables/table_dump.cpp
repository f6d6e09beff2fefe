// SPDX-License-Identifier: MIT
// The dump of all tables into the system log, for an operator who wants to see what the daemon made of its files.
//
// Lifecycle: owns no table. Each is walked in the order in which its records were added, and none changes meanwhile,
// since nothing here calls out. The counts take each table's semaphore, the walks take none.

#include "runtime/runtime.h"
#include "tables/tables.h"

namespace {

void dump_interfaces() {
  log_message(LOG_DEBUG, "\n\n*****>>>>>>>>>>> %d total in the gHashIfNameToIndex:\n",
              static_cast<int>(hash_count_ifNameToIndex()));
  int i = 0;
  for (const auto* record = gHashIfNameToIndex; record != nullptr;
       record = static_cast<const IfNameToIndex_t*>(record->hh.next)) {
    log_message(LOG_DEBUG, "\t>>> (%d) if_name = %s >>> if_index = %d", i, record->if_name, record->if_index);
    ++i;
  }
}

void dump_types_of(int service_number, const ServiceNameToServiceTypesArray_t& service) {
  for (unsigned t = 0; t < array_count(service.service_types); ++t) {
    log_message(LOG_DEBUG, "\t>>> (%d) service_name = %s >>> service_type = %s", service_number, service.service_name,
                text_or_null(text_array_at(service.service_types, t)));
  }
}

void dump_service_names() {
  log_message(LOG_DEBUG, "\n\n*****>>>>>>>>>>> %d total in the gHashServiceNameToServiceTypesArray:\n",
              static_cast<int>(hash_count_ServiceNameToServiceTypesArray()));
  int i = 0;
  for (const auto* record = gHashServiceNameToServiceTypesArray; record != nullptr;
       record = static_cast<const ServiceNameToServiceTypesArray_t*>(record->hh.next)) {
    dump_types_of(i, *record);
    ++i;
  }
}

void dump_service_types() {
  log_message(LOG_DEBUG, "\n\n*****>>>>>>>>>>> %d total in the gHashServiceTypeToId:\n",
              static_cast<int>(hash_count_ServiceTypeToId()));
  int i = 0;
  for (const auto* record = gHashServiceTypeToId; record != nullptr;
       record = static_cast<const ServiceTypeToId_t*>(record->hh.next)) {
    log_message(LOG_DEBUG, "\t>>> (%d) service_type = %s >>> id = %d", i, record->service_type,
                record->service_type_id);
    ++i;
  }
}

// The third number is no counter but 0 on every line: an interface, see docs/interface.md.
void dump_destinations(int i, int j, const UT_array* if_to_array) {
  for (unsigned k = 0; k < array_count(if_to_array); ++k) {
    log_message(LOG_DEBUG, "\t\t\t(%d, %d, %d): %d", i, j, 0, *index_array_at(if_to_array, k));
  }
}

void dump_source(int i, const gHashRulesIfFrom_t& source) {
  log_message(LOG_DEBUG, "\t>>> (%d) if_index = %d: ", i, source.if_index);
  int j = 0;
  for (const auto* record = source.serviceType_to_ifTo_hash; record != nullptr;
       record = static_cast<const ServiceTypeToIfTo_t*>(record->hh.next)) {
    log_message(LOG_DEBUG, "\t\t>>> (%d, %d) service_type_index = %d: ", i, j, record->service_type_index);
    dump_destinations(i, j, record->if_to_array);
    ++j;
  }
}

void dump_rules() {
  log_message(LOG_DEBUG, "\n\n*****>>>>>>>>>>> %d total ifFrom's in the gHashRulesIfFrom\n",
              static_cast<int>(hash_count_RulesIfFrom()));
  int i = 0;
  for (const auto* record = gHashRulesIfFrom; record != nullptr;
       record = static_cast<const gHashRulesIfFrom_t*>(record->hh.next)) {
    dump_source(i, *record);
    ++i;
  }
}

}  // namespace

void debug_printOutAllHashInfo() {
  log_message(LOG_DEBUG, "debug_printOutAllHashInfo(): START....\n");
  const int debug_mode = gDBG;
  gDBG = 0;  // everything below belongs in the system log, in debug mode too
  dump_interfaces();
  dump_service_names();
  dump_service_types();
  dump_rules();
  gDBG = debug_mode;
}
