// SPDX-License-Identifier: MIT
// Lifecycle: the first reference makes the engine (engine_open); each pass of DNSServiceProcessResult drives it; it ends
// (engine_close) with the last reference that stands by itself, at the process's exit, or when a taken signal arrives. Its
// descriptor or a server failing only marks it lost: references stay valid and are released as usual.
#include "dnssd/engine.h"

#include <avahi-core/log.h>
#include <sys/random.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "dnssd/links.h"
#include "dnssd/operations.h"
#include "dnssd/publications.h"
#include "dnssd/references.h"
#include "dnssd/server.h"
#include "dnssd/signals.h"
#include "dnssd/wall_clock.h"

namespace dnssd {

Engine* gEngine = nullptr;

namespace {

// Keeps the memory of a parent's engine reachable in a forked child: it cannot be freed, for freeing sends goodbyes.
Engine* gAbandoned = nullptr;

// Avahi would write to the standard error of a program that is not its own.
void discard_log(AvahiLogLevel, const char*) {}

void abandon_parents_engine() {
  if (gEngine == nullptr || gEngine->owner == getpid()) {
    return;
  }
  signals_forget();
  poll_abandon(gEngine->poll);
  gAbandoned = gEngine;
  gEngine = nullptr;
}

// Acts upon the state changes that Avahi reported while its own code was running.
void settle_publications() {
  while (!gEngine->changed_publications.empty()) {
    std::vector<Serial> changed;
    changed.swap(gEngine->changed_publications);
    for (const Serial serial : changed) {
      publication_settle(serial);
    }
  }
}

// Avahi takes its random delays from rand(), and a process that never seeds it has the same ones as every other: two gateways that
// are switched on together would probe, and collide, together. Soon after that the kernel may have no randomness yet: then the
// nanoseconds of the clock serve.
void seed_jitter() {
  unsigned seed = 0;
  if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != sizeof seed) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    seed = static_cast<unsigned>(now.tv_nsec) ^ static_cast<unsigned>(now.tv_sec) << 20 ^ static_cast<unsigned>(getpid());
  }
  std::srand(seed);
}

void send_noted_goodbyes() {
  for (const auto& [index, server] : gEngine->servers) {
    if (!server->announcer.goodbyes.empty()) {
      send_goodbyes(*server);
    }
  }
}

__attribute__((destructor)) void close_at_exit() {
  const LibraryCall call;
  if (gEngine != nullptr) {
    engine_close();
  }
}

void heed_wall_clock() {
  const WallClock clock = wall_clock_review();
  if (clock == WallClock::was_set_back) {
    publications_probe_again();
  }
  if (clock == WallClock::was_set_forward) {
    for (const auto& [index, server] : gEngine->servers) {
      server_doubt_what_was_heard(*server);
    }
  }
}

}  // namespace

LibraryCall::LibraryCall() {
  signals_hold();
  abandon_parents_engine();
}

LibraryCall::~LibraryCall() {
  if (gEngine != nullptr) {
    settle_publications();
    signals_review(gEngine->published > 0);
    // A call from a callback: the one that it is part of does the rest.
    if (!gEngine->passing) {
      send_noted_goodbyes();
      poll_arm(gEngine->poll, gEngine->deliverable > 0);
    }
  }
  signals_release();
}

DNSServiceErrorType engine_open() {
  if (gEngine != nullptr) {
    return gEngine->lost ? kErrServiceNotRunning : kDNSServiceErr_NoError;
  }
  avahi_set_log_function(discard_log);
  auto engine = std::make_unique<Engine>();
  engine->owner = getpid();
  if (!poll_open(engine->poll)) {
    return kErrServiceNotRunning;
  }
  gEngine = engine.release();
  seed_jitter();
  links_open();
  return kDNSServiceErr_NoError;
}

void engine_close_if_unused() {
  if (gEngine != nullptr && gEngine->connections == 0) {
    engine_close();
  }
}

void engine_close() {
  publications_say_goodbye();
  for (const auto& [serial, operation] : gEngine->operations) {
    if (auto* browse = std::get_if<Browse>(&operation->part)) {
      browse_stop(*browse);
    }
    if (auto* resolve = std::get_if<Resolve>(&operation->part)) {
      resolve_stop(*resolve);
    }
    if (auto* query = std::get_if<Query>(&operation->part)) {
      query_stop(*query);
    }
    if (auto* registration = std::get_if<Registration>(&operation->part)) {
      poll_timer_free(registration->retry);
    }
  }
  for (const auto& [index, server] : gEngine->servers) {
    server_close(*server);
  }
  publications_discard();
  signals_review(false);
  links_close();
  poll_close(gEngine->poll);
  delete gEngine;
  gEngine = nullptr;
}

DNSServiceErrorType engine_pass() {
  if (gEngine->passing) {
    return kDNSServiceErr_BadState;
  }
  if (gEngine->lost) {
    return kErrServiceNotRunning;
  }
  gEngine->passing = true;
  heed_wall_clock();
  if (!poll_dispatch(gEngine->poll)) {
    gEngine->lost = true;
  }
  signals_die_if_caught();
  settle_publications();
  if (!gEngine->lost) {
    replies_deliver();
  }
  if (gEngine == nullptr || !gEngine->passing) {
    return kDNSServiceErr_NoError;
  }
  gEngine->passing = false;
  return gEngine->lost ? kErrServiceNotRunning : kDNSServiceErr_NoError;
}

}  // namespace dnssd
