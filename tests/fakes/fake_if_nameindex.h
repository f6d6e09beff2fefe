// SPDX-License-Identifier: MIT
// if_nameindex with the interfaces that a test wants the system to have.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fake_if_nameindex {

// One entry of the list; without a name its pointer is null.
struct Entry {
  unsigned index;
  std::optional<std::string> name;
};

// The entries of every list from now on, before the terminating one.
void set(std::vector<Entry> entries);

// Makes every call from now on return null with this errno.
void fail(int error);

// Lists given out since reset, and those of them that have not been freed.
unsigned calls();
unsigned live_lists();

// No interfaces, no failure, counts from 0. Lists that are still out stay valid.
void reset();

}  // namespace fake_if_nameindex
