// SPDX-License-Identifier: MIT
// The file in which a process that ends leaves its published records to its successor.
//
// Numbers are in the machine's own byte order, since no other machine reads the file. It has "MDNSHAND", the layout's
// number, the kernel's boot id, the network namespace, the time of writing, and for each interface its index, its name,
// its records, and the hosts with an alias there; at the end a hash of all that.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mdns/mdns.h"

namespace dnssd {

struct HandedInterface {
  std::uint32_t index = 0;
  std::string name;
  std::vector<mdns::Published> records;
  std::vector<std::pair<std::string, std::uint32_t>> hosts;  // own name, and Host::number of the alias
};

struct Handover {
  std::string boot;           // the kernel's boot id, a text
  std::uint64_t network = 0;  // the inode of the network namespace
  mdns::Time written_at = 0;  // monotonic_now, which runs on while the machine sleeps
  std::vector<HandedInterface> interfaces;
};

std::string handover_to_bytes(const Handover& handover);

// The reverse. Nothing unless the bytes are what handover_to_bytes gives for records that can be published.
std::optional<Handover> handover_from_bytes(std::string_view bytes);

}  // namespace dnssd
