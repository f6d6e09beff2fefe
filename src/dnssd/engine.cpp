// SPDX-License-Identifier: MIT
// Lifecycle: the first reference makes the engine (engine_open); each pass of DNSServiceProcessResult drives it; it ends
// (engine_close) with the last reference that stands by itself, at the process's exit, or when a taken signal arrives. Its
// descriptor failing only marks it lost: references stay valid and are released as usual.
#include "dnssd/engine.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>

#include "dnssd/followers.h"
#include "dnssd/interface.h"
#include "dnssd/operations.h"
#include "dnssd/references.h"
#include "dnssd/signals.h"

namespace dnssd {

Engine* gEngine = nullptr;

namespace {

// Keeps the memory of a parent's engine reachable in a forked child, which has no part in it.
Engine* gAbandoned = nullptr;

void abandon_parents_engine() {
  if (gEngine == nullptr || gEngine->owner == getpid()) {
    return;
  }
  signals_forget();
  poll_abandon(gEngine->poll);
  gAbandoned = gEngine;
  gEngine = nullptr;
}

// Two readings of the clocks are never quite of one moment; a sleep is longer.
constexpr mdns::Time kSleepLeast = mdns::kSecond;

// While the machine slept, others may have taken its names, and it has missed what was said (RFC 6762 sections 5.2 and 8).
void begin_again_after_sleep(mdns::Time now) {
  const mdns::Time slept = time_asleep();
  if (slept - gEngine->slept > kSleepLeast) {
    gEngine->slept = slept;
    interfaces_restart(now);
  }
}

// Does what is due on the links, and what the calls into them have brought about.
void serve() {
  const mdns::Time now = monotonic_now();
  begin_again_after_sleep(now);
  registrations_resume(now);
  interfaces_serve(now);
}

mdns::Time next_deadline() {
  const mdns::Time renaming = gEngine->renamings.empty() ? mdns::kNever : gEngine->renamings.begin()->first;
  return std::min(renaming, interfaces_deadline());
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
  abandon_parents_engine();
}

LibraryCall::~LibraryCall() {
  if (gEngine != nullptr) {
    signals_review(gEngine->published > 0);
    // A call from a callback: the one that it is part of does the rest.
    if (!gEngine->is_passing) {
      serve();
      const mdns::Time deadline = next_deadline();
      poll_arm(gEngine->poll, deadline, gEngine->deliverable > 0 || deadline == 0);
    }
  }
  signals_release();
}

std::uint64_t random_number() {
  std::uint64_t number = 0;
  // Soon after the machine was switched on the kernel may have no randomness yet: then the clock serves.
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
    number = static_cast<std::uint64_t>(monotonic_now()) * 0x9E3779B97F4A7C15 ^ static_cast<std::uint64_t>(getpid()) << 32;
  }
  return number;
}

DNSServiceErrorType engine_open() {
  if (gEngine != nullptr) {
    return gEngine->is_lost ? kErrServiceNotRunning : kDNSServiceErr_NoError;
  }
  auto engine = std::make_unique<Engine>();
  engine->owner = getpid();
  if (!poll_open(engine->poll)) {
    return kErrServiceNotRunning;
  }
  gEngine = engine.release();
  gEngine->slept = time_asleep();
  link_monitor_open();
  return kDNSServiceErr_NoError;
}

void engine_close_if_unused() {
  if (gEngine != nullptr && gEngine->connections == 0) {
    engine_close();
  }
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
  if (gEngine->is_lost) {
    return kErrServiceNotRunning;
  }
  gEngine->is_passing = true;
  gEngine->is_lost = !poll_dispatch(gEngine->poll);
  signals_die_if_caught();
  if (!gEngine->is_lost) {
    serve();
    replies_deliver();
  }
  if (gEngine == nullptr || !gEngine->is_passing) {
    return kDNSServiceErr_NoError;
  }
  gEngine->is_passing = false;
  return gEngine->is_lost ? kErrServiceNotRunning : kDNSServiceErr_NoError;
}

}  // namespace dnssd
