// SPDX-License-Identifier: MIT
// What a check finds, and where.
#pragma once

#include <string>
#include <vector>

enum class Severity {
  warning,  // the daemon starts, but skips something silently or does something that its operator did not mean
  error,    // the daemon would end
};

// Line and column, each counted from 1; a column is a byte.
struct Position {
  unsigned line = 1;
  unsigned column = 1;
};

struct Finding {
  Severity severity;
  std::string file;
  Position position;
  std::string message;  // of an error: the daemon's own text
  std::string cure;     // what to do about it, as a sentence without its full stop
  int status;           // of an error: the status code that the daemon ends with; else 0
};

using Findings = std::vector<Finding>;

// The printf format with its arguments put in.
std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The texts joined by ", ", the first ten of them, and "..." for the rest; `none` when there is not a single one.
std::string joined(const std::vector<std::string>& texts, const char* none);
