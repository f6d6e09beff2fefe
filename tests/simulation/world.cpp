// SPDX-License-Identifier: MIT
// Time, and the engines in it: what each is given, and what it gives.
#include "simulation/world.h"
#include "mdns/link_counts.h"

#include <algorithm>

#include "simulation/air.h"
#include "simulation/client.h"
#include "simulation/wire_rules.h"

namespace simulation {
namespace {

// More turns than this at one instant and the engine's deadline does not move.
constexpr int kTurnsMax = 1000;
constexpr std::uint64_t kWeighed = 16;  // each sixteenth datagram's cost is looked at: counting costs something itself
constexpr std::size_t kOverheardMax = 24;

mdns::Endpoint endpoint_of(int port, mdns::Protocols protocol) {
  mdns::Endpoint endpoint;
  endpoint.protocol = protocol;
  endpoint.port = mdns::kPort;
  const auto low = static_cast<std::uint8_t>(port + 1);
  const auto high = static_cast<std::uint8_t>((port + 1) >> 8);
  if (protocol == mdns::kIpv4) {
    endpoint.address = {10, 0, high, low};
  } else {
    endpoint.address = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, high, low};
  }
  return endpoint;
}

void digest(World& world, std::uint64_t number) {
  world.digest = (world.digest ^ number) * 0x9e3779b97f4a7c15U + (number >> 32U);
}

void digest(World& world, mdns::Bytes bytes) {
  digest(world,
         hash_record(static_cast<Hash>(world.now), 0, {reinterpret_cast<const char*>(bytes.data()), bytes.size()}));
}

void send(Port& port, Batch& batch) {
  World& world = *port.world;
  for (const mdns::Datagram& datagram : batch.datagrams) {
    batch.messages.push_back(read_wire(datagram.bytes));
    note_datagram(world, &port, datagram.protocols == mdns::kNoProtocol ? "sends by unicast" : "sends", datagram.bytes,
                  datagram.protocols == mdns::kNoProtocol ? datagram.to.protocol : datagram.protocols);
    digest(world, datagram.bytes);
    world.overheard.push_back(datagram.bytes);
    if (world.overheard.size() > kOverheardMax) {
      world.overheard.pop_front();
    }
  }
  check_sent(port, batch);
  transmit(port, batch);
}

// What is to be done after each call: see mdns.h.
void settle(Port& port) {
  World& world = *port.world;
  const Time now = clock_of(port);
  for (int turn = 0; world.breach.empty(); ++turn) {
    if (turn > kTurnsMax) {
      fail(world, &port, "link_advance does not move its deadline", std::to_string(turn) + " turns at one instant");
    }
    mdns::link_advance(*port.link, now);
    Batch batch;
    batch.datagrams = mdns::link_take_datagrams(*port.link);
    const std::vector<mdns::Event> events = mdns::link_take_events(*port.link);
    for (const mdns::Event& event : events) {
      digest(world, hash_record(event.tag, event.type, event.rdata) + static_cast<std::uint64_t>(event.kind));
    }
    take_note(port, events);
    if (!batch.datagrams.empty()) {
      send(port, batch);
    }
    act_upon(port, events);
    if (batch.datagrams.empty() && events.empty() && mdns::link_deadline(*port.link) > now) {
      break;
    }
  }
  const Time deadline = mdns::link_deadline(*port.link);
  if (deadline == port.deadline && port.wake_at != kNever) {
    return;
  }
  port.deadline = deadline;
  port.wake_at = kNever;
  if (deadline != kNever) {
    port.wake_at = deadline - port.host->offset + (world.lateness > 0 ? world.dice.between(0, world.lateness) : 0);
    plan(world, {port.wake_at, 0, Item::Kind::wake, static_cast<std::uint32_t>(port.index), 0});
  }
}

void settle_dirty(World& world) {
  while (!world.dirty.empty() && world.breach.empty()) {
    std::vector<Port*> dirty;
    dirty.swap(world.dirty);
    for (Port* const port : dirty) {
      port->is_dirty = false;
      if (is_present(*port)) {
        settle(*port);
      }
    }
  }
}

void deliver(World& world, Port& port, std::uint32_t slot) {
  const Flight& flight = world.flights[slot];
  if (is_present(port) && (port.protocols & flight.received.source.protocol) != 0) {
    note_received(port, flight);
    mdns::Received received = flight.received;
    received.bytes = flight.bytes;
    const bool is_weighed = ++world.sums.deliveries % kWeighed == 0;
    const mdns::LinkCounts before = is_weighed ? mdns::link_counts(*port.link) : mdns::LinkCounts();
    mdns::link_receive(*port.link, clock_of(port), received);
    if (is_weighed) {
      check_cost(port, mdns::link_counts(*port.link).steps - before.steps, flight.bytes.size(), before.published);
    }
    touch(port);
  }
  release(world, slot);
}

void act(World& world, const Item& item) {
  if (item.kind == Item::Kind::deliver) {
    deliver(world, world.ports[item.port], item.index);
    return;
  }
  if (item.kind == Item::Kind::wake) {
    Port& port = world.ports[item.port];
    if (port.wake_at == item.at) {
      port.wake_at = kNever;
      touch(port);
    }
    return;
  }
  const std::function<void()> call = std::move(world.calls[item.index]);
  world.free_calls.push_back(item.index);
  ++world.sums.calls;
  call();
}

}  // namespace

