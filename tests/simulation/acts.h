// SPDX-License-Identifier: MIT
// What happens in a life: what its hosts do, and what happens to them and to the media.
#pragma once

#include "simulation/actors.h"
#include "simulation/world.h"

namespace simulation {

enum class Misfortune { none, loss, partition, hostility };

struct Life {
  World world;
  Misfortune misfortune{};
  std::size_t size = 0;
  mdns::Protocols protocols = mdns::kBothProtocols;
  std::deque<Device> devices;
  std::deque<Browser> browsers;
  std::vector<Browser*> gateways;
  std::vector<Port*> lookers;
  std::vector<std::string> types;
  Dice more_dice;   // for what only lives with gateways have: the others are not changed by it
  int numbers = 0;  // for names that nobody else has
};

// Whether the port's host is there and its link has a protocol.
bool is_up(const Port& port);

// A name that nobody else has.
std::string new_label(Life& life, const char* what);

Device& add_device(Life& life, Medium& medium, const std::string& label);

// One act, chosen by the dice.
void act_once(Life& life);

// Plans for a life with gateways: hosts that change their addresses, and guests: devices on the other link that have
// the name of a host which is forwarded there, from the beginning or later, for a while or for good.
void plan_guests(Life& life, Time until);

// Plans the faults of the media until then.
void plan_misfortune(Life& life, Time until);

}  // namespace simulation
