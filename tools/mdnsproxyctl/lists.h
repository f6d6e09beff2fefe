// SPDX-License-Identifier: MIT
// What lists of services have in common.
#pragma once

#include <string>

#include "mdnsproxyctl/state_reader.h"

// For a person: why the service is as it is, and where it is to be reached; "-" when nothing is known.
std::string where_text(const InstanceView& instance);
