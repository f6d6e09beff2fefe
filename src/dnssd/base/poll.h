// SPDX-License-Identifier: MIT
// One epoll descriptor with a timerfd and an eventfd. Everything is done by poll_dispatch; there is no thread.
#pragma once

#include <unordered_set>

#include "mdns/wire/types.h"

namespace dnssd {

// Microseconds of CLOCK_BOOTTIME, which cannot be set and runs on while the machine sleeps, so that cached records age
// during a sleep.
mdns::Time monotonic_now();

// How long the machine has slept since it was switched on.
mdns::Time time_asleep();

// A descriptor and the function to call when it is readable. Owned by the caller of poll_add; must not move until
// removed.
struct Watch {
  int fd = -1;
  void (*readable)(void* context) = nullptr;
  void* context = nullptr;
};

struct Poll {
  int epoll_fd = -1;
  Watch timer;                      // a timerfd, fires at the next deadline
  mdns::Time armed = mdns::kNever;  // what the timer is set to
  Watch wake;                       // an eventfd
  bool is_awake = false;            // `wake` is readable
  std::unordered_set<Watch*> watches;
};

// Opens the three descriptors (close-on-exec). False when the system refuses one; nothing stays open then. `poll` must
// not move until poll_close.
bool poll_open(Poll& poll);

// Closes the descriptors of all watches, then its own. In a forked child these are copies: the parent's poll goes on
// undisturbed.
void poll_close(Poll& poll);

// Watches `watch.fd`, which the poll closes in the end; false when the system refuses it, and the descriptor is closed
// at once.
bool poll_add(Poll& poll, Watch& watch);

// Closes the descriptor and stops watching it; one that is not open: nothing happens. Not to be called by what
// poll_dispatch calls.
void poll_remove(Poll& poll, Watch& watch);

// Calls the watches whose descriptors are readable, a bounded number, in turn. Never blocks. False when epoll itself
// failed, that is when somebody closed our descriptor.
bool poll_dispatch(Poll& poll);

// Before the library is left: makes the descriptor readable at `deadline`. 0: it is readable when the function returns.
void poll_arm(Poll& poll, mdns::Time deadline);

}  // namespace dnssd
