// SPDX-License-Identifier: MIT
#include "dnssd/pointer_records.h"

#include <optional>

#include "dnssd/message_reader.h"

namespace dnssd {
namespace {

// RFC 1035 sections 3.2.2 and 3.2.4.
constexpr std::uint16_t kTypePtr = 12;
constexpr std::uint16_t kClassIn = 1;

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
  std::optional<RecordHead> head = read_record_head(reader);
  if (!head) {
    return false;
  }
  const std::size_t end = reader.at + head->length;
  if (head->rrtype == kTypePtr && (head->rrclass & ~kCacheFlushBit) == kClassIn) {
    std::optional<Name> target = read_name(reader);
    if (!target || reader.at != end) {
      return false;
    }
    records.push_back({std::move(head->owner), std::move(*target), head->ttl});
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