void plan(World& world, Item item) {
  item.order = world.order++;
  world.queue.push_back(item);
  std::push_heap(world.queue.begin(), world.queue.end(), std::greater<>());
}

Medium& add_medium(World& world, const Weather& weather) {
  Medium& medium = world.media.emplace_back();
  medium.index = static_cast<int>(world.media.size() - 1);
  medium.weather = weather;
  return medium;
}

Host& add_host(World& world, std::string_view label) {
  Host& host = world.hosts.emplace_back();
  host.index = static_cast<int>(world.hosts.size() - 1);
  host.label = label;
  host.offset = world.dice.between(0, 1000 * kSecond);
  return host;
}

Port& add_port(World& world, Host& host, Medium& medium, mdns::Protocols protocols) {
  Port& port = world.ports.emplace_back();
  port.index = static_cast<int>(world.ports.size() - 1);
  port.world = &world;
  port.host = &host;
  port.medium = &medium;
  port.protocols = protocols;
  port.disturbed_at = world.now - 1000 * kSecond;
  for (const mdns::Protocols protocol : mdns::kEachProtocol) {
    port.endpoints[mdns::index_of(protocol)] = endpoint_of(port.index, protocol);
  }
  port.link = mdns::link_new(world.dice.next(), protocols);
  host.ports.push_back(&port);
  medium.ports.push_back(&port);
  return port;
}

Time clock_of(const Port& port) { return port.world->now + port.host->offset; }

bool is_present(const Port& port) { return port.host->is_alive && !port.host->is_asleep; }

void call_at(World& world, Time at, std::function<void()> call) {
  const std::uint32_t slot = take_slot(world.calls, world.free_calls);
  world.calls[slot] = std::move(call);
  plan(world, {std::max(at, world.now), 0, Item::Kind::call, 0, slot});
}

void touch(Port& port) {
  if (!port.is_dirty) {
    port.is_dirty = true;
    port.world->dirty.push_back(&port);
  }
}

void run_until(World& world, Time until) {
  settle_dirty(world);
  while (world.breach.empty() && !world.queue.empty() && world.queue.front().at <= until) {
    std::pop_heap(world.queue.begin(), world.queue.end(), std::greater<>());
    const Item item = world.queue.back();
    world.queue.pop_back();
    world.now = item.at;
    act(world, item);
    settle_dirty(world);
  }
  if (world.breach.empty()) {
    world.now = std::max(world.now, until);
  }
}

}  // namespace simulation
