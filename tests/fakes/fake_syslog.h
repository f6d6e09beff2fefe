// SPDX-License-Identifier: MIT
// syslog without a syslog: openlog, closelog, setlogmask, syslog and vsyslog record what they are called with. Every
// message is recorded, whatever the mask, and copied to standard error as "syslog(<priority>): text", where a death
// test can see it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace fake_syslog {

struct Line {
  int priority;
  std::string text;

  bool operator==(const Line&) const = default;
};

struct Opening {
  std::string identity;
  int option;
  int facility;
};

// Every message since reset, in order.
const std::vector<Line>& lines();

// The texts of the messages of one priority, in order.
std::vector<std::string> texts(int priority);

// Every message since reset that the mask of its moment let through.
std::vector<Line> visible_lines();

// The mask as it stands, and every mask set since reset.
int mask();
const std::vector<int>& masks();

const std::vector<Opening>& openings();
unsigned closings();

// What has been called since reset, in order: "openlog", "closelog", "setlogmask", "syslog".
const std::vector<std::string>& calls();

// Runs `action` inside each further message, after it has been recorded.
void on_message(std::function<void()> action);

// Forgets everything; the mask is 255, as in a new process.
void reset();

}  // namespace fake_syslog
