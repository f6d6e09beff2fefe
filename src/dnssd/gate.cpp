// SPDX-License-Identifier: MIT
#include "dnssd/gate.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

#include "dnssd/message_reader.h"
#include "dnssd/senders.h"
#include "dnssd/server.h"
#include "dnssd/withheld.h"

namespace dnssd {
namespace {

// Packets that are taken in in one go, when they are there, and the time after which no further one is: the largest ones cost
// some milliseconds each.
constexpr int kTakenPerPass = 16;
constexpr std::int64_t kTimePerPass = 5'000;  // microseconds

// Packets that are thrown away in one go, so that a flood is kept up with.
constexpr int kThrownAwayPerPass = 128;

constexpr std::uint8_t kIpv6GroupPrefix = 0xFF;  // RFC 4291 section 2.7

using Buffer = std::array<std::uint8_t, kMessageMax>;

struct Datagram {
  std::span<const std::uint8_t> bytes;  // cut when it is too long to be a message
  bool is_cut = false;
  bool is_to_group = true;           // not to this machine alone
  bool may_be_response = false;      // comes from the port of multicast DNS; from another one Avahi believes nothing
  const sockaddr* sender = nullptr;  // in its envelope
  std::optional<MessageHead> head;   // nothing when it is too short for one
};

// False only when the kernel tells that the datagram was sent to an address of this machine; Avahi has asked it to tell.
bool is_to_group(msghdr& header) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
    if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
      in_pktinfo info{};
      std::memcpy(&info, CMSG_DATA(part), sizeof info);
      return IN_MULTICAST(ntohl(info.ipi_addr.s_addr));
    }
    if (part->cmsg_level == IPPROTO_IPV6 && part->cmsg_type == IPV6_PKTINFO) {
      in6_pktinfo info{};
      std::memcpy(&info, CMSG_DATA(part), sizeof info);
      return info.ipi6_addr.s6_addr[0] == kIpv6GroupPrefix;
    }
  }
  return true;
}

// The next datagram, which stays in the socket; nothing when there is none.
std::optional<Datagram> look_at_next(int fd, Buffer& buffer, Envelope& envelope) {
  const auto bytes = receive(fd, MSG_PEEK, buffer, envelope);
  if (!bytes) {
    return std::nullopt;
  }
  const sockaddr& sender = sender_of(envelope);
  MessageReader reader{*bytes};
  const bool is_cut = (envelope.header.msg_flags & MSG_TRUNC) != 0;
  return Datagram{
      *bytes, is_cut, is_to_group(envelope.header), is_from_multicast_dns(sender), &sender, read_message_head(reader)};
}

// Whether Avahi may have an answer to it in store from now on. Probes, which alone have authorities (RFC 6762 section 8.2), it
// answers at once.
bool is_question(const Datagram& next) {
  return next.head && (next.head->flags & kResponseBit) == 0 && next.head->authorities == 0;
}

bool is_response(const Datagram& next) { return next.head && (next.head->flags & kResponseBit) != 0; }

// Avahi follows aliases from one to the next, each by a call within the last, without an end where they lead round in a circle or to
// themselves: any host could end the process. No host name that a service is announced with may be an alias (RFC 2782), and nothing
// else is looked up. Of a message that is too long Avahi reads more than is seen here.
bool may_hold_alias(const Datagram& next) {
  return is_response(next) && (next.is_cut || holds_record(next.bytes, AVAHI_DNS_TYPE_CNAME));
}

void throw_away(int fd, int packets) {
  char byte = 0;
  for (int i = 0; i < packets; ++i) {
    if (recv(fd, &byte, sizeof byte, MSG_DONTWAIT) < 0) {
      return;
    }
  }
}

// Avahi takes it for granted that a watched socket is readable.
void clear_error(int fd) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
}

// Whether this server sent it, and nobody waits to hear of it.
bool is_own_answer(const Gate& gate, const Datagram& next) {
  const Server* server = gate.server;
  return server != nullptr && server->lookups == 0 && next.may_be_response && !server->own_records.records.empty() &&
         server->addresses.contains(address_bytes(*next.sender)) && own_records_say(server->own_records, next.bytes);
}

