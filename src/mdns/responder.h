// SPDX-License-Identifier: MIT
// Answers to the questions of others (RFC 6762 sections 5.4, 6, 6.1 to 6.7, 7.1, 7.2 and 7.4).
//
// By multicast: each record that is asked for becomes due, after 20 to 120 ms unless it is ours alone, and not within a
// second of the last time. Those that are due together share packets. Directly, to one host: what was asked for with QU and
// has been multicast lately, and all that is asked from a port other than 5353.
#pragma once

#include <deque>

#include "mdns/reader.h"
#include "mdns/zone.h"

namespace mdns {

// A reply to one host that waits for its time.
struct DirectReply {
  Endpoint to;
  std::uint16_t id = 0;
  bool is_legacy = false;           // the rules of RFC 6762 section 6.7
  std::vector<Question> questions;  // repeated in a legacy reply
  std::vector<OwnedRecord*> records;
  Time at = 0;
};

// A host that has announced further known answers (section 7.2): answers to it wait.
struct Hold {
  std::uint32_t asker = kNobody;
  Time until = 0;
};

struct Responder {
  Heap<OwnedRecord, &OwnedRecord::answer> due;
  std::deque<DirectReply> replies;  // a bounded number
  std::vector<Hold> holds;          // a bounded number
  Time together_at = kLongAgo;      // when the latest delayed answers are due
  Time rescue_at = kLongAgo;        // when all that was taken back by others is said again
  std::size_t replied_records = 0;  // in all replies
  std::uint32_t queries = 0;        // received so far; the number of the one in hand
  std::uint32_t batches = 0;        // of answers, written so far
};

// A query of another host, as it was read and as it came.
void responder_receive(Link& link, const Message& message, const Received& received);

// A record of another host's response: it saves us the same answer, or calls for a correction (sections 7.4 and 6.6).
void responder_receive_record(Link& link, const Record& record, Protocols protocol);

// The record has been sent to the group over these protocols, or will have been at that time: an answer that was due over
// them has been given.
void record_was_multicast(Link& link, OwnedRecord& record, Protocols protocols, Time at);

// The record is no longer to be answered with.
void responder_stop(Link& link, OwnedRecord& record);

// Hands the packets of what is due to the outbox.
void responder_advance(Link& link);
Time responder_deadline(const Link& link);

}  // namespace mdns
