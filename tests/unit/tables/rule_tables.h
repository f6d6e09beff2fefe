// SPDX-License-Identifier: MIT
// Rules for the tests of the rule table and of the dump, as installing a rule makes them.
#pragma once

#include <cstdint>
#include <vector>

#include "tables/tables.h"

// Adds an inner record with these destinations to a source.
inline ServiceTypeToIfTo_t* add_destinations(gHashRulesIfFrom_t* source, std::int32_t service_type_index,
                                             const std::vector<std::int32_t>& destinations) {
  auto* record = static_cast<ServiceTypeToIfTo_t*>(zmk_malloc(sizeof(ServiceTypeToIfTo_t), __FILE__, __LINE__));
  *record = {};
  record->service_type_index = service_type_index;
  record->if_to_array = index_array_new();
  for (const std::int32_t destination : destinations) {
    index_array_push(record->if_to_array, destination);
  }
  HASH_ADD(hh, source->serviceType_to_ifTo_hash, service_type_index, sizeof(record->service_type_index), record);
  return record;
}
