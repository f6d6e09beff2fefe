// SPDX-License-Identifier: MIT
// Reads the parts of a multicast DNS message. Nothing in the bytes is trusted: every read checks the room that is left.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "dnssd/names.h"

namespace dnssd {

// RFC 1035 section 4.1.1: the header, what its second word says, and the four numbers behind that: of questions, answers,
// authorities and additional records.
inline constexpr std::size_t kMessageHeaderSize = 12;
inline constexpr std::size_t kMessageFlagsAt = 2;
inline constexpr std::size_t kMessageCountsAt = 4;
inline constexpr std::uint16_t kResponseBit = 0x8000;
inline constexpr std::uint16_t kOpcodeAndRcodeBits = 0x780F;
inline constexpr std::uint16_t kTruncatedBit = 0x0200;

// RFC 6762 section 18.13: the bit beside a record's class.
inline constexpr std::uint16_t kCacheFlushBit = 0x8000;

// The largest message of RFC 6762 section 17.
inline constexpr std::size_t kMessageMax = 9000;

// A place in a message. A failed read returns nothing, and the reading is over.
struct MessageReader {
  std::span<const std::uint8_t> message;
  std::size_t at = 0;

  std::optional<std::uint16_t> number16();
  std::optional<std::uint32_t> number32();
};

// What a message begins with, but for its number.
struct MessageHead {
  std::uint16_t flags = 0;
  std::uint16_t questions = 0;
  std::uint16_t answers = 0;
  std::uint16_t authorities = 0;
  std::uint16_t additionals = 0;
};

// The head of the message; the reader moves behind it. Nothing when it is too short to have one.
std::optional<MessageHead> read_message_head(MessageReader& reader);

// The name at the reader's place, which moves behind it. Nothing for one that RFC 1035 does not allow, that runs over the end, or
// that holds a zero byte (see Name). A pointer has to point to what stands before it, further back each time, so that no chain of
// them is endless.
std::optional<Name> read_name(MessageReader& reader);

// Moves behind a name without keeping it. False for one that read_name does not read.
bool pass_name(MessageReader& reader);

// Whether the name that begins at `at` is `name` to DNS (letters A to Z are compared without their case). False for one that
// read_name does not read.
bool is_name_at(std::span<const std::uint8_t> message, std::size_t at, const Name& name);

struct Question {
  Name name;
  std::uint16_t rrtype = 0;
  std::uint16_t rrclass = 0;  // with the bit beside it: the asker would have the answer sent to itself (RFC 6762 section 5.4)
};

// The question at the reader's place, whatever its class; the reader moves behind it.
std::optional<Question> read_question(MessageReader& reader);

// Moves behind a question without keeping its name. False for one that read_question does not read.
bool pass_question(MessageReader& reader);

// What a record begins with. At least `length` bytes of data follow it.
struct RecordHead {
  Name owner;
  std::uint16_t rrtype = 0;
  std::uint16_t rrclass = 0;  // with the bit beside it
  std::uint32_t ttl = 0;      // seconds
  std::size_t length = 0;
};

// The record's head at the reader's place, which moves to its data.
std::optional<RecordHead> read_record_head(MessageReader& reader);

// The same, but for the owner, which is passed and left empty.
std::optional<RecordHead> pass_record_head(MessageReader& reader);

// Whether a record of that type is in any section of the message, or before the place where nobody could read on. Names are passed
// over by their lengths alone, so that a name which is read differently elsewhere hides nothing behind it.
bool holds_record(std::span<const std::uint8_t> message, std::uint16_t rrtype);

// How much work a datagram makes: the questions and records that it claims to have, if they could fit, and one for itself.
double claimed_records(std::span<const std::uint8_t> message);

}  // namespace dnssd
