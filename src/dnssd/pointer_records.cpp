// SPDX-License-Identifier: MIT
#include "dnssd/pointer_records.h"

namespace dnssd {
namespace {

// RFC 1035 sections 3.2.2 and 3.2.4.
constexpr std::uint16_t kTypePtr = 12;
constexpr std::uint16_t kClassIn = 1;

bool pass_questions(MessageReader& reader, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    if (!pass_question(reader)) {
      return false;
    }
  }
  return true;
}

bool is_pointer(const RecordHead& head) { return head.rrtype == kTypePtr && (head.rrclass & ~kCacheFlushBit) == kClassIn; }

}  // namespace

PointerRecords pointer_records_of(std::span<const std::uint8_t> message) {
  MessageReader reader{message};
  const std::optional<MessageHead> head = read_message_head(reader);
  if (!head || (head->flags & kResponseBit) == 0 || (head->flags & kOpcodeAndRcodeBits) != 0 ||
      !pass_questions(reader, head->questions)) {
    return {};
  }
  return {reader, unsigned{head->answers} + head->authorities + head->additionals};
}

std::optional<PointerRecord> next_pointer_record(PointerRecords& records) {
  MessageReader& reader = records.reader;
  while (records.left > 0) {
    --records.left;
    const std::size_t owner_at = reader.at;
    const std::optional<RecordHead> head = pass_record_head(reader);
    if (!head) {
      break;
    }
    const std::size_t target_at = reader.at;
    const std::size_t end = target_at + head->length;
    if (!is_pointer(*head)) {
      reader.at = end;
      continue;
    }
    if (!pass_name(reader) || reader.at != end) {
      break;
    }
    return PointerRecord{owner_at, target_at, head->ttl, (head->rrclass & kCacheFlushBit) != 0};
  }
  records.left = 0;
  return std::nullopt;
}

}  // namespace dnssd
