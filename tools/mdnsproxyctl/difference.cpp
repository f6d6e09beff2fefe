// SPDX-License-Identifier: MIT
// The longest common subsequence by dynamic programming, between what begins and what ends the same way in both.
#include "mdnsproxyctl/difference.h"

#include <algorithm>
#include <cstdint>

namespace {

using Lines = std::vector<std::string_view>;

Lines lines_of(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

// The stretches that are left between a common beginning and a common end, by line numbers from 0.
struct Middle {
  const Lines& before;
  const Lines& after;
  std::size_t first = 0;  // of both
  std::size_t before_end = 0;
  std::size_t after_end = 0;

  std::size_t rows() const { return before_end - first; }
  std::size_t columns() const { return after_end - first; }
};

Middle middle_of(const Lines& before, const Lines& after) {
  Middle middle = {before, after, 0, before.size(), after.size()};
  const std::size_t shorter = std::min(before.size(), after.size());
  while (middle.first < shorter && before[middle.first] == after[middle.first]) {
    ++middle.first;
  }
  while (middle.before_end > middle.first && middle.after_end > middle.first &&
         before[middle.before_end - 1] == after[middle.after_end - 1]) {
    --middle.before_end;
    --middle.after_end;
  }
  return middle;
}

// At [row, column]: how many lines the rests from there on have in common.
std::vector<std::uint32_t> common_lengths(const Middle& middle) {
  const std::size_t width = middle.columns() + 1;
  std::vector<std::uint32_t> lengths((middle.rows() + 1) * width, 0);
  for (std::size_t row = middle.rows(); row-- > 0;) {
    for (std::size_t column = middle.columns(); column-- > 0;) {
      const std::size_t at = row * width + column;
      lengths[at] = middle.before[middle.first + row] == middle.after[middle.first + column]
                        ? lengths[at + width + 1] + 1
                        : std::max(lengths[at + width], lengths[at + 1]);
    }
  }
  return lengths;
}

}  // namespace

std::vector<LineChange> line_changes(std::string_view before, std::string_view after) {
  const Lines old_lines = lines_of(before);
  const Lines new_lines = lines_of(after);
  const Middle middle = middle_of(old_lines, new_lines);
  const std::size_t width = middle.columns() + 1;
  const bool small = middle.rows() + 1 <= kMostCells / width;
  const std::vector<std::uint32_t> lengths = small ? common_lengths(middle) : std::vector<std::uint32_t>();
  std::vector<LineChange> changes;
  std::size_t row = 0;
  std::size_t column = 0;
  while (row < middle.rows() || column < middle.columns()) {
    const bool rows_left = row < middle.rows();
    const bool columns_left = column < middle.columns();
    const std::size_t at = row * width + column;
    if (small && rows_left && columns_left && old_lines[middle.first + row] == new_lines[middle.first + column]) {
      ++row;
      ++column;
    } else if (rows_left && (!columns_left || !small || lengths[at + width] >= lengths[at + 1])) {
      changes.push_back({false, middle.first + row + 1, std::string(old_lines[middle.first + row])});
      ++row;
    } else {
      changes.push_back({true, middle.first + column + 1, std::string(new_lines[middle.first + column])});
      ++column;
    }
  }
  return changes;
}
