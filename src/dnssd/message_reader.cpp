// SPDX-License-Identifier: MIT
#include "dnssd/message_reader.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace dnssd {
namespace {

// RFC 1035
constexpr std::uint8_t kPointerBits = 0xC0;  // section 4.1.4
constexpr std::size_t kRecordBytesMin = 11;  // section 4.1.3: a root name, type, class, TTL, length

// The plain label of `length` bytes at `from`; nothing when it runs over the end or holds a zero byte (see Name).
std::optional<std::string_view> label_at(std::span<const std::uint8_t> message, std::size_t from, std::size_t length) {
  if (from > message.size() || length > message.size() - from) {
    return std::nullopt;
  }
  const std::string_view label(reinterpret_cast<const char*>(message.data() + from), length);
  return label.find('\0') == label.npos ? std::optional(label) : std::nullopt;
}

// Gives each label of the name at the reader's place to `take`, which returns false to have no more; the reader moves behind the
// name. False when `take` has returned false, or for what read_name does not read.
template <typename Take>
bool walk_name(MessageReader& reader, Take take) {
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
      return true;
    }
    if ((length & kPointerBits) == kPointerBits) {
      if (at + 1 >= reader.message.size()) {
        return false;
      }
      const std::size_t target = static_cast<std::size_t>(length & ~kPointerBits) << 8 | reader.message[at + 1];
      if (target >= furthest_pointer) {
        return false;
      }
      if (!has_jumped) {
        reader.at = at + 2;
      }
      has_jumped = true;
      at = furthest_pointer = target;
      continue;
    }
    const std::optional<std::string_view> label = length <= kLabelMax ? label_at(reader.message, at + 1, length) : std::nullopt;
    wire_length += length + std::size_t{1};
    if (!label || wire_length > kWireNameMax || !take(*label)) {
      return false;
    }
    at += length + std::size_t{1};
  }
  return false;
}

// Moves behind what stands at the reader's place of a name: up to its zero, or its first pointer, wherever that points to.
bool pass_labels(MessageReader& reader) {
  while (reader.at < reader.message.size()) {
    const std::uint8_t length = reader.message[reader.at];
    if (length > kLabelMax) {
      reader.at += 2;
      return (length & kPointerBits) == kPointerBits;
    }
    reader.at += length + std::size_t{1};
    if (length == 0) {
      return true;
    }
  }
  return false;
}

bool is_same_label(std::string_view one, std::string_view other) {
  const auto fold = [](char c) { return fold_case(c); };
  return std::ranges::equal(one, other, {}, fold, fold);
}

// What follows the owner.
std::optional<RecordHead> read_rest_of_head(MessageReader& reader, Name&& owner) {
  const std::optional<std::uint16_t> rrtype = reader.number16();
  const std::optional<std::uint16_t> rrclass = reader.number16();
  const std::optional<std::uint32_t> ttl = reader.number32();
  const std::optional<std::uint16_t> length = reader.number16();
  if (!rrtype || !rrclass || !ttl || !length || *length > reader.message.size() - reader.at) {
    return std::nullopt;
  }
  return RecordHead{std::move(owner), *rrtype, *rrclass, *ttl, *length};
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

std::optional<MessageHead> read_message_head(MessageReader& reader) {
  if (reader.message.size() < kMessageHeaderSize) {
    return std::nullopt;
  }
  reader.at = kMessageFlagsAt;
  MessageHead head;
  for (std::uint16_t* number : {&head.flags, &head.questions, &head.answers, &head.authorities, &head.additionals}) {
    *number = *reader.number16();
  }
  return head;
}

std::optional<Name> read_name(MessageReader& reader) {
  Name name;
  const bool is_read = walk_name(reader, [&name](std::string_view label) {
    name.labels.emplace_back(label);
    return true;
  });
  return is_read ? std::optional(std::move(name)) : std::nullopt;
}

bool pass_name(MessageReader& reader) {
  return walk_name(reader, [](std::string_view) { return true; });
}

bool is_name_at(std::span<const std::uint8_t> message, std::size_t at, const Name& name) {
  MessageReader reader{message, at};
  auto next = name.labels.begin();
  const bool is_same =
      walk_name(reader, [&](std::string_view label) { return next != name.labels.end() && is_same_label(label, *next++); });
  return is_same && next == name.labels.end();
}

std::optional<Question> read_question(MessageReader& reader) {
  std::optional<Name> name = read_name(reader);
  const std::optional<std::uint16_t> rrtype = reader.number16();
  const std::optional<std::uint16_t> rrclass = reader.number16();
  if (!name || !rrtype || !rrclass) {
    return std::nullopt;
  }
  return Question{std::move(*name), *rrtype, *rrclass};
}

bool pass_question(MessageReader& reader) { return pass_name(reader) && reader.number32(); }

std::optional<RecordHead> read_record_head(MessageReader& reader) {
  std::optional<Name> owner = read_name(reader);
  return owner ? read_rest_of_head(reader, std::move(*owner)) : std::nullopt;
}

std::optional<RecordHead> pass_record_head(MessageReader& reader) {
  return pass_name(reader) ? read_rest_of_head(reader, Name()) : std::nullopt;
}

bool holds_record(std::span<const std::uint8_t> message, std::uint16_t rrtype) {
  MessageReader reader{message};
  const std::optional<MessageHead> head = read_message_head(reader);
  if (!head) {
    return false;
  }
  for (unsigned left = head->questions; left > 0; --left) {
    if (!pass_labels(reader) || !reader.number32()) {
      return false;
    }
  }
  for (unsigned left = unsigned{head->answers} + head->authorities + head->additionals; left > 0; --left) {
    const std::optional<RecordHead> record = pass_labels(reader) ? read_rest_of_head(reader, Name()) : std::nullopt;
    if (!record) {
      return false;
    }
    if (record->rrtype == rrtype) {
      return true;
    }
    reader.at += record->length;
  }
  return false;
}

double claimed_records(std::span<const std::uint8_t> message) {
  if (message.size() < kMessageHeaderSize) {
    return 1;
  }
  std::size_t claimed = 1;
  for (MessageReader counts{message, kMessageCountsAt}; counts.at < kMessageHeaderSize;) {
    claimed += *counts.number16();
  }
  return static_cast<double>(std::min(claimed, 1 + message.size() / kRecordBytesMin));
}

}  // namespace dnssd
