// SPDX-License-Identifier: MIT
// add_proxy_rule that installs nothing: it records the rules it is given, and shows each on standard error as
// "add_proxy_rule(type, from, to)", where a death test can see it.
#pragma once

#include <string>
#include <vector>

namespace fake_add_proxy_rule {

// Every rule since reset, in order, as "type from->to".
const std::vector<std::string>& rules();

void reset();

}  // namespace fake_add_proxy_rule
