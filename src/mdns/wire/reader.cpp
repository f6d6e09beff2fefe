// SPDX-License-Identifier: MIT
#include "mdns/wire/reader.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "mdns/wire/name.h"

namespace mdns {
namespace {

// RFC 1035 section 4.1
constexpr unsigned kResponseBit = 0x8000;
constexpr unsigned kOpcodeBits = 0x7800;
constexpr unsigned kTruncatedBit = 0x0200;
constexpr unsigned kRcodeBits = 0x000F;
constexpr std::size_t kRecordNumbers = 10;  // type, class, TTL, length
constexpr unsigned kPointer = 0xC0;         // the first of a pointer's two bytes, or more
constexpr unsigned kClassBits = 0x7FFF;     // the top bit is a flag (RFC 6762 sections 5.4 and 10.2)

// Bound on the bytes of names that are decompressed: `kUnfoldFactor` for each byte of the message, and `kUnfoldExtra`
// more for a short one. Genuine messages need less than 8; only messages made to be expensive need 20 and more.
constexpr std::size_t kUnfoldFactor = 16;
constexpr std::size_t kUnfoldExtra = 512;

struct Reader {
  const std::uint8_t* bytes;
  std::size_t end;
  std::size_t allowance;  // bytes of names that may still be read
  std::size_t at = 0;
  std::size_t name_length = 0;
  char name[kNameMax] = {};  // the last name that was read

  std::size_t left() const { return end - at; }
  std::string_view last_name() const { return {name, name_length}; }
  std::string_view text(std::size_t size) const { return {reinterpret_cast<const char*>(bytes + at), size}; }
};

// Read a number in network byte order. The caller has checked that its bytes are there.
unsigned read16(Reader& reader) {
  const std::uint8_t* const from = reader.bytes + reader.at;
  reader.at += 2;
  return unsigned{from[0]} << 8 | from[1];
}

std::uint32_t read32(Reader& reader) {
  const std::uint32_t high = read16(reader);
  return high << 16 | read16(reader);
}

// Takes `size` bytes from the allowance. False when it does not suffice; it is then used up, so that no further name
// can be read, not even the root.
bool spend(Reader& reader, std::size_t size) {
  const bool is_enough = size <= reader.allowance;
  reader.allowance -= is_enough ? size : reader.allowance;
  return is_enough;
}

// Reads the name at the reader's position into reader.name and moves the position behind it. A compression pointer must
// point to before everything that was read of this name so far, and what it points to must end before that, so that no
// byte is read twice. False when there is no well-formed name.
bool read_name(Reader& reader) {
  std::size_t begin = reader.at;
  std::size_t end = reader.end;
  std::size_t behind = 0;  // the position behind the first compression pointer; 0: there was none yet
  std::size_t size = 0;
  for (std::size_t at = begin; at < end;) {
    const std::size_t length = reader.bytes[at];
    if (length == 0) {
      reader.name[size++] = 0;
      reader.name_length = size;
      reader.at = behind != 0 ? behind : at + 1;
      return spend(reader, 1);
    }
    if (length >= kPointer) {
      const std::size_t target = end - at < 2 ? 0 : (length - kPointer) << 8 | reader.bytes[at + 1];
      if (target < kHeaderSize || target >= begin || !spend(reader, 2)) {
        return false;
      }
      behind = behind != 0 ? behind : at + 2;
      end = begin;
      begin = at = target;
      continue;
    }
    const std::size_t taken = 1 + length;
    if (length > kLabelMax || taken > end - at || size + taken >= kNameMax || !spend(reader, taken)) {
      return false;
    }
    std::memcpy(reader.name + size, reader.bytes + at, taken);
    size += taken;
    at += taken;
  }
  return false;
}

bool read_question(Reader& reader, std::vector<Question>& questions) {
  if (!read_name(reader) || reader.left() < 4) {
    return false;
  }
  const unsigned type = read16(reader);
  const unsigned klass = read16(reader);
  questions.push_back({.name = std::string(reader.last_name()),
                       .type = static_cast<std::uint16_t>(type),
                       .klass = static_cast<std::uint16_t>(klass & kClassBits),
                       .unicast_response = (klass & ~kClassBits) != 0});
  return true;
}

// Reads the rdata that the reader holds, from its position to its end, and decompresses the names in it; empty when it
// is malformed.
std::string read_rdata(Reader& reader, std::uint16_t type) {
  const RdataForm form = rdata_form(type);
  if (reader.left() < form.head) {
    return {};
  }
  std::string rdata(reader.text(form.head));
  reader.at += form.head;
  for (unsigned i = 0; i < form.names; ++i) {
    if (!read_name(reader)) {
      return {};
    }
    rdata += reader.last_name();
  }
  rdata += reader.text(reader.left());
  if (rdata.empty() && type == kTypeTxt) {
    rdata.assign(1, '\0');
  }
  return is_rdata(type, rdata) ? rdata : std::string();
}

// Whether the reader keeps records of this type and class.
bool is_kept(unsigned type, unsigned klass) {
  return (klass & kClassBits) == kClassIn && type != kTypeOpt && (type < 128 || type > 255);
}

bool read_record(Reader& reader, std::vector<Record>& records) {
  if (!read_name(reader) || reader.left() < kRecordNumbers) {
    return false;
  }
  const unsigned type = read16(reader);
  const unsigned klass = read16(reader);
  const std::uint32_t ttl = read32(reader);
  const std::size_t length = read16(reader);
  if (length > reader.left()) {
    return false;
  }
  const std::size_t behind = reader.at + length;
  if (is_kept(type, klass)) {
    Record record{.name = std::string(reader.last_name()),
                  .type = static_cast<std::uint16_t>(type),
                  .klass = kClassIn,
                  .cache_flush = (klass & ~kClassBits) != 0,
                  .ttl = ttl,
                  .rdata = {}};
    const std::size_t end = std::exchange(reader.end, behind);
    record.rdata = read_rdata(reader, record.type);
    reader.end = end;
    if (!record.rdata.empty()) {
      records.push_back(std::move(record));
    }
  }
  reader.at = behind;
  return true;
}

// Reads up to `count` elements; false when one of them cannot be read.
template <typename Element>
bool read_all(Reader& reader, std::vector<Element>& elements, std::size_t count,
              bool (*read_one)(Reader&, std::vector<Element>&)) {
  elements.reserve(std::min(count, reader.left() / kRecordNumbers));
  while (count > 0 && read_one(reader, elements)) {
    --count;
  }
  return count == 0;
}

}  // namespace

std::optional<Message> read_message(Bytes datagram) {
  if (datagram.size() < kHeaderSize) {
    return std::nullopt;
  }
  Reader reader{datagram.data(), datagram.size(), kUnfoldFactor * datagram.size() + kUnfoldExtra};
  Message message;
  message.id = static_cast<std::uint16_t>(read16(reader));
  const unsigned flags = read16(reader);
  if ((flags & (kOpcodeBits | kRcodeBits)) != 0) {
    return std::nullopt;
  }
  message.is_response = (flags & kResponseBit) != 0;
  message.is_truncated = (flags & kTruncatedBit) != 0;
  std::size_t counts[4];
  for (std::size_t& count : counts) {
    count = read16(reader);
  }
  static_cast<void>(read_all(reader, message.questions, counts[0], read_question) &&
                    read_all(reader, message.answers, counts[1], read_record) &&
                    read_all(reader, message.authorities, counts[2], read_record) &&
                    read_all(reader, message.additionals, counts[3], read_record));
  return message;
}

}  // namespace mdns
