// SPDX-License-Identifier: MIT
// Sockets of the library's own on the multicast group of an interface, beside Avahi's: never on a unicast address, whose
// packets are Avahi's alone. Opened only where something has to be heard that Avahi does not tell.
#pragma once

#include <avahi-common/watch.h>

#include <array>
#include <cstdint>
#include <span>

#include "dnssd/message_reader.h"

namespace dnssd {

struct GroupEar {
  std::array<int, 2> sockets{-1, -1};    // IPv4, IPv6; -1: not to be had
  std::array<AvahiWatch*, 2> watches{};  // on them; null: none
};

// Opens and watches what the system allows of both sockets, in gEngine's loop. A packet calls `callback` with its descriptor.
void group_ear_open(GroupEar& ear, std::uint32_t interface_index, AvahiWatchCallback callback, void* userdata);

void group_ear_close(GroupEar& ear);

struct HeardMessage {
  std::array<std::uint8_t, kMessageMax> bytes;
  std::size_t length = 0;
  bool is_ipv6 = false;

  std::span<const std::uint8_t> span() const { return {bytes.data(), length}; }
};

// Reads the next message from `fd`, which never blocks. False when there is none, or one that did not come from the port of
// multicast DNS: that is no response, and no question that is answered by multicast (RFC 6762 sections 6 and 6.7).
bool group_ear_read(int fd, HeardMessage& message);

}  // namespace dnssd
