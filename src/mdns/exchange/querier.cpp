// SPDX-License-Identifier: MIT
#include "mdns/exchange/querier.h"

#include <algorithm>

#include "mdns/schedule/outbox.h"
#include "mdns/schedule/questions.h"
#include "mdns/state/lookup.h"
#include "mdns/store/cache.h"
#include "mdns/store/zone.h"
#include "mdns/wire/writer.h"

namespace mdns {
namespace {

// RFC 6762 section 5.2.
constexpr Time kFirstInterval = kSecond;
constexpr Time kLongestInterval = 3600 * kSecond;

// Questions that are due within this time are sent in the same packet as those that are due now.
constexpr Time kGatheredWithin = 100 * kMillisecond;

// Upper bound of the TTL of a negative answer (RFC 6762 section 6.1).
constexpr std::uint32_t kDenialTtlMax = kHostTtl;

// Bytes of a packet that are kept free for known answers when a question is added to it (RFC 6762 section 7.1).
constexpr std::size_t kRoomForAnswers = 400;

// The protocols over which the question, which is due, is to be sent now: not those over which another host has sent
// its duplicate; those over which it was sent within the last second have to wait. Sets the question's next deadline.
Protocols take_question_protocols(Link& link, OpenQuestion& question) {
  const bool is_regular = question.regular_at <= link.now + kGatheredWithin;
  const Protocols wanted = (question.urgent | (is_regular ? ~question.asked_by_others : kNoProtocol)) & link.protocols;
  Protocols over = wanted;
  for (const Protocols protocol : kEachProtocol) {
    if (question.asked_at[index_of(protocol)] > link.now - kAskedApart) {
      over &= ~protocol;
    }
  }
  if (is_regular && (over != kNoProtocol || wanted == kNoProtocol)) {
    const bool is_first = question.interval_since == kLongAgo;
    const Time interval =
        is_first ? kFirstInterval : std::min(2 * (link.now - question.interval_since), kLongestInterval);
    question.interval_since = link.now;
    question.regular_at = link.now + interval + kGatheredWithin;  // it may be sent this much earlier with others
    question.asked_by_others = kNoProtocol;
  }
  question.urgent = wanted & ~over;
  if (question.urgent == kNoProtocol) {
    question_plan(link, question);
  } else {
    link.querier.due.set(question, std::max(may_be_asked_at(question), link.now + 1));
  }
  return over;
}

// Whether the entry is to be listed as a known answer: at least half of its TTL is left (RFC 6762 section 7.1). False
// for null.
bool is_known_answer(const Link& link, const CacheEntry* entry) {
  if (entry == nullptr || entry->limit != Limit::none) {
    return false;
  }
  const Time left = entry->expires - link.now;
  return left >= kSecond && 2 * left > static_cast<Time>(entry->ttl) * kSecond;
}

// The packets of some questions with their known answers (RFC 6762 sections 7.1 and 7.2).
struct QueryPackets {
  Link& link;
  Protocols over;
  Writer writer;
  std::vector<OpenQuestion*> asked;  // in the present packet
};

void write_known_answer(QueryPackets& packets, const RRset& rrset, std::uint32_t ttl, std::string_view rdata) {
  Writer& writer = packets.writer;
  if (!writer_add_record(writer, Section::answers, rrset.name->name, rrset.type, ttl, false, rdata)) {
    writer_set_truncated(writer);
    outbox_add(packets.link, writer, packets.over);
    writer_add_record(writer, Section::answers, rrset.name->name, rrset.type, ttl, false, rdata);
  }
}

// Both cached records and records that the link itself publishes are known answers.
void write_known_answers(QueryPackets& packets, const RRset& rrset) {
  Link& link = packets.link;
  for (const CacheEntry& entry : rrset.entries) {
    ++link.steps;
    if (is_known_answer(link, &entry)) {
      const Time left = (entry.expires - link.now) / kSecond;
      write_known_answer(packets, rrset, static_cast<std::uint32_t>(std::min<Time>(left, entry.ttl)), entry.rdata);
    }
  }
  if (rrset.name->owned == nullptr) {
    return;
  }
  for (const OwnedRecord* record : rrset.name->owned->records) {
    ++link.steps;
    if (record->type == rrset.type && record->is_live && !is_known_answer(link, cache_find(link, key_of(*record)))) {
      write_known_answer(packets, rrset, record->ttl, record->rdata);
    }
  }
}

// Adds the known answers of the packet's questions and queues it.
void finish_packet(QueryPackets& packets) {
  for (OpenQuestion* question : std::exchange(packets.asked, {})) {
    for (const Protocols protocol : kEachProtocol) {
      if (packets.over & protocol) {
        question->asked_at[index_of(protocol)] = outbox_send_time(packets.link);
      }
    }
    write_known_answers(packets, *question->rrset);
  }
  outbox_add(packets.link, packets.writer, packets.over);
}

void add_question(QueryPackets& packets, OpenQuestion& question) {
  const RRset& rrset = *question.rrset;
  const std::string& name = rrset.name->name;
  Writer& writer = packets.writer;
  const bool wants_room = (!rrset.entries.empty() || rrset.name->owned != nullptr) &&
                          writer.bytes.size() + name.size() + kRoomForAnswers > writer.max;
  if ((wants_room && !packets.asked.empty()) || !writer_add_question(writer, name, rrset.type, false)) {
    finish_packet(packets);
    writer_add_question(writer, name, rrset.type, false);
  }
  packets.asked.push_back(&question);
}

// Marks the questions for which the query lists a known answer that ours would not list: such a question is no
// duplicate of ours (RFC 6762 section 7.3).
void mark_unknown_answers(Link& link, const Message& message) {
  ++link.querier.received;
  for (const Record& record : message.answers) {
    ++link.steps;
    const RecordKey key = {name_find(link, record.name), record.type, record.rdata};
    const RRset* rrset = key.name == nullptr ? nullptr : rrset_find(*key.name, record.type);
    if (rrset != nullptr && rrset->question != nullptr && !is_known_answer(link, cache_find(link, key)) &&
        !zone_reports(link, key)) {
      rrset->question->unknown_in = link.querier.received;
    }
  }
}

// Another host has sent the same question as ours. It replaces our next regular one if at least half of the interval
// before that is over.
void note_duplicate(Link& link, OpenQuestion& question, Protocols protocol) {
  Time& asked_at = question.asked_at[index_of(protocol)];
  asked_at = std::max(asked_at, link.now);
  const Time half = question.interval_since == kLongAgo ? 0 : (question.regular_at - question.interval_since) / 2;
  if (question.regular_at != kNever && question.regular_at - link.now <= std::max(half, kFirstAskedAfterMost)) {
    question.asked_by_others |= protocol;
  }
  question.urgent &= ~protocol;
  question_plan(link, question);
}

}  // namespace

QueryId query_start(Link& link, Time now, std::string_view name, std::uint16_t type, std::uint64_t tag,
                    Interest interest) {
  link.now = now;
  RRset& rrset = rrset_get(name_get(link, name), type);
  if (rrset.question == nullptr) {
    rrset.question = std::make_unique<OpenQuestion>();
    rrset.question->rrset = &rrset;
  }
  OpenQuestion& question = *rrset.question;
  link.querier.questions += question.queries.empty() ? 1 : 0;
  const Query query = {++link.last_id, tag, interest == Interest::asking};
  question.queries.push_back(query);
  link.querier.by_id.emplace(query.id, &question);
  if (query.asks && ++question.asking == 1) {
    cache_wanted_changed(link, rrset);
    question_restart(link, question);
    rrset_review(link, rrset);
  }
  for (const CacheEntry& entry : rrset.entries) {
    ++link.steps;
    link.events.push_back(
        {Event::Kind::added, query.id, tag, type, entry.ttl, entry.rdata, entry.is_unique, entry.sent_by});
  }
  zone_report_to(link, rrset, query);
  return query.id;
}

void query_stop(Link& link, Time now, QueryId id) {
  link.now = now;
  const auto found = link.querier.by_id.find(id);
  if (found == link.querier.by_id.end()) {
    return;
  }
  OpenQuestion& question = *found->second;
  link.querier.by_id.erase(found);
  const auto query = std::ranges::find(question.queries, id, &Query::id);
  const bool asked = query->asks;
  question.queries.erase(query);
  link.querier.questions -= question.queries.empty() ? 1 : 0;
  if (asked && --question.asking == 0) {
    question.regular_at = kNever;
    question.urgent = kNoProtocol;
    cache_wanted_changed(link, *question.rrset);
  }
  if (question.asking == 0) {
    question_stop(link, question);
  }
}

void querier_restart(Link& link) {
  for (const auto& [id, question] : link.querier.by_id) {
    question->asked_at = {kLongAgo, kLongAgo};
    question_restart(link, *question);
  }
}

void querier_receive(Link& link, const Message& message, Protocols protocol) {
  mark_unknown_answers(link, message);
  for (const Question& asked : message.questions) {
    ++link.steps;
    NameEntry* name = asked.unicast_response || asked.klass != kClassIn ? nullptr : name_find(link, asked.name);
    RRset* rrset = name == nullptr ? nullptr : rrset_find(*name, asked.type);
    if (rrset == nullptr || message.is_truncated) {
      continue;
    }
    if (message.answers.empty() && message.authorities.empty()) {
      cache_others_asked(link, *rrset);
    }
    if (is_asked(*rrset) && rrset->question->unknown_in != link.querier.received) {
      note_duplicate(link, *rrset->question, protocol);
    }
  }
}

void querier_receive_denial(Link& link, const Record& record) {
  const NameEntry* name = name_find(link, record.name);
  if (name == nullptr || !record.cache_flush) {
    return;
  }
  for (const std::unique_ptr<RRset>& rrset : name->rrsets) {
    ++link.steps;
    OpenQuestion* question = rrset->question.get();
    const bool is_open = question != nullptr && rrset->entries.empty() && question->regular_at != kNever;
    if (is_open && !denial_lists(record.rdata, rrset->type)) {
      const Time until = link.now + std::min(record.ttl, kDenialTtlMax) * kSecond;
      question->interval_since = kLongAgo;
      question->regular_at = std::max(question->regular_at, until);
      question_plan(link, *question);
    }
  }
}

void querier_advance(Link& link) {
  Heap<OpenQuestion, &OpenQuestion::due>& due = link.querier.due;
  if (due.next() > link.now) {
    return;
  }
  std::vector<OpenQuestion*> candidates;
  while (due.next() <= link.now + kGatheredWithin) {
    candidates.push_back(due.first());
    due.set(*due.first(), kNever);
  }
  std::vector<std::pair<OpenQuestion*, Protocols>> asked;
  for (OpenQuestion* question : candidates) {
    ++link.steps;
    if (question->asking == 0) {
      question_stop(link, *question);
    } else {
      asked.emplace_back(question, take_question_protocols(link, *question));
    }
  }
  for (const Protocols over : {kBothProtocols, kIpv4, kIpv6}) {
    QueryPackets packets{link, over, writer_new(false), {}};
    for (const auto& [question, its_protocols] : asked) {
      if (its_protocols == over) {
        add_question(packets, *question);
      }
    }
    finish_packet(packets);
  }
}

}  // namespace mdns
