// SPDX-License-Identifier: MIT
// Names as they stand on the wire without compression: length bytes, labels, and the zero byte that ends the name. A
// name is held in a std::string and passed as a std::string_view; every one inside the engine is whole (is_name).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mdns {

// RFC 6762 appendix C: 255 bytes and the zero byte behind them.
inline constexpr std::size_t kNameMax = 256;
inline constexpr std::size_t kLabelMax = 63;

// Whether `wire` is exactly one whole name: no compression, every label within it, nothing behind the zero byte.
bool is_name(std::string_view wire);

// The size of the whole name that `wire` begins with; 0 when it begins with none.
std::size_t name_size(std::string_view wire);

// DNS compares the letters A to Z without their case, and nothing else (RFC 6762 section 16).
constexpr char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Whether both are the same bytes but for the case of letters. A label's length byte is never a letter, so this is
// right for names, and for the names in rdata.
bool same_folded(std::string_view a, std::string_view b);

// A hash that is equal for texts that are equal by same_folded. Somebody who chooses the names but does not know `seed`
// cannot predict it.
std::uint64_t hash_folded(std::string_view text, std::uint64_t seed);

// hash_folded and same_folded as functors for the tables of the standard library.
struct FoldedHash {
  std::uint64_t seed = 0;
  std::size_t operator()(std::string_view name) const { return static_cast<std::size_t>(hash_folded(name, seed)); }
};

struct FoldedEqual {
  bool operator()(std::string_view a, std::string_view b) const { return same_folded(a, b); }
};

// The first label's text without its length byte; empty for the root.
std::string_view first_label(std::string_view name);

// The name without its first label; the root for the root.
std::string_view parent_name(std::string_view name);

// Whether the name is one that an address is looked up by: it ends in in-addr.arpa or ip6.arpa (RFC 1035 section 3.5,
// RFC 3596 section 2.5).
bool is_reverse_name(std::string_view name);

}  // namespace mdns
