// SPDX-License-Identifier: MIT
// The service catalog: gHashServiceNameToServiceTypesArray and gHashServiceTypeToId.
//
// Lifecycle:
//   1. Both are empty at start.
//   2. The name table gets one record for each service of the services list, in the order of the file, while that file
//      is parsed; it takes over the array of types that the parser filled. A name that comes twice ends the process.
//   3. The type table gets one record for each distinct type of an installed rule, in the order of first use;
//      add_proxy_rule adds them while the rules list is parsed, and the ids in it are always 1 to the number of
//      records.
//   4. From then on both are only read. No record is changed or removed; all end with the process.
// No callback runs inside an operation. The type table's look-up before an insertion is a critical section of its own,
// since the semaphore is not recursive; the name table, written by one parser alone, has no semaphore.

#include <cstring>

#include "runtime/runtime.h"
#include "tables/messages.h"
#include "tables/tables.h"

ServiceTypeToId_t* gHashServiceTypeToId = nullptr;
ServiceNameToServiceTypesArray_t* gHashServiceNameToServiceTypesArray = nullptr;

namespace {

// The next three are for a caller that holds the semaphore, insert_type takes it.
ServiceTypeToId_t* find_type(const char* service_type) {
  ServiceTypeToId_t* record = nullptr;
  HASH_FIND_STR(gHashServiceTypeToId, service_type, record);
  return record;
}

ServiceTypeToId_t* new_type(const char* service_type) {
  auto* record = static_cast<ServiceTypeToId_t*>(zmk_malloc(sizeof(ServiceTypeToId_t), __FILE__, __LINE__));
  if (record == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 101946: malloc failed, exiting.");
  }
  *record = {};
  record->service_type = zmk_strdup(service_type, __FILE__, __LINE__);
  if (record->service_type == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 101944: strdup failed, exiting.");
  }
  return record;
}

std::int32_t link_type(ServiceTypeToId_t* record) {
  record->service_type_id = static_cast<std::int32_t>(HASH_COUNT(gHashServiceTypeToId)) + 1;
  HASH_ADD_KEYPTR(hh, gHashServiceTypeToId, record->service_type, std::strlen(record->service_type), record);
  return record->service_type_id;
}

std::int32_t insert_type(const char* service_type) {
  const SemaphoreGuard guard(gServiceTypeToIdSemaphore);
  return link_type(new_type(service_type));
}

ServiceNameToServiceTypesArray_t* find_name(const char* service_name) {
  ServiceNameToServiceTypesArray_t* record = nullptr;
  HASH_FIND_STR(gHashServiceNameToServiceTypesArray, service_name, record);
  return record;
}

ServiceNameToServiceTypesArray_t* new_name(const char* service_name, UT_array* service_types) {
  auto* record = static_cast<ServiceNameToServiceTypesArray_t*>(
      zmk_malloc(sizeof(ServiceNameToServiceTypesArray_t), __FILE__, __LINE__));
  if (record == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 131127: malloc failed, exiting.");
  }
  *record = {};
  record->service_name = zmk_strdup(service_name, __FILE__, __LINE__);
  if (record->service_name == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 131128: strdup failed, exiting.");
  }
  record->service_types = service_types;
  return record;
}

void link_name(ServiceNameToServiceTypesArray_t* record) {
  HASH_ADD_KEYPTR(hh, gHashServiceNameToServiceTypesArray, record->service_name, std::strlen(record->service_name),
                  record);
}

// Who reads these logs knows the lines under the name of the other table's function, and it stays.
void show_addition(const char* service_name, const UT_array* service_types) {
  log_message(LOG_DEBUG,
              "hash_add_ServiceTypeToId(): START: aServiceName = %s, aServiceTypesArray = %p (ptr) with values: ",
              service_name, static_cast<const void*>(service_types));
  for (unsigned i = 0; i < array_count(service_types); ++i) {
    log_message(LOG_DEBUG, "\taServiceTypesArray[%d]: %s", static_cast<int>(i),
                text_or_null(text_array_at(service_types, i)));
  }
}

}  // namespace

std::int32_t hash_getId_ServiceTypeToId(const char* service_type) {
  log_message(LOG_DEBUG, "hash_getId_ServiceTypeToId(): START: service_type = %s...  ", service_type);
  std::int32_t service_type_id = -1;
  {
    const SemaphoreGuard guard(gServiceTypeToIdSemaphore);
    const ServiceTypeToId_t* record = find_type(service_type);
    if (record != nullptr) {
      service_type_id = record->service_type_id;
    }
  }
  log_message(LOG_DEBUG, "hash_getId_ServiceTypeToId(): returning service_type_id = %d for service_type = %s\n",
              service_type_id, service_type);
  return service_type_id;
}

std::int32_t hash_add_ServiceTypeToId(const char* service_type) {
  log_message(LOG_DEBUG, "hash_add_ServiceTypeToId(): START: service_type = %s...  ", service_type);
  const std::int32_t existing_id = hash_getId_ServiceTypeToId(service_type);
  if (existing_id >= 0) {
    return existing_id;
  }
  const std::int32_t service_type_id = insert_type(service_type);
  log_message(LOG_DEBUG, "hash_add_ServiceTypeToId(): returning service_type_id = %d for service_type = %s\n",
              service_type_id, service_type);
  return service_type_id;
}

unsigned hash_count_ServiceTypeToId() {
  log_message(LOG_DEBUG, "hash_count_ServiceTypeToId(): START...\n");
  const SemaphoreGuard guard(gServiceTypeToIdSemaphore);
  return HASH_COUNT(gHashServiceTypeToId);
}

UT_array* hash_getArray_ServiceNameToServiceTypesArray(const char* aServiceName) {
  log_message(LOG_DEBUG, "hash_getArray_ServiceNameToServiceTypesArray(): START: aServiceName = %s ...",
              text_or_null(aServiceName));
  if (aServiceName == nullptr) {
    log_message(LOG_DEBUG, "hash_getArray_ServiceNameToServiceTypesArray(): (aServiceName == NULL), returning NULL...");
    return nullptr;
  }
  const ServiceNameToServiceTypesArray_t* record = find_name(aServiceName);
  if (record == nullptr) {
    log_message(
        LOG_DEBUG,
        "hash_getArray_ServiceNameToServiceTypesArray(): could not find a hash entry for ServiceName = %s, returning "
        "NULL...",
        aServiceName);
    return nullptr;
  }
  return record->service_types;
}

ServiceNameToServiceTypesArray_t* hash_add_ServiceNameToServiceTypesArray(const char* aServiceName,
                                                                          UT_array* aServiceTypesArray) {
  show_addition(aServiceName, aServiceTypesArray);
  if (hash_getArray_ServiceNameToServiceTypesArray(aServiceName) != nullptr) {
    fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kDuplicateServiceName, aServiceName, gSettings.services_file);
  }
  ServiceNameToServiceTypesArray_t* record = new_name(aServiceName, aServiceTypesArray);
  link_name(record);
  return record;
}

unsigned hash_count_ServiceNameToServiceTypesArray() {
  log_message(LOG_DEBUG, "hash_count_ServiceNameToServiceTypesArray(): START...\n");
  return HASH_COUNT(gHashServiceNameToServiceTypesArray);
}
