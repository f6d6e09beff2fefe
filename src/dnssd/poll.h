// SPDX-License-Identifier: MIT
// Avahi's event loop interface over one epoll descriptor. Nothing here runs by itself: poll_dispatch does what is due.
#pragma once

#include <avahi-common/watch.h>

#include <cstdint>
#include <map>
#include <unordered_set>
#include <vector>

namespace dnssd {

// Time of the clock that nobody sets, in microseconds.
std::int64_t monotonic_now();

struct Poll {
  int epoll_fd = -1;
  int timer_fd = -1;   // fires at the earliest timer
  int wake_fd = -1;    // an eventfd, readable while replies wait for delivery
  bool awake = false;  // wake_fd has been made readable
  bool dispatching = false;
  std::int64_t armed = 0;  // the time timer_fd is set to, 0: not set
  std::unordered_set<AvahiWatch*> watches;
  std::vector<AvahiWatch*> freed_watches;             // freed while events were being dispatched
  std::multimap<std::int64_t, AvahiTimeout*> timers;  // the ones that run, by monotonic time
};

// Opens the three descriptors (all close-on-exec). False when the system refuses one; nothing stays open then.
bool poll_open(Poll& poll);

// Closes them. All watches but the poll's own two, and all timeouts, must have been freed.
void poll_close(Poll& poll);

// In a forked child: closes the child's copies of every descriptor and leaves the epoll set, which is the parent's, alone.
void poll_abandon(Poll& poll);

// Fills in Avahi's table of functions; `poll` must outlive its users. The caller may replace watch_new by its own.
AvahiPoll poll_api(Poll& poll);

AvahiWatch* poll_watch_new(const AvahiPoll* api, int fd, AvahiWatchEvent events, AvahiWatchCallback callback, void* userdata);
void poll_watch_free(AvahiWatch* watch);

// A timer that is not running, for the library's own use.
AvahiTimeout* poll_timer_new(Poll& poll, AvahiTimeoutCallback callback, void* userdata);
void poll_timer_start(AvahiTimeout* timer, std::int64_t microseconds_from_now);
void poll_timer_stop(AvahiTimeout* timer);
void poll_timer_free(AvahiTimeout* timer);  // null: nothing happens

// Runs the callbacks of descriptors that are ready and of timers that are due, a bounded number of each. Never blocks.
// False when epoll itself failed, that is when somebody closed our descriptor.
bool poll_dispatch(Poll& poll);

// Before the library is left: sets the timerfd for the earliest timer, and the eventfd if `more` work waits.
void poll_arm(Poll& poll, bool more);

}  // namespace dnssd
