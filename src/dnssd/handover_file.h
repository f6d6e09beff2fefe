// SPDX-License-Identifier: MIT
// The file in which a process that ends leaves what it has published to the one that takes its place.
//
// Numbers stand in the machine's own order, since no other machine reads it: "MDNSHAND", the layout's number, what says which
// machine, which start of it and which network namespace it is of, when it was written, and for each interface its index, its name,
// the records, and the hosts that have another name there than their own; at last a hash of all that.
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
  std::vector<std::pair<std::string, std::uint32_t>> hosts;  // name, and the number of the one that stands in its place
};

struct Handover {
  std::string boot;           // the kernel's boot id, a text
  std::uint64_t network = 0;  // the inode of the network namespace
  mdns::Time written_at = 0;  // on the clock that does not stand still while the machine sleeps
  std::vector<HandedInterface> interfaces;
};

std::string handover_to_bytes(const Handover& handover);

// The reverse. Nothing for bytes that are not exactly what the former gives for records that can be published.
std::optional<Handover> handover_from_bytes(std::string_view bytes);

}  // namespace dnssd