// Whether it is a crowd's to answer; where there is none, nobody needs the sender's address.
bool is_answered_otherwise(const Gate& gate, const Datagram& next) {
  const bool is_to_all = next.is_to_group && next.may_be_response;
  return gate.server != nullptr && gate.server->ear == Ear::crowded &&
         crowd_answers_take(*gate.server, next.bytes, address_bytes(*next.sender), is_to_all);
}

// A record of ours that another host withdraws by mistake is put right by Avahi (RFC 6762 section 6.6): where anything is published,
// it is told everything.
void hand_to_avahi(const Gate& gate, const Datagram& next, AvahiWatch* watch, int fd) {
  const bool is_for_nobody_else =
      gate.server != nullptr && gate.server->publications == 0 && next.may_be_response && is_response(next);
  const Withholding withholding(is_for_nobody_else ? gate.server : nullptr);
  gate.callback(watch, fd, AVAHI_WATCH_IN, gate.userdata);
}

// Nothing is ever asked for by unicast: what comes by it answers nothing (RFC 6762 section 11 would have its sender's address
// checked as well).
void note_pointers(const Gate& gate, const Datagram& next) {
  if (gate.server == nullptr || gate.server->pointers.empty() || !next.may_be_response || !next.is_to_group) {
    return;
  }
  Server& server = *gate.server;
  const AvahiProtocol protocol = &gate == &server.gates[AVAHI_PROTO_INET] ? AVAHI_PROTO_INET : AVAHI_PROTO_INET6;
  if (is_response(next)) {
    pointers_heard(server, protocol, next.bytes);
  } else if (is_question(next) && !server.addresses.contains(address_bytes(*next.sender))) {
    pointers_asked(server, protocol, next.bytes);
  }
}

// Passes the next datagram on to Avahi, or by it. False when there is none.
bool take(Gate& gate, AvahiWatch* watch, int fd) {
  Buffer buffer;
  Envelope envelope;
  const std::optional<Datagram> next = look_at_next(fd, buffer, envelope);
  if (!next) {
    return false;
  }
  if (may_hold_alias(*next)) {
    gate.allowance.left -= claimed_records(next->bytes);
    throw_away(fd, 1);
    note_pointers(gate, *next);
    return true;
  }
  Heard heard;
  if (!gate.is_publishing && next->may_be_response) {
    heard = repeats_note(gate.repeats, next->bytes, monotonic_now());
    if (!next->is_to_group) {
      // Avahi refuses it if it comes from elsewhere than the link: it counts as said by nobody.
      repeats_forget(gate.repeats);
      heard.is_repeat = false;
    }
  }
  if (is_own_answer(gate, *next)) {
    gate.allowance.left -= 1;
    throw_away(fd, 1);
    return true;
  }
  gate.allowance.left -= claimed_records(next->bytes);
  if (heard.is_repeat || is_answered_otherwise(gate, *next)) {
    throw_away(fd, 1);
    return true;
  }
  if (is_question(*next)) {
    gate.asked_at = monotonic_now();
  }
  hand_to_avahi(gate, *next, watch, fd);
  note_pointers(gate, *next);
  if (gate.server != nullptr) {
    lookups_heard(*gate.server, gate.repeats, heard.keys);
  }
  return true;
}

}  // namespace

void gate_open(Gate& gate, Server* server, AvahiWatchCallback callback, void* userdata) {
  gate.server = server;
  gate.callback = callback;
  gate.userdata = userdata;
  gate.allowance = {kIntakeRate.burst, monotonic_now()};
}

void gate_set_publishing(Gate& gate, bool is_publishing) {
  gate.is_publishing = is_publishing;
  repeats_forget(gate.repeats);
}

void gate_pass(AvahiWatch* watch, int fd, AvahiWatchEvent events, void* userdata) {
  Gate& gate = *static_cast<Gate*>(userdata);
  if ((events & AVAHI_WATCH_IN) == 0) {
    clear_error(fd);
    return;
  }
  allowance_grow(gate.allowance, kIntakeRate);
  if (gate.allowance.left <= 0) {
    throw_away(fd, kThrownAwayPerPass);
    repeats_forget(gate.repeats);
    if (gate.server != nullptr) {
      pointers_missed(*gate.server);
      lookups_wake(*gate.server);
    }
    return;
  }
  const std::int64_t end = monotonic_now() + kTimePerPass;
  for (int i = 0; i < kTakenPerPass && gate.allowance.left > 0 && take(gate, watch, fd) && monotonic_now() < end; ++i) {
  }
}

}  // namespace dnssd
