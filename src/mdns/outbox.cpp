// SPDX-License-Identifier: MIT
#include "mdns/outbox.h"

#include <algorithm>

#include "mdns/link.h"
#include "mdns/writer.h"

namespace mdns {
namespace {

// The token bucket: one datagram each 1050 microseconds, and twelve in a row. So at most 12 + 952 go out in any second, and
// 12 + 19 in any 20 ms.
constexpr Time kPerDatagram = 1'050;
constexpr Time kBurst = 12 * kPerDatagram;

// A caller that is busy comes so much later than link_deadline says.
constexpr Time kLateMost = 10 * kMillisecond;

// Direct replies beyond this number would make those who ask by multicast wait.
constexpr std::size_t kCrowded = 64;

unsigned count_of(Protocols protocols) { return (protocols & kIpv4 ? 1u : 0u) + (protocols & kIpv6 ? 1u : 0u); }

std::uint64_t hash_of(const Link& link, Bytes bytes) {
  return hash_folded({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, link.hash_seed);
}

void remember_sent(Link& link, Bytes bytes, Protocols protocol) {
  const std::size_t index = index_of(protocol);
  std::vector<SentDatagram>& ring = link.outbox.sent[index];
  if (ring.size() < kSentRemembered && link.outbox.next_sent[index] == ring.size()) {
    ring.emplace_back();
  }
  ring[link.outbox.next_sent[index]] = {hash_of(link, bytes), link.now};
  link.outbox.next_sent[index] = (link.outbox.next_sent[index] + 1) % kSentRemembered;
}

// Gives the datagram to the caller, over those protocols that the link still has.
void release(Link& link, Datagram&& datagram) {
  const bool is_reply = datagram.to.port != 0;
  datagram.protocols &= link.protocols;
  const unsigned count = is_reply ? 1 : count_of(datagram.protocols);
  if (count == 0 || (is_reply && (link.protocols & datagram.to.protocol) == 0)) {
    return;
  }
  Outbox& outbox = link.outbox;
  outbox.paid_until = std::max(outbox.paid_until, link.now - kBurst) + count * kPerDatagram;
  for (const Protocols protocol : kEachProtocol) {
    if (datagram.protocols & protocol) {
      remember_sent(link, datagram.bytes, protocol);
    }
  }
  link.sent += count;
  outbox.ready.push_back(std::move(datagram));
}

// Whether the bucket has room for a datagram over both protocols.
bool has_tokens(const Link& link) { return link.outbox.paid_until <= link.now - 2 * kPerDatagram; }

// Writes the next packet of what is said of our own accord; false when nothing is due.
bool write_next(Link& link, Writer& writer) {
  if (announcer_has_goodbyes(link)) {
    announcer_write_goodbyes(link, writer);
  } else if (prober_is_due(link)) {
    prober_write(link, writer);
  } else if (announcer_is_due(link)) {
    announcer_write(link, writer);
  } else {
    return false;
  }
  return true;
}

bool is_something_due(const Link& link) {
  return !link.outbox.urgent.empty() || announcer_has_goodbyes(link) || prober_is_due(link) || announcer_is_due(link);
}

}  // namespace

Time outbox_send_time(const Link& link) {
  const auto waiting = static_cast<Time>(link.outbox.urgent.size() + 1);
  const Time at = std::max(link.outbox.paid_until, link.now - kBurst) + 2 * kPerDatagram * waiting;
  return at <= link.now ? link.now : at + kLateMost;
}

void outbox_add(Link& link, std::vector<std::uint8_t>&& bytes, Protocols protocols) {
  link.outbox.urgent.push_back({protocols, {}, std::move(bytes)});
}

void outbox_add_reply(Link& link, std::vector<std::uint8_t>&& bytes, const Endpoint& to) {
  link.outbox.urgent.push_back({kNoProtocol, to, std::move(bytes)});
}

bool outbox_is_crowded(const Link& link) { return link.outbox.urgent.size() >= kCrowded; }

void outbox_advance(Link& link) {
  Outbox& outbox = link.outbox;
  while (has_tokens(link)) {
    if (!outbox.urgent.empty()) {
      Datagram next = std::move(outbox.urgent.front());
      outbox.urgent.pop_front();
      release(link, std::move(next));
      continue;
    }
    Writer writer;
    if (!write_next(link, writer)) {
      return;
    }
    if (!writer_is_empty(writer)) {
      release(link, {link.protocols, {}, writer_take(writer)});
    }
  }
}

Time outbox_deadline(const Link& link) {
  const Time next = std::min(prober_probe_at(link), announcer_deadline(link));
  const Time due = is_something_due(link) ? link.now : next;
  return due == kNever ? kNever : std::max(due, link.outbox.paid_until + 2 * kPerDatagram);
}

bool outbox_recognises(Link& link, Bytes bytes, Protocols protocol) {
  const std::uint64_t hash = hash_of(link, bytes);
  for (SentDatagram& sent : link.outbox.sent[index_of(protocol)]) {
    if (sent.hash == hash && sent.at >= link.now - kSentFor) {
      sent.at = kLongAgo;
      return true;
    }
  }
  return false;
}

}  // namespace mdns
