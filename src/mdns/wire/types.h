// SPDX-License-Identifier: MIT
// The types that all parts of the engine use, and the constants of RFC 6762 that more than one part needs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace mdns {

// Microseconds on a clock that never goes back; the caller chooses its origin. The engine reads no clock of its own.
using Time = std::int64_t;

inline constexpr Time kMillisecond = 1'000;
inline constexpr Time kSecond = 1'000'000;
inline constexpr Time kNever = INT64_MAX;        // the time of what is not due at all
inline constexpr Time kLongAgo = INT64_MIN / 4;  // the time of what has never happened; differences to it do not
                                                 // overflow

using Bytes = std::span<const std::uint8_t>;

// The two protocols that multicast DNS runs over on a link; a set of them is their sum.
using Protocols = unsigned;
inline constexpr Protocols kNoProtocol = 0;
inline constexpr Protocols kIpv4 = 1;
inline constexpr Protocols kIpv6 = 2;
inline constexpr Protocols kBothProtocols = kIpv4 | kIpv6;
inline constexpr std::array<Protocols, 2> kEachProtocol = {kIpv4, kIpv6};

// The place of one protocol in an array with an element for each of them.
constexpr std::size_t index_of(Protocols protocol) { return protocol == kIpv6 ? 1 : 0; }

// Where a datagram comes from or goes to.
struct Endpoint {
  Protocols protocol = kIpv4;              // one of them
  std::uint16_t port = 0;                  // host order
  std::array<std::uint8_t, 16> address{};  // network order; an IPv4 address takes the first four bytes

  bool operator==(const Endpoint&) const = default;
};

inline constexpr std::uint16_t kPort = 5353;  // RFC 6762 section 3

// Record types and classes of RFC 1035, 2782, 3596, 4034 and 6891.
inline constexpr std::uint16_t kTypeA = 1, kTypeNs = 2, kTypeCname = 5, kTypeSoa = 6, kTypePtr = 12, kTypeHinfo = 13,
                               kTypeMx = 15, kTypeTxt = 16, kTypeRp = 17, kTypeAfsdb = 18, kTypeRt = 21, kTypePx = 26,
                               kTypeAaaa = 28, kTypeSrv = 33, kTypeKx = 36, kTypeDname = 39, kTypeOpt = 41,
                               kTypeNsec = 47, kTypeAny = 255;
inline constexpr std::uint16_t kClassIn = 1, kClassAny = 255;

constexpr bool is_address(std::uint16_t type) { return type == kTypeA || type == kTypeAaaa; }

// TTLs of RFC 6762 section 10, in seconds.
inline constexpr std::uint32_t kHostTtl = 120;
inline constexpr std::uint32_t kOtherTtl = 75 * 60;

inline constexpr std::uint8_t kAnnouncements = 2;  // of each record (RFC 6762 section 8.3)

inline constexpr std::size_t kHeaderSize = 12;  // of a message (RFC 1035 section 4.1.1)

// The most bytes of a datagram: an Ethernet frame's 1500 less the headers of IPv6 and UDP, since both protocols carry
// the same datagrams. A record that is too long for that is sent alone in a larger one, of up to the 9000 bytes of RFC
// 6762 section 17 less the same headers.
inline constexpr std::size_t kDatagramMax = 1500 - 48;
inline constexpr std::size_t kLargeDatagramMax = 9000 - 48;

}  // namespace mdns
