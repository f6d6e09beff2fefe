// SPDX-License-Identifier: MIT
#include "simulation/air.h"

#include <algorithm>

namespace simulation {
namespace {

constexpr Time kLoopDelay = 200;  // until the system has looped a datagram back

std::uint32_t new_flight(World& world, const mdns::Endpoint& source, mdns::Bytes bytes, const WireMessage& message) {
  const std::uint32_t slot = take_slot(world.flights, world.free_flights);
  Flight& flight = world.flights[slot];
  flight.users = 0;
  flight.bytes.assign(bytes.begin(), bytes.end());
  flight.received = {source, true, true, {}};
  flight.probes.clear();
  for (const WireQuestion& question : message.questions) {
    // malformed: probes may stand behind the fault
    const bool may_be_probe = message.fault != nullptr && !message.is_response();
    if (may_be_probe || is_probe_for(message, question)) {
      flight.probes.push_back(question.name_hash);
    }
  }
  flight.goodbyes.clear();
  flight.doubts.clear();
  flight.records.clear();
  flight.flushes.clear();
  for (const WireRecord& record : message.records) {
    if (!message.is_response()) {
      break;
    }
    flight.records.emplace_back(record.hash, record.ttl);
    if (record.flush) {
      flight.flushes.push_back(record.set_hash);
    }
    if (record.ttl == 0) {
      flight.goodbyes.push_back(record.hash);
    }
    if (record.ttl <= 1) {
      flight.doubts.push_back({record.hash, record.set_hash});
    }
  }
  return slot;
}

void plan_delivery(World& world, Port& to, std::uint32_t flight, Time at) {
  ++world.flights[flight].users;
  plan(world, {at, 0, Item::Kind::deliver, static_cast<std::uint32_t>(to.index), flight});
}

// The weather decides what becomes of one datagram on its way to one port. `base`: when it is there without further
// delay.
void carry(World& world, Medium& medium, const Port* from, Port& to, std::uint32_t flight, Time base) {
  const Weather& weather = medium.weather;
  if (from != nullptr && medium.is_partitioned && from->side != to.side) {
    return;
  }
  if (weather.loss > 0 && world.dice.chance(weather.loss)) {
    return;
  }
  const Time extra = weather.reorders ? world.dice.between(0, weather.delay) : 0;
  plan_delivery(world, to, flight, base + extra);
  if (weather.duplicates > 0 && world.dice.chance(weather.duplicates)) {
    plan_delivery(world, to, flight, base + (weather.reorders ? world.dice.between(0, 30 * kMillisecond) : 0));
  }
}

// When a datagram of this port arrives elsewhere: never before one that it sent earlier over the same protocol.
Time arrival(World& world, Port& from, mdns::Protocols protocol) {
  Time& last = from.last_arrival[mdns::index_of(protocol)];
  last = std::max(last, world.now + 50 + world.dice.between(0, from.medium->weather.delay));
  return last;
}

void multicast(Port& from, const mdns::Datagram& datagram, mdns::Protocols protocol, const WireMessage& message) {
  World& world = *from.world;
  Medium& medium = *from.medium;
  const std::uint32_t flight = new_flight(world, from.endpoints[mdns::index_of(protocol)], datagram.bytes, message);
  const Time base = arrival(world, from, protocol);
  for (Port* const to : medium.ports) {
    if (to == &from) {
      plan_delivery(world, from, flight, world.now + kLoopDelay);
    } else {
      carry(world, medium, &from, *to, flight, base);
    }
  }
  ++world.sums.datagrams;
}

void unicast(Port& from, const mdns::Datagram& datagram, const WireMessage& message) {
  World& world = *from.world;
  const mdns::Protocols protocol = datagram.to.protocol;
  for (Port* const to : from.medium->ports) {
    if (to != &from && to->endpoints[mdns::index_of(protocol)] == datagram.to) {
      const std::uint32_t flight = new_flight(world, from.endpoints[mdns::index_of(protocol)], datagram.bytes, message);
      world.flights[flight].received.to_group = false;
      ++world.flights[flight].users;
      carry(world, *from.medium, &from, *to, flight, arrival(world, from, protocol));
      release(world, flight);
    }
  }
  ++world.sums.datagrams;
}

}  // namespace

void release(World& world, std::uint32_t slot) {
  if (--world.flights[slot].users <= 0) {
    world.free_flights.push_back(slot);
  }
}

void note_received(Port& port, const Flight& flight) {
  const Time now = port.world->now;
  for (const Hash name : flight.probes) {
    port.ledger.probes_received[name] = now;
  }
  // The second after the first goodbye counts, even if another port sends one, too.
  const auto note_first = [now](std::unordered_map<Hash, Time>& all, Hash hash) {
    Time& received = all.emplace(hash, now).first->second;
    received = now - received > kSecond ? now : received;
  };
  for (const Hash record : flight.goodbyes) {
    note_first(port.ledger.goodbyes_received, record);
  }
  for (const Hash set : flight.flushes) {
    note_first(port.ledger.flushes_received, set);
  }
  const bool is_own = std::ranges::find(port.endpoints, flight.received.source) != std::end(port.endpoints);
  for (const auto& [record, ttl] : flight.records) {
    ReceivedRecord& received = port.ledger.received[record];
    received = {now, ttl, ttl > 0 && !is_own ? now + Time{ttl} * kSecond : received.until};
  }
  for (const Doubt& doubt : flight.doubts) {
    if (port.holdings.contains(doubt.record)) {
      port.ledger.doubts_received[doubt.record] = port.ledger.doubts_received[doubt.set] = now;
    }
  }
}

void transmit(Port& from, const Batch& batch) {
  for (std::size_t at = 0; at < batch.datagrams.size(); ++at) {
    const mdns::Datagram& datagram = batch.datagrams[at];
    if (datagram.protocols == mdns::kNoProtocol) {
      unicast(from, datagram, batch.messages[at]);
    }
    for (const mdns::Protocols protocol : mdns::kEachProtocol) {
      if ((datagram.protocols & protocol) != 0) {
        multicast(from, datagram, protocol, batch.messages[at]);
      }
    }
  }
}

void inject(World& world, Medium& medium, const Forged& forged) {
  const WireMessage message = read_wire(forged.bytes);
  note_datagram(world, nullptr, "hostile datagram", forged.bytes, forged.source.protocol);
  const std::uint32_t flight = new_flight(world, forged.source, forged.bytes, message);
  world.flights[flight].received.is_local = forged.is_local;
  ++world.flights[flight].users;
  for (Port* const to : medium.ports) {
    carry(world, medium, nullptr, *to, flight, world.now + 50);
  }
  release(world, flight);
}

}  // namespace simulation
