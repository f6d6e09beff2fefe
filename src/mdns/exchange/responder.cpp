// SPDX-License-Identifier: MIT
#include "mdns/exchange/responder.h"

#include <algorithm>

#include "mdns/exchange/answer_packets.h"
#include "mdns/schedule/answers.h"
#include "mdns/schedule/sources.h"
#include "mdns/state/lookup.h"
#include "mdns/store/zone.h"

namespace mdns {
namespace {

// RFC 6762 sections 6 and 7.2.
constexpr Time kDelayLeast = 20 * kMillisecond;
constexpr Time kDelayMost = 120 * kMillisecond;
constexpr Time kTruncatedDelayLeast = 400 * kMillisecond;
constexpr Time kTruncatedDelayMost = 500 * kMillisecond;

// RFC 6762 sections 6.6 and 10.1: after another host's goodbye for our record it is sent again (rescued) before the
// second of the goodbye is over, even if it was sent within the last second.
constexpr Time kRescuedWithin = 900 * kMillisecond;

// The bounds: queries that wait, records in all of them, how often one query may ask for one name, and the length of
// the queue of packets beyond which no unicast replies are sent, since they would delay multicast answers.
constexpr std::size_t kPendingMax = 64;
constexpr std::size_t kPendingRecordsMax = 16384;
constexpr int kTimesAsked = 8;
constexpr std::size_t kReplyQueueMax = 32;

// The rate limits of answers: a token bucket for each querier, from which each answer takes 10 ms, and one for all
// queriers together, from which each byte takes kPerLimitedByte microseconds. Who asks for a few is answered at once.
// Who asks for more is, too, while the common bucket has tokens; the rest is sent at its rate, which leaves room for
// other queriers, in bursts that fill packets.
constexpr Time kPerAnswer = 10 * kMillisecond;
constexpr Time kFewAnswers = 2 * kPerAnswer;  // SRV and TXT of one service
constexpr Time kMostOwed = 100 * kPerAnswer;  // by one querier: what it asks for beyond that costs it nothing more
constexpr Time kPerLimitedByte = 2;
constexpr std::size_t kAnswerBytes = 24;          // of a record besides its rdata
constexpr std::size_t kAdditionalBytes = 64;      // of the additional addresses of an SRV record
constexpr Time kBurstsApart = 20 * kMillisecond;  // the first goes at once

// The query that is being answered.
struct CurrentQuery {
  const PendingQuery& query;
  Source& source;
  Protocols protocol;
  std::vector<OwnedRecord*> replied = {};  // the answers for a unicast reply
  bool wants_many = false;                 // the question in hand has many more answers than are listed as known
};

// --- Queries that wait

std::size_t records_in(const Message& message) { return message.answers.size() + message.authorities.size(); }

Time truncated_until(Link& link) {
  return link.now + random_between(link.random, kTruncatedDelayLeast, kTruncatedDelayMost);
}

// Adds the known answers of a message without questions to the waiting query of the same host that they continue. If
// the message has the TC bit, the query waits for the next such message (RFC 6762 section 7.2).
void add_known_answers(Link& link, const Message& message, const Endpoint& source) {
  Responder& responder = link.responder;
  const auto query = std::ranges::find_if(responder.pending, [&](const auto& entry) {
    const Endpoint& other = entry.second.from.source;
    return entry.second.message.is_truncated && other.protocol == source.protocol && other.address == source.address;
  });
  if (query == responder.pending.end() || responder.pending_records + message.answers.size() > kPendingRecordsMax) {
    return;
  }
  std::vector<Record>& known = query->second.message.answers;
  known.insert(known.end(), message.answers.begin(), message.answers.end());
  responder.pending_records += message.answers.size();
  if (message.is_truncated) {
    auto node = responder.pending.extract(query);
    node.key() = truncated_until(link);
    responder.pending.insert(std::move(node));
  }
}

// Marks the names for which the message proposes records: if it also asks for such a name, it is a probe for that (RFC
// 6762 section 6).
void mark_proposed_names(Link& link, const Message& message) {
  for (const Record& record : message.authorities) {
    ++link.steps;
    if (OwnedName* owned = owned_find(link, record.name)) {
      owned->proposed_in = link.responder.queries;
      OwnedRecord* same = zone_find(link, {owned->name, record.type, record.rdata});
      (same != nullptr ? same->proposed_in : owned->contested_in) = link.responder.queries;
    }
  }
}

// Whether the question is a probe for the name: records of it are proposed in the same message.
bool is_probe(const Link& link, const OwnedName& owned, const Question& question) {
  return question.type == kTypeAny && owned.proposed_in == link.responder.queries;
}

// Whether the query proposes just what is published under the name, which is no conflict (RFC 6762 section 9): another
// gateway is about to announce it, too.
bool proposes_the_same(const Link& link, const OwnedName& owned) {
  return owned.contested_in != link.responder.queries &&
         std::ranges::all_of(owned.records, [&](const OwnedRecord* record) {
           return !record->is_live || record->proposed_in == link.responder.queries;
         });
}

// Begins a query: marks what it proposes. Whether it probes for a name of ours.
bool note_proposals(Link& link, const Message& message) {
  ++link.responder.queries;
  mark_proposed_names(link, message);
  return !message.authorities.empty() && std::ranges::any_of(message.questions, [&](const Question& question) {
    const OwnedName* owned = owned_find(link, question.name);
    return owned != nullptr && is_probe(link, *owned, question);
  });
}

// When the query is to be answered (RFC 6762 sections 6, 6.3 and 7.2): at once if it is a probe, or if no other host
// can have an answer.
Time answer_time(Link& link, const PendingQuery& query) {
  const Message& message = query.message;
  const OwnedName* owned = message.questions.size() == 1 ? owned_find(link, message.questions[0].name) : nullptr;
  const bool is_plain = owned != nullptr && is_ours(*owned);  // no other host can have an answer
  if (is_legacy(query) || (is_plain && !message.is_truncated) || note_proposals(link, message)) {
    return link.now;
  }
  if (message.is_truncated) {
    return truncated_until(link);
  }
  // Answers that are due at about the same time share packets (RFC 6762 section 6.4).
  Time& together_at = link.responder.together_at;
  if (together_at < link.now + kDelayLeast || together_at > link.now + kDelayMost) {
    together_at = link.now + random_between(link.random, kDelayLeast, kDelayMost);
  }
  return together_at;
}

// --- Answers to one query

// Our record that the known answer lists, a published one or the NSEC record of a name; null when it is none of ours.
OwnedRecord* own_record(const Link& link, const Record& known) {
  OwnedName* owned = owned_find(link, known.name);
  if (owned == nullptr) {
    return nullptr;
  }
  if (known.type != kTypeNsec) {
    return zone_find(link, {owned->name, known.type, known.rdata});
  }
  OwnedRecord* denial = zone_denial(*owned);
  return denial != nullptr && same_rdata(kTypeNsec, denial->rdata, known.rdata) ? denial : nullptr;
}

// RFC 6762 section 7.1: marks our records that the query lists as known answers with at least half of their TTL.
void mark_known_answers(Link& link, const Message& message) {
  for (const Record& known : message.answers) {
    ++link.steps;
    OwnedRecord* record = own_record(link, known);
    if (record != nullptr && known.ttl >= record->ttl / 2 + record->ttl % 2) {
      record->known_in = link.responder.queries;
    }
  }
}

// Takes one answer from the querier's token bucket, and from the common one unless it asks for a few. Returns when the
// answer may be sent: now, or when the limit is exceeded the time that the common bucket gives; kNever in the latter
// case if the record is due already, whose deadline then stays as it is (answer_at).
Time take_answer_tokens(Link& link, const CurrentQuery& current, const OwnedRecord& record) {
  TokenBucket& answers = current.source.answers;
  answers.since = std::min(answers.since, link.now + kMostOwed);
  tokens_take(answers, link.now, 0, kPerAnswer);
  if (answers.since <= link.now + kFewAnswers) {
    return link.now;
  }
  if (record.answer_over & current.protocol) {
    return kNever;
  }
  TokenBucket& limited = link.responder.limited;
  const std::size_t bytes = kAnswerBytes + record.rdata.size() + (record.type == kTypeSrv ? kAdditionalBytes : 0);
  tokens_take(limited, link.now, 0, kPerLimitedByte * static_cast<Time>(bytes));
  return limited.since - (limited.since - link.now) % kBurstsApart;
}

// Plans one record as an answer to a question or probe. It is sent by unicast to a legacy querier, and if the querier
// wants a unicast reply: to a probe, or when the record was multicast within the last quarter of its TTL (RFC 6762
// section 5.4). It is not multicast if that was done since the query was received, by us or by another host (section
// 7.4).
void plan_answer(Link& link, CurrentQuery& current, OwnedRecord& record, bool wants_direct, bool for_probe) {
  const bool from_legacy = is_legacy(current.query);
  if (record.known_in == link.responder.queries && !from_legacy) {
    return;
  }
  const std::size_t place = index_of(current.protocol);
  const bool is_recent = record.multicast_at[place] > link.now - static_cast<Time>(record.ttl) * kSecond / 4;
  if ((from_legacy || (wants_direct && (for_probe || is_recent))) && link.outbox.urgent.size() < kReplyQueueMax) {
    if (record.replied_in != link.responder.queries) {
      record.replied_in = link.responder.queries;
      current.replied.push_back(&record);
    }
    if (is_recent) {
      return;
    }
  }
  const bool is_duplicate = std::max(record.multicast_at[place], record.received_at[place]) > current.query.received;
  if (from_legacy || (!for_probe && is_duplicate)) {
    return;
  }
  if (for_probe) {
    record.defend_over = static_cast<std::uint8_t>(record.defend_over | current.protocol);
  }
  record.is_one_of_many = current.wants_many && (record.is_one_of_many || record.answer_over == kNoProtocol);
  answer_at(link, record, current.protocol, for_probe ? link.now : take_answer_tokens(link, current, record));
}

// RFC 6762 section 6: a CNAME record answers a question for any type.
bool matches(const OwnedRecord& record, std::uint16_t type) {
  return record.is_live && (type == kTypeAny || record.type == type || record.type == kTypeCname);
}

// Counts the questions of this query for the name; false from the one on that is beyond kTimesAsked.
bool count_question(const Link& link, OwnedName& owned) {
  owned.times_asked =
      owned.asked_in == link.responder.queries ? static_cast<std::uint8_t>(owned.times_asked + 1) : std::uint8_t{1};
  owned.asked_in = link.responder.queries;
  return owned.times_asked <= kTimesAsked;
}

// Answers one question with the live records of its name, or with an NSEC record if it has none of the type (RFC 6762
// section 6.1).
void answer_question(Link& link, CurrentQuery& current, const Question& question) {
  OwnedName* owned = owned_find(link, question.name);
  const bool is_class = question.klass == kClassIn || question.klass == kClassAny;
  if (owned == nullptr || !is_class || !count_question(link, *owned)) {
    return;
  }
  const Received& from = current.query.from;
  const bool wants_direct = from.is_local && (question.unicast_response || !from.to_group);
  const bool for_probe = is_probe(link, *owned, question);
  if (for_probe && proposes_the_same(link, *owned)) {
    return;
  }
  current.wants_many = owned->records.size() > kAdditionalForAtMost + current.query.message.answers.size();
  bool has_any = false;
  for (OwnedRecord* record : owned->records) {
    ++link.steps;
    if (matches(*record, question.type)) {
      has_any = true;
      plan_answer(link, current, *record, wants_direct, for_probe);
    }
  }
  OwnedRecord* denial = has_any ? nullptr : zone_denial(*owned);
  if (denial != nullptr) {
    plan_answer(link, current, *denial, wants_direct, for_probe);
  }
}

void answer_query(Link& link, const PendingQuery& query) {
  ++link.responder.queries;
  CurrentQuery current{query, source_get(link, query.from.source), query.from.source.protocol};
  mark_known_answers(link, query.message);
  mark_proposed_names(link, query.message);
  for (const Question& question : query.message.questions) {
    ++link.steps;
    answer_question(link, current, question);
  }
  if (!current.replied.empty()) {
    send_reply(link, query, current.replied);
  }
}

// --- Answers that are due

// Another host has sent our record with a TTL that is too low, or a goodbye for it: the record is multicast again,
// together with others for which that has happened.
void correct(Link& link, OwnedRecord& record, std::uint32_t ttl) {
  Responder& responder = link.responder;
  if (responder.rescue_at <= link.now) {
    responder.rescue_at = link.now + random_between(link.random, kDelayLeast, kDelayMost);
  }
  answer_at(link, record, link.protocols, responder.rescue_at);
  if (ttl <= 1 && record.rescue_over == kNoProtocol) {
    const Time allowed = latest_multicast(record, link.protocols) + kMulticastApart;
    record.rescue_over = static_cast<std::uint8_t>(link.protocols);
    responder.due.set(record, std::max(responder.rescue_at, std::min(allowed, link.now + kRescuedWithin)));
  }
}

// The protocols over which the record may be multicast now. For those over which it has to wait, sets its next
// deadline.
Protocols take_answer_protocols(Link& link, OwnedRecord& record) {
  Protocols later = record.answer_over;
  for (const Protocols protocol : kEachProtocol) {
    if ((later & protocol) != 0 && may_be_sent_at(link, record, protocol) <= link.now) {
      later &= ~protocol;
    }
  }
  const Time next = next_answer_at(link, record, later);
  link.responder.due.set(record, next == kNever ? kNever : std::max(next, link.now + 1));
  return record.answer_over & ~later;
}

std::vector<DueAnswer> take_due_answers(Link& link) {
  std::vector<DueAnswer> answers;
  while (link.responder.due.next() <= link.now) {
    OwnedRecord& record = *link.responder.due.first();
    ++link.steps;
    const Protocols over = take_answer_protocols(link, record);
    if (over != kNoProtocol) {
      answers.push_back({&record, over});
    }
  }
  return answers;
}

// In the place of the one that was heard longest ago.
void remember_sibling(Link& link, const Endpoint& host) {
  auto* place =
      std::ranges::find(link.siblings, host.address, [](const Sibling& sibling) { return sibling.host.address; });
  if (place == link.siblings.end()) {
    place = std::ranges::min_element(link.siblings, {}, &Sibling::received_at);
  }
  *place = {host, link.now};
}

}  // namespace

void responder_receive(Link& link, Message&& message, const Received& received) {
  if (message.questions.empty()) {
    add_known_answers(link, message, received.source);
    return;
  }
  PendingQuery query{std::move(message), received, link.now};
  query.from.bytes = {};
  const Time at = answer_time(link, query);
  Responder& responder = link.responder;
  const std::size_t records = responder.pending_records + records_in(query.message);
  if (at <= link.now || responder.pending.size() >= kPendingMax || records > kPendingRecordsMax) {
    answer_query(link, query);
    return;
  }
  responder.pending_records = records;
  responder.pending.emplace(at, std::move(query));
}

void responder_receive_record(Link& link, const Record& record, const Endpoint& from) {
  const OwnedName* owned = owned_find(link, record.name);
  OwnedRecord* own = owned == nullptr ? nullptr : zone_find(link, {owned->name, record.type, record.rdata});
  if (own == nullptr || !own->is_live) {
    return;
  }
  if (std::uint64_t{2} * record.ttl < own->ttl) {
    correct(link, *own, record.ttl);
  } else if (record.ttl >= own->ttl) {
    own->received_at[index_of(from.protocol)] = link.now;
    answer_cancel(link, *own, from.protocol);
    remember_sibling(link, from);
  }
}

void responder_advance(Link& link) {
  Responder& responder = link.responder;
  while (!responder.pending.empty() && responder.pending.begin()->first <= link.now) {
    const auto query = responder.pending.extract(responder.pending.begin());
    responder.pending_records -= records_in(query.mapped().message);
    answer_query(link, query.mapped());
  }
  if (responder.due.next() > link.now) {
    return;
  }
  const std::vector<DueAnswer> answers = take_due_answers(link);
  for (const Protocols over : {kBothProtocols, kIpv4, kIpv6}) {
    send_answers(link, answers, over);
  }
}

Time responder_deadline(const Link& link) {
  const Responder& responder = link.responder;
  return std::min(responder.due.next(), responder.pending.empty() ? kNever : responder.pending.begin()->first);
}

}  // namespace mdns
