// SPDX-License-Identifier: MIT
// The custom service types that the settings file has named so far. Each gets an index behind those of the standard
// catalog and keeps it while the process runs, whatever becomes of the file: an index that a caller holds never comes
// to mean another type.
#pragma once

#include <string_view>

// At most so many in the life of the process, several times what a settings file has room for in practice, so that a
// file that is rewritten again and again with ever new names cannot fill the memory.
inline constexpr int kMostCustomServices = 1000;

// The index of a custom service type; -1 when it has none yet. A ".local" at the end of the text counts for nothing.
int custom_service_find(std::string_view service_type);

// The same, and gives the type an index when it has none; -1 when there is no memory or there are kMostCustomServices
// already.
int custom_service_find_or_add(std::string_view service_type);

// Whether there are kMostCustomServices.
bool custom_services_are_full();
