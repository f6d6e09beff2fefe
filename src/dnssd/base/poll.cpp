// SPDX-License-Identifier: MIT
#include "dnssd/base/poll.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

namespace dnssd {
namespace {

// One pass serves this many readable descriptors, each of which takes a bounded number of datagrams, so that the
// caller's loop comes round within milliseconds. What is left keeps the descriptor readable; epoll reports those first
// that have waited longest.
constexpr int kEventsPerPass = 8;

// Deadlines are waited for until the next multiple of this, so that those of many links wake the process together.
constexpr mdns::Time kGrid = mdns::kMillisecond;

mdns::Time on_grid(mdns::Time time) {
  return time > mdns::kNever - kGrid ? mdns::kNever : (time + kGrid - 1) / kGrid * kGrid;
}

mdns::Time clock_now(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * mdns::kSecond + now.tv_nsec / 1000;
}

void timer_fired(void* context) {
  Poll& poll = *static_cast<Poll*>(context);
  std::uint64_t count;
  while (read(poll.timer.fd, &count, sizeof count) > 0) {
  }
  poll.armed = mdns::kNever;
}

// Sets whether the poll is readable although no other descriptor is.
void set_awake(Poll& poll, bool is_awake) {
  if (std::exchange(poll.is_awake, is_awake) == is_awake) {
    return;
  }
  eventfd_t count = 1;
  if (is_awake) {
    eventfd_write(poll.wake.fd, count);
  } else {
    eventfd_read(poll.wake.fd, &count);
  }
}

}  // namespace

mdns::Time monotonic_now() { return clock_now(CLOCK_BOOTTIME); }

mdns::Time time_asleep() {
  const mdns::Time since_boot = clock_now(CLOCK_BOOTTIME);  // first: a delay in between is no sleep
  return since_boot - clock_now(CLOCK_MONOTONIC);
}

bool poll_open(Poll& poll) {
  poll.epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  poll.timer = {timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK), timer_fired, &poll};
  poll.wake = {eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK),
               [](void* context) { set_awake(*static_cast<Poll*>(context), false); }, &poll};
  if (poll_add(poll, poll.timer) && poll_add(poll, poll.wake)) {
    return true;
  }
  poll_close(poll);
  return false;
}

void poll_close(Poll& poll) {
  for (Watch* watch : poll.watches) {
    close(std::exchange(watch->fd, -1));
  }
  poll.watches.clear();
  if (poll.epoll_fd >= 0) {
    close(std::exchange(poll.epoll_fd, -1));
  }
}

bool poll_add(Poll& poll, Watch& watch) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = &watch;
  if (watch.fd < 0 || epoll_ctl(poll.epoll_fd, EPOLL_CTL_ADD, watch.fd, &event) != 0) {
    poll_remove(poll, watch);
    return false;
  }
  poll.watches.insert(&watch);
  return true;
}

void poll_remove(Poll& poll, Watch& watch) {
  if (poll.watches.erase(&watch) > 0) {
    epoll_ctl(poll.epoll_fd, EPOLL_CTL_DEL, watch.fd, nullptr);
  }
  if (watch.fd >= 0) {
    close(std::exchange(watch.fd, -1));
  }
}

bool poll_dispatch(Poll& poll) {
  epoll_event events[kEventsPerPass];
  const int count = epoll_wait(poll.epoll_fd, events, kEventsPerPass, 0);
  if (count < 0 && errno != EINTR) {
    return false;
  }
  for (int i = 0; i < count; ++i) {
    const Watch& watch = *static_cast<const Watch*>(events[i].data.ptr);
    watch.readable(watch.context);
  }
  return true;
}

void poll_arm(Poll& poll, mdns::Time deadline) {
  set_awake(poll, deadline == 0);
  const mdns::Time next = on_grid(std::max(deadline, kGrid));
  if (deadline == 0 || next == poll.armed) {
    return;
  }
  itimerspec setting{};
  if (next != mdns::kNever) {
    setting.it_value.tv_sec = static_cast<time_t>(next / mdns::kSecond);
    setting.it_value.tv_nsec = static_cast<long>(next % mdns::kSecond * 1000);
  }
  timerfd_settime(poll.timer.fd, TFD_TIMER_ABSTIME, &setting, nullptr);
  poll.armed = next;
}

}  // namespace dnssd
