// SPDX-License-Identifier: MIT
#include "simulation/life.h"

#include "simulation/acts.h"
#include "simulation/state_rules.h"

namespace simulation {
namespace {

constexpr Time kMinute = 60 * kSecond;
constexpr Time kAllTtlsOver = 80 * kMinute;  // no TTL is longer than 75 minutes
constexpr Time kPeace = 20 * kSecond;

// --- The hosts

Weather some_weather(Life& life) {
  Dice& dice = life.world.dice;
  Weather weather;
  weather.delay = dice.between(0, life.misfortune == Misfortune::none ? 10 : 30) * kMillisecond;
  weather.duplicates = dice.chance(20) ? 5 : 0;
  if (life.misfortune == Misfortune::loss) {
    weather.loss = dice.chance(30) ? 30 : 1 + dice.below(30);
    weather.reorders = dice.chance(50);
  }
  return weather;
}

void add_looker(Life& life, Medium& medium) {
  Port& port =
      add_port(life.world, add_host(life.world, "looker" + std::to_string(++life.numbers)), medium, life.protocols);
  port.side = static_cast<int>(life.world.dice.below(2));
  life.lookers.push_back(&port);
}

void add_gateway(Life& life, Medium& a, Medium& b) {
  Host& host = add_host(life.world, "gateway" + std::to_string(++life.numbers));
  Port& from = add_port(life.world, host, a, life.protocols);
  Port& to = add_port(life.world, host, b, life.protocols);
  const bool both_ways = life.world.dice.chance(20);
  std::vector<std::string> types = life.types;
  if (life.more_dice.chance(20)) {
    types.push_back(types[0]);  // what two browses of it find is offered twice: the same records, held by both
  }
  for (const std::string& type : types) {
    life.gateways.push_back(&life.browsers.emplace_back(Browser{&from, &to, type, 0, {}}));
    if (both_ways) {
      life.gateways.push_back(&life.browsers.emplace_back(Browser{&to, &from, type, 0, {}}));
    }
  }
  for (Browser* const browser : life.gateways) {
    if (browser->query == 0) {
      browse_start(*browser);
    }
  }
}

void populate(Life& life) {
  World& world = life.world;
  Dice& dice = world.dice;
  const std::size_t media = dice.chance(65) ? 1 : dice.chance(80) ? 2 : 3;
  for (std::size_t each = 0; each < media; ++each) {
    Medium& medium = add_medium(world, some_weather(life));
    medium.calm_since = life.misfortune == Misfortune::none ? -1000 * kSecond : kNever;
  }
  life.types.push_back(wire::name("_http._tcp.local"));
  if (dice.chance(50)) {
    life.types.push_back(wire::name("_ipp._tcp.local"));
  }
  life.size = dice.chance(90) ? 1 + dice.below(4) : 5 + dice.below(12);
  for (std::size_t each = 0; each < life.size; ++each) {
    add_device(life, world.media[dice.below(media)], new_label(life, "host"));
  }
  const std::size_t lookers = 1 + dice.below(2);
  for (std::size_t each = 0; each < lookers; ++each) {
    add_looker(life, world.media[each == 0 ? media - 1 : dice.below(media)]);
  }
  const std::size_t gateways = media < 2 ? 0 : dice.chance(70) ? 2 : 1;
  for (std::size_t each = 0; each < gateways; ++each) {
    add_gateway(life, world.media[0], world.media[1]);
  }
  if (media > 2) {
    add_gateway(life, world.media[0], world.media[2]);
  }
}

// --- The quiet time

// A new host that asks for `left` of the names and types that there are.
Port& add_joiner(Life& life, Medium& medium, std::size_t left) {
  Port& port = add_port(life.world, add_host(life.world, "joiner"), medium, life.protocols);
  std::map<Hash, const Truth*> chosen;  // in an order that does not depend on the table's
  for (const auto& [set, truths] : medium.truth) {
    if (!truths.empty()) {
      chosen.emplace(set, &truths.front());
    }
  }
  for (const auto& [set, truth] : chosen) {
    const Publication& publication = truth->port->publications.at(truth->tag);
    for (const mdns::RecordData& record : publication.records) {
      if (left > 0 && hash_set(publication.name_hash, record.type) == set) {
        query(port, publication.name, record.type);
        --left;
      }
    }
  }
  return port;
}

void make_peace(Life& life) {
  for (Medium& medium : life.world.media) {
    medium.weather.loss = medium.weather.duplicates = 0;
    medium.weather.reorders = false;
    if (life.misfortune != Misfortune::hostility && medium.calm_since == kNever) {
      medium.calm_since = life.world.now;
    }
  }
  for (Host& host : life.world.hosts) {
    wake_up(host);
    for (Port* const port : host.ports) {
      if (host.is_alive && port->protocols != life.protocols) {
        set_protocols(*port, life.protocols);
      }
    }
  }
  // Two hosts whose probes and announcements were lost detect their conflict when somebody asks for the name.
  for (Medium& medium : life.world.media) {
    if (life.misfortune == Misfortune::loss) {
      add_joiner(life, medium, SIZE_MAX);
    }
  }
}

void check_all(Life& life, bool exactly, bool with_knowledge) {
  for (Medium& medium : life.world.media) {
    check_owners(life.world, medium);
    if (with_knowledge) {
      check_knowledge(life.world, medium, exactly, nullptr);
    }
  }
  for (const Browser* const gateway : life.gateways) {
    if (with_knowledge && gateway->query != 0 && is_up(*gateway->from) && is_up(*gateway->to)) {
      check_gateway(life.world, *gateway, exactly);
    }
  }
}

// A host that joins now must have all records within seconds.
void check_late_joiner(Life& life) {
  for (Medium& medium : life.world.media) {
    const Port& port = add_joiner(life, medium, 20);
    run_for(life.world, kKnownWithin + kSecond);
    check_knowledge(life.world, medium, false, &port);
  }
}

void end_life(Life& life) {
  World& world = life.world;
  const bool is_long = life.size < 5 && world.dice.chance(15);
  if (is_long) {
    run_for(world, kAllTtlsOver);
    check_all(life, true, true);
  }
  for (Browser& browser : life.browsers) {
    if (is_present(*browser.from) && world.dice.chance(50)) {
      browse_stop(browser);
    }
  }
  for (Port& port : world.ports) {
    if (is_present(port)) {
      retire(port, world.dice.chance(30));
    }
  }
  run_for(world, kAllTtlsOver);
  if (world.breach.empty()) {
    check_silence(world);
  }
}

Misfortune some_misfortune(Dice& dice) {
  const std::size_t number = dice.below(100);
  return number < 40   ? Misfortune::none
         : number < 60 ? Misfortune::loss
         : number < 72 ? Misfortune::partition
                       : Misfortune::hostility;
}

void live(Life& life) {
  World& world = life.world;
  const Time until = world.dice.between(20, life.size > 4 ? 40 : 80) * kSecond;
  const auto acts = static_cast<std::size_t>(world.dice.between(8, 16)) + 3 * life.size;
  for (std::size_t each = 0; each < acts; ++each) {
    call_at(world, world.dice.chance(15) ? 0 : world.dice.between(0, until), [&life] { act_once(life); });
  }
  if (!life.gateways.empty()) {
    plan_guests(life, until);
  }
  plan_misfortune(life, until);
  run_until(world, until);
  if (life.misfortune == Misfortune::loss) {
    run_for(world, 2 * kMinute);
    for (Medium& medium : world.media) {
      count_missing(world, medium, 2 * kMinute);
    }
  }
  run_for(world, 12 * kSecond);  // until the last link that is down has come back
  make_peace(life);
  run_for(world, kPeace);
  if (!world.breach.empty()) {
    return;
  }
  const bool is_complete = life.misfortune == Misfortune::none || life.misfortune == Misfortune::partition;
  check_all(life, false, is_complete);
  check_late_joiner(life);
  if (world.breach.empty()) {
    end_life(life);
  }
}

}  // namespace

Outcome run_life(std::uint64_t seed, std::size_t lines, const std::vector<std::string>& overlooked) {
  Life life;
  World& world = life.world;
  world.dice.state = seed * 0x9e3779b97f4a7c15U;
  life.more_dice.state = ~world.dice.state;
  world.lines_max = lines;
  world.overlooked = overlooked;
  life.misfortune = some_misfortune(world.dice);
  constexpr mdns::Protocols kProtocols[] = {mdns::kBothProtocols, mdns::kBothProtocols, mdns::kBothProtocols,
                                            mdns::kIpv4, mdns::kIpv6};
  life.protocols = kProtocols[world.dice.below(std::size(kProtocols))];
  world.lateness = world.dice.chance(25) ? world.dice.between(1, 5) * kMillisecond : 0;
  populate(life);
  live(life);
  return {world.breach.empty() ? std::string() : story(world), world.digest, world.now, world.sums};
}

}  // namespace simulation
