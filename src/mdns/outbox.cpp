// SPDX-License-Identifier: MIT
#include "mdns/outbox.h"

#include <algorithm>
#include <bit>

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

std::uint64_t hash_of(const Link& link, Bytes bytes) {
  return hash_folded({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, link.hash_seed);
}

void remember_sent(Link& link, Bytes bytes, Protocols protocol) {
  std::deque<SentDatagram>& sent = link.outbox.sent[index_of(protocol)];
  sent.push_back({hash_of(link, bytes), link.now});
  if (sent.size() > kSentRemembered) {
    sent.pop_front();
  }
}

// Gives the datagram to the caller, over those protocols that the link still has.
void release(Link& link, Datagram&& datagram) {
  const bool is_reply = datagram.to.port != 0;
  datagram.protocols &= link.protocols;
  const int count = is_reply ? 1 : std::popcount(datagram.protocols);
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
  link.sent += static_cast<std::uint64_t>(count);
  outbox.ready.push_back(std::move(datagram));
}

// Whether the bucket has room for a datagram over both protocols.
bool has_tokens(const Link& link) { return link.outbox.paid_until <= link.now - 2 * kPerDatagram; }

// When the next packet of what is said of our own accord is due.
Time next_due(const Link& link) {
  return std::min({link.announcer.goodbyes.next(), link.prober.due.next(), link.announcer.due.next()});
}

// Writes it: goodbyes go first, then probes.
void write_next(Link& link, Writer& writer) {
  if (link.announcer.goodbyes.next() > link.now && link.prober.due.next() <= link.now) {
    prober_write(link, writer);
  } else {
    announcer_write(link, writer);
  }
}

}  // namespace

Time outbox_send_time(const Link& link) {
  const auto waiting = static_cast<Time>(link.outbox.urgent.size() + 1);
  const Time at = std::max(link.outbox.paid_until, link.now - kBurst) + 2 * kPerDatagram * waiting;
  return at <= link.now ? link.now : at + kLateMost;
}

void outbox_add(Link& link, std::vector<std::uint8_t>&& bytes, Protocols protocols, const Endpoint& to) {
  link.outbox.urgent.push_back({protocols, to, std::move(bytes)});
}

void outbox_advance(Link& link) {
  Outbox& outbox = link.outbox;
  while (has_tokens(link)) {
    if (!outbox.urgent.empty()) {
      Datagram next = std::move(outbox.urgent.front());
      outbox.urgent.pop_front();
      release(link, std::move(next));
      continue;
    }
    if (next_due(link) > link.now) {
      return;
    }
    Writer writer;
    write_next(link, writer);
    if (!writer_is_empty(writer)) {
      release(link, {link.protocols, {}, writer_take(writer)});
    }
  }
}

Time outbox_deadline(const Link& link) {
  const Time due = link.outbox.urgent.empty() ? next_due(link) : link.now;
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
