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
  registrations_resume(now);
  interfaces_serve(now);
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
      const mdns::Time renaming = gEngine->renamings.empty() ? mdns::kNever : gEngine->renamings.begin()->first;
      poll_arm(gEngine->poll, gEngine->deliverable == 0 ? std::min(renaming, interfaces_deadline()) : 0);
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
  serve();
  replies_deliver();
  if (gEngine != nullptr) {  // or a callback has ended it; one that was begun after that is not passing anyway
    gEngine->is_passing = false;
  }
  return kDNSServiceErr_NoError;
}

}  // namespace dnssd
