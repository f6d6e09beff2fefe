// SPDX-License-Identifier: MIT
// Lifecycle: the first reference makes the engine (engine_open); each pass of DNSServiceProcessResult drives it; it ends
// (engine_close) with the last reference that stands by itself, at the process's exit, or when a taken signal arrives. Its
// descriptor failing only marks it lost: references stay valid and are released as usual.
#include <unistd.h>

#include <utility>

#include "dnssd/interface.h"

namespace dnssd {

Engine* gEngine = nullptr;

namespace {

// Keeps the memory of a parent's engine reachable in a forked child, which has no part in it.
Engine* gAbandoned = nullptr;

// Two readings of the clocks are never quite of one moment; a sleep is longer.
constexpr mdns::Time kSleepLeast = mdns::kSecond;

// Replies per DNSServiceProcessResult: enough to be cheap in a burst, few enough that the caller's loop comes round.
constexpr int kRepliesPerPass = 64;

// Does what is due on the links, and what the calls into them have brought about.
void serve() {
  const mdns::Time now = monotonic_now();
  // While the machine slept, others may have taken its names, and it has missed what was said (RFC 6762 sections 5.2 and 8).
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
  interfaces_serve(now);
}

// Delivers a bounded number of replies, oldest first. Anything may have been released when it returns, gEngine too.
void replies_deliver() {
  // A callback may end this engine, and another call in it may have begun a new one, which is not passing.
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
    signals_review(gEngine->published > 0);
    // A call from a callback: the one that it is part of does the rest.
    if (!gEngine->is_passing) {
      serve();
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
  handover_take();
  return kDNSServiceErr_NoError;
}

void engine_close() {
  interfaces_withdraw();
  signals_review(false);
  poll_close(gEngine->poll);
  delete gEngine;
  gEngine = nullptr;
}

DNSServiceErrorType engine_pass() {
  if (gEngine->is_passing) {
    return kDNSServiceErr_BadState;
  }
  gEngine->is_lost = gEngine->is_lost || !poll_dispatch(gEngine->poll);
  signals_die_if_caught();
  if (gEngine->is_lost) {
    return kErrServiceNotRunning;
  }
  gEngine->is_passing = true;
  handover_serve();
  serve();
  replies_deliver();
  if (gEngine != nullptr) {  // or a callback has ended it; one that was begun after that is not passing anyway
    gEngine->is_passing = false;
  }
  return kDNSServiceErr_NoError;
}

}  // namespace dnssd
