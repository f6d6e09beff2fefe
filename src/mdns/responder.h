// SPDX-License-Identifier: MIT
// The responder: answers to queries of other hosts (RFC 6762 sections 5.4, 6, 6.1 to 6.7, 7.1, 7.2 and 7.4).
//
// A query whose answers have to wait, for 20 to 120 ms or for further known answers, is kept; its answers are chosen
// when it is due, from the records that are live then. A record that answers by multicast gets a deadline: at once, or
// one second after its last multicast. Records that are due together share packets. Unicast replies are sent to QU
// questions, with records that were multicast recently, and to every query from a port other than 5353.
#pragma once

#include <map>

#include "mdns/reader.h"
#include "mdns/zone.h"

namespace mdns {

struct PendingQuery {
  Message message;  // further known answers join it (section 7.2)
  Received from;    // its `bytes` are empty
  Time received = 0;
};

// With more answers than this no additional records are sent: they would take several times as many packets, and a
// client that lists so many instances asks for the records of the few that it wants.
inline constexpr std::size_t kAdditionalForAtMost = 200;

struct Responder {
  std::multimap<Time, PendingQuery> pending;  // by the time at which they are answered; bounded
  std::size_t pending_records = 0;            // known answers and proposed records in all of them
  Heap<OwnedRecord, &OwnedRecord::answer> due;
  Time together_at = kLongAgo;    // when the delayed answers are due that a further query may join
  Time rescue_at = kLongAgo;      // when the records are sent that other hosts have sent goodbyes or low TTLs for
  Time limited_until = kLongAgo;  // rate limit: when the answers to queriers beyond their limit are sent
  std::uint32_t queries = 0;      // answered so far; the number of the present one
  std::uint32_t batches = 0;      // of answers so far; the number of the present one
};

// Handles a query of another host: the parsed message, and how it was received.
void responder_receive(Link& link, Message&& message, const Received& received);

// A record of another host's response: it saves us the same answer, or calls for a correction (sections 7.4 and 6.6).
void responder_receive_record(Link& link, const Record& record, const Endpoint& from);

// To be called when the record has been multicast over these protocols, or is queued and will have been at that time:
// it is no longer due there as an answer.
void record_was_multicast(Link& link, OwnedRecord& record, Protocols protocols, Time at);

// Cancels all answers with the record that are due.
void responder_stop(Link& link, OwnedRecord& record);

// Chooses the answers of the queries that are due, and queues the packets of the records that are due.
void responder_advance(Link& link);
Time responder_deadline(const Link& link);

// --- answer_packets.cpp: whole RRsets, additional records, legacy responses (RFC 6762 sections 6.2, 6.7, 10.2 and
// 18.5, RFC 6763 section 12)

struct DueAnswer {
  OwnedRecord* record = nullptr;
  Protocols over = kNoProtocol;
};

// Multicasts those of the answers that are due over exactly these protocols, with their additional records.
void send_answers(Link& link, const std::vector<DueAnswer>& answers, Protocols over);

// Sends these answers to the querier by unicast, by the rules of section 6.7 if it is a legacy querier.
void send_reply(Link& link, const PendingQuery& query, const std::vector<OwnedRecord*>& answers);

// Whether the query is that of a legacy querier, an ordinary resolver (section 6.7).
bool is_legacy(const PendingQuery& query);

}  // namespace mdns
