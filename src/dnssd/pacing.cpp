// SPDX-License-Identifier: MIT
#include "dnssd/pacing.h"

#include <algorithm>

#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// Services per interface: several hundred go at once; two thousand are through in some eleven seconds, which leaves enough
// for the last one's probes within the fifteen that users are promised.
constexpr Rate kCommitRate{256, 160};

constexpr double kMicrosecondsPerSecond = 1e6;

void run(Server& server) {
  Pacing& pacing = server.pacing;
  allowance_grow(pacing.allowance, kCommitRate);
  while (!pacing.waiting.empty() && pacing.allowance.left > 0) {
    Publication* publication = publication_find(pacing.waiting.front());
    pacing.waiting.pop_front();
    if (publication == nullptr) {
      continue;
    }
    pacing.allowance.left -= 1;
    publication_commit(*publication);
  }
  if (pacing.waiting.empty()) {
    return;
  }
  poll_timer_start(pacing.timer, std::max<std::int64_t>(allowance_wait(pacing.allowance, kCommitRate), 1));
}

void timer_fired(AvahiTimeout*, void* userdata) { run(*static_cast<Server*>(userdata)); }

}  // namespace

void allowance_grow(Allowance& allowance, const Rate& rate) {
  const std::int64_t now = monotonic_now();
  const auto passed = static_cast<double>(now - allowance.counted_at) / kMicrosecondsPerSecond;
  allowance.left = std::min(rate.burst, allowance.left + passed * rate.per_second);
  allowance.counted_at = now;
}

std::int64_t allowance_wait(const Allowance& allowance, const Rate& rate) {
  if (allowance.left > 0) {
    return 0;
  }
  return static_cast<std::int64_t>((1 - allowance.left) / rate.per_second * kMicrosecondsPerSecond);
}

void pacing_open(Server& server) {
  server.pacing.allowance = {kCommitRate.burst, monotonic_now()};
  server.pacing.timer = poll_timer_new(gEngine->poll, timer_fired, &server);
}

void pacing_close(Server& server) {
  poll_timer_free(server.pacing.timer);
  server.pacing.timer = nullptr;
}

void pacing_commit(Publication& publication) {
  Server& server = *publication.server;
  server.pacing.waiting.push_back(publication.serial);
  run(server);
}

}  // namespace dnssd
