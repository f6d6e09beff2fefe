// SPDX-License-Identifier: MIT
// Datagrams, and whom they come from.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace dnssd {

// What comes with a datagram. It stays where it is: `header` points to its other fields.
struct Envelope {
  sockaddr_storage sender{};
  alignas(cmsghdr) std::array<char, 256> control{};
  iovec room{};
  msghdr header{};  // what the kernel tells besides, as the options of the socket have it
};

// The next datagram of `fd`, in `buffer` as far as there is room for it, and its envelope; `flags` are recvmsg's. Nothing when there is
// none, for which it never waits.
std::optional<std::span<const std::uint8_t>> receive(int fd, int flags, std::span<std::uint8_t> buffer, Envelope& envelope);

inline const sockaddr& sender_of(const Envelope& envelope) { return reinterpret_cast<const sockaddr&>(envelope.sender); }

// The address as it is sent, without port and scope: 4 or 16 bytes. Empty for other families.
std::string address_bytes(const sockaddr& address);

// Whether it comes from port 5353. What does not is no response, and no question that is answered by multicast (RFC 6762
// sections 6 and 6.7).
bool is_from_multicast_dns(const sockaddr& sender);

}  // namespace dnssd
