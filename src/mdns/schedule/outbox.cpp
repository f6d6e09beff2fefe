// SPDX-License-Identifier: MIT
#include "mdns/schedule/outbox.h"

#include <bit>

namespace mdns {
namespace {

// The token bucket: one datagram each 1050 microseconds, with a burst of eight. So at most 8 + 952 are sent in any
// second, and 8 + 19 in any 20 ms. A busy machine may send late, together with what follows: 33 are the most that were
// received within 20 ms.
constexpr Time kPerDatagram = 1'050;
constexpr Time kBurst = 8 * kPerDatagram;

// How much later than link_deadline a busy caller may call link_advance.
constexpr Time kLateMost = 10 * kMillisecond;

std::uint64_t datagram_hash(const Link& link, Bytes bytes) {
  return hash_folded({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, link.hash_seed);
}

}  // namespace

Time outbox_send_time(const Link& link) {
  const auto waiting = static_cast<Time>(link.outbox.urgent.size() + 1);
  const Time at = tokens_at(link.outbox.tokens, link.now, kBurst, 2 * kPerDatagram * waiting);
  return at <= link.now ? link.now : at + kLateMost;
}

void outbox_add(Link& link, Writer& writer, Protocols protocols, const Endpoint& to) {
  if (!writer_is_empty(writer)) {
    link.outbox.urgent.push_back({protocols, to, writer_take(writer)});
  }
}

// Two tokens: one for each protocol.
Time outbox_allowed_at(const Link& link) { return link.outbox.tokens.since + 2 * kPerDatagram; }

void outbox_release(Link& link, Datagram&& datagram) {
  const bool is_reply = datagram.to.port != 0;
  datagram.protocols &= link.protocols;
  const int count = std::popcount(is_reply ? datagram.to.protocol & link.protocols : datagram.protocols);
  if (count == 0) {
    return;
  }
  Outbox& outbox = link.outbox;
  tokens_take(outbox.tokens, link.now, kBurst, count * kPerDatagram);
  for (const Protocols protocol : kEachProtocol) {
    if (datagram.protocols & protocol) {
      std::deque<SentDatagram>& sent = outbox.sent[index_of(protocol)];
      sent.push_back({datagram_hash(link, datagram.bytes), link.now});
      if (sent.size() > kSentRemembered) {
        sent.pop_front();
      }
    }
  }
  link.sent += static_cast<std::uint64_t>(count);
  outbox.ready.push_back(std::move(datagram));
}

bool outbox_recognises(Link& link, Bytes bytes, Protocols protocol) {
  const std::uint64_t hash = datagram_hash(link, bytes);
  for (SentDatagram& sent : link.outbox.sent[index_of(protocol)]) {
    if (sent.hash == hash && sent.at >= link.now - kSentFor) {
      sent.at = kLongAgo;
      return true;
    }
  }
  return false;
}

}  // namespace mdns
