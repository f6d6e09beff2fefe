// SPDX-License-Identifier: MIT
// Hostile hosts, which send anything. What they forge resembles genuine records and queries, so that it has an effect.
#include "simulation/actors.h"

namespace simulation {
namespace {

constexpr std::uint16_t kFlush = 0x8001;

struct Attack {
  World& world;
  Medium& medium;
  Dice& dice;
  Forged forged;
};

void send(Attack& attack, std::vector<std::uint8_t> bytes) {
  attack.forged.bytes = std::move(bytes);
  inject(attack.world, attack.medium, attack.forged);
}

// A record that is published on the medium; null when there is none. The same dice give the same record.
struct Target {
  const Publication* publication = nullptr;
  std::size_t record = 0;
};

Target choose(Attack& attack) {
  for (int tries = 0; tries < 8 && !attack.medium.ports.empty(); ++tries) {
    const Port& port = *attack.medium.ports[attack.dice.below(attack.medium.ports.size())];
    if (port.publications.empty() || !is_present(port)) {
      continue;
    }
    auto place = port.publications.begin();
    std::advance(place, static_cast<std::ptrdiff_t>(attack.dice.below(port.publications.size())));
    if (place->second.records.empty()) {
      continue;
    }
    return {&place->second, attack.dice.below(place->second.records.size())};
  }
  return {};
}

std::string some_bytes(Dice& dice, std::size_t size) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(dice.next());
  }
  return bytes;
}

std::string some_name(Dice& dice) {
  return wire::label(some_bytes(dice, 1 + dice.below(20))) + wire::name(dice.chance(50) ? "_http._tcp.local" : "local");
}

std::string other_rdata(Dice& dice, const mdns::RecordData& record) {
  switch (record.type) {
    case mdns::kTypeSrv:
      return wire::srv_of(static_cast<std::uint16_t>(dice.next()), some_name(dice));
    case mdns::kTypePtr:
      return some_name(dice);
    case mdns::kTypeTxt:
      return wire::label(some_bytes(dice, dice.below(40)));
    default:
      return some_bytes(dice, record.rdata.size());
  }
}

// --- One of each kind

void random_bytes(Attack& attack) {
  const std::string bytes = some_bytes(attack.dice, attack.dice.below(attack.dice.chance(10) ? 9000 : 200));
  send(attack, {bytes.begin(), bytes.end()});
}

// A copy of a genuine datagram with a few bytes changed, cut or none at all.
void mutated(Attack& attack) {
  std::vector<std::uint8_t> bytes = attack.world.overheard[attack.dice.below(attack.world.overheard.size())];
  for (std::size_t count = attack.dice.below(4); count > 0 && !bytes.empty(); --count) {
    bytes[attack.dice.below(bytes.size())] = static_cast<std::uint8_t>(attack.dice.next());
  }
  if (attack.dice.chance(20) && !bytes.empty()) {
    bytes.resize(attack.dice.below(bytes.size()));
  }
  send(attack, std::move(bytes));
}

// A response about something genuine: its goodbye, other data with the cache-flush bit, a small or enormous TTL.
void forged_response(Attack& attack) {
  Builder builder;
  builder.flags(0x8400);
  constexpr std::uint32_t kTtls[] = {0, 0, 0, 1, 10, 120, 4500, 0x7FFFFFFF, 0xFFFFFFFF};
  for (std::size_t count = 1 + attack.dice.below(6); count > 0; --count) {
    const Target target = choose(attack);
    if (target.publication == nullptr) {
      return;
    }
    const mdns::RecordData& record = target.publication->records[target.record];
    const std::string rdata = attack.dice.chance(50) ? record.rdata : other_rdata(attack.dice, record);
    builder.record(Part::answer, target.publication->name, record.type,
                   attack.dice.chance(50) ? kFlush : mdns::kClassIn, kTtls[attack.dice.below(std::size(kTtls))], rdata);
  }
  send(attack, builder.bytes());
}

// A service that does not exist, with a host that is its own alias, and records of kinds that should not be here.
void invented(Attack& attack) {
  Builder builder;
  builder.flags(0x8400);
  const std::string name = some_name(attack.dice), host = some_name(attack.dice);
  builder.record(Part::answer, wire::name("_http._tcp.local"), mdns::kTypePtr, mdns::kClassIn, 0xFFFFFFFF, name);
  builder.record(Part::answer, name, mdns::kTypeSrv, kFlush, 120, wire::srv_of(80, host));
  builder.record(Part::answer, host, mdns::kTypeCname, kFlush, 120, attack.dice.chance(50) ? host : name);
  builder.record(Part::answer, name, mdns::kTypeCname, mdns::kClassIn, 120, host);
  const Target target = choose(attack);
  if (target.publication != nullptr) {
    const std::string& genuine = target.publication->name;
    builder.record(Part::answer, genuine, mdns::kTypeCname, kFlush, 120, genuine);
    builder.record(Part::answer, genuine, mdns::kTypeNsec, kFlush, 120, genuine + std::string("\0\1\x40", 3));
    builder.record(Part::answer, genuine, static_cast<std::uint16_t>(attack.dice.next()), kFlush, 120,
                   some_bytes(attack.dice, 9));
  }
  builder.record(Part::additional, std::string(1, '\0'), mdns::kTypeOpt, 1440, 0, "");
  send(attack, builder.bytes());
}

// A query for something genuine: legacy, with QU, ANY, TC, false known answers or as a probe.
void odd_query(Attack& attack) {
  Builder builder;
  const Target target = choose(attack);
  if (target.publication == nullptr) {
    return;
  }
  const mdns::RecordData& record = target.publication->records[target.record];
  const bool is_any = attack.dice.chance(30);
  builder.flags(attack.dice.chance(20) ? 0x0200 : 0);
  const std::uint16_t klass = attack.dice.chance(30)   ? kFlush
                              : attack.dice.chance(10) ? mdns::kClassAny
                                                       : mdns::kClassIn;
  builder.question(target.publication->name, is_any ? mdns::kTypeAny : record.type, klass);
  if (attack.dice.chance(30)) {
    builder.record(Part::answer, target.publication->name, record.type, mdns::kClassIn,
                   static_cast<std::uint32_t>(attack.dice.below(9000)), record.rdata);
  }
  if (attack.dice.chance(40)) {
    builder.record(Part::authority, target.publication->name, record.type, mdns::kClassIn, 120,
                   attack.dice.chance(30) ? record.rdata : other_rdata(attack.dice, record));
  }
  attack.forged.source.port = attack.dice.chance(30) ? 40000 : mdns::kPort;
  send(attack, builder.bytes());
}

using Act = void (*)(Attack&);
constexpr Act kActs[] = {random_bytes,    mutated,  mutated,   forged_response,
                         forged_response, invented, odd_query, odd_query};

}  // namespace

void be_hostile(World& world, Medium& medium) {
  world.is_hostile = true;
  Attack attack{world, medium, world.dice, {}};
  attack.forged.source.protocol = world.dice.chance(50) ? mdns::kIpv4 : mdns::kIpv6;
  attack.forged.source.port = world.dice.chance(95) ? mdns::kPort : 1024;
  attack.forged.source.address = {10, 66, 0, static_cast<std::uint8_t>(world.dice.below(4))};
  attack.forged.is_local = world.dice.chance(90);
  const Act act = kActs[world.dice.below(std::size(kActs))];
  const std::size_t count = world.dice.chance(3) ? 200 : 1 + world.dice.below(4);
  for (std::size_t each = 0; each < count && !world.overheard.empty(); ++each) {
    act(attack);
  }
}

}  // namespace simulation
