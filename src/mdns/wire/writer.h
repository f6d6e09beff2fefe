// SPDX-License-Identifier: MIT
// Builds one message. Names are compressed against all that the message holds already (RFC 1035 section 4.1.4, RFC 6762
// section 18.14); a question or record that does not fit leaves the message as it was.
//
// The caller writes the sections in their order: questions, answers, authorities, additionals (assert).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "mdns/wire/types.h"

namespace mdns {

enum class Section { questions, answers, authorities, additionals };

struct Writer {
  std::vector<std::uint8_t> bytes;  // the message so far, its header first
  std::size_t max = kDatagramMax;
  bool compresses_srv = true;              // false in a reply to a legacy querier (RFC 6762 section 18.14)
  std::uint16_t counts[4] = {0, 0, 0, 0};  // by section
  Section section = Section::questions;    // the one that is being written

  // Hash table of the names in the message that a compression pointer may point to: the offset of each. 0: a free
  // place.
  std::array<std::uint16_t, 256> names{};
};

// An empty message: a query, or a response with the AA bit (RFC 6762 section 18.4).
Writer writer_new(bool is_response, std::uint16_t id = 0);

// Whether nothing has been written yet.
inline bool writer_is_empty(const Writer& writer) { return writer.bytes.size() <= kHeaderSize; }

// Adds a question; false when there is no room.
bool writer_add_question(Writer& writer, std::string_view name, std::uint16_t type, bool unicast_response,
                         std::uint16_t klass = kClassIn);

// Adds a record of class IN; `ttl` in seconds, `rdata` without compression. False when there is no room: unless the
// message is empty, in which case it grows to kLargeDatagramMax for this one record, which must then stay alone (a
// later one finds no room).
bool writer_add_record(Writer& writer, Section section, std::string_view name, std::uint16_t type, std::uint32_t ttl,
                       bool cache_flush, std::string_view rdata);

void writer_set_truncated(Writer& writer);

// Takes the finished message, its counts filled in. The writer begins another one: a query or response like it, with id
// 0.
std::vector<std::uint8_t> writer_take(Writer& writer);

}  // namespace mdns
