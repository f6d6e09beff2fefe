// SPDX-License-Identifier: MIT
// Resource records and questions, taken out of a message or about to go into one.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "mdns/wire/types.h"

namespace mdns {

struct Question {
  std::string name;
  std::uint16_t type = 0;
  std::uint16_t klass = kClassIn;  // without the top bit
  bool unicast_response = false;   // the top bit of the class: QU (RFC 6762 section 5.4)
};

struct Record {
  std::string name;
  std::uint16_t type = 0;
  std::uint16_t klass = kClassIn;  // without the top bit
  bool cache_flush = false;        // the top bit of the class (RFC 6762 section 10.2)
  std::uint32_t ttl = 0;           // seconds
  std::string rdata;               // the names in it are not compressed
};

// Where the rdata of a type holds names: first `head` bytes, then `names` names, then the remaining fields of the type.
// Only the types whose names RFC 6762 section 18.14 compresses have a form with names; for all others `names` is 0.
struct RdataForm {
  std::uint16_t type = 0;  // 0: any other
  std::uint8_t head = 0;   // bytes
  std::uint8_t names = 0;  // 0 to 2
};

RdataForm rdata_form(std::uint16_t type);

// Whether `rdata` is well formed for `type`: the length that the type asks for, names that are whole. Types whose form
// is not known are plain bytes, and any length of them is right. Empty rdata is right only for those.
bool is_rdata(std::uint16_t type, std::string_view rdata);

// Whether two records of one name and type hold the same data.
bool same_rdata(std::uint16_t type, std::string_view a, std::string_view b);

// The order of RFC 6762 section 8.2 over type and rdata (every record here is of class IN): negative when a is earlier,
// positive when it is later, 0 when they are the same. Bytes are compared without a sign and letters as they are.
int compare_records(std::uint16_t type_a, std::string_view rdata_a, std::uint16_t type_b, std::string_view rdata_b);

// The TTL in seconds of RFC 6762 section 10: 120 for what holds a host's name or address, else 75 minutes.
std::uint32_t usual_ttl(std::string_view name, std::uint16_t type);

// Whether the type bit maps of an NSEC record's rdata have that type (RFC 4034 section 4.1.2). True as well when the
// rdata is malformed, so that such a record denies nothing.
bool denial_lists(std::string_view rdata, std::uint16_t type);

// The rdata of an NSEC record for `name` whose type bit maps have exactly these types, each below 256 (RFC 6762 section
// 6.1).
std::string denial_rdata(std::string_view name, std::span<const std::uint16_t> types);

// The target that the rdata of an SRV or PTR record names; empty when it is none of these or not well formed.
std::string_view target_of(std::uint16_t type, std::string_view rdata);

}  // namespace mdns
