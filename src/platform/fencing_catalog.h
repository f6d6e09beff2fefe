// SPDX-License-Identifier: MIT
// The standard services that the configuration store knows by name, each with the service types that it stands for.
#pragma once

#include <string_view>

inline constexpr int kFencingCatalogSize = 25;
inline constexpr int kFencingCatalogTypes = 5;

// One standard service. Its position in the catalog is its index in the store.
struct FencingCatalogRow {
  const char* name;
  const char* types[kFencingCatalogTypes];  // "" where the service has no further type
};

// The row of a standard service; null for an index that is none.
const FencingCatalogRow* fencing_catalog_row(int index);

// The index of the standard service of this name, compared exactly; -1 when there is none.
int fencing_catalog_find_name(std::string_view name);

// The index of the first standard service that has this type, compared exactly but for one ".local" at the end of
// either text; -1 when there is none.
int fencing_catalog_find_type(std::string_view service_type);

// The text without one ".local" at its end, if it ends so.
std::string_view without_local(std::string_view service_type);
