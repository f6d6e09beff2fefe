// SPDX-License-Identifier: MIT
// Rules about rates and costs: what a host may send, and the work that a datagram may cause.
#include <algorithm>

#include "simulation/wire_rules.h"

namespace simulation {
namespace {

constexpr std::size_t kPerSecond = 1000, kPer20Ms = 32;

// RFC 6762 section 6: a record once a second; in answer to a probe, 250 ms after the last time. An answer that comes so
// long after a probe may be to it.
constexpr Time kRecordApart = kSecond, kDefenceApart = 250 * kMillisecond, kAnswersProbe = 1250 * kMillisecond;

// A datagram may wait for its turn so long.
constexpr Time kOnTheWay = 100 * kMillisecond;

// The goodbye of another host may come right behind the record, or while that waits for its turn; its rescue goes so
// long after that, and the rest of its RRset along with it, but for what was sent half a second ago.
constexpr Time kRescueApart = kRescuedWithin - kOnTheWay, kAlongApart = 500 * kMillisecond;

bool was_received_within(const Port& port, const std::unordered_map<Hash, Time>& received, Hash hash, Time within) {
  const auto found = received.find(hash);
  return found != received.end() && port.world->now - found->second <= within;
}

// Whether the record, or with its set's hash one of its RRset, is sent again to rescue it from another host's goodbye.
bool is_rescued(const Port& port, Hash hash) {
  return was_received_within(port, port.ledger.doubts_received, hash, kRescuedWithin + kOnTheWay);
}

Time apart_at_least(const Port& port, const WireRecord& record, Time last) {
  const auto claimed = port.claimed.find(record.name_hash);
  if (record.flush && claimed != port.claimed.end() && claimed->second.changed_at >= last) {
    return 0;  // section 10.2: the rest of the RRset goes along with what is new in it
  }
  if (was_received_within(port, port.ledger.probes_received, record.name_hash, kAnswersProbe)) {
    return kDefenceApart;
  }
  if (record.flush && is_rescued(port, record.set_hash)) {
    return kAlongApart;
  }
  return is_rescued(port, record.hash) ? kRescueApart : kRecordApart;
}

// How many queries of the port are for the same name and type at most.
std::uint64_t most_alike(const Port& port) {
  std::unordered_map<Hash, std::uint64_t> counts;
  std::uint64_t most = 0;
  for (const auto& [tag, query] : port.queries) {
    most = std::max(most, ++counts[query.set_hash]);
  }
  return most;
}

}  // namespace

void check_pace(Port& port, std::size_t datagrams) {
  std::deque<Time>& times = port.ledger.sent;
  const Time now = port.world->now;
  while (!times.empty() && times.front() <= now - kSecond) {
    times.pop_front();
  }
  times.insert(times.end(), datagrams, now);
  if (times.size() > kPerSecond) {
    fail(*port.world, &port, "too many datagrams in a second", std::to_string(times.size()));
  }
  if (times.size() > kPer20Ms && times[times.size() - 1 - kPer20Ms] > now - 20 * kMillisecond) {
    fail(*port.world, &port, "too many datagrams in 20 ms", "more than 32");
  }
}

bool is_record_spaced(Port& port, mdns::Protocols protocols, const WireRecord& record) {
  const Time now = port.world->now;
  bool is_spaced = true;
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    if ((protocols & protocol) != 0) {
      const auto [place, is_new] = port.ledger.multicast[mdns::index_of(protocol)].emplace(record.hash, now);
      is_spaced = is_spaced && (is_new || now - place->second >= apart_at_least(port, record, place->second));
      place->second = now;
    }
  }
  return is_spaced;
}

void check_cost(Port& port, std::uint64_t steps, std::size_t bytes, std::size_t published) {
  // A record takes 11 bytes at least. Each may be compared with the few others of its name and type, and reported to
  // all queries for these; a question may be for everything that is published, with the SRV and TXT records that go
  // along.
  constexpr std::uint64_t kPerRecord = 8, kPerDatagram = 64, kPerPublished = 4;
  const std::uint64_t allowed =
      kPerDatagram + (kPerRecord + most_alike(port)) * (bytes / 11) + kPerPublished * published;
  port.world->sums.worst_steps = std::max(port.world->sums.worst_steps, steps * 1000 / allowed);
  if (steps > allowed) {
    fail(*port.world, &port, "a datagram costs more than its length",
         std::to_string(steps) + " steps for " + std::to_string(bytes) + " bytes, " + std::to_string(allowed) +
             " allowed");
  }
}

}  // namespace simulation
