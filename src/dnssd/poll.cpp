// SPDX-License-Identifier: MIT
// Lifecycle of a watch: Avahi makes it in watch_new; freed, it leaves the epoll set at once, and its memory goes when the
// events that are being dispatched are through (the same batch may still name it).
// Lifecycle of a timeout: it is in `timers` exactly while it runs; firing stops it, Avahi starts it again. Avahi's are absolute
// in the time of the wall clock and are taken for so long from now, so that setting the clock neither stops nor fires them.
#include "dnssd/poll.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "dnssd/dnssd.h"

struct AvahiWatch {
  dnssd::Poll* poll;
  int fd;
  AvahiWatchEvent happened;
  AvahiWatchCallback callback;
  void* userdata;
  bool freed;
};

struct AvahiTimeout {
  dnssd::Poll* poll;
  AvahiTimeoutCallback callback;
  void* userdata;
  bool running;
  std::multimap<std::int64_t, AvahiTimeout*>::iterator at;  // valid while running
};

namespace dnssd {
namespace {

// One pass takes at most this many ready descriptors (each is one packet) and this much time for due timers, so that the
// caller's loop comes round within milliseconds; what is left keeps the descriptor readable. (Not a number of timers: one
// packet may bring hundreds, and Avahi's lists grow with those that are late.)
constexpr int kEventsPerPass = 32;
constexpr std::int64_t kTimersPerPass = 10'000;  // microseconds

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

// Timers are waited for until the next multiple of this: thousands of them would wake the process as often, each alone, and
// nothing in multicast DNS hangs on some milliseconds.
constexpr std::int64_t kTimerGrid = 5'000;  // microseconds

std::int64_t clock_now(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_nsec / 1000;
}

std::uint32_t epoll_events(AvahiWatchEvent events) {
  std::uint32_t bits = 0;
  if (events & AVAHI_WATCH_IN) {
    bits |= EPOLLIN;
  }
  if (events & AVAHI_WATCH_OUT) {
    bits |= EPOLLOUT;
  }
  return bits;
}

AvahiWatchEvent avahi_events(std::uint32_t bits) {
  int events = 0;
  if (bits & EPOLLIN) {
    events |= AVAHI_WATCH_IN;
  }
  if (bits & EPOLLOUT) {
    events |= AVAHI_WATCH_OUT;
  }
  if (bits & EPOLLERR) {
    events |= AVAHI_WATCH_ERR;
  }
  if (bits & EPOLLHUP) {
    events |= AVAHI_WATCH_HUP;
  }
  return static_cast<AvahiWatchEvent>(events);
}

void watch_update(AvahiWatch* watch, AvahiWatchEvent events) {
  epoll_event change{};
  change.events = epoll_events(events);
  change.data.ptr = watch;
  epoll_ctl(watch->poll->epoll_fd, EPOLL_CTL_MOD, watch->fd, &change);
}

AvahiWatchEvent watch_get_events(AvahiWatch* watch) { return watch->happened; }

void stop(AvahiTimeout* timeout) {
  if (timeout->running) {
    timeout->poll->timers.erase(timeout->at);
  }
  timeout->running = false;
}

void start(AvahiTimeout* timeout, std::int64_t microseconds_from_now) {
  stop(timeout);
  timeout->at = timeout->poll->timers.emplace(monotonic_now() + microseconds_from_now, timeout);
  timeout->running = true;
}

void timeout_update(AvahiTimeout* timeout, const timeval* due) {
  if (due == nullptr) {
    stop(timeout);
    return;
  }
  start(timeout, due->tv_sec * kMicrosecondsPerSecond + due->tv_usec - clock_now(CLOCK_REALTIME));
}

AvahiTimeout* timeout_new(const AvahiPoll* api, const timeval* due, AvahiTimeoutCallback callback, void* userdata) {
  auto* timeout = new AvahiTimeout{static_cast<Poll*>(api->userdata), callback, userdata, false, {}};
  timeout_update(timeout, due);
  return timeout;
}

// The timerfd has fired and wants setting anew.
void timer_fired(AvahiWatch* watch, int fd, AvahiWatchEvent, void*) {
  std::uint64_t count;
  while (read(fd, &count, sizeof count) > 0) {
  }
  watch->poll->armed = 0;
}

void wake_fired(AvahiWatch* watch, int fd, AvahiWatchEvent, void*) {
  std::uint64_t count;
  while (read(fd, &count, sizeof count) > 0) {
  }
  watch->poll->awake = false;
}

void run_due_timers(Poll& poll) {
  const std::int64_t now = monotonic_now();
  const std::int64_t end = now + kTimersPerPass;
  while (!poll.timers.empty() && poll.timers.begin()->first <= now && monotonic_now() < end) {
    AvahiTimeout* timeout = poll.timers.begin()->second;
    stop(timeout);
    timeout->callback(timeout, timeout->userdata);
  }
}

void run_ready_watches(const epoll_event* events, int count) {
  for (int i = 0; i < count; ++i) {
    auto* watch = static_cast<AvahiWatch*>(events[i].data.ptr);
    if (watch->freed) {
      continue;
    }
    watch->happened = avahi_events(events[i].events);
    watch->callback(watch, watch->fd, watch->happened, watch->userdata);
    watch->happened = static_cast<AvahiWatchEvent>(0);
  }
}

std::int64_t on_grid(std::int64_t time) { return (time + kTimerGrid - 1) / kTimerGrid * kTimerGrid; }

void close_descriptor(int& fd) {
  if (fd >= 0) {
    close(fd);
  }
  fd = -1;
}

}  // namespace

std::int64_t monotonic_now() { return clock_now(CLOCK_MONOTONIC); }

bool poll_open(Poll& poll) {
  poll.epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  poll.timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  poll.wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (poll.epoll_fd >= 0 && poll.timer_fd >= 0 && poll.wake_fd >= 0) {
    const AvahiPoll api = poll_api(poll);
    if (poll_watch_new(&api, poll.timer_fd, AVAHI_WATCH_IN, timer_fired, nullptr) != nullptr &&
        poll_watch_new(&api, poll.wake_fd, AVAHI_WATCH_IN, wake_fired, nullptr) != nullptr) {
      return true;
    }
  }
  poll_close(poll);
  return false;
}

void poll_close(Poll& poll) {
  for (AvahiWatch* watch : poll.watches) {
    delete watch;
  }
  poll.watches.clear();
  close_descriptor(poll.wake_fd);
  close_descriptor(poll.timer_fd);
  close_descriptor(poll.epoll_fd);
}

void poll_abandon(Poll& poll) {
  for (const AvahiWatch* watch : poll.watches) {
    close(watch->fd);
  }
  close_descriptor(poll.epoll_fd);
}

AvahiPoll poll_api(Poll& poll) {
  AvahiPoll api{};
  api.userdata = &poll;
  api.watch_new = poll_watch_new;
  api.watch_update = watch_update;
  api.watch_get_events = watch_get_events;
  api.watch_free = poll_watch_free;
  api.timeout_new = timeout_new;
  api.timeout_update = timeout_update;
  api.timeout_free = poll_timer_free;
  return api;
}

AvahiWatch* poll_watch_new(const AvahiPoll* api, int fd, AvahiWatchEvent events, AvahiWatchCallback callback, void* userdata) {
  auto* poll = static_cast<Poll*>(api->userdata);
  auto* watch = new AvahiWatch{poll, fd, static_cast<AvahiWatchEvent>(0), callback, userdata, false};
  epoll_event change{};
  change.events = epoll_events(events);
  change.data.ptr = watch;
  if (epoll_ctl(poll->epoll_fd, EPOLL_CTL_ADD, fd, &change) != 0) {
    delete watch;
    return nullptr;
  }
  poll->watches.insert(watch);
  return watch;
}

void poll_watch_free(AvahiWatch* watch) {
  Poll& poll = *watch->poll;
  epoll_ctl(poll.epoll_fd, EPOLL_CTL_DEL, watch->fd, nullptr);
  poll.watches.erase(watch);
  watch->freed = true;
  if (poll.dispatching) {
    poll.freed_watches.push_back(watch);
  } else {
    delete watch;
  }
}

AvahiTimeout* poll_timer_new(Poll& poll, AvahiTimeoutCallback callback, void* userdata) {
  return new AvahiTimeout{&poll, callback, userdata, false, {}};
}

void poll_timer_start(AvahiTimeout* timer, std::int64_t microseconds_from_now) { start(timer, microseconds_from_now); }

void poll_timer_stop(AvahiTimeout* timer) { stop(timer); }

void poll_timer_free(AvahiTimeout* timer) {
  if (timer == nullptr) {
    return;
  }
  stop(timer);
  delete timer;
}

bool poll_dispatch(Poll& poll) {
  epoll_event events[kEventsPerPass];
  const int count = epoll_wait(poll.epoll_fd, events, kEventsPerPass, 0);
  if (count < 0 && errno != EINTR) {
    return false;
  }
  poll.dispatching = true;
  run_ready_watches(events, count);
  run_due_timers(poll);
  poll.dispatching = false;
  for (AvahiWatch* watch : poll.freed_watches) {
    delete watch;
  }
  poll.freed_watches.clear();
  return true;
}

void poll_arm(Poll& poll, bool more) {
  if (more && !poll.awake) {
    const std::uint64_t one = 1;
    poll.awake = write(poll.wake_fd, &one, sizeof one) == sizeof one;
  }
  const std::int64_t earliest = poll.timers.empty() ? 0 : on_grid(std::max<std::int64_t>(poll.timers.begin()->first, 1));
  if (earliest == poll.armed) {
    return;
  }
  itimerspec setting{};
  setting.it_value.tv_sec = earliest / kMicrosecondsPerSecond;
  setting.it_value.tv_nsec = earliest % kMicrosecondsPerSecond * 1000;
  timerfd_settime(poll.timer_fd, TFD_TIMER_ABSTIME, &setting, nullptr);
  poll.armed = earliest;
}

}  // namespace dnssd
