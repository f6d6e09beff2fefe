// SPDX-License-Identifier: MIT
// How close together packets come: the most of them in any second, and in any 20 ms.
#pragma once

#include <algorithm>
#include <deque>

namespace air {

// The most events in any stretch of time of that length.
struct Window {
  double length;
  long most = 0;
  std::deque<double> times = {};

  void note(double at) {
    times.push_back(at);
    while (times.front() <= at - length)
      times.pop_front();
    most = std::max(most, static_cast<long>(times.size()));
  }
};

struct Pace {
  Window second{1.0}, moment{0.020};

  void note(double at) {
    second.note(at);
    moment.note(at);
  }
};

}  // namespace air
