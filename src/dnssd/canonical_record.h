// SPDX-License-Identifier: MIT
// Records in a form in which the same record is the same bytes wherever it stands: names in data uncompressed, their letters in
// lower case (RFC 4034 section 6.2), for the types whose names multicast DNS compresses.
#pragma once

#include <avahi-core/rr.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dnssd/message_reader.h"
#include "dnssd/names.h"

namespace dnssd {

struct CanonicalRecord {
  RecordHead head;   // as it was read; its length is that of the data in the message
  std::string data;  // in canonical form
};

// The record at the reader's place, which moves behind it. Nothing for one that is malformed.
std::optional<CanonicalRecord> read_canonical_record(MessageReader& reader);

// A hash of name, type and data; of the class and the lifetime it says nothing. Nothing for a name that cannot be read.
std::uint64_t record_hash(const CanonicalRecord& record);
std::optional<std::uint64_t> record_hash(AvahiRecord& record);

// The canonical form of data whose names are uncompressed.
std::string canonical_data(std::uint16_t rrtype, std::string_view rdata);

// A name and a type: what a record is asked for by.
std::string canonical_key(const Name& name, std::uint16_t rrtype);

// Appends a number, most significant byte first.
void append_number(std::string& text, std::uint32_t number);

}  // namespace dnssd
