// SPDX-License-Identifier: MIT
// The lines in which two texts differ.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct LineChange {
  bool added;          // else removed
  std::size_t number;  // counted from 1, of the new text for one that was added, else of the old
  std::string line;    // without its end
};

// A shortest list of changes that makes one text of the other, in the order of their lines; removed lines first where
// they meet. A stretch in which the two have more than kMostCells pairs of lines counts as replaced as a whole.
std::vector<LineChange> line_changes(std::string_view before, std::string_view after);

// A table of 16 MB.
inline constexpr std::size_t kMostCells = 4'000'000;
