// SPDX-License-Identifier: MIT
// When the pointers of a name are asked for, and what follows from the questions of others.
//
//   - At first after a random moment, then after one second, two, four, and so on up to an hour (RFC 6762 section 5.2), with what
//     is known already (section 7.1), in several packets where one does not hold it (section 7.2).
//   - Again when four fifths of a record's lifetime are over, and at 85, 90 and 95 hundredths of it if nobody answers.
//   - In one packet for all names whose questions are due; those that begin at about the same time stay together. (Where one of them
//     is a crowd's, the others' answers then wait for what is known of it, half a second, but only after the first question.)
//   - Not where another host has just asked the same of everybody (section 7.3).
//   - What stays away although others ask for it again and again is given up (section 10.5).
#pragma once

#include <avahi-common/address.h>

#include <array>
#include <cstdint>

namespace dnssd {

struct Pointer;
struct PointerList;
struct Question;
struct Server;

// Others' questions that leave nothing out. Times are monotonic, in microseconds.
struct AskedByOthers {
  std::int64_t asked_at = 0;  // the last one; 0: never
  std::int64_t first_at = 0;  // the first and the last one that count
  std::int64_t last_at = 0;
  std::int64_t judged_at = 0;  // when what has not been heard since the first one is given up; 0: not yet
  unsigned count = 0;          // at least a second apart
};

// Of one list.
struct PointerQuestions {
  std::int64_t next_at = 0;             // the next one of the regular ones
  std::int64_t interval = 0;            // from that to the one after it
  std::int64_t again_at = 0;            // one for records that are growing old; 0: none
  unsigned again_over = 0;              // the protocols of those: 1: IPv4, 2: IPv6
  std::int64_t asked_at = 0;            // the last one; 0: never
  unsigned packets = 1;                 // that it took; one for growing old ones waits as many seconds
  std::array<AskedByOthers, 2> others;  // IPv4, IPv6
};

// Begins, or begins again: there may be somebody who has not been asked, or somebody new who asks.
// What is growing old is asked for with it.
void questions_begin(PointerList& list, std::int64_t now);

// When the next question is due, of a list that somebody follows.
std::int64_t questions_due(const PointerQuestions& questions);

// Asks what is due of the server's lists that somebody follows.
void questions_ask(Server& server, std::int64_t now);

// The record is growing old, over this protocol: it will be asked for.
void questions_want(PointerQuestions& questions, AvahiProtocol protocol, std::int64_t now);

// When a record that was asked for so many times is due again, or its end.
std::int64_t pointer_due(const Pointer& pointer);

// Notes a question of others for the list's name, of whose answers it leaves out nothing.
void questions_note(PointerQuestions& questions, AvahiProtocol protocol, const Question& question, std::int64_t now);

}  // namespace dnssd
