// SPDX-License-Identifier: MIT
// Answers the questions that very many of a server's records answer: what services of this type are there?
//
// Avahi holds each answer that it is about to send, and each record that belongs to it, against all others: one question that two
// thousand services answer occupies it for seconds, and nothing else is heard or withdrawn meanwhile. So such questions do not
// reach it. They are answered here, with the pointers alone: who lists thousands of services asks for the rest of those few that
// are picked, and the air has a tenth of the bytes to carry.
//
// What the asker knows is left out (RFC 6762 section 7.1), also what it says it knows in further packets (section 7.2), and nothing
// is said again within a second (section 6). The answers are multicast, even where the asker would have them sent to itself alone
// (section 5.4): so many are worth hearing for all.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>

#include "dnssd/message_reader.h"
#include "dnssd/pacing.h"

namespace dnssd {

struct Server;
struct Publication;

using Questions = std::set<std::pair<std::string, std::uint16_t>>;  // folded names in Avahi's text, and types

// What an asker waits to be told.
struct Asked {
  std::string from;  // the asker's address, as it is sent
  Questions questions;
  std::unordered_map<std::uint64_t, std::uint32_t> known;  // lifetimes in seconds, by the hash of a record that the asker has
};

struct CrowdAnswers {
  std::unordered_map<std::string, unsigned> pointers;  // how many pointers have this folded name, in Avahi's text
  std::multimap<std::int64_t, Asked> asked;            // by when they are answered: monotonic, microseconds
  AvahiTimeout* timer = nullptr;                       // runs while any is there
  Allowance direct;                                    // questions whose asker has to be answered directly, by Avahi
};

void crowd_answers_open(Server& server);

// Forgets the questions that wait.
void crowd_answers_close(Server& server);

// The publication's records are published, or no longer.
void crowd_answers_add(Server& server, const Publication& publication);
void crowd_answers_remove(Server& server, const Publication& publication);

// Takes a packet that came from the address `from`; `is_to_all`: from the port of multicast DNS to its group. False when
// it is for Avahi, as all are that ask for no crowd.
bool crowd_answers_take(Server& server, std::span<const std::uint8_t> message, const std::string& from, bool is_to_all);

}  // namespace dnssd
