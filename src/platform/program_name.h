// SPDX-License-Identifier: MIT
// The name under which the program was called.
#pragma once

#include <cstring>

// What stands behind the last '/' of argv[0], or all of it; "mdnsproxy" when argv[0] is null, as whoever starts a
// program may leave it. The text lives as long as argv0's.
inline const char* program_name(const char* argv0) {
  if (argv0 == nullptr) {
    return "mdnsproxy";
  }
  const char* slash = std::strrchr(argv0, '/');
  return slash != nullptr ? slash + 1 : argv0;
}
