// SPDX-License-Identifier: MIT
// Sockets of the library's own on the multicast group of an interface, beside Avahi's: never on a unicast address, whose
// packets are Avahi's alone. They are there while somebody listens, which is where something has to be heard that Avahi does
// not tell; a datagram is read once for all who do.
//
// Each socket has an allowance of records, as Avahi's have (gate.h): beyond it, packets are thrown away unread. What is of no
// interest to anybody costs nothing of it. Whoever listens has to get along with what he has not heard.
#pragma once

#include <avahi-common/watch.h>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "dnssd/pacing.h"

namespace dnssd {

// With a whole header, from the port of multicast DNS, and with no opcode or response code but 0. What comes from elsewhere is no
// response, and no question that is answered by multicast (RFC 6762 sections 6 and 6.7).
struct HeardMessage {
  std::span<const std::uint8_t> bytes;
  bool is_ipv6 = false;
};

enum class Heeds { questions, responses };

// Whoever listens: neither callback may end that, or have somebody else listen.
struct GroupListener {
  Heeds heeds = Heeds::responses;
  void (*heard)(const HeardMessage& message, void* userdata) = nullptr;
  void (*missed)(void* userdata) = nullptr;  // of something that cannot be heard any more; null: that does not matter
  void* userdata = nullptr;                  // no other listener's
};

struct GroupSocket {
  int fd = -1;                   // -1: not to be had
  AvahiWatch* watch = nullptr;   // on it
  Allowance allowance;           // records that may be read
  std::uint32_t overflowed = 0;  // datagrams that had found no room in it when one was last read
};

// Stays where it is while anybody listens.
struct GroupEar {
  std::array<GroupSocket, 2> sockets;  // IPv4, IPv6
  std::vector<GroupListener> listeners;
};

// From now on, until group_ear_leave. With the first one, those sockets are opened, in gEngine's loop, that the system allows.
void group_ear_listen(GroupEar& ear, std::uint32_t interface_index, const GroupListener& listener);

// Nothing happens for one that does not listen.
void group_ear_leave(GroupEar& ear, const void* userdata);

// The socket, whose descriptor never blocks, is readable: reads some of what there is.
void group_ear_read(GroupEar& ear, GroupSocket& socket);

}  // namespace dnssd
