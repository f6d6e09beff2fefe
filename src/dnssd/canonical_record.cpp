// SPDX-License-Identifier: MIT
#include "dnssd/canonical_record.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>

#include "dnssd/operations.h"

namespace dnssd {
namespace {

// RFC 1035 section 3.2.2, RFC 2782.
constexpr std::uint16_t kTypeNs = 2, kTypeCname = 5, kTypePtr = 12, kTypeSrv = 33;
constexpr std::size_t kSrvTargetAt = 6;

void append_name(std::string& text, const Name& name) {
  for (const std::string& label : name.labels) {
    text += static_cast<char>(label.size());
    text += fold_case(label);
  }
  text += '\0';
}

// Where the name that data of this type ends with begins; `length` when there is none, or none that anybody looks for.
std::size_t name_at(std::uint16_t type, std::size_t length) {
  switch (type) {
    case kTypeNs:
    case kTypeCname:
    case kTypePtr:
      return 0;
    case kTypeSrv:
      return std::min(kSrvTargetAt, length);
    default:
      return length;
  }
}

// The data at the reader's place, which moves behind it. Nothing when it is malformed.
std::optional<std::string> read_data(MessageReader& reader, std::uint16_t type, std::size_t length) {
  const std::size_t end = reader.at + length;
  const std::size_t plain = name_at(type, length);
  std::string data(reinterpret_cast<const char*>(reader.message.data()) + reader.at, plain);
  reader.at += plain;
  if (plain < length) {
    const std::optional<Name> target = read_name(reader);
    if (!target) {
      return std::nullopt;
    }
    append_name(data, *target);
  }
  return reader.at == end ? std::optional(std::move(data)) : std::nullopt;
}

std::uint64_t hash_of(const Name& name, std::uint16_t rrtype, const std::string& data) {
  return std::hash<std::string>{}(canonical_key(name, rrtype) + data);
}

}  // namespace

std::optional<CanonicalRecord> read_canonical_record(MessageReader& reader) {
  std::optional<RecordHead> head = read_record_head(reader);
  if (!head) {
    return std::nullopt;
  }
  std::optional<std::string> data = read_data(reader, head->rrtype, head->length);
  return data ? std::optional(CanonicalRecord{std::move(*head), std::move(*data)}) : std::nullopt;
}

std::uint64_t record_hash(const CanonicalRecord& record) { return hash_of(record.head.owner, record.head.rrtype, record.data); }

std::optional<std::uint64_t> record_hash(AvahiRecord& record) {
  const std::optional<Name> name = parse_name(record.key->name);
  const std::uint16_t rrtype = record.key->type;
  return name ? std::optional(hash_of(*name, rrtype, canonical_data(rrtype, rdata_of(record)))) : std::nullopt;
}

std::string canonical_data(std::uint16_t rrtype, std::string_view rdata) {
  const std::size_t plain = name_at(rrtype, rdata.size());
  std::string data(rdata.substr(0, plain));
  data += fold_case(rdata.substr(plain));
  return data;
}

std::string canonical_key(const Name& name, std::uint16_t rrtype) {
  std::string text;
  append_name(text, name);
  append_number(text, rrtype);
  return text;
}

void append_number(std::string& text, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += static_cast<char>(number >> shift & 0xFF);
  }
}

}  // namespace dnssd
