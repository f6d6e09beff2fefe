// SPDX-License-Identifier: MIT
// What a server publishes, so that its own answers are known when multicast loops them back.
//
// They are looped back because other programs on this machine have to hear them. To Avahi, which sent them, they say nothing
// that it does not know, and yet it holds each record of them against all that it publishes of the name and against all answers
// of the last half second, and keeps a copy: one client that lists two thousand services would occupy it for half a minute.
// Nothing tells a socket which of the packets from its own machine it sent itself, so what they say has to tell.
#pragma once

#include <avahi-core/rr.h>

#include <cstdint>
#include <deque>
#include <span>
#include <unordered_map>
#include <utility>

namespace dnssd {

struct OwnRecords {
  struct Own {
    unsigned publications = 0;  // that have it; none for a while after the last one
    std::uint32_t ttl = 0;      // seconds
  };
  std::unordered_map<std::uint64_t, Own> records;                // by their hash
  std::deque<std::pair<std::int64_t, std::uint64_t>> withdrawn;  // when (monotonic, microseconds), and that hash; oldest first
};

// `record` is published, or no longer. True when it had been withdrawn and is still remembered.
bool own_records_add(OwnRecords& own, AvahiRecord& record);
void own_records_remove(OwnRecords& own, AvahiRecord& record);

// Whether `message` is a response of which each record is published here, with this lifetime, or was until a moment ago: what is
// withdrawn while a crowd is being answered for may still be in the answers. A goodbye, or another host's claim, is not.
bool own_records_say(const OwnRecords& own, std::span<const std::uint8_t> message);

}  // namespace dnssd
