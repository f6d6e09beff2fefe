// SPDX-License-Identifier: MIT
// A link as a whole: how a datagram and a deadline run through its parts.
//
// A datagram's way in (link_receive): its source's allowance, the recognition of our own, the reader; then a response's
// records one by one to the prober (conflicts), the responder (duplicates and corrections) and the cache, and a query
// to the querier (duplicate questions), the prober (simultaneous probes) and the responder. A deadline's way
// (link_advance): cache, querier, prober, responder; at last the sender, which sends what its pace allows. No part
// calls back into the caller; what it is to be told stands in `events`.
#include <algorithm>

#include "mdns/exchange/prober.h"
#include "mdns/exchange/querier.h"
#include "mdns/exchange/responder.h"
#include "mdns/exchange/sender.h"
#include "mdns/schedule/outbox.h"
#include "mdns/schedule/sources.h"
#include "mdns/store/cache.h"
#include "mdns/store/publications.h"

namespace mdns {
namespace {

void receive_record(Link& link, const Record& record, const Endpoint& from, Source& source) {
  prober_receive_record(link, record);
  if (record.type == kTypeNsec) {
    querier_receive_denial(link, record);
    return;
  }
  responder_receive_record(link, record, from);
  cache_receive(link, record, from.protocol, source);
}

// RFC 6762 sections 6 and 11: a response comes from port 5353. We ask for none by unicast: what is sent to this machine
// alone is not believed. All of its sections count (section 18.1).
void receive_response(Link& link, const Message& message, const Received& received, Source& source) {
  if (received.source.port != kPort || !received.to_group) {
    return;
  }
  for (const std::vector<Record>* section : {&message.answers, &message.authorities, &message.additionals}) {
    for (const Record& record : *section) {
      receive_record(link, record, received.source, source);
    }
  }
}

void receive_query(Link& link, Message&& message, const Received& received) {
  // RFC 6762 sections 5.5 and 11. Unicast replies go only to hosts on the link, so that we cannot be made to send
  // elsewhere.
  const bool is_multicast = received.to_group && received.source.port == kPort;
  if (is_multicast) {
    querier_receive(link, message, received.source.protocol);
  } else if (!received.is_local) {
    return;
  }
  prober_receive_probe(link, message);
  responder_receive(link, std::move(message), received);
}

}  // namespace

void LinkDeleter::operator()(Link* link) const { delete link; }

LinkPtr link_new(std::uint64_t seed, Protocols protocols) {
  LinkPtr link(new Link);
  random_seed(link->random, seed);
  link->protocols = protocols;
  const std::uint64_t hash_seed = link->hash_seed = random_next(link->random);
  link->names = NameTable(0, FoldedHash{hash_seed});
  link->cache.entries = decltype(link->cache.entries)(0, RecordHash{hash_seed});
  link->zone.records = decltype(link->zone.records)(0, RecordHash{hash_seed});
  link->sources.by_endpoint = decltype(link->sources.by_endpoint)(0, EndpointHash{hash_seed});
  return link;
}

void link_advance(Link& link, Time now) {
  link.now = now;
  if (link.is_closing) {
    sender_advance(link);
    return;
  }
  cache_advance(link);
  querier_advance(link);
  prober_advance(link);
  responder_advance(link);
  sources_advance(link);
  sender_advance(link);
}

Time link_deadline(const Link& link) {
  if (link.is_closing) {
    return sender_deadline(link);
  }
  const Cache& cache = link.cache;
  return std::min({cache.asked.next(), cache.other.next(), cache.watches.next(), link.querier.due.next(),
                   link.prober.ending.next(), responder_deadline(link), link.sources.idle.next(),
                   sender_deadline(link)});
}

void link_receive(Link& link, Time now, const Received& received) {
  link.now = now;
  if (outbox_recognises(link, received.bytes, received.source.protocol)) {
    return;
  }
  ++link.received;
  Source& source = source_get(link, received.source);
  if (!source_allows(link, source, received.bytes.size())) {
    ++link.ignored;
    return;
  }
  std::optional<Message> message = read_message(received.bytes);
  if (!message) {
    return;
  }
  if (message->is_response) {
    receive_response(link, *message, received, source);
  } else {
    receive_query(link, std::move(*message), received);
  }
}

std::vector<Datagram> link_take_datagrams(Link& link) { return std::exchange(link.outbox.ready, {}); }

std::vector<Event> link_take_events(Link& link) {
  std::erase_if(link.events, [&](const Event& event) {
    const bool is_of_query = event.kind != Event::Kind::established && event.kind != Event::Kind::conflict;
    return is_of_query && !link.querier.by_id.contains(event.id);  // it was stopped
  });
  return std::exchange(link.events, {});
}

LinkFigures link_figures(const Link& link, Time now) {
  constexpr Time kRemembered = 3600 * kSecond;
  LinkFigures figures = {link.received, link.ignored, link.sent, link.conflicts, {}};
  for (const Sibling& sibling : link.siblings) {
    if (sibling.received_at + kRemembered > now) {
      figures.siblings.push_back(sibling.host);
    }
  }
  return figures;
}

void link_set_protocols(Link& link, Time now, Protocols protocols) {
  link.now = now;
  const Protocols before = std::exchange(link.protocols, protocols);
  if (before & ~protocols) {
    cache_keep_protocols(link, protocols);
  }
  if (protocols & ~before) {
    link_restart(link, now, false);
  }
}

void link_restart(Link& link, Time now, bool was_down) {
  link.now = now;
  if (was_down) {
    cache_keep_protocols(link, kNoProtocol);
  }
  link.outbox.urgent.clear();  // these packets answer queries of before the restart
  publications_restart(link);
  querier_restart(link);
}

}  // namespace mdns
