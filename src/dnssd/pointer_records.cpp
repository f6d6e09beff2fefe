// SPDX-License-Identifier: MIT
#include "dnssd/pointer_records.h"

#include <algorithm>
#include <optional>
#include <string>

namespace dnssd {
namespace {

// RFC 1035 sections 3.2.2, 4.1.1 and 4.1.4; RFC 6762 section 18.13 for the bit beside the class.
constexpr std::uint16_t kTypePtr = 12;
constexpr std::uint16_t kClassIn = 1;
constexpr std::uint16_t kCacheFlushBit = 0x8000;
constexpr std::uint16_t kResponseBit = 0x8000;
constexpr std::uint16_t kOpcodeAndRcodeBits = 0x780F;
constexpr std::uint8_t kPointerBits = 0xC0;
constexpr std::size_t kHeaderSize = 12;

// A place in a message. Every read checks the room that is left; a failed one returns nothing and the reading is over.
struct Reader {
  std::span<const std::uint8_t> message;
  std::size_t at = 0;

  std::optional<std::uint16_t> number16() {
    if (message.size() < 2 || at > message.size() - 2) {
      return std::nullopt;
    }
    at += 2;
    return static_cast<std::uint16_t>(message[at - 2] << 8 | message[at - 1]);
  }

  std::optional<std::uint32_t> number32() {
    const std::optional<std::uint16_t> high = number16();
    const std::optional<std::uint16_t> low = number16();
    if (!high || !low) {
      return std::nullopt;
    }
    return static_cast<std::uint32_t>(*high) << 16 | *low;
  }
};

// The plain label of `length` bytes at `from`; nothing when it runs over the end or holds a zero byte (see Name).
std::optional<std::string> label_at(std::span<const std::uint8_t> message, std::size_t from, std::size_t length) {
  if (from > message.size() || length > message.size() - from) {
    return std::nullopt;
  }
  const std::span<const std::uint8_t> bytes = message.subspan(from, length);
  if (std::ranges::find(bytes, std::uint8_t{0}) != bytes.end()) {
    return std::nullopt;
  }
  return std::string(bytes.begin(), bytes.end());
}

// The name at the reader's place, which moves behind it. A pointer has to point to what stands before it, further back each time, so
// that no chain of them is endless.
std::optional<Name> read_name(Reader& reader) {
  Name name;
  std::size_t at = reader.at;
  std::size_t furthest_pointer = reader.at;
  std::size_t wire_length = 1;
  bool has_jumped = false;
  while (at < reader.message.size()) {
    const std::uint8_t length = reader.message[at];
    if (length == 0) {
      if (!has_jumped) {
        reader.at = at + 1;
      }
      return name;
    }
    if ((length & kPointerBits) == kPointerBits) {
      if (at + 1 >= reader.message.size()) {
        return std::nullopt;
      }
      const std::size_t target = static_cast<std::size_t>(length & ~kPointerBits) << 8 | reader.message[at + 1];
      if (target >= furthest_pointer) {
        return std::nullopt;
      }
      if (!has_jumped) {
        reader.at = at + 2;
      }
      has_jumped = true;
      at = furthest_pointer = target;
      continue;
    }
    const std::optional<std::string> label = length <= kLabelMax ? label_at(reader.message, at + 1, length) : std::nullopt;
    wire_length += length + std::size_t{1};
    if (!label || wire_length > kWireNameMax) {
      return std::nullopt;
    }
    name.labels.push_back(*label);
    at += length + std::size_t{1};
  }
  return std::nullopt;
}

bool skip_questions(Reader& reader, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    if (!read_name(reader) || !reader.number32()) {
      return false;
    }
  }
  return true;
}

// Reads one record, into `records` when it is one of those looked for. False when it is malformed.
bool read_record(Reader& reader, std::vector<PointerRecord>& records) {
  std::optional<Name> owner = read_name(reader);
  const std::optional<std::uint16_t> type = reader.number16();
  const std::optional<std::uint16_t> rrclass = reader.number16();
  const std::optional<std::uint32_t> ttl = reader.number32();
  const std::optional<std::uint16_t> length = reader.number16();
  if (!owner || !type || !rrclass || !ttl || !length || *length > reader.message.size() - reader.at) {
    return false;
  }
  const std::size_t end = reader.at + *length;
  if (*type == kTypePtr && (*rrclass & ~kCacheFlushBit) == kClassIn) {
    std::optional<Name> target = read_name(reader);
    if (!target || reader.at != end) {
      return false;
    }
    records.push_back({std::move(*owner), std::move(*target), *ttl});
  }
  reader.at = end;
  return true;
}

}  // namespace

std::vector<PointerRecord> read_pointer_records(std::span<const std::uint8_t> message) {
  std::vector<PointerRecord> records;
  Reader header{message, 2};
  const std::optional<std::uint16_t> flags = header.number16();
  if (message.size() < kHeaderSize || (*flags & kResponseBit) == 0 || (*flags & kOpcodeAndRcodeBits) != 0) {
    return records;
  }
  const unsigned questions = *header.number16();
  unsigned left = *header.number16();
  left += *header.number16();
  left += *header.number16();
  if (!skip_questions(header, questions)) {
    return records;
  }
  while (left > 0 && read_record(header, records)) {
    --left;
  }
  return records;
}

}  // namespace dnssd
