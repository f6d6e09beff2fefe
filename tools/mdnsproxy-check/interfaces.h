// SPDX-License-Identifier: MIT
// The interfaces of this machine, and what is wrong with those that a rule had better not name.
#pragma once

#include <string>
#include <vector>

struct InterfaceFault {
  std::string name;
  std::string message;
  std::string cure;
};

struct Interfaces {
  std::vector<std::string> names;  // none when they cannot be listed, as the daemon could not then
  std::vector<InterfaceFault> faults;
};

Interfaces interfaces_here();

// What is wrong with an interface of these flags (netdevice(7)); an empty message: nothing.
InterfaceFault fault_of(const std::string& name, unsigned flags);
