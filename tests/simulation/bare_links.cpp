// SPDX-License-Identifier: MIT
#include "simulation/bare_links.h"

#include <algorithm>

namespace simulation {
namespace {

constexpr mdns::Time kOnTheWay = 200;
constexpr unsigned kStranger = 200;

mdns::Endpoint endpoint_of(unsigned number, mdns::Protocols protocol) {
  const auto last = static_cast<std::uint8_t>(number);
  mdns::Endpoint endpoint;
  endpoint.protocol = protocol;
  endpoint.port = mdns::kPort;
  if (protocol == mdns::kIpv4) {
    endpoint.address = {10, 0, 0, last};
  } else {
    endpoint.address = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
  }
  return endpoint;
}

void touch(BareLink& link) {
  if (!link.is_dirty) {
    link.is_dirty = true;
    link.bare->dirty.push_back(&link);
  }
}

// To all links of the medium; the sender's own comes back to it.
void multicast(Bare& bare, int medium, unsigned from, mdns::Protocols protocols, std::vector<std::uint8_t>&& bytes) {
  const auto shared = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    for (BareLink& to : bare.links) {
      if ((protocols & protocol) != 0 && to.medium == medium) {
        bare.flights.push({bare.now + kOnTheWay, ++bare.last_order, &to, endpoint_of(from, protocol), shared});
      }
    }
  }
}

// What is to be done after each call: see mdns.h.
void settle(BareLink& link) {
  const mdns::Time now = link.bare->now;
  bool is_done = false;
  while (!is_done) {
    mdns::link_advance(*link.link, now);
    for (mdns::Datagram& datagram : mdns::link_take_datagrams(*link.link)) {
      multicast(*link.bare, link.medium, link.number, datagram.protocols, std::move(datagram.bytes));
    }
    const std::vector<mdns::Event> events = mdns::link_take_events(*link.link);
    for (const mdns::Event& event : events) {
      const auto report = link.reports.find(event.tag);
      if (report != link.reports.end() && report->second) {
        const auto call = report->second;  // it may end what it is called for
        call(event);
      }
    }
    link.deadline = mdns::link_deadline(*link.link);
    is_done = events.empty() && link.deadline > now;
  }
}

void settle_all(Bare& bare) {
  while (!bare.dirty.empty()) {
    BareLink& link = *bare.dirty.back();
    bare.dirty.pop_back();
    link.is_dirty = false;
    settle(link);
  }
}

void deliver_due(Bare& bare) {
  while (!bare.flights.empty() && bare.flights.top().at <= bare.now) {
    const BareFlight flight = bare.flights.top();
    bare.flights.pop();
    mdns::Received received;
    received.source = flight.source;
    received.bytes = *flight.bytes;
    mdns::link_receive(*flight.to->link, bare.now, received);
    touch(*flight.to);
  }
}

}  // namespace

BareLink& bare_link(Bare& bare, int medium) {
  BareLink& link = bare.links.emplace_back();
  link.bare = &bare;
  link.medium = medium;
  link.number = static_cast<unsigned>(bare.links.size());
  link.link = mdns::link_new(bare.seed * 1000 + link.number, mdns::kBothProtocols);
  return link;
}

mdns::PublicationId bare_publish(BareLink& link, std::string_view name, std::span<const mdns::RecordData> records,
                                 mdns::Claim claim, std::function<void(const mdns::Event&)> report) {
  const std::uint64_t tag = ++link.bare->last_tag;
  if (report) {
    link.reports.emplace(tag, std::move(report));
  }
  touch(link);
  return mdns::publish(*link.link, link.bare->now, name, records, claim, tag);
}

bool bare_update(BareLink& link, mdns::PublicationId id, const mdns::RecordData& data) {
  touch(link);
  return mdns::publication_update(*link.link, link.bare->now, id, data);
}

void bare_withdraw(BareLink& link, mdns::PublicationId id) {
  touch(link);
  mdns::publication_withdraw(*link.link, link.bare->now, id);
}

mdns::QueryId bare_query(BareLink& link, std::string_view name, std::uint16_t type,
                         std::function<void(const mdns::Event&)> report) {
  const std::uint64_t tag = ++link.bare->last_tag;
  link.reports.emplace(tag, std::move(report));
  touch(link);
  return mdns::query_start(*link.link, link.bare->now, name, type, tag);
}

void bare_stop(BareLink& link, mdns::QueryId id) {
  touch(link);
  mdns::query_stop(*link.link, link.bare->now, id);
}

void bare_inject(Bare& bare, int medium, mdns::Protocols protocols, std::vector<std::uint8_t> bytes) {
  multicast(bare, medium, kStranger, protocols, std::move(bytes));
}

void bare_run(Bare& bare, mdns::Time duration) {
  const mdns::Time until = bare.now + duration;
  settle_all(bare);
  while (true) {
    mdns::Time next = bare.flights.empty() ? mdns::kNever : bare.flights.top().at;
    for (const BareLink& link : bare.links) {
      next = std::min(next, link.deadline);
    }
    if (next > until) {
      break;
    }
    bare.now = std::max(bare.now, next);
    deliver_due(bare);
    for (BareLink& link : bare.links) {
      if (link.deadline <= bare.now) {
        touch(link);
      }
    }
    settle_all(bare);
  }
  bare.now = until;
}

}  // namespace simulation
