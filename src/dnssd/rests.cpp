// SPDX-License-Identifier: MIT
#include "dnssd/rests.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "dnssd/operations.h"
#include "dnssd/repeats.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// Seconds: shorter lifetimes are not worth a rest.
constexpr std::uint32_t kLongLived = 60;

// Seconds: whatever lifetime is claimed, a rest is counted as if it were no longer than that of most records (RFC 6762
// section 10), and so ends within the hour after which Avahi would ask at the latest.
constexpr std::uint32_t kLifetimeMax = 4'500;

// A rest ends somewhere between these parts of the lifetime, so that what was announced together is not asked for together, and
// before Avahi would ask again (RFC 6762 section 5.2: at four fifths).
constexpr std::int64_t kRestPercentMin = 65;
constexpr std::int64_t kRestPercentMax = 78;

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

std::int64_t rest_of(std::uint32_t ttl) {
  const std::int64_t percent = kRestPercentMin + std::rand() % (kRestPercentMax - kRestPercentMin + 1);
  return std::min(ttl, kLifetimeMax) * kMicrosecondsPerSecond / 100 * percent;
}

// All that has been told over one protocol.
struct Told {
  std::uint64_t what = 0;      // as Repeats puts it
  std::uint32_t shortest = 0;  // lifetime, seconds; 0: nothing has been told
};

Told told_over(const Lookup& lookup, AvahiProtocol protocol) {
  Told all;
  for (const ToldRecord& told : lookup.told) {
    if (told.protocol != protocol) {
      continue;
    }
    all.what += repeats_what(told.record->key->type, rdata_of(*told.record), told.record->ttl);
    all.shortest = all.shortest == 0 ? told.record->ttl : std::min(all.shortest, told.record->ttl);
  }
  return all;
}

// Until when there is nothing to ask over this protocol; 0 if what was said last is something else than what has been told, over
// it or, when nothing has been, over the other one.
std::int64_t fresh_until(const Lookup& lookup, AvahiProtocol protocol, const Told& told, const Told& told_over_other) {
  const Repeats& repeats = lookup.server->gates[protocol].repeats;
  if (told.shortest == 0) {
    const bool is_news = repeats_knows(repeats, lookup.heard_as) && !repeats_said(repeats, lookup.heard_as, told_over_other.what);
    return is_news ? 0 : std::numeric_limits<std::int64_t>::max();
  }
  const std::optional<std::int64_t> said = repeats_said(repeats, lookup.heard_as, told.what);
  return said && told.shortest >= kLongLived ? *said + rest_of(told.shortest) : 0;
}

}  // namespace

std::int64_t rest_until(const Lookup& lookup) {
  const Told ipv4 = told_over(lookup, AVAHI_PROTO_INET);
  const Told ipv6 = told_over(lookup, AVAHI_PROTO_INET6);
  if (ipv4.shortest == 0 && ipv6.shortest == 0) {
    return 0;
  }
  const std::int64_t until =
      std::min(fresh_until(lookup, AVAHI_PROTO_INET, ipv4, ipv6), fresh_until(lookup, AVAHI_PROTO_INET6, ipv6, ipv4));
  return until > monotonic_now() ? until : 0;
}

}  // namespace dnssd
