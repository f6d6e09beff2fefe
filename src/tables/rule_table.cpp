// SPDX-License-Identifier: MIT
// The proxy rule table: gHashRulesIfFrom, and the look-up in its inner tables.
//
// Lifecycle:
//   1. Empty until the rules list is parsed.
//   2. add_proxy_rule, the only writer, finds or adds the outer record of a rule's source interface with the functions
//      here, and then finds or makes the inner record and appends the destination by itself. An outer record starts
//      with no inner table.
//   3. From then on it is only read: by the dump.
//   4. No record is changed or removed; all end with the process.
// No callback runs inside an operation. add_proxy_rule takes gRulesSemaphore only when it is through with these
// functions, since it is not recursive.

#include "runtime/runtime.h"
#include "tables/tables.h"

gHashRulesIfFrom_t* gHashRulesIfFrom = nullptr;

namespace {

// All for a caller that holds the semaphore. Keys are the four bytes of the integer.
gHashRulesIfFrom_t* find_source(std::int32_t if_index) {
  gHashRulesIfFrom_t* record = nullptr;
  HASH_FIND(hh, gHashRulesIfFrom, &if_index, sizeof(if_index), record);
  return record;
}

gHashRulesIfFrom_t* new_source(std::int32_t if_index) {
  auto* record = static_cast<gHashRulesIfFrom_t*>(zmk_malloc(sizeof(gHashRulesIfFrom_t), __FILE__, __LINE__));
  if (record == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 111709: malloc failed, exiting.");
  }
  *record = {};
  record->if_index = if_index;
  return record;
}

void link_source(gHashRulesIfFrom_t* record) {
  HASH_ADD(hh, gHashRulesIfFrom, if_index, sizeof(record->if_index), record);
}

ServiceTypeToIfTo_t* find_destinations(ServiceTypeToIfTo_t* head, std::int32_t service_type_index) {
  ServiceTypeToIfTo_t* record = nullptr;
  HASH_FIND(hh, head, &service_type_index, sizeof(service_type_index), record);
  return record;
}

}  // namespace

gHashRulesIfFrom_t* hash_find_gHashRulesIfFrom(std::int32_t if_index) {
  log_message(LOG_DEBUG, "hash_find_gHashRulesIfFrom(): START: if_index = %d...", if_index);
  const SemaphoreGuard guard(gRulesSemaphore);
  return find_source(if_index);
}

gHashRulesIfFrom_t* hash_add_RulesIfFrom(std::int32_t if_index) {
  log_message(LOG_DEBUG, "hash_add_RulesIfFrom(): START: if_index = %d...\n", if_index);
  const SemaphoreGuard guard(gRulesSemaphore);
  gHashRulesIfFrom_t* record = new_source(if_index);
  link_source(record);
  return record;
}

unsigned hash_count_RulesIfFrom() {
  log_message(LOG_DEBUG, "hash_count_RulesIfFrom(): START...\n");
  const SemaphoreGuard guard(gRulesSemaphore);
  return HASH_COUNT(gHashRulesIfFrom);
}

ServiceTypeToIfTo_t* hash_get_ServiceTypeToIfToArray(const gHashRulesIfFrom_t* inHash,
                                                     std::int32_t service_type_index) {
  log_message(LOG_DEBUG, "hash_get_ServiceTypeToIfToArray(): START: service_type_index = %d ...", service_type_index);
  if (inHash == nullptr || inHash->serviceType_to_ifTo_hash == nullptr) {
    log_message(
        LOG_DEBUG,
        "hash_get_ServiceTypeToIfToArray(): (inHash == NULL) || (inHash->serviceType_to_ifTo_hash == NULL), returning "
        "NULL...");
    return nullptr;
  }
  const SemaphoreGuard guard(gRulesSemaphore);
  return find_destinations(inHash->serviceType_to_ifTo_hash, service_type_index);
}
