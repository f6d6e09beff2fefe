// SPDX-License-Identifier: MIT
// What the DNS-SD library that comes with the daemon says of a service type.
#pragma once

#include <string>

// Whether the library browses for the type. Where it does not, the daemon ends when it installs a rule for it.
bool library_accepts_type(const std::string& type);
