// SPDX-License-Identifier: MIT
// Answers to the questions of others (RFC 6762 sections 5.4, 6, 6.1 to 6.7, 7.1, 7.2 and 7.4).
//
// A query whose answers have to wait, for 20 to 120 ms or for further known answers, is kept and answered when its time has
// come, from what is true then. What is answered by multicast becomes due, record by record: at once, or when a second has
// passed since the last time; those that are due together share packets. Directly, to one host, goes what was asked for with
// QU and has been multicast lately, and all that is asked from a port other than 5353.
#pragma once

#include <map>

#include "mdns/reader.h"
#include "mdns/zone.h"

namespace mdns {

struct PendingQuery {
  Message message;  // further known answers join it (section 7.2)
  Received from;    // without its bytes
  Time received = 0;
};

// Who is given more answers than this picks from them and asks for what was picked: additional records for all would be several
// packets for each one.
inline constexpr std::size_t kAdditionalForAtMost = 200;

struct Responder {
  std::multimap<Time, PendingQuery> pending;  // a bounded number, by the time at which they are answered
  std::size_t pending_records = 0;            // known and proposed ones in all of them
  Heap<OwnedRecord, &OwnedRecord::answer> due;
  Time together_at = kLongAgo;  // when the latest delayed answers are due
  Time rescue_at = kLongAgo;    // when all that was taken back by others is said again
  Time crowd_until = kLongAgo;  // when all is said that those want who want much
  std::uint32_t queries = 0;    // answered so far; the number of the one in hand
  std::uint32_t batches = 0;    // of answers, written so far
};

// A query of another host, as it was read and as it came.
void responder_receive(Link& link, Message&& message, const Received& received);

// A record of another host's response: it saves us the same answer, or calls for a correction (sections 7.4 and 6.6).
void responder_receive_record(Link& link, const Record& record, const Endpoint& from);

// The record has been sent to the group over these protocols, or will have been at that time: an answer that was due over
// them has been given.
void record_was_multicast(Link& link, OwnedRecord& record, Protocols protocols, Time at);

// The record is no longer to be answered with.
void responder_stop(Link& link, OwnedRecord& record);

// Answers the queries that have waited for long enough, and hands the packets of what is due to the outbox.
void responder_advance(Link& link);
Time responder_deadline(const Link& link);

// --- answer_packets.cpp: whole RRsets, and the records that an asker will want next (RFC 6762 sections 6.2, 6.7, 10.2 and 18.5,
// RFC 6763 section 12)

struct DueAnswer {
  OwnedRecord* record = nullptr;
  Protocols over = kNoProtocol;
};

// Sends to the group those of the answers that are due over just these protocols, with their additional records.
void send_answers(Link& link, const std::vector<DueAnswer>& answers, Protocols over);

// Sends these answers to the host that asked, by the rules of section 6.7 if it is a legacy querier.
void send_reply(Link& link, const PendingQuery& query, const std::vector<OwnedRecord*>& answers);

// Whether the query comes from an ordinary resolver (section 6.7).
bool is_legacy(const PendingQuery& query);

}  // namespace mdns
