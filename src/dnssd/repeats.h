// SPDX-License-Identifier: MIT
// What a socket has heard within the last seconds, so that Avahi is not told it twice. Every host announces its services at
// least twice (RFC 6762 section 8.3), and what is asked for one client is heard by all; Avahi holds each pointer that it hears
// against all that it remembers of the type, and each record against all those of the last half second: on a link with two
// thousand services the second round costs more than the first and says nothing new.
//
// A repeat is a response that has nothing but what was said last of each of its records, if nobody has asked anything since (a
// question that stays without answer makes Avahi forget the record, RFC 6762 section 10.5). A goodbye, another address or a
// lifetime of another length are something else. A repeat is no older than some seconds, and no record in it is short-lived,
// so that lifetimes are what they would be. What counts is when a datagram arrived, not when it is read, since it is in a crowd
// that reading takes longer.
//
// This is for sockets on which nothing is published: the answer to a probe may well say what was announced before the probe,
// and it is the answer that counts (RFC 6762 section 8.1).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dnssd/names.h"

namespace dnssd {

struct Repeats {
  struct Said {
    std::uint64_t what = 0;  // hash of data and lifetime
    std::int64_t at = 0;     // when it was said first: monotonic, microseconds
  };
  // By the hash of name and type: what one message said of all unique records of them. By that of name, type and data: each
  // record that others may have as well.
  std::unordered_map<std::uint64_t, Said> recent;
  std::unordered_map<std::uint64_t, Said> older;  // `recent` as it was at `turned_at`
  std::int64_t turned_at = 0;                     // monotonic, microseconds
};

struct Heard {
  bool is_repeat = false;
  std::vector<std::uint64_t> keys;  // of the names and types of all records in it, or of those before it is malformed; each once
};

// Notes a datagram that arrived at `at` (monotonic, microseconds). Anything that is no well-formed response, or one that Avahi
// refuses, is no repeat, and makes everything noted so far forgotten.
Heard repeats_note(Repeats& repeats, std::span<const std::uint8_t> message, std::int64_t at);

// Whether anything is remembered to have been said of the key.
bool repeats_knows(const Repeats& repeats, std::uint64_t key);

void repeats_forget(Repeats& repeats);

// The key of a name and type.
std::uint64_t repeats_key(const Name& name, std::uint16_t rrtype);

// What a message says of a key with a unique record of this data (names in it uncompressed) and lifetime (seconds). What it says
// with several is the sum.
std::uint64_t repeats_what(std::uint16_t rrtype, std::string_view rdata, std::uint32_t ttl);

// When this was said of the key, if it is what was said last and not long ago; nothing otherwise.
std::optional<std::int64_t> repeats_said(const Repeats& repeats, std::uint64_t key, std::uint64_t what);

}  // namespace dnssd
