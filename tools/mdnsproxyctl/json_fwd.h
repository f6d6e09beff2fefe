// SPDX-License-Identifier: MIT
// JSON by name only, for headers: the JSON library is most of what a source takes to compile (json.h).
#pragma once

#include <nlohmann/json_fwd.hpp>

using Json = nlohmann::ordered_json;
