// SPDX-License-Identifier: MIT
// JSON in full, for the sources that make or read it.
#pragma once

#include <nlohmann/json.hpp>

#include "mdnsproxyctl/json_fwd.h"
