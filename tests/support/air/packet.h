// SPDX-License-Identifier: MIT
// Multicast DNS messages for programs that stand for thousands of devices: written with compression, read with every
// length checked. Shares nothing with the programs under test.
//
// A name is held as its uncompressed wire form (RFC 1035 section 3.1), the zero at its end included, so that it can be
// compared, hashed and sent without any escaping.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace air {

inline constexpr std::uint16_t kTypeA = 1, kTypePtr = 12, kTypeTxt = 16, kTypeAaaa = 28, kTypeSrv = 33, kTypeAny = 255;
inline constexpr std::uint16_t kClassIn = 1;
inline constexpr std::uint16_t kCacheFlush = 0x8000;      // of a record's class (RFC 6762 section 10.2)
inline constexpr std::uint16_t kResponse = 0x8400;        // response, authoritative answer
inline constexpr std::uint16_t kQueryTruncated = 0x0200;  // more known answers follow (RFC 6762 section 7.2)

inline constexpr std::uint32_t kHostTtl = 120, kOtherTtl = 4500;  // seconds (RFC 6762 section 10)

// The most that goes into one message here: what an Ethernet frame carries, with room for the IPv6 and UDP headers.
inline constexpr std::size_t kMessageRoom = 1440;

using Bytes = std::vector<std::uint8_t>;

// The name of these labels: make_name({"My Printer", "_ipp", "_tcp", "local"}).
std::string make_name(std::initializer_list<std::string_view> labels);

// The name of a dotted text without escapes, such as "_ipp._tcp.local".
std::string make_dotted_name(std::string_view dotted);

// A name with the ASCII letters in lower case: names are compared like that.
std::string folded(std::string name);

// The first label's bytes; empty for the root.
std::string first_label(std::string_view name);

// Writes one message. Sections have to be filled in their order.
struct Writer {
  explicit Writer(std::uint16_t flags);
  void question(const std::string& name, std::uint16_t type);
  void answer(const std::string& name, std::uint16_t type, std::uint16_t record_class, std::uint32_t ttl,
              std::string_view rdata);
  void additional(const std::string& name, std::uint16_t type, std::uint16_t record_class, std::uint32_t ttl,
                  std::string_view rdata);
  void truncated();
  // The message so far, with its counts.
  const Bytes& finish();

  Bytes bytes;
  std::uint16_t flags, questions = 0, answers = 0, additionals = 0;

 private:
  void name(const std::string& name);
  void record(const std::string& name, std::uint16_t type, std::uint16_t record_class, std::uint32_t ttl,
              std::string_view rdata);
  std::unordered_map<std::string, std::uint16_t> suffixes_;
};

struct Question {
  std::string name;  // folded
  std::uint16_t type;
};

struct Record {
  std::string name;  // folded
  std::uint16_t type;
  std::uint32_t ttl;
  std::string rdata;   // as on the wire
  std::string target;  // PTR and SRV: the name in it, uncompressed, as written; else empty
};

struct Message {
  std::uint16_t flags = 0;
  std::vector<Question> questions;
  std::vector<Record> answers;      // of a query: what is known already
  std::vector<Record> additionals;  // authority records are read over
};

// The message, or nothing when it is malformed anywhere.
std::optional<Message> read_message(std::span<const std::uint8_t> data);

}  // namespace air
