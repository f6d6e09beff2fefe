// SPDX-License-Identifier: MIT
// What the daemon's settings file says to this program.
#pragma once

#include <string>

// Where the daemon keeps its state file by its settings file; the default path when that says nothing, or cannot be
// read.
std::string configured_state_file(const std::string& settings_file);
