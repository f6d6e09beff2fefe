// SPDX-License-Identifier: MIT
// The simulator's own view of what is on the wire: names, and a reader that judges every byte. It shares nothing with
// the reader and writer of the engine, so that a mistake of theirs is seen.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mdns/wire/types.h"
#include "support/wire.h"

namespace simulation {

using wire::Builder;
using wire::Part;

// A wire name as text, for messages only.
std::string text_of(std::string_view name);

// A record's data as text, for messages only.
std::string text_of(std::uint16_t type, std::string_view rdata);

// The whole name that stands at the end of SRV data.
std::string srv_target(std::string_view rdata);

// Letters A to Z in small, everything else as it is.
std::string folded(std::string_view text);

// Hashes that are the same for what DNS takes for the same: a name, all records of one name and type, one record.
std::uint64_t hash_name(std::string_view name);
std::uint64_t hash_set(std::uint64_t name_hash, std::uint16_t type);
std::uint64_t hash_record(std::uint64_t set_hash, std::uint16_t type, std::string_view rdata);

struct WireQuestion {
  std::string name;
  std::uint64_t name_hash = 0, set_hash = 0;
  std::uint16_t type = 0, klass = 0;  // the class without its top bit
  bool unicast = false;               // the top bit
};

struct WireRecord {
  std::string name, rdata;  // nothing in them is compressed
  std::uint64_t name_hash = 0, set_hash = 0, hash = 0;
  std::uint32_t ttl = 0;
  std::uint16_t type = 0, klass = 0;  // the class without its top bit
  bool flush = false;                 // the top bit
  Part part{};
};

struct WireMessage {
  const char* fault = nullptr;  // what is not well formed; null: nothing
  std::size_t size = 0;
  std::uint16_t id = 0, flags = 0;
  std::vector<WireQuestion> questions;
  std::vector<WireRecord> records;

  bool is_response() const { return (flags & 0x8000U) != 0; }
  bool is_truncated() const { return (flags & 0x0200U) != 0; }
};

// All of a message. Strict: a fault is whatever a careful implementation would not send.
WireMessage read_wire(mdns::Bytes bytes);

// Whether the record proposes something for the question: what makes a query a probe.
bool is_probe_for(const WireMessage& message, const WireQuestion& question);

// A message as one line of text.
std::string text_of(const WireMessage& message);

}  // namespace simulation
