// SPDX-License-Identifier: MIT
// The process's one engine: all that the library holds.
#pragma once

#include <unistd.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

#include "dnssd/state/interface.h"

namespace dnssd {

// One queued reply. `deliver` calls the operation's callback; `more` is kDNSServiceFlagsMoreComing, or 0. The operation
// may have been released when it returns.
struct Reply {
  Handle to = 0;
  std::function<void(const Operation& operation, DNSServiceFlags more)> deliver;
};

// A delayed call for an operation; dropped when the operation has ended before.
struct Resumption {
  Handle of = 0;
  void (*resume)(Operation& operation) = nullptr;
};

// The process's one engine: made with the first reference, ended with the last one that belongs to no connection.
struct Engine {
  pid_t owner = getpid();  // the process that made it: a forked child must not use it
  Poll poll;
  Watch link_monitor;                // a netlink socket; not open when the system refused it
  bool is_lost = false;              // the epoll descriptor failed: nothing works any more
  bool is_passing = false;           // DNSServiceProcessResult is running
  bool is_served = false;            // DNSServiceProcessResult has run once
  mdns::Time slept = time_asleep();  // time_asleep() when the links were served last
  unsigned connections = 0;          // live references that belong to no connection
  unsigned published = 0;            // live registrations and records
  std::unordered_map<Handle, std::unique_ptr<Operation>> operations;
  std::map<std::uint32_t, std::unique_ptr<Interface>> interfaces;  // by index
  std::multimap<mdns::Time, Resumption> resumptions;
  mdns::Time goodbyes_until = 0;  // until then goodbyes are held back: updates (lookup.cpp)
  std::deque<Reply> replies;
  std::size_t deliverable = 0;  // replies among them whose operation is live
};

// Written by dnssd.cpp only; null while the process has no live reference.
extern Engine* gEngine;

// Any live operation; null for every other number, and without an engine.
Operation* operation_find(Handle handle);

// The interface's link, for a call that may have output: marks the interface as touched, so that the link is
// served at the end of this call or pass.
mdns::Link& interface_link(Interface& interface);

}  // namespace dnssd
