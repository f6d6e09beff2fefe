// SPDX-License-Identifier: MIT
#include "mdns/responder.h"

#include <algorithm>

#include "mdns/link.h"

namespace mdns {
namespace {

// RFC 6762 sections 6 and 7.2.
constexpr Time kDelayLeast = 20 * kMillisecond;
constexpr Time kDelayMost = 120 * kMillisecond;
constexpr Time kTruncatedDelayLeast = 400 * kMillisecond;
constexpr Time kTruncatedDelayMost = 500 * kMillisecond;
constexpr Time kMulticastApart = kSecond;
constexpr Time kDefencesApart = 250 * kMillisecond;

// RFC 6762 sections 6.6 and 10.1: a goodbye for what is ours is contradicted before its second is over, also when the record
// was sent a moment ago.
constexpr Time kRescuedWithin = 900 * kMillisecond;

// The bounds: queries that wait, records in all of them, and how often one query may ask for one name. Where that many packets
// wait, direct replies would make those who ask by multicast wait longer.
constexpr std::size_t kPendingMax = 64;
constexpr std::size_t kPendingRecordsMax = 16384;
constexpr int kTimesAsked = 8;
constexpr std::size_t kCrowded = 32;

// The token buckets of the answers that hosts ask for: one for each host, in answers, and one for all, in bytes. Whoever asks for
// a few is answered at once. Who wants more gets them at once while that keeps nobody waiting, and the rest at a pace that leaves
// room for others, in bursts that fill packets.
constexpr Time kPerAnswer = 10 * kMillisecond;
constexpr Time kFewAnswers = 10 * kPerAnswer;
constexpr Time kManyAnswers = 100 * kPerAnswer;
constexpr Time kPerByteOfMany = 2;
constexpr Time kCrowdBurst = 30 * kMillisecond;
constexpr std::size_t kAnswerBytes = 24;  // besides its rdata,
constexpr std::size_t kAlongBytes = 64;   // and with an SRV record the addresses that go along
constexpr Time kBurstsApart = 20 * kMillisecond;

// One query in hand.
struct Asking {
  const PendingQuery& query;
  Source& source;
  Protocols protocol;
  std::vector<OwnedRecord*> replied = {};  // what goes to the asker alone
  bool wants_many = false;                 // the question in hand, more than it lists as known
};

// --- Queries that wait

std::size_t records_in(const Message& message) { return message.answers.size() + message.authorities.size(); }

Time truncated_until(Link& link) { return link.now + random_between(link.random, kTruncatedDelayLeast, kTruncatedDelayMost); }

// The known answers of a message without questions belong to the query that its host has sent before; if they go on in
// another one, the query waits for that (RFC 6762 section 7.2).
void add_known_answers(Link& link, const Message& message, const Endpoint& source) {
  Responder& responder = link.responder;
  const auto query = std::ranges::find_if(responder.pending, [&](const auto& entry) {
    const Endpoint& asker = entry.second.from.source;
    return entry.second.message.is_truncated && asker.protocol == source.protocol && asker.address == source.address;
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

// The names that the message proposes records of: it is a probe for those of them that it asks for (RFC 6762 section 6).
void mark_proposed_names(Link& link, const Message& message) {
  for (const Record& record : message.authorities) {
    ++link.steps;
    if (OwnedName* owned = owned_find(link, record.name)) {
      owned->proposed_in = link.responder.queries;
      const OwnedRecord* same = zone_find(link, {owned->name, record.type, record.rdata});
      owned->contested_in = same == nullptr || !same->is_live ? link.responder.queries : owned->contested_in;
    }
  }
}

// Whether the question is a probe for the name: records of it are proposed in the same message.
bool is_probe(const Link& link, const OwnedName& owned, const Question& question) {
  return question.type == kTypeAny && owned.proposed_in == link.responder.queries;
}

bool has_probe(Link& link, const Message& message) {
  ++link.responder.queries;
  mark_proposed_names(link, message);
  return !message.authorities.empty() && std::ranges::any_of(message.questions, [&](const Question& question) {
    const OwnedName* owned = owned_find(link, question.name);
    return owned != nullptr && is_probe(link, *owned, question);
  });
}

// When the query is to be answered (RFC 6762 sections 6, 6.3 and 7.2): at once if it is a probe, or if nobody else can answer.
Time answer_time(Link& link, const PendingQuery& query) {
  const Message& message = query.message;
  const OwnedName* owned = message.questions.size() == 1 ? owned_find(link, message.questions[0].name) : nullptr;
  const bool is_plain = owned != nullptr && is_ours(*owned);  // nobody else can have answers
  if (is_legacy(query) || (is_plain && !message.is_truncated) || has_probe(link, message)) {
    return link.now;
  }
  if (message.is_truncated) {
    return truncated_until(link);
  }
  // What becomes due at about the same time shares packets (RFC 6762 section 6.4).
  Time& together_at = link.responder.together_at;
  if (together_at < link.now + kDelayLeast || together_at > link.now + kDelayMost) {
    together_at = link.now + random_between(link.random, kDelayLeast, kDelayMost);
  }
  return together_at;
}

// --- Answers to one query

// The record that a known answer is about: what is published, or that a type is not there. Null: none of ours.
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

// RFC 6762 section 7.1: the records that the asker knows with at least half of their TTL.
void mark_known_answers(Link& link, const Message& message) {
  for (const Record& known : message.answers) {
    ++link.steps;
    OwnedRecord* record = own_record(link, known);
    if (record != nullptr && known.ttl >= record->ttl / 2 + record->ttl % 2) {
      record->known_in = link.responder.queries;
    }
  }
}

// When the record may be sent over the protocol for what is due over it.
Time may_be_sent_at(const Link& link, const OwnedRecord& record, Protocols protocol) {
  if (record.rescue_over & protocol) {
    return link.now;
  }
  return rrset_multicast_at(record, protocol) + (record.defend_over & protocol ? kDefencesApart : kMulticastApart);
}

// When the first of these protocols may have the record.
Time next_answer_at(const Link& link, const OwnedRecord& record, Protocols protocols) {
  Time at = kNever;
  for (const Protocols protocol : kEachProtocol) {
    if (protocols & protocol) {
      at = std::min(at, may_be_sent_at(link, record, protocol));
    }
  }
  return at;
}

// The record is to be sent to the group at `at`, or sooner if it is due already; but not before it may be.
void answer_at(Link& link, OwnedRecord& record, Protocols protocols, Time at) {
  const Time before = record.answer_over != kNoProtocol ? record.answer.at : kNever;
  record.answer_over = static_cast<std::uint8_t>(record.answer_over | protocols);
  if (record.rescue_over != kNoProtocol && before != kNever) {
    return;  // its time was chosen with care
  }
  link.responder.due.set(record, std::max(std::min(at, before), next_answer_at(link, record, record.answer_over)));
}

// When it is the asker's turn to be given one more answer; kNever: it is due already.
Time turn_of(Link& link, const Asking& asking, const OwnedRecord& record) {
  Time& asked_until = asking.source.asked_until;
  asked_until = std::clamp(asked_until, link.now, link.now + kManyAnswers) + kPerAnswer;
  if (asked_until <= link.now + kFewAnswers) {
    return link.now;
  }
  if (record.answer_over & asking.protocol) {
    return kNever;
  }
  Time& crowd_until = link.responder.crowd_until;
  const std::size_t bytes = kAnswerBytes + record.rdata.size() + (record.type == kTypeSrv ? kAlongBytes : 0);
  crowd_until = std::max(crowd_until, link.now) + kPerByteOfMany * static_cast<Time>(bytes);
  if (asked_until <= link.now + kManyAnswers && crowd_until <= link.now + kCrowdBurst) {
    return link.now;
  }
  return crowd_until - (crowd_until - link.now) % kBurstsApart;
}

void cancel_answer(Link& link, OwnedRecord& record, Protocols protocols) {
  record.answer_over = static_cast<std::uint8_t>(record.answer_over & ~protocols);
  record.rescue_over = static_cast<std::uint8_t>(record.rescue_over & ~protocols);
  if (record.answer_over == kNoProtocol) {
    record.defend_over = kNoProtocol;
    record.is_one_of_many = false;
    link.responder.due.set(record, kNever);
  }
}

// One record is an answer, to a question that wants it directly or not, or to a probe. Directly goes what a legacy querier or a
// probe asks for, and what the group has heard within a quarter of its TTL (RFC 6762 section 5.4). What everybody has heard since
// the query came, from us or from another host, need not be said again (section 7.4).
void answer(Link& link, Asking& asking, OwnedRecord& record, bool wants_direct, bool for_probe) {
  const bool from_legacy = is_legacy(asking.query);
  if (record.known_in == link.responder.queries && !from_legacy) {
    return;
  }
  const std::size_t place = index_of(asking.protocol);
  const bool is_lately = record.multicast_at[place] > link.now - static_cast<Time>(record.ttl) * kSecond / 4;
  if ((from_legacy || (wants_direct && (for_probe || is_lately))) && link.outbox.urgent.size() < kCrowded) {
    if (record.replied_in != link.responder.queries) {
      record.replied_in = link.responder.queries;
      asking.replied.push_back(&record);
    }
    if (is_lately) {
      return;
    }
  }
  const bool was_said = std::max(record.multicast_at[place], record.heard_at[place]) > asking.query.received;
  if (from_legacy || (!for_probe && was_said)) {
    return;
  }
  if (for_probe) {
    record.defend_over = static_cast<std::uint8_t>(record.defend_over | asking.protocol);
  }
  record.is_one_of_many = asking.wants_many && (record.is_one_of_many || record.answer_over == kNoProtocol);
  answer_at(link, record, asking.protocol, for_probe ? link.now : turn_of(link, asking, record));
}

// RFC 6762 section 6: a CNAME record answers a question for any type.
bool matches(const OwnedRecord& record, std::uint16_t type) {
  return record.is_live && (type == kTypeAny || record.type == type || record.type == kTypeCname);
}

// Whether the name has been asked for too often in this query.
bool is_asked_enough(const Link& link, OwnedName& owned) {
  owned.times_asked =
      owned.asked_in == link.responder.queries ? static_cast<std::uint8_t>(owned.times_asked + 1) : std::uint8_t{1};
  owned.asked_in = link.responder.queries;
  return owned.times_asked > kTimesAsked;
}

// Answers one question with what is live of its name, or says that there is nothing of that type (RFC 6762 section 6.1).
void answer_question(Link& link, Asking& asking, const Question& question) {
  OwnedName* owned = owned_find(link, question.name);
  const bool is_class = question.klass == kClassIn || question.klass == kClassAny;
  if (owned == nullptr || !is_class || is_asked_enough(link, *owned)) {
    return;
  }
  const Received& from = asking.query.from;
  const bool wants_direct = from.is_local && (question.unicast_response || !from.to_group);
  const bool for_probe = is_probe(link, *owned, question);
  if (for_probe && owned->contested_in != link.responder.queries) {
    return;  // the same data is no conflict (RFC 6762 section 9): another gateway is about to announce it, too
  }
  asking.wants_many = owned->records.size() > kAdditionalForAtMost + asking.query.message.answers.size();
  bool has_any = false;
  for (OwnedRecord* record : owned->records) {
    ++link.steps;
    if (matches(*record, question.type)) {
      has_any = true;
      answer(link, asking, *record, wants_direct, for_probe);
    }
  }
  OwnedRecord* denial = has_any ? nullptr : zone_denial(*owned);
  if (denial != nullptr) {
    answer(link, asking, *denial, wants_direct, for_probe);
  }
}

void answer_query(Link& link, const PendingQuery& query) {
  ++link.responder.queries;
  Asking asking{query, source_get(link, query.from.source), query.from.source.protocol};
  mark_known_answers(link, query.message);
  mark_proposed_names(link, query.message);
  for (const Question& question : query.message.questions) {
    ++link.steps;
    answer_question(link, asking, question);
  }
  if (!asking.replied.empty()) {
    send_reply(link, query, asking.replied);
  }
}

// --- Answers that are due

// Another host says what is ours with another TTL, or takes it back: it is said again, with all else of that kind.
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

// Which protocols the record goes out over now; if it has to wait for others, its next time is set.
Protocols take_turn(Link& link, OwnedRecord& record) {
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

std::vector<DueAnswer> take_due(Link& link) {
  std::vector<DueAnswer> answers;
  while (link.responder.due.next() <= link.now) {
    OwnedRecord& record = *link.responder.due.first();
    ++link.steps;
    const Protocols over = take_turn(link, record);
    if (over != kNoProtocol) {
      answers.push_back({&record, over});
    }
  }
  return answers;
}

// In the place of the one that was heard longest ago.
void remember_sibling(Link& link, const Endpoint& host) {
  auto* place = std::ranges::find(link.siblings, host.address, [](const Sibling& sibling) { return sibling.host.address; });
  if (place == link.siblings.end()) {
    place = std::ranges::min_element(link.siblings, {}, &Sibling::heard_at);
  }
  *place = {host, link.now};
}

}  // namespace

bool is_legacy(const PendingQuery& query) { return query.from.source.port != kPort; }

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
    own->heard_at[index_of(from.protocol)] = link.now;
    cancel_answer(link, *own, from.protocol);
    remember_sibling(link, from);
  }
}

void record_was_multicast(Link& link, OwnedRecord& record, Protocols protocols, Time at) {
  for (const Protocols protocol : kEachProtocol) {
    if (protocols & protocol) {
      record.multicast_at[index_of(protocol)] = at;
    }
  }
  cancel_answer(link, record, protocols);
}

void responder_stop(Link& link, OwnedRecord& record) { cancel_answer(link, record, kBothProtocols); }

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
  const std::vector<DueAnswer> answers = take_due(link);
  for (const Protocols over : {kBothProtocols, kIpv4, kIpv6}) {
    send_answers(link, answers, over);
  }
}

Time responder_deadline(const Link& link) {
  const Responder& responder = link.responder;
  return std::min(responder.due.next(), responder.pending.empty() ? kNever : responder.pending.begin()->first);
}

}  // namespace mdns
