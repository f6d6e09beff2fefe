// SPDX-License-Identifier: MIT
#include "simulation/acts.h"

namespace simulation {

bool is_up(const Port& port) { return is_present(port) && port.protocols != mdns::kNoProtocol; }

std::string new_label(Life& life, const char* what) { return what + std::to_string(++life.numbers); }

Device& add_device(Life& life, Medium& medium, const std::string& label) {
  World& world = life.world;
  Device& device = life.devices.emplace_back();
  device.port =
      &add_port(world, add_host(world, label + "#" + std::to_string(world.ports.size())), medium, life.protocols);
  device.port->side = static_cast<int>(world.dice.below(2));
  device.label = label;
  const auto number = static_cast<char>(device.port->index + 1);
  if (world.dice.chance(90)) {
    device.v4 = std::string({10, static_cast<char>(medium.index), 0, number});
  }
  if (device.v4.empty() || world.dice.chance(60)) {
    device.v6 = std::string({0x20, 1, 0xd, static_cast<char>(0xb8)}) + std::string(11, '\0') + number;
  }
  if (!device.v6.empty() && world.dice.chance(40)) {
    device.second_v6 = std::string({static_cast<char>(0xfe), static_cast<char>(0x80)}) + std::string(13, '\0') + number;
  }
  device_start(device);
  return device;
}

namespace {

Device& any_device(Life& life) { return life.devices[life.world.dice.below(life.devices.size())]; }

Port& any_looker(Life& life) { return *life.lookers[life.world.dice.below(life.lookers.size())]; }

std::string any_type(Life& life) { return life.types[life.world.dice.below(life.types.size())]; }

// --- Acts of the hosts

void offer_something(Life& life) {
  Device& device = any_device(life);
  if (!is_up(*device.port) || device.addresses == 0) {
    return;
  }
  constexpr const char* kLabels[] = {"Printer", "PRINTER", "B\xc3\xbcro 1.2", "Scanner", "printer (2)"};
  std::string label =
      life.world.dice.chance(40) ? kLabels[life.world.dice.below(std::size(kLabels))] : new_label(life, "Service ");
  if (life.world.dice.chance(5)) {
    label.append(63 - label.size(), 'x');
  }
  const std::size_t count = life.world.dice.chance(4) ? 30 : 1;
  for (std::size_t each = 0; each < count; ++each) {
    device_offer(device, each == 0 ? label : new_label(life, "Many "), any_type(life), new_label(life, "v="));
  }
}

Offer* any_offer(Life& life) {
  Device& device = any_device(life);
  return device.offers.empty() || !is_present(*device.port) || device.addresses == 0
             ? nullptr
             : device.offers[life.world.dice.below(device.offers.size())].get();
}

void change_text(Life& life) {
  Offer* const offer = any_offer(life);
  if (offer != nullptr && offer->service != 0) {
    offer_change(*offer, offer->srv, wire::label(new_label(life, "v=")));
  }
}

// Withdrawn, or registered again; at times both within the same moment.
void toggle_offer(Life& life) {
  Offer* const offer = any_offer(life);
  if (offer == nullptr) {
    return;
  }
  const bool was_on = offer->service != 0;
  if (was_on) {
    offer_stop(*offer);
  }
  if (!was_on || life.world.dice.chance(25)) {
    offer_start(*offer);
  }
}

void change_address(Life& life) {
  Device& device = any_device(life);
  if (is_present(*device.port) && device.addresses != 0) {
    device_change_address(device, static_cast<std::uint8_t>(life.world.dice.below(256)));
  }
}

// Another host takes a name that is there: a host's, or a service's with other data.
void rival(Life& life) {
  Device& device = any_device(life);
  const std::string label = life.world.dice.chance(50) ? device.label : new_label(life, "rival");
  const std::string service = device.offers.empty() ? "Printer" : device.offers.back()->label;
  Device& other = add_device(life, *device.port->medium, label);
  device_offer(other, service, any_type(life), new_label(life, "rival="));
}

void look_up(Life& life) {
  Dice& dice = life.world.dice;
  Port& port = any_looker(life);
  const Offer* const offer = any_offer(life);
  if (!is_present(port)) {
    return;
  }
  if (offer == nullptr || dice.chance(20)) {
    query(port, any_type(life), mdns::kTypePtr);
  } else if (dice.chance(50)) {
    query(port, instance_of(*offer), dice.chance(50) ? mdns::kTypeSrv : mdns::kTypeTxt);
  } else {
    query(port, host_name_of(any_device(life)), dice.chance(50) ? mdns::kTypeA : mdns::kTypeAaaa);
  }
}

void look_no_more(Life& life) {
  Port& port = any_looker(life);
  if (is_present(port) && !port.queries.empty()) {
    auto query = port.queries.begin();
    std::advance(query, static_cast<std::ptrdiff_t>(life.world.dice.below(port.queries.size())));
    const bool is_of_browser = static_cast<bool>(query->second.report);
    if (!is_of_browser) {
      stop(port, query->first);
    }
  }
}

void browse(Life& life) {
  Port& port = any_looker(life);
  if (is_present(port)) {
    browse_start(life.browsers.emplace_back(Browser{&port, nullptr, any_type(life), 0, {}}));
  }
}

void browse_no_more(Life& life) {
  if (life.browsers.empty()) {
    return;
  }
  Browser& browser = life.browsers[life.world.dice.below(life.browsers.size())];
  const bool is_present_both = is_present(*browser.from) && (browser.to == nullptr || is_present(*browser.to));
  if (!is_present_both) {
    return;
  }
  if (browser.query != 0) {
    browse_stop(browser);
  } else {
    browse_start(browser);
  }
}

// --- Faults of hosts and media

Host& any_host(Life& life) {
  return life.world.dice.chance(70) ? *any_device(life).port->host
                                    : life.world.hosts[life.world.dice.below(life.world.hosts.size())];
}

void vanish_one(Life& life) {
  Host& host = *any_device(life).port->host;
  if (host.is_alive && !host.is_asleep) {
    vanish(host);
  }
}

void sleep_one(Life& life) {
  Host& host = any_host(life);
  if (host.is_alive && !host.is_asleep) {
    fall_asleep(host);
    const Time until = life.world.now + life.world.dice.between(1, 40) * kSecond;
    call_at(life.world, until, [&host] { wake_up(host); });
  }
}

void flap_one(Life& life) {
  Host& host = any_host(life);
  Port& port = *host.ports[life.world.dice.below(host.ports.size())];
  if (!is_up(port) || port.protocols != life.protocols) {
    return;
  }
  set_protocols(port,
                life.protocols == mdns::kBothProtocols && life.world.dice.chance(50) ? mdns::kIpv4 : mdns::kNoProtocol);
  call_at(life.world, life.world.now + life.world.dice.between(1, 10000) * kMillisecond, [&life, &port] {
    if (port.host->is_alive) {
      set_protocols(port, life.protocols);
    }
  });
}

void restart_one(Life& life) {
  Host& host = any_host(life);
  if (host.is_alive && !host.is_asleep) {
    restart(*host.ports[0], life.world.dice.chance(50));
  }
}

struct Act {
  std::size_t weight;
  void (*act)(Life&);
};

constexpr Act kActs[] = {
    {26, offer_something}, {8, change_text},  {10, toggle_offer}, {5, change_address}, {4, rival},
    {16, look_up},         {7, look_no_more}, {8, browse},        {4, browse_no_more}, {2, vanish_one},
    {3, sleep_one},        {3, flap_one},     {2, restart_one},
};

}  // namespace

void act_once(Life& life) {
  std::size_t total = 0;
  for (const Act& act : kActs) {
    total += act.weight;
  }
  std::size_t chosen = life.world.dice.below(total);
  for (const Act& act : kActs) {
    if (chosen < act.weight) {
      act.act(life);
      return;
    }
    chosen -= act.weight;
  }
}

namespace {

void heal(Medium& medium) {
  medium.is_partitioned = false;
  for (Port* const port : medium.ports) {
    if (port->side == 1 && is_present(*port)) {
      restart(*port, true);  // its part of the medium has come back
    }
  }
}

// The end of a guest.
void plan_departure(Life& life, Device& guest, Time from, Time until) {
  World& world = life.world;
  const std::size_t fate = life.more_dice.below(100);
  const Time at = life.more_dice.between(from, until);
  if (fate < 35) {
    return;  // it stays
  }
  call_at(world, at, [&guest, fate] {
    if (is_present(*guest.port) && fate < 55) {
      vanish(*guest.port->host);
    } else if (is_present(*guest.port)) {
      device_stop(guest);
    }
  });
  if (fate >= 85) {
    call_at(world, at + life.more_dice.between(0, 15000) * kMillisecond, [&guest] {
      if (is_present(*guest.port) && guest.addresses == 0) {
        device_start(guest);
      }
    });
  }
}

void add_guest(Life& life, const std::string& label, Medium& medium, Time until) {
  Device& guest = add_device(life, medium, label);
  if (life.more_dice.chance(60)) {
    device_offer(guest, new_label(life, "Guest's "), life.types[0], new_label(life, "v="));
  }
  plan_departure(life, guest, life.world.now, until);
}

}  // namespace

void plan_guests(Life& life, Time until) {
  World& world = life.world;
  for (std::size_t changes = life.more_dice.below(6); changes > 0; --changes) {
    call_at(world, life.more_dice.between(0, until), [&life] { change_address(life); });
  }
  for (std::size_t guests = life.more_dice.chance(65) ? 1 + life.more_dice.below(2) : 0; guests > 0; --guests) {
    const Browser& gateway = *life.gateways[life.more_dice.below(life.gateways.size())];
    Device* host = nullptr;
    for (Device& device : life.devices) {
      host = device.port->medium == gateway.from->medium && (host == nullptr || life.more_dice.chance(50)) ? &device
                                                                                                           : host;
    }
    if (host == nullptr) {
      continue;
    }
    const std::string label = host->label;
    const Time served = life.more_dice.chance(50) ? 0 : life.more_dice.between(0, until / 2);
    const Time comes = life.more_dice.chance(40) ? 0 : life.more_dice.between(0, until);
    call_at(world, served, [&life, host] {
      if (is_up(*host->port) && host->addresses != 0) {
        device_offer(*host, new_label(life, "Forwarded "), life.types[0], new_label(life, "v="));
      }
    });
    call_at(world, comes,
            [&life, label, &medium = *gateway.to->medium, until] { add_guest(life, label, medium, until); });
  }
}

void plan_misfortune(Life& life, Time until) {
  World& world = life.world;
  for (Medium& medium : world.media) {
    if (life.misfortune == Misfortune::partition) {
      const Time begin = world.dice.between(0, until / 2);
      call_at(world, begin, [&medium] { medium.is_partitioned = true; });
      call_at(world, world.dice.between(begin, until), [&medium] { heal(medium); });
    }
    for (int acts = 0; life.misfortune == Misfortune::hostility && acts < 60; ++acts) {
      call_at(world, world.dice.between(0, until), [&world, &medium] { be_hostile(world, medium); });
    }
  }
}

}  // namespace simulation
