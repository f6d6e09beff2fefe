// SPDX-License-Identifier: MIT
// The daemon's unit, by systemctl(1): reloaded, and watched until its process says that it is running.
#pragma once

#include <cstdint>
#include <string>

inline constexpr const char* kUnit = "mdnsproxy.service";

// Whether systemd is the machine's init (sd_booted(3)).
bool systemd_runs();

struct Reloaded {
  bool well = false;
  std::string why;        // why not, as a sentence without its full stop; made by `shown`
  std::uint32_t pid = 0;  // the process that runs now
};

// Has the unit's files read: a process that runs hands over to the next one, and a unit that does not run is started.
// Waits until the status file of the new process says 0, for at most so many seconds, or until that process has ended.
// With `may_be_stopped`, SIGHUP, SIGINT or SIGTERM, which the caller has blocked, ends the wait.
Reloaded reload_unit(unsigned seconds, bool may_be_stopped);
