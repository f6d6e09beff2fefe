// SPDX-License-Identifier: MIT
// Lifecycle: the first reference makes the engine (engine_open); each pass of DNSServiceProcessResult drives it; it
// ends (engine_close) with the last reference that stands by itself, at the process's exit, or when a taken signal
// arrives. Its descriptor failing only marks it lost: references stay valid and are released as usual.
#include <unistd.h>

#include <utility>

#include "dnssd/base/signals.h"
#include "dnssd/dnssd.h"
#include "dnssd/links/interfaces.h"
#include "dnssd/links/link_monitor.h"
#include "dnssd/links/sockets.h"
#include "dnssd/operations/handover.h"
#include "dnssd/operations/inheritance.h"
#include "dnssd/operations/lookup.h"
#include "dnssd/operations/operations.h"

namespace dnssd {
namespace {

// The parent's engine in a forked child, which does not use it: kept so that leak checkers find the memory reachable.
Engine* gAbandoned = nullptr;

// The two clocks are not read at the same instant; a difference below this is no sleep.
constexpr mdns::Time kSleepLeast = mdns::kSecond;

// Replies per DNSServiceProcessResult: enough to be cheap in a burst, few enough that the caller's loop comes round.
constexpr int kRepliesPerPass = 64;

// Serves one link. Handling its events may use the link again, which marks it as touched again.
void serve_interface(Interface& interface, mdns::Time now) {
  interface.is_touched = false;
  mdns::link_advance(*interface.link, now);
  sockets_send(interface);
  const std::vector<mdns::Event> events = mdns::link_take_events(*interface.link);
  for (const mdns::Event& event : events) {
    if (Operation* operation = operation_find(static_cast<Handle>(event.tag))) {
      std::visit([&](auto& part) { operation_event(*operation, part, event); }, operation->part);
    }
  }
  for (const mdns::Event& event : events) {
    resolve_review(static_cast<Handle>(event.tag));
  }
}

// Serves the links that were used or have a deadline that is due: sends their datagrams and handles their events.
void serve_interfaces(mdns::Time now) {
  interfaces_drop_idle(now);
  for (const auto& [index, interface] : gEngine->interfaces) {
    if (interface->is_touched || mdns::link_deadline(*interface->link) <= now) {
      serve_interface(*interface, now);
    }
  }
}

// Runs due delayed calls, and serves the links.
void serve_engine() {
  const mdns::Time now = monotonic_now();
  // During a sleep other hosts may have taken our names, and packets were missed (RFC 6762 sections 5.2 and 8).
  const mdns::Time slept = time_asleep();
  if (slept - gEngine->slept > kSleepLeast) {
    gEngine->slept = slept;
    for (const auto& [index, interface] : gEngine->interfaces) {
      mdns::link_restart(interface_link(*interface), now, false);
    }
  }
  while (!gEngine->resumptions.empty() && gEngine->resumptions.begin()->first <= now) {
    const Resumption due = gEngine->resumptions.extract(gEngine->resumptions.begin()).mapped();
    if (Operation* operation = operation_find(due.of)) {
      due.resume(*operation);
    }
  }
  serve_interfaces(now);
}

// Delivers a bounded number of replies, oldest first. Anything may have been released when it returns, gEngine too.
void replies_deliver() {
  // A callback may end this engine, and a later call in it may make a new one, for which is_passing is false.
  for (int i = 0; i < kRepliesPerPass && gEngine != nullptr && gEngine->is_passing && !gEngine->replies.empty();) {
    const Reply reply = std::move(gEngine->replies.front());
    gEngine->replies.pop_front();
    if (Operation* operation = operation_find(reply.to)) {
      --operation->queued;
      ++i;
      reply.deliver(*operation, --gEngine->deliverable == 0 ? 0 : kDNSServiceFlagsMoreComing);
    }
  }
}

// Withdraws everything with its goodbyes, invalidates every reference, frees everything; gEngine is null afterwards.
void engine_close() {
  handover_give();
  interfaces_withdraw();
  signals_review(gEngine->poll, false);
  poll_close(gEngine->poll);
  delete gEngine;
  gEngine = nullptr;
}

__attribute__((destructor)) void close_at_exit() {
  const LibraryCall call;
  if (gEngine != nullptr) {
    engine_close();
  }
}

}  // namespace

LibraryCall::LibraryCall() {
  signals_hold();
  if (gEngine != nullptr && gEngine->owner != getpid()) {
    signals_forget();
    poll_close(gEngine->poll);
    gAbandoned = std::exchange(gEngine, nullptr);
  }
}

LibraryCall::~LibraryCall() {
  if (gEngine != nullptr && gEngine->connections == 0) {
    engine_close();
  }
  if (gEngine != nullptr) {
    signals_review(gEngine->poll, gEngine->published > 0);
    // In a call from a callback the DNSServiceProcessResult that runs does this.
    if (!gEngine->is_passing) {
      serve_engine();
      const auto& resumptions = gEngine->resumptions;
      const mdns::Time resumption = resumptions.empty() ? mdns::kNever : resumptions.begin()->first;
      poll_arm(gEngine->poll, gEngine->deliverable == 0 ? std::min(resumption, interfaces_deadline()) : 0);
    }
  }
  signals_release();
}

DNSServiceErrorType engine_open() {
  if (gEngine != nullptr) {
    return gEngine->is_lost ? kErrServiceNotRunning : kDNSServiceErr_NoError;
  }
  auto engine = std::make_unique<Engine>();
  if (!poll_open(engine->poll)) {
    return kErrServiceNotRunning;
  }
  gEngine = engine.release();
  link_monitor_open();
  inheritance_take();
  return kDNSServiceErr_NoError;
}

DNSServiceErrorType engine_pass() {
  if (gEngine->is_passing) {
    return kDNSServiceErr_BadState;
  }
  gEngine->is_lost = gEngine->is_lost || !poll_dispatch(gEngine->poll);
  if (const int signal = signals_fatal_caught(gEngine->poll)) {
    engine_close();
    signals_die_of(signal);
  }
  if (gEngine->is_lost) {
    return kErrServiceNotRunning;
  }
  gEngine->is_passing = true;
  inheritance_serve();
  serve_engine();
  replies_deliver();
  if (gEngine != nullptr) {  // null when a callback has ended it; a new one is not passing
    gEngine->is_passing = false;
  }
  return kDNSServiceErr_NoError;
}

}  // namespace dnssd
