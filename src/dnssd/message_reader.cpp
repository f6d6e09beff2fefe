// SPDX-License-Identifier: MIT
#include "dnssd/message_reader.h"

#include <algorithm>
#include <string>

namespace dnssd {
namespace {

constexpr std::uint8_t kPointerBits = 0xC0;  // RFC 1035 section 4.1.4

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

}  // namespace

std::optional<std::uint16_t> MessageReader::number16() {
  if (message.size() < 2 || at > message.size() - 2) {
    return std::nullopt;
  }
  at += 2;
  return static_cast<std::uint16_t>(message[at - 2] << 8 | message[at - 1]);
}

std::optional<std::uint32_t> MessageReader::number32() {
  const std::optional<std::uint16_t> high = number16();
  const std::optional<std::uint16_t> low = number16();
  if (!high || !low) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*high) << 16 | *low;
}

std::optional<Name> read_name(MessageReader& reader) {
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

std::optional<Question> read_question(MessageReader& reader) {
  std::optional<Name> name = read_name(reader);
  const std::optional<std::uint16_t> rrtype = reader.number16();
  const std::optional<std::uint16_t> rrclass = reader.number16();
  if (!name || !rrtype || !rrclass) {
    return std::nullopt;
  }
  return Question{std::move(*name), *rrtype};
}

std::optional<RecordHead> read_record_head(MessageReader& reader) {
  std::optional<Name> owner = read_name(reader);
  const std::optional<std::uint16_t> rrtype = reader.number16();
  const std::optional<std::uint16_t> rrclass = reader.number16();
  const std::optional<std::uint32_t> ttl = reader.number32();
  const std::optional<std::uint16_t> length = reader.number16();
  if (!owner || !rrtype || !rrclass || !ttl || !length || *length > reader.message.size() - reader.at) {
    return std::nullopt;
  }
  return RecordHead{std::move(*owner), *rrtype, *rrclass, *ttl, *length};
}

}  // namespace dnssd
