// SPDX-License-Identifier: MIT
#include "mdns/wire/name.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace mdns {
namespace {

using std::uint64_t;
using namespace std::string_view_literals;

constexpr std::string_view kInAddrArpa = "\7in-addr\4arpa\0"sv;  // RFC 1035 section 3.5
constexpr std::string_view kIp6Arpa = "\3ip6\4arpa\0"sv;         // RFC 3596 section 2.5

// Up to eight bytes; those that are not there are zero.
uint64_t load(const char* from, std::size_t size = sizeof(uint64_t)) {
  uint64_t word = 0;
  std::memcpy(&word, from, size);
  return word;
}

// fold for each of the word's bytes at once. The top bit of a byte in `from_a` says that its lower seven bits are 'A'
// or more, in `past_z` that they are more than 'Z'.
uint64_t fold_word(uint64_t word) {
  constexpr uint64_t kEach = 0x0101'0101'0101'0101;
  const uint64_t low_bits = word & (kEach * 0x7F);
  const uint64_t from_a = low_bits + kEach * (0x80 - 'A');
  const uint64_t past_z = low_bits + kEach * (0x7F - 'Z');
  const uint64_t is_letter = (from_a ^ past_z) & ~word & (kEach * 0x80);
  return word | (is_letter >> 2);
}

// SipHash with one round for each word and three at the end (Aumasson and Bernstein, "SipHash: a fast short-input PRF",
// 2012): names that collide cannot be found without knowing the seed.
struct SipHash {
  uint64_t seed;
  uint64_t a = seed ^ 0x736f'6d65'7073'6575;
  uint64_t b = ~seed ^ 0x646f'7261'6e64'6f6d;
  uint64_t c = seed ^ 0x6c79'6765'6e65'7261;
  uint64_t d = ~seed ^ 0x7465'6462'7974'6573;

  void mix() {
    a += b;
    c += d;
    b = std::rotl(b, 13) ^ a;
    d = std::rotl(d, 16) ^ c;
    a = std::rotl(a, 32) + d;
    c += b;
    b = std::rotl(b, 17) ^ c;
    d = std::rotl(d, 21) ^ a;
    c = std::rotl(c, 32);
  }

  void add(uint64_t word) {
    d ^= word;
    mix();
    a ^= word;
  }

  uint64_t end() {
    c ^= 0xFF;
    mix();
    mix();
    mix();
    return a ^ b ^ c ^ d;
  }
};

}  // namespace

bool is_name(std::string_view wire) { return !wire.empty() && name_size(wire) == wire.size(); }

std::size_t name_size(std::string_view wire) {
  for (std::size_t at = 0; at < wire.size() && at < kNameMax;) {
    const std::size_t length = static_cast<unsigned char>(wire[at]);
    if (length == 0) {
      return at + 1;
    }
    if (length > kLabelMax) {
      return 0;
    }
    at += 1 + length;
  }
  return 0;
}

bool same_folded(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  std::size_t at = 0;
  for (; a.size() - at >= sizeof(uint64_t); at += sizeof(uint64_t)) {
    const uint64_t of_a = load(&a[at]);
    const uint64_t of_b = load(&b[at]);
    if (of_a != of_b && fold_word(of_a) != fold_word(of_b)) {
      return false;
    }
  }
  const std::size_t left = a.size() - at;
  return left == 0 || fold_word(load(&a[at], left)) == fold_word(load(&b[at], left));
}

std::uint64_t hash_folded(std::string_view text, std::uint64_t seed) {
  SipHash hash{seed};
  std::size_t at = 0;
  for (; text.size() - at >= sizeof(uint64_t); at += sizeof(uint64_t)) {
    hash.add(fold_word(load(&text[at])));
  }
  const std::size_t left = text.size() - at;
  hash.add(left == 0 ? 0 : fold_word(load(&text[at], left)));
  hash.add(text.size());
  return hash.end();
}

std::string_view first_label(std::string_view name) {
  return name.size() <= 1 ? std::string_view() : name.substr(1, static_cast<unsigned char>(name[0]));
}

std::string_view parent_name(std::string_view name) {
  return name.empty() ? name : name.substr(std::min(1 + first_label(name).size(), name.size() - 1));
}

bool is_reverse_name(std::string_view name) {
  for (; name.size() >= kIp6Arpa.size(); name = parent_name(name)) {
    if (same_folded(name, kInAddrArpa) || same_folded(name, kIp6Arpa)) {
      return true;
    }
  }
  return false;
}

}  // namespace mdns
