// SPDX-License-Identifier: MIT
#include "dnssd/pointer_records.h"

#include <optional>

#include "dnssd/message_reader.h"

namespace dnssd {
namespace {

// RFC 1035 section 3.2.2; RFC 6762 section 18.13 for the bit beside the class.
constexpr std::uint16_t kTypePtr = 12;
constexpr std::uint16_t kClassIn = 1;
constexpr std::uint16_t kCacheFlushBit = 0x8000;

bool skip_questions(MessageReader& reader, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    if (!read_question(reader)) {
      return false;
    }
  }
  return true;
}

// Reads one record, into `records` when it is one of those looked for. False when it is malformed.
bool read_record(MessageReader& reader, std::vector<PointerRecord>& records) {
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
  MessageReader header{message, 2};
  const std::optional<std::uint16_t> flags = header.number16();
  if (message.size() < kMessageHeaderSize || (*flags & kResponseBit) == 0 || (*flags & kOpcodeAndRcodeBits) != 0) {
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
