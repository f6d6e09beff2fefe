// SPDX-License-Identifier: MIT
// Texts for a person: what strangers say made harmless, columns that line up, times.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The text with everything that could move the cursor, end a line, change the direction of writing or hide something
// written as "\DDD", a decimal byte as in the presentation format of DNS names, and a backslash as "\\". Bytes that
// are no UTF-8 too.
std::string shown(std::string_view text);

// The same between double quotes, a quote inside as "\"".
std::string in_quotes(std::string_view text);

// Columns that a terminal takes for a text that `shown` has made.
std::size_t display_width(std::string_view text);

// Rows of cells, columns two blanks apart; the last column is not padded. Cells are printed as they are.
std::string table(const std::vector<std::vector<std::string>>& rows);

// A duration of nanoseconds in its two largest units, "3 d 4 h".
std::string duration(std::uint64_t nanoseconds);

// The moments that times of the state file (CLOCK_BOOTTIME) are told by.
struct Clocks {
  std::uint64_t boottime;
  std::uint64_t realtime;
};
Clocks clocks_now();

// A time of CLOCK_BOOTTIME as UTC, "2026-11-22T07:20:00Z". One that lies in the future counts as now.
std::string utc_time(std::uint64_t time, const Clocks& clocks);

// How long ago a time of CLOCK_BOOTTIME was; 0 when it lies in the future.
std::uint64_t age(std::uint64_t time, const Clocks& clocks);
