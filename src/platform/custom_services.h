// The custom service types that the settings file has named so far. Each gets an index behind those of the standard catalog and
// keeps it while the process runs, whatever becomes of the file: an index that a caller holds never comes to mean another type.
#pragma once

#include <string_view>

// The index of a custom service type; -1 when it has none yet. A ".local" at the end of the text counts for nothing.
int custom_service_find(std::string_view service_type);

// The same, and gives the type an index when it has none; -1 when there is no memory.
int custom_service_find_or_add(std::string_view service_type);
