// SPDX-License-Identifier: MIT
// One condition of a rule of the packet filter against one packet.
#pragma once

#include <optional>

#include "mdnsproxyctl/filter.h"

// Whether the packet meets the condition, the body of a "match" statement of libnftables-json(5). Nothing: it cannot be
// told.
std::optional<bool> meets_condition(const Json& condition, const FilterPacket& packet);

// Whether what the expression says of the packet is this value, as in a verdict map. Nothing: it cannot be told.
std::optional<bool> has_value(const Json& expression, const Json& value, const FilterPacket& packet);

// A member of a JSON object; null: it is no object, or has none of that name.
const Json* member(const Json& object, const char* name);

// A text or a number that is a member; the second value when there is none of that name and kind.
std::string text_of(const Json& object, const char* name, const std::string& otherwise = "");
long number_of(const Json& object, const char* name, long otherwise = 0);
