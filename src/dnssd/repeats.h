// SPDX-License-Identifier: MIT
// What a socket has heard within the last seconds, so that Avahi is not told it twice. Every host announces its services at
// least twice (RFC 6762 section 8.3), and what is asked for one client is heard by all; Avahi looks for each record among
// those that it remembers: on a link with two thousand services the second round costs as much as the first and says nothing new.
//
// A repeat is a response that has nothing but what was said last of each of its records, if nobody has asked anything since (a
// question that stays without answer makes Avahi forget the record, RFC 6762 section 10.5). A goodbye, another address or a
// lifetime of another length are something else. A repeat is no older than some seconds, and no record in it is short-lived,
// so that lifetimes are what they would be.
//
// This is for sockets on which nothing is published: the answer to a probe may well say what was announced before the probe,
// and it is the answer that counts (RFC 6762 section 8.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "dnssd/names.h"

namespace dnssd {

// What has been said since a moment. By the hash of name and type: what one message said of all unique records of them. By that
// of name, type and data: each record that others may have as well. A table of places, each entry at the first free one from
// where its key belongs: two thousand services say twelve thousand things on each socket.
struct SaidTable {
  struct Said {
    std::uint64_t key = 0;    // 0: the place is free
    std::uint32_t what = 0;   // hash of data and lifetime, cut
    std::uint32_t after = 0;  // when it was said first: microseconds since `begun_at`
  };
  std::vector<Said> places;   // none, or as many as a power of two
  std::size_t count = 0;      // entries, at most three quarters of the places
  std::int64_t begun_at = 0;  // monotonic, microseconds
};

struct Repeats {
  SaidTable recent;
  SaidTable older;  // `recent` as it was when that began
};

struct Heard {
  bool is_repeat = false;
  std::vector<std::uint64_t> keys;  // of the names and types of all records in it, or of those before it is malformed; each once
};

// Notes a datagram that is read at `at` (monotonic, microseconds). Anything that is no well-formed response, or one that Avahi
// refuses, is no repeat, and makes everything noted so far forgotten.
Heard repeats_note(Repeats& repeats, std::span<const std::uint8_t> message, std::int64_t at);

// Whether anything is remembered to have been said of the key.
bool repeats_knows(const Repeats& repeats, std::uint64_t key);

// Forgets all of it; no memory is kept.
void repeats_forget(Repeats& repeats);

// Forgets what is too old at `now` (monotonic, microseconds) to matter, if nobody says anything any more. Whether anything is
// remembered still.
bool repeats_age(Repeats& repeats, std::int64_t now);

// After this time repeats_age forgets all that has been said until now: microseconds.
inline constexpr std::int64_t kRepeatsForgottenAfter = 22'000'000;

// The key of a name and type.
std::uint64_t repeats_key(const Name& name, std::uint16_t rrtype);

// What a message says of a key with a unique record of this data (names in it uncompressed) and lifetime (seconds). What it says
// with several is the sum.
std::uint64_t repeats_what(std::uint16_t rrtype, std::string_view rdata, std::uint32_t ttl);

// When this was said of the key, if it is what was said last and not long ago; nothing otherwise.
std::optional<std::int64_t> repeats_said(const Repeats& repeats, std::uint64_t key, std::uint64_t what);

}  // namespace dnssd
