// SPDX-License-Identifier: MIT
// What the machine itself says, to everybody: its links, and the process of the daemon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct MachineLink {
  std::string name;
  int index = 0;
  bool up = false;         // IFF_UP and IFF_RUNNING
  bool multicast = false;  // IFF_MULTICAST, and no loopback
  std::vector<std::string> addresses;
};

// The links that there are now, in the kernel's order.
std::vector<MachineLink> machine_links();

// The link of that name among `links`; null: there is none.
const MachineLink* find_link(const std::vector<MachineLink>& links, const std::string& name);

// Whether it is an address of one of the links.
bool is_of_this_machine(const std::vector<MachineLink>& links, const std::string& address);

// The letter that the kernel shows for a process (proc(5): R, S, D, T, ...); nothing when it cannot be asked.
std::optional<char> process_state(std::uint32_t pid);
