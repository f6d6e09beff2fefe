// SPDX-License-Identifier: MIT
// Finds the pointer records in multicast DNS responses. Nothing in the bytes is trusted, and nothing is copied: most of what a
// link says is of no interest to whoever looks here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "dnssd/message_reader.h"

namespace dnssd {

// Where its names begin in the message, both of them well-formed.
struct PointerRecord {
  std::size_t owner_at = 0;
  std::size_t target_at = 0;
  std::uint32_t ttl = 0;   // seconds; 0: a goodbye (RFC 6762 section 10.1)
  bool is_unique = false;  // what was said of its name before is superseded (RFC 6762 section 10.2)
};

// On the way through a message.
struct PointerRecords {
  MessageReader reader;
  unsigned left = 0;  // records that the message still claims to have
};

// Before the first of the PTR records of class IN in `message`, which has to outlive it. There are none when it is no response
// (RFC 6762 section 18.2).
PointerRecords pointer_records_of(std::span<const std::uint8_t> message);

// The next one, in the message's order and from all of its sections; nothing when there is no further one. What follows the
// first thing that is malformed is left out.
std::optional<PointerRecord> next_pointer_record(PointerRecords& records);

}  // namespace dnssd
