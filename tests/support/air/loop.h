// SPDX-License-Identifier: MIT
// The one loop of each program here: packets, timers by deadline, and command lines on standard input, whose end ends
// it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace air {

struct Watch {
  int descriptor;
  std::function<void()> ready;
};

struct Loop {
  std::vector<Watch> watches;
  std::function<void(const std::string&)> command;  // one line, without its end
  std::function<double()> next_due;                 // when `due` wants to run, on the clock of now(); infinity: never
  std::function<void()> due;
};

// Runs until standard input ends or `command` has been told to quit.
void run(const Loop& loop);

// The words of a command line.
std::vector<std::string> words_of(const std::string& line);

// Writes one line to standard output at once.
void say(const std::string& line);

// The values of the program's options "--name value", "" for one that is absent. An odd or unknown one ends the process
// (2).
struct Options {
  Options(int argc, char** argv, std::vector<std::string> known);
  const std::string& text(const std::string& name) const;
  long number(const std::string& name, long otherwise) const;
  std::vector<std::string> list(const std::string& name) const;  // separated by commas

 private:
  std::vector<std::string> names_, values_;
};

}  // namespace air
