// SPDX-License-Identifier: MIT
// The lookup tables, all built at start-up and only read afterwards; nothing is ever taken out of them.
//
//   table                                key                     record owns          bound
//   gHashIfNameToIndex                   interface name          name copy            interfaces of the system
//   gHashServiceNameToServiceTypesArray  service name            name copy, types     services of the services list
//   gHashServiceTypeToId                 service type            type copy            types of installed rules
//   gHashRulesIfFrom                     source interface index  inner table          sources of installed rules
//     serviceType_to_ifTo_hash           service type id         destination indexes  types of that source
//
// Keys are compared byte for byte. Each operation on the interfaces, the types and the rules takes its table's
// semaphore (runtime/startup.h) for itself and must not be called while it is held; the three on
// gHashServiceNameToServiceTypesArray, which one parser alone fills, take none. When the hash library itself finds no
// memory the process ends with status -1 and no message.
//
// Sources, in reading order: interface_table.cpp, service_catalog.cpp (messages.h), rule_table.cpp, table_dump.cpp.
#pragma once

#include <cstdint>

#include "platform/hash.h"
#include "platform/ut_array.h"

struct IfNameToIndex_t {
  char* if_name;          // owned; the key
  std::int32_t if_index;  // kernel index, as if_nameindex gave it
  UT_hash_handle hh;
};

struct ServiceTypeToId_t {
  char* service_type;            // owned; the key
  std::int32_t service_type_id;  // 1 for the first type, then consecutive
  UT_hash_handle hh;
};

struct ServiceNameToServiceTypesArray_t {
  char* service_name;       // owned; the key
  UT_array* service_types;  // owned texts in file order; never null
  UT_hash_handle hh;
};

struct ServiceTypeToIfTo_t {
  std::int32_t service_type_index;  // a service_type_id; the key
  UT_array* if_to_array;            // owned 32-bit destination indexes, each once, in the order of the rules
  UT_hash_handle hh;
};

struct gHashRulesIfFrom_t {
  std::int32_t if_index;                          // source interface; the key
  ServiceTypeToIfTo_t* serviceType_to_ifTo_hash;  // head of the inner table; null: empty
  UT_hash_handle hh;
};

// Heads of the tables; null while empty. Written by the hash_add_ functions alone (the inner tables by add_proxy_rule).
extern IfNameToIndex_t* gHashIfNameToIndex;
extern ServiceTypeToId_t* gHashServiceTypeToId;
extern ServiceNameToServiceTypesArray_t* gHashServiceNameToServiceTypesArray;
extern gHashRulesIfFrom_t* gHashRulesIfFrom;

// The interface's kernel index, or -1 when no interface has this name.
std::int32_t hash_getIndex_IfNameToIndex(const char* if_name);

// Adds an interface. A name that is there already ends the process (40), as does a lack of memory (20).
void hash_add_IfNameToIndex(const char* if_name, std::int32_t if_index);

unsigned hash_count_ifNameToIndex();

// Fills the interface table from the system's interface list. Ends the process (40) when there is no list.
void FindInterfaces();

// The type's id, or -1 when it is in no installed rule.
std::int32_t hash_getId_ServiceTypeToId(const char* service_type);

// The type's id, a new one when the type is new. A lack of memory ends the process (20).
std::int32_t hash_add_ServiceTypeToId(const char* service_type);

unsigned hash_count_ServiceTypeToId();

// The service's types, owned by the table; null for a null or unknown name.
UT_array* hash_getArray_ServiceNameToServiceTypesArray(const char* aServiceName);

// Adds a service and takes over the array. A name that is there already ends the process (110), a lack of memory too
// (20).
ServiceNameToServiceTypesArray_t* hash_add_ServiceNameToServiceTypesArray(const char* aServiceName,
                                                                          UT_array* aServiceTypesArray);

unsigned hash_count_ServiceNameToServiceTypesArray();

// The outer record of a source interface, or null.
gHashRulesIfFrom_t* hash_find_gHashRulesIfFrom(std::int32_t if_index);

// Adds an outer record with an empty inner table; does not look whether there is one. A lack of memory ends the process
// (20).
gHashRulesIfFrom_t* hash_add_RulesIfFrom(std::int32_t if_index);

unsigned hash_count_RulesIfFrom();

// The inner record of a service type, or null (also for a null outer record).
ServiceTypeToIfTo_t* hash_get_ServiceTypeToIfToArray(const gHashRulesIfFrom_t* inHash, std::int32_t service_type_index);

// Writes all four tables to syslog at LOG_DEBUG, in debug mode too.
void debug_printOutAllHashInfo();
