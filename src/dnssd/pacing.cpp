#include "dnssd/pacing.h"

#include <algorithm>

#include "dnssd/publications.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

struct Rate {
  double burst;       // records that go at once
  double per_second;  // records that follow
};

// 2000 services of five records each are through in some eleven seconds, which leaves two for the last one's probes
// within the fifteen that users are promised; the burst is fifty such services.
constexpr Rate kCommitRate{256, 900};

// A withdrawn record is sent once where a committed one is announced four times, so it may go faster.
constexpr Rate kWithdrawRate{512, 2700};

constexpr double kMicrosecondsPerSecond = 1e6;

void grow(Allowance& allowance, const Rate& rate) {
  const std::int64_t now = monotonic_now();
  const auto passed = static_cast<double>(now - allowance.counted_at) / kMicrosecondsPerSecond;
  allowance.records = std::min(rate.burst, allowance.records + passed * rate.per_second);
  allowance.counted_at = now;
}

// Takes the first publication that is still there off `queue`, if the allowance has not run out; else null.
Publication* next(std::deque<Serial>& queue, Allowance& allowance) {
  while (!queue.empty()) {
    if (allowance.records <= 0) return nullptr;
    Publication* publication = publication_find(queue.front());
    queue.pop_front();
    if (publication == nullptr) continue;
    allowance.records -= publication->size;
    return publication;
  }
  return nullptr;
}

// Microseconds until `queue` may go on; a great while when it is empty.
double wait_of(const std::deque<Serial>& queue, const Allowance& allowance, const Rate& rate) {
  if (queue.empty()) return kMicrosecondsPerSecond * 3600;
  return std::max(0.0, 1 - allowance.records) / rate.per_second * kMicrosecondsPerSecond;
}

void run(Server& server) {
  Pacing& pacing = server.pacing;
  grow(pacing.commits, kCommitRate);
  grow(pacing.withdrawals, kWithdrawRate);
  while (Publication* publication = next(pacing.leaving, pacing.withdrawals)) publication_leave(*publication);
  while (Publication* publication = next(pacing.waiting, pacing.commits)) publication_commit(*publication);
  if (pacing.waiting.empty() && pacing.leaving.empty()) return;
  const double wait = std::min(wait_of(pacing.waiting, pacing.commits, kCommitRate),
                               wait_of(pacing.leaving, pacing.withdrawals, kWithdrawRate));
  poll_timer_start(pacing.timer, static_cast<std::int64_t>(wait) + 1);
}

void timer_fired(AvahiTimeout*, void* userdata) { run(*static_cast<Server*>(userdata)); }

}  // namespace

void pacing_open(Server& server) {
  Pacing& pacing = server.pacing;
  pacing.commits = {kCommitRate.burst, monotonic_now()};
  pacing.withdrawals = {kWithdrawRate.burst, monotonic_now()};
  pacing.timer = poll_timer_new(gEngine->poll, timer_fired, &server);
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

void pacing_withdraw(Publication& publication) {
  Server& server = *publication.server;
  server.pacing.leaving.push_back(publication.serial);
  run(server);
}

}  // namespace dnssd
