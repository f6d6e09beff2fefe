// SPDX-License-Identifier: MIT
// Reads multicast DNS responses for the pointer records in them. Nothing in the bytes is trusted.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "dnssd/names.h"

namespace dnssd {

struct PointerRecord {
  Name owner;
  Name target;
  std::uint32_t ttl = 0;  // seconds; 0: a goodbye (RFC 6762 section 10.1)
};

// The PTR records of class IN in `message`, in its order and from all of its sections; none when it is no response (RFC
// 6762 section 18.2). What follows the first thing in it that is malformed is left out.
std::vector<PointerRecord> read_pointer_records(std::span<const std::uint8_t> message);

}  // namespace dnssd
