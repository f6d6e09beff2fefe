// SPDX-License-Identifier: MIT
// The daemon's ways out, caught at the link seam (exit is wrapped): a target goes on where the daemon would have ended.
//
// What the daemon writes on its way out (status file, PID file) goes to files that nobody reads.
#pragma once

#include <functional>

namespace fuzz {

// Runs `work`. Nothing unless it would have ended the process, then the status; what `work` had on its stack is then
// lost. -1: it came back.
int status_of(const std::function<void()>& work);

}  // namespace fuzz
