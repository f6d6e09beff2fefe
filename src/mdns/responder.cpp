// SPDX-License-Identifier: MIT
#include "mdns/responder.h"

#include <algorithm>

#include "mdns/answer_packets.h"
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

// The bounds: direct replies that wait, records in all of them, hosts whose known answers are waited for, and how often one
// query may ask for one name.
constexpr std::size_t kRepliesMax = 64;
constexpr std::size_t kRepliedRecordsMax = 4096;
constexpr std::size_t kHoldsMax = 16;
constexpr int kTimesAsked = 8;

// One query in hand.
struct Asking {
  const Message& message;
  const Received& received;
  std::uint32_t asker;
  bool is_legacy;
  Time delay;         // of answers that defend nothing
  DirectReply reply;  // what goes to the asker alone
};

// The record that a known answer is about: what is published, or that a type is not there. Null: none of ours.
OwnedRecord* own_record(const Link& link, const Record& known) {
  const NameEntry* name = name_find(link, known.name);
  if (name == nullptr || name->owned == nullptr) {
    return nullptr;
  }
  if (known.type != kTypeNsec) {
    return zone_find(link, {name, known.type, known.rdata});
  }
  OwnedRecord* denial = zone_denial(*name->owned);
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

// The names that the message proposes records of: it is a probe for those of them that it asks for (RFC 6762 section 6).
void mark_proposed_names(Link& link, const Message& message) {
  for (const Record& record : message.authorities) {
    ++link.steps;
    const NameEntry* name = name_find(link, record.name);
    if (name != nullptr && name->owned != nullptr) {
      name->owned->proposed_in = link.responder.queries;
    }
  }
}

void cancel_answer(Link& link, OwnedRecord& record, Protocols protocols) {
  record.answer_over = static_cast<std::uint8_t>(record.answer_over & ~protocols);
  record.rescue_over = static_cast<std::uint8_t>(record.rescue_over & ~protocols);
  if (record.answer_over == kNoProtocol) {
    record.defend_over = kNoProtocol;
    link.responder.due.set(record, kNever);
  }
}

// Known answers that come behind their question (RFC 6762 section 7.2) take back what was due to that asker alone.
void drop_known_answers(Link& link, const Asking& asking) {
  const Endpoint& source = asking.received.source;
  for (const Record& known : asking.message.answers) {
    OwnedRecord* record = own_record(link, known);
    if (record != nullptr && record->known_in == link.responder.queries && record->rescue_over == kNoProtocol &&
        record->askers[index_of(source.protocol)] == asking.asker) {
      cancel_answer(link, *record, source.protocol);
    }
  }
  for (DirectReply& reply : link.responder.replies) {
    if (reply.to == source) {
      std::erase_if(reply.records, [&](OwnedRecord* record) {
        ++link.steps;
        const bool is_known = record->known_in == link.responder.queries;
        record->in_replies = static_cast<std::uint16_t>(record->in_replies - (is_known ? 1 : 0));
        return is_known;
      });
    }
  }
}

// The asker's known answers go on in another packet: what it is to be told waits for that.
void hold_answers(Link& link, const Asking& asking) {
  const Time until = link.now + random_between(link.random, kTruncatedDelayLeast, kTruncatedDelayMost);
  std::vector<Hold>& holds = link.responder.holds;
  std::erase_if(holds, [&](const Hold& hold) { return hold.until <= link.now || hold.asker == asking.asker; });
  if (holds.size() < kHoldsMax) {
    holds.push_back({asking.asker, until});
  }
  for (DirectReply& reply : link.responder.replies) {
    if (reply.to == asking.received.source) {
      reply.at = until;
    }
  }
}

// Until when answers to the asker wait.
Time held_until(const Link& link, std::uint32_t asker) {
  const auto hold = std::ranges::find(link.responder.holds, asker, &Hold::asker);
  return hold == link.responder.holds.end() || asker == kNobody ? kLongAgo : hold->until;
}

// When the record may be sent over the protocol for what is due over it.
Time may_be_sent_at(const Link& link, const OwnedRecord& record, Protocols protocol) {
  if (record.rescue_over & protocol) {
    return link.now;
  }
  const bool defends = (record.defend_over & protocol) != 0;
  const Time last = rrset_multicast_at(record, protocol);
  return defends ? last + kDefencesApart : std::max(last + kMulticastApart, held_until(link, record.askers[index_of(protocol)]));
}

// When the first of the protocols over which the record is due may have it.
Time next_answer_at(const Link& link, const OwnedRecord& record) {
  Time at = kNever;
  for (const Protocols protocol : kEachProtocol) {
    if (record.answer_over & protocol) {
      at = std::min(at, may_be_sent_at(link, record, protocol));
    }
  }
  return at;
}

// The record is to be sent to the group at `at`, or sooner if it is due already; but not before it may be.
void answer_at(Link& link, OwnedRecord& record, Protocols protocols, std::uint32_t asker, Time at) {
  for (const Protocols protocol : kEachProtocol) {
    if (protocols & protocol) {
      std::uint32_t& known = record.askers[index_of(protocol)];
      known = (record.answer_over & protocol) != 0 && known != asker ? kSeveral : asker;
    }
  }
  const Time before = record.answer_over != kNoProtocol ? record.answer.at : kNever;
  record.answer_over = static_cast<std::uint8_t>(record.answer_over | protocols);
  if (record.rescue_over != kNoProtocol && before != kNever) {
    return;  // its time was chosen with care
  }
  link.responder.due.set(record, std::max(std::min(at, before), next_answer_at(link, record)));
}

// Whether the group has heard the record lately enough for the asker to have it said directly (RFC 6762 section 5.4).
bool was_multicast_lately(const Link& link, const OwnedRecord& record, Protocols protocol) {
  return record.multicast_at[index_of(protocol)] > link.now - static_cast<Time>(record.ttl) * kSecond / 4;
}

bool has_room_for_replies(const Link& link, const Asking& asking) {
  const Responder& responder = link.responder;
  return responder.replies.size() < kRepliesMax && !outbox_is_crowded(link) &&
         responder.replied_records + asking.reply.records.size() < kRepliedRecordsMax;
}

// One record is an answer, to a question that wants it directly or not, or to a probe.
void answer(Link& link, Asking& asking, OwnedRecord& record, bool wants_direct, bool is_probe) {
  if (record.known_in == link.responder.queries && !asking.is_legacy) {
    return;
  }
  const Protocols protocol = asking.received.source.protocol;
  const bool is_lately = was_multicast_lately(link, record, protocol);
  if ((asking.is_legacy || (wants_direct && (is_probe || is_lately))) && has_room_for_replies(link, asking)) {
    if (record.replied_in != link.responder.queries) {
      record.replied_in = link.responder.queries;
      asking.reply.records.push_back(&record);
    }
    if (asking.is_legacy || is_lately) {
      return;
    }
  }
  if (asking.is_legacy) {
    return;
  }
  if (is_probe) {
    record.defend_over = static_cast<std::uint8_t>(record.defend_over | protocol);
  }
  answer_at(link, record, protocol, asking.asker, link.now + (is_probe ? 0 : asking.delay));
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
  const NameEntry* name = name_find(link, question.name);
  const bool is_class = question.klass == kClassIn || question.klass == kClassAny;
  if (name == nullptr || name->owned == nullptr || !is_class || is_asked_enough(link, *name->owned)) {
    return;
  }
  const bool wants_direct = asking.received.is_local && (question.unicast_response || !asking.received.to_group);
  const bool is_probe = name->owned->proposed_in == link.responder.queries && question.type == kTypeAny;
  bool has_any = false;
  for (OwnedRecord* record : name->owned->records) {
    ++link.steps;
    if (matches(*record, question.type)) {
      has_any = true;
      answer(link, asking, *record, wants_direct, is_probe);
    }
  }
  OwnedRecord* denial = has_any ? nullptr : zone_denial(*name->owned);
  if (denial != nullptr) {
    answer(link, asking, *denial, wants_direct, is_probe);
  }
}

// Whether nobody else can have answers to any question of the message.
bool is_ours_alone(const Link& link, const Message& message) {
  return std::ranges::all_of(message.questions, [&](const Question& question) {
    const NameEntry* name = name_find(link, question.name);
    return name != nullptr && name->owned != nullptr && name->owned->state == NameState::owned;
  });
}

// RFC 6762 sections 6, 6.3 and 7.2.
Time delay_of(Link& link, const Message& message) {
  if (message.is_truncated) {
    return random_between(link.random, kTruncatedDelayLeast, kTruncatedDelayMost);
  }
  if (message.questions.size() == 1 && is_ours_alone(link, message)) {
    return 0;
  }
  // What becomes due at about the same time shares packets (RFC 6762 section 6.4).
  Time& together_at = link.responder.together_at;
  if (together_at < link.now + kDelayLeast || together_at > link.now + kDelayMost) {
    together_at = link.now + random_between(link.random, kDelayLeast, kDelayMost);
  }
  return together_at - link.now;
}

void queue_reply(Link& link, Asking& asking) {
  DirectReply& reply = asking.reply;
  if (reply.records.empty()) {
    return;
  }
  for (OwnedRecord* record : reply.records) {
    ++record->in_replies;
  }
  reply.to = asking.received.source;
  reply.is_legacy = asking.is_legacy;
  if (reply.is_legacy) {
    reply.id = asking.message.id;
    reply.questions = asking.message.questions;
  }
  reply.at = link.now + asking.delay;
  link.responder.replied_records += reply.records.size();
  link.responder.replies.push_back(std::move(reply));
}

// Another host says what is ours with another TTL, or takes it back: it is said again, with all else of that kind.
void correct(Link& link, OwnedRecord& record, std::uint32_t ttl) {
  Responder& responder = link.responder;
  if (responder.rescue_at <= link.now) {
    responder.rescue_at = link.now + random_between(link.random, kDelayLeast, kDelayMost);
  }
  answer_at(link, record, link.protocols, kSeveral, responder.rescue_at);
  if (ttl <= 1 && record.rescue_over == kNoProtocol) {
    const Time allowed = last_multicast(link, record) + kMulticastApart;
    record.rescue_over = static_cast<std::uint8_t>(link.protocols);
    responder.due.set(record, std::max(responder.rescue_at, std::min(allowed, link.now + kRescuedWithin)));
  }
}

// Which protocols the record goes out over now; if it has to wait for others, its next time is set.
Protocols take_turn(Link& link, OwnedRecord& record) {
  Protocols over = kNoProtocol;
  for (const Protocols protocol : kEachProtocol) {
    if ((record.answer_over & protocol) != 0 && may_be_sent_at(link, record, protocol) <= link.now) {
      over |= protocol;
    }
  }
  if ((record.answer_over & ~over) == 0) {
    link.responder.due.set(record, kNever);
  } else {
    record.answer_over = static_cast<std::uint8_t>(record.answer_over & ~over);
    link.responder.due.set(record, std::max(next_answer_at(link, record), link.now + 1));
    record.answer_over = static_cast<std::uint8_t>(record.answer_over | over);
  }
  return over;
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

void send_replies(Link& link) {
  std::deque<DirectReply>& replies = link.responder.replies;
  for (std::size_t left = replies.size(); left > 0; --left) {
    DirectReply reply = std::move(replies.front());
    replies.pop_front();
    if (reply.at > link.now) {
      replies.push_back(std::move(reply));
      continue;
    }
    for (OwnedRecord* record : reply.records) {
      --record->in_replies;
    }
    send_reply(link, reply);
  }
  link.responder.replied_records = 0;
  for (const DirectReply& reply : replies) {
    link.responder.replied_records += reply.records.size();
  }
}

}  // namespace

void responder_receive(Link& link, const Message& message, const Received& received) {
  ++link.responder.queries;
  Asking asking{message, received, asker_of(link, received.source), received.source.port != kPort, 0, {}};
  mark_known_answers(link, message);
  if (message.is_truncated) {
    hold_answers(link, asking);
  }
  if (message.questions.empty()) {
    drop_known_answers(link, asking);
    return;
  }
  mark_proposed_names(link, message);
  asking.delay = asking.is_legacy ? 0 : delay_of(link, message);
  for (const Question& question : message.questions) {
    ++link.steps;
    answer_question(link, asking, question);
  }
  queue_reply(link, asking);
}

void responder_receive_record(Link& link, const Record& record, Protocols protocol) {
  const NameEntry* name = name_find(link, record.name);
  OwnedRecord* own = name == nullptr || name->owned == nullptr ? nullptr : zone_find(link, {name, record.type, record.rdata});
  if (own == nullptr || !own->is_live) {
    return;
  }
  if (std::uint64_t{2} * record.ttl < own->ttl) {
    correct(link, *own, record.ttl);
  } else if (record.ttl >= own->ttl && own->answer_over != kNoProtocol) {
    cancel_answer(link, *own, protocol);
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

void responder_stop(Link& link, OwnedRecord& record) {
  cancel_answer(link, record, kBothProtocols);
  if (record.in_replies == 0) {
    return;
  }
  for (DirectReply& reply : link.responder.replies) {
    std::erase(reply.records, &record);
  }
  record.in_replies = 0;
}

void responder_advance(Link& link) {
  if (!link.responder.replies.empty()) {
    send_replies(link);
  }
  if (link.responder.due.next() > link.now) {
    return;
  }
  const std::vector<DueAnswer> answers = take_due(link);
  for (const Protocols over : {kBothProtocols, kIpv4, kIpv6}) {
    send_answers(link, answers, over);
  }
}

Time responder_deadline(const Link& link) {
  Time at = link.responder.due.next();
  for (const DirectReply& reply : link.responder.replies) {
    at = std::min(at, reply.at);
  }
  return at;
}

}  // namespace mdns
