// SPDX-License-Identifier: MIT
#include "mdns/wire/writer.h"

#include <cassert>
#include <cstring>
#include <utility>

#include "mdns/wire/name.h"
#include "mdns/wire/record.h"

namespace mdns {
namespace {

// RFC 1035 section 4.1
constexpr std::size_t kFlagsAt = 2;
constexpr std::size_t kCountsAt = 4;
constexpr unsigned kResponseBits = 0x8400;   // QR and AA
constexpr unsigned kTruncatedByte = 0x02;    // TC in the first byte of the flags
constexpr unsigned kPointerBits = 0xC000;    // of a pointer's two bytes
constexpr std::size_t kPointerEnd = 0x4000;  // what a pointer cannot reach
constexpr unsigned kTopBit = 0x8000;         // of a class: QU or cache-flush (RFC 6762 sections 5.4 and 10.2)

constexpr std::size_t kPlacesTried = 8;  // in Writer::names for each name: bounds the search whatever the names are

void put16(Writer& writer, unsigned number) {
  writer.bytes.push_back(static_cast<std::uint8_t>(number >> 8));
  writer.bytes.push_back(static_cast<std::uint8_t>(number));
}

void put_bytes(Writer& writer, std::string_view text) {
  const auto* const from = reinterpret_cast<const std::uint8_t*>(text.data());
  writer.bytes.insert(writer.bytes.end(), from, from + text.size());
}

void set16(Writer& writer, std::size_t at, std::size_t number) {
  writer.bytes[at] = static_cast<std::uint8_t>(number >> 8);
  writer.bytes[at + 1] = static_cast<std::uint8_t>(number);
}

// --- Names

// Whether the message has `name`, byte for byte, at that offset. (The name that is being written may be compared, too:
// it ends where the message does.)
bool is_name_at(const Writer& writer, std::size_t at, std::string_view name) {
  const std::vector<std::uint8_t>& bytes = writer.bytes;
  for (; at < bytes.size(); name = parent_name(name)) {
    while (bytes[at] >= kPointerBits >> 8) {
      at = (unsigned{bytes[at]} << 8 | bytes[at + 1]) & ~kPointerBits;
    }
    const std::size_t taken = 1 + first_label(name).size();
    if (bytes[at] != taken - 1 || std::memcmp(&bytes[at], name.data(), taken) != 0) {
      return false;
    }
    if (taken == 1) {
      return true;
    }
    at += taken;
  }
  return false;
}

// The element of Writer::names with the offset of the name, or a free one if the message does not have the name; null
// when all elements that may be tried are in use.
std::uint16_t* find_suffix(Writer& writer, std::string_view name) {
  const auto hash = static_cast<std::size_t>(hash_folded(name, 0));
  for (std::size_t i = 0; i < kPlacesTried; ++i) {
    std::uint16_t& at = writer.names[(hash + i) % writer.names.size()];
    if (at == 0 || is_name_at(writer, at, name)) {
      return &at;
    }
  }
  return nullptr;
}

// Writes the name; its longest suffix that the message has already becomes a compression pointer.
void put_name(Writer& writer, std::string_view name) {
  assert(is_name(name));
  for (; name.size() > 1; name = parent_name(name)) {
    std::uint16_t* known = find_suffix(writer, name);
    if (known != nullptr && *known != 0) {
      put16(writer, kPointerBits | *known);
      return;
    }
    if (known != nullptr && writer.bytes.size() < kPointerEnd) {
      *known = static_cast<std::uint16_t>(writer.bytes.size());
    }
    put_bytes(writer, name.substr(0, 1 + first_label(name).size()));
  }
  writer.bytes.push_back(0);
}

// Cuts the message to `size` bytes and removes the names behind that from Writer::names. Names are entered in the order
// of their offsets, so removing the last ones leaves the probe sequences of the others intact.
void take_back(Writer& writer, std::size_t size) {
  writer.bytes.resize(size);
  for (std::uint16_t& known : writer.names) {
    known = known < size ? known : std::uint16_t{0};
  }
}

// --- Questions and records

void put_rdata(Writer& writer, std::uint16_t type, std::string_view rdata) {
  assert(is_rdata(type, rdata));
  const bool is_plain = (type == kTypeSrv && !writer.compresses_srv) || !is_rdata(type, rdata);
  const RdataForm form = is_plain ? RdataForm{} : rdata_form(type);
  put_bytes(writer, rdata.substr(0, form.head));
  rdata.remove_prefix(form.head);
  for (unsigned i = 0; i < form.names; ++i) {
    const std::size_t size = name_size(rdata);
    put_name(writer, rdata.substr(0, size));
    rdata.remove_prefix(size);
  }
  put_bytes(writer, rdata);
}

// Counts the question or record that was written from `begin` on; removes it and returns false when the message has
// become longer than `max`.
bool end_entry(Writer& writer, Section section, std::size_t begin, std::size_t max) {
  if (writer.bytes.size() > max) {
    take_back(writer, begin);
    return false;
  }
  writer.section = section;
  ++writer.counts[static_cast<std::size_t>(section)];
  return true;
}

}  // namespace

Writer writer_new(bool is_response, std::uint16_t id) {
  Writer writer;
  writer.bytes.reserve(writer.max);
  put16(writer, id);
  put16(writer, is_response ? kResponseBits : 0);
  writer.bytes.resize(kHeaderSize);
  return writer;
}

bool writer_add_question(Writer& writer, std::string_view name, std::uint16_t type, bool unicast_response,
                         std::uint16_t klass) {
  assert(writer.section == Section::questions);
  const std::size_t begin = writer.bytes.size();
  put_name(writer, name);
  put16(writer, type);
  put16(writer, klass | (unicast_response ? kTopBit : 0));
  return end_entry(writer, Section::questions, begin, writer.max);
}

bool writer_add_record(Writer& writer, Section section, std::string_view name, std::uint16_t type, std::uint32_t ttl,
                       bool cache_flush, std::string_view rdata) {
  assert(section >= writer.section && section != Section::questions);
  const std::size_t max = writer_is_empty(writer) ? kLargeDatagramMax : writer.max;
  const std::size_t begin = writer.bytes.size();
  put_name(writer, name);
  put16(writer, type);
  put16(writer, kClassIn | (cache_flush ? kTopBit : 0));
  put16(writer, ttl >> 16);
  put16(writer, ttl & 0xFFFF);
  put16(writer, 0);
  const std::size_t rdata_begin = writer.bytes.size();
  put_rdata(writer, type, rdata);
  set16(writer, rdata_begin - 2, writer.bytes.size() - rdata_begin);
  return end_entry(writer, section, begin, max);
}

void writer_set_truncated(Writer& writer) { writer.bytes[kFlagsAt] |= kTruncatedByte; }

std::vector<std::uint8_t> writer_take(Writer& writer) {
  for (std::size_t i = 0; i < 4; ++i) {
    set16(writer, kCountsAt + 2 * i, writer.counts[i]);
  }
  std::vector<std::uint8_t> message = std::move(writer.bytes);
  writer = writer_new((message[kFlagsAt] & kResponseBits >> 8) != 0);
  return message;
}

}  // namespace mdns
