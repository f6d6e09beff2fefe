// SPDX-License-Identifier: MIT
#include "mdns/querier.h"

#include <algorithm>

#include "mdns/link.h"
#include "mdns/writer.h"

namespace mdns {
namespace {

// RFC 6762 section 5.2.
constexpr Time kFirstAfterLeast = 20 * kMillisecond;
constexpr Time kFirstAfterMost = 120 * kMillisecond;
constexpr Time kFirstInterval = kSecond;
constexpr Time kLongestInterval = 3600 * kSecond;
constexpr Time kAskedApart = kSecond;

// What is due within this time shares a packet with what is due now.
constexpr Time kGatheredWithin = 100 * kMillisecond;

// A negative answer (RFC 6762 section 6.1) is believed for no longer.
constexpr std::uint32_t kDenialTtlMax = kHostTtl;

// What is left of a packet for known answers when it takes another question (RFC 6762 section 7.1).
constexpr std::size_t kRoomForAnswers = 400;

// What one packet asks, and over which protocols.
struct Asked {
  OpenQuestion* question = nullptr;
  Protocols over = kNoProtocol;
};

void set_due(Link& link, OpenQuestion& question) {
  const Time at = question.urgent != kNoProtocol ? link.now : question.regular_at;
  link.querier.due.set(question, question.asking == 0 ? kNever : at);
}

void start_series(Link& link, OpenQuestion& question) {
  question.asked_at = kLongAgo;
  question.heard = kNoProtocol;
  question.regular_at = link.now + random_between(link.random, kFirstAfterLeast, kFirstAfterMost);
  set_due(link, question);
}

// The protocols of the set over which the RRset has not been asked for within the last second.
Protocols may_be_asked_over(const Link& link, const RRset& rrset, Protocols protocols) {
  for (const Protocols protocol : kEachProtocol) {
    if (rrset.asked_at[index_of(protocol)] > link.now - kAskedApart) {
      protocols &= ~protocol;
    }
  }
  return protocols;
}

Time may_be_asked_at(const RRset& rrset) { return std::max(rrset.asked_at[0], rrset.asked_at[1]) + kAskedApart; }

// The regular question is asked now, or another host's counts in its place.
void go_on_in_series(Link& link, OpenQuestion& question) {
  const bool is_first = question.asked_at == kLongAgo;
  const Time interval = is_first ? kFirstInterval : std::min(2 * (link.now - question.asked_at), kLongestInterval);
  question.asked_at = link.now;
  question.regular_at = link.now + interval + kGatheredWithin;  // so that it is not too early when it joins others
  question.heard = kNoProtocol;
}

void note_asked(const Link& link, RRset& rrset, Protocols over) {
  for (const Protocols protocol : kEachProtocol) {
    if (over & protocol) {
      rrset.asked_at[index_of(protocol)] = outbox_send_time(link);
    }
  }
}

// The question is due: over which protocols it is to be asked, as far as it may be. Its next time is set.
Protocols take_turn(Link& link, OpenQuestion& question) {
  Protocols wanted = question.urgent;
  const bool is_regular = question.regular_at <= link.now + kGatheredWithin;
  if (is_regular) {
    wanted |= link.protocols & ~question.heard;
  }
  wanted &= link.protocols;
  const Protocols over = may_be_asked_over(link, *question.rrset, wanted);
  if (over != wanted) {
    link.querier.due.set(question, std::max(may_be_asked_at(*question.rrset), link.now + 1));
    question.urgent = wanted & ~over;
    if (over == kNoProtocol) {
      return kNoProtocol;
    }
  } else {
    question.urgent = kNoProtocol;
  }
  if (is_regular) {
    go_on_in_series(link, question);
  }
  note_asked(link, *question.rrset, over);
  if (question.urgent == kNoProtocol) {
    set_due(link, question);
  }
  return over;
}

// All that is due, or soon will be, taken in turn.
std::vector<Asked> take_due(Link& link) {
  std::vector<Asked> asked;
  Heap<OpenQuestion, &OpenQuestion::due>& due = link.querier.due;
  if (due.next() > link.now) {
    return asked;
  }
  std::vector<OpenQuestion*> candidates;
  while (due.next() <= link.now + kGatheredWithin) {
    candidates.push_back(due.first());
    due.set(*due.first(), kNever);
  }
  for (OpenQuestion* question : candidates) {
    ++link.steps;
    const Protocols over = take_turn(link, *question);
    if (over != kNoProtocol) {
      asked.push_back({question, over});
    }
  }
  return asked;
}

// Whether the entry is to be listed as a known answer: at least half of its lifetime is left (RFC 6762 section 7.1). Null: no.
bool is_known_answer(const Link& link, const CacheEntry* entry) {
  if (entry == nullptr || entry->is_leaving || entry->is_doubted) {
    return false;
  }
  const Time left = entry->expires - link.now;
  return left >= kSecond && 2 * left > static_cast<Time>(entry->ttl) * kSecond;
}

// The packets of a few questions with what is known of their answers (RFC 6762 sections 7.1 and 7.2).
struct QueryPackets {
  Link& link;
  Protocols over;
  Writer writer;
  std::vector<RRset*> asked;  // in the packet in hand

  void write_known(const RRset& rrset, std::uint32_t ttl, std::string_view rdata) {
    if (!writer_add_record(writer, Section::answers, rrset.name->name, rrset.type, ttl, false, rdata)) {
      writer_set_truncated(writer);
      outbox_add(link, writer_take(writer), over);
      writer_begin(writer, false);
      writer_add_record(writer, Section::answers, rrset.name->name, rrset.type, ttl, false, rdata);
    }
  }

  // What is published here is known as well.
  void add_own(const RRset& rrset) {
    if (rrset.name->owned == nullptr) {
      return;
    }
    for (const OwnedRecord* record : rrset.name->owned->records) {
      ++link.steps;
      if (record->type == rrset.type && record->is_live && cache_find(link, key_of(*record)) == nullptr) {
        write_known(rrset, record->ttl, record->rdata);
      }
    }
  }

  void add_known(const RRset& rrset) {
    for (const CacheEntry* entry = rrset.first; entry != nullptr; entry = entry->next) {
      ++link.steps;
      if (!is_known_answer(link, entry)) {
        continue;
      }
      const Time left = (entry->expires - link.now) / kSecond;
      write_known(rrset, static_cast<std::uint32_t>(std::min<Time>(left, entry->ttl)), entry->rdata);
    }
    add_own(rrset);
  }

  void finish() {
    for (RRset* rrset : asked) {
      note_asked(link, *rrset, over);
      add_known(*rrset);
    }
    asked.clear();
    if (!writer_is_empty(writer)) {
      outbox_add(link, writer_take(writer), over);
    }
    writer_begin(writer, false);
  }

  void add(RRset& rrset) {
    const bool wants_room = (rrset.count > 0 || rrset.name->owned != nullptr) &&
                            writer.bytes.size() + rrset.name->name.size() + kRoomForAnswers > writer.max;
    if ((wants_room && !asked.empty()) || !writer_add_question(writer, rrset.name->name, rrset.type, false)) {
      finish();
      writer_add_question(writer, rrset.name->name, rrset.type, false);
    }
    asked.push_back(&rrset);
  }
};

void send_questions(Link& link, const std::vector<Asked>& asked, Protocols over) {
  QueryPackets packets{link, over, {}, {}};
  writer_begin(packets.writer, false);
  for (const Asked& one : asked) {
    if (one.over == over) {
      packets.add(*one.question->rrset);
    }
  }
  packets.finish();
}

// Marks the questions of which the query lists an answer that we do not know: it is another question than ours (RFC 6762
// section 7.3).
void mark_unknown_answers(Link& link, const Message& message) {
  ++link.querier.received;
  for (const Record& record : message.answers) {
    ++link.steps;
    const NameEntry* name = name_find(link, record.name);
    const RRset* rrset = name == nullptr ? nullptr : rrset_find(*name, record.type);
    const RecordKey key = {name, record.type, record.rdata};
    if (rrset != nullptr && rrset->question != nullptr && !is_known_answer(link, cache_find(link, key)) &&
        !zone_reports(link, key)) {
      rrset->question->unknown_in = link.querier.received;
    }
  }
}

// Another host asks what we ask. Counts in place of our next question once half of the interval before it is over.
void note_duplicate(Link& link, OpenQuestion& question, Protocols protocol) {
  Time& asked_at = question.rrset->asked_at[index_of(protocol)];
  asked_at = std::max(asked_at, link.now);
  const Time half = question.asked_at == kLongAgo ? 0 : (question.regular_at - question.asked_at) / 2;
  if (question.regular_at != kNever && question.regular_at - link.now <= std::max(half, kFirstAfterMost)) {
    question.heard |= protocol;
  }
  question.urgent &= ~protocol;
  set_due(link, question);
}

}  // namespace

QueryId query_start(Link& link, Time now, std::string_view name, std::uint16_t type, std::uint64_t tag, Interest interest) {
  link.now = now;
  RRset& rrset = rrset_get(link, name_get(link, name), type);
  if (rrset.question == nullptr) {
    rrset.question = new OpenQuestion;
    rrset.question->rrset = &rrset;
    ++link.querier.questions;
  }
  OpenQuestion& question = *rrset.question;
  const Query query = {++link.last_id, tag, interest == Interest::asking};
  question.queries.push_back(query);
  link.querier.by_id.emplace(query.id, &question);
  if (query.asks && ++question.asking == 1) {
    cache_wanted_changed(link, rrset);
    start_series(link, question);
    question_review(link, question);
  }
  for (const CacheEntry* entry = rrset.first; entry != nullptr; entry = entry->next) {
    ++link.steps;
    link.events.push_back({Event::Kind::added, query.id, tag, type, entry->ttl, entry->rdata, entry->said_by});
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
  std::erase_if(link.events, [id](const Event& event) { return event.id == id; });
  const auto query = std::ranges::find(question.queries, id, &Query::id);
  const bool asked = query->asks;
  question.queries.erase(query);
  RRset& rrset = *question.rrset;
  if (asked && --question.asking == 0) {
    question.regular_at = kNever;
    link.querier.due.set(question, kNever);
    cache_wanted_changed(link, rrset);
  }
  if (question.queries.empty()) {
    rrset.question = nullptr;
    --link.querier.questions;
    delete &question;
    rrset_release(link, rrset);
  }
}

bool is_asked(const RRset& rrset) { return rrset.question != nullptr && rrset.question->asking > 0; }

void question_ask_soon(Link& link, OpenQuestion& question, Protocols protocols) {
  question.urgent |= protocols & link.protocols;
  set_due(link, question);
}

void question_ask_no_more(Link& link, OpenQuestion& question) {
  question.urgent = kNoProtocol;
  set_due(link, question);
}

void question_review(Link& link, OpenQuestion& question) {
  if (question.asking == 0) {
    return;
  }
  const RRset& rrset = *question.rrset;
  const bool has_answer = cache_has_unique_answer(rrset) || zone_has_unique(*rrset.name, rrset.type);
  if (has_answer && question.regular_at != kNever) {
    question.regular_at = kNever;
    question.urgent = kNoProtocol;
    set_due(link, question);
  } else if (!has_answer && question.regular_at == kNever) {
    start_series(link, question);
  }
}

void question_restart(Link& link, OpenQuestion& question) {
  if (question.asking > 0) {
    start_series(link, question);
  }
}

void querier_restart(Link& link) {
  for (const auto& [id, question] : link.querier.by_id) {
    question->rrset->asked_at = {kLongAgo, kLongAgo};
    if (question->asking > 0) {
      start_series(link, *question);
    }
  }
}

void querier_receive(Link& link, const Message& message, Protocols protocol) {
  mark_unknown_answers(link, message);
  for (const Question& asked : message.questions) {
    ++link.steps;
    NameEntry* name = asked.unicast_response || asked.klass != kClassIn ? nullptr : name_find(link, asked.name);
    RRset* rrset = name == nullptr ? nullptr : rrset_find(*name, asked.type);
    if (rrset == nullptr) {
      continue;
    }
    if (message.answers.empty() && !message.is_truncated && message.authorities.empty()) {
      cache_others_asked(link, *rrset);
    }
    const bool is_ours = is_asked(*rrset) && rrset->question->unknown_in != link.querier.received;
    if (is_ours && !message.is_truncated) {
      note_duplicate(link, *rrset->question, protocol);
    }
  }
}

void querier_report(Link& link, const RRset& rrset, Event::Kind kind, std::uint32_t ttl, std::string_view rdata,
                    std::array<std::uint32_t, 2> said_by) {
  for (const Query& query : rrset.question->queries) {
    ++link.steps;
    if (kind == Event::Kind::renewed && query.asks) {
      continue;
    }
    link.events.push_back({kind, query.id, query.tag, rrset.type, ttl, std::string(rdata), said_by});
  }
}

void querier_receive_denial(Link& link, const Record& record) {
  const NameEntry* name = name_find(link, record.name);
  if (name == nullptr || !record.cache_flush) {
    return;
  }
  for (const RRset* rrset : name->rrsets) {
    ++link.steps;
    OpenQuestion* question = rrset->question;
    if (question == nullptr || rrset->count > 0 || question->regular_at == kNever || denial_lists(record.rdata, rrset->type)) {
      continue;
    }
    const Time until = link.now + std::min(record.ttl, kDenialTtlMax) * kSecond;
    question->asked_at = kLongAgo;
    question->regular_at = std::max(question->regular_at, until);
    set_due(link, *question);
  }
}

void querier_advance(Link& link) {
  const std::vector<Asked> asked = take_due(link);
  if (asked.empty()) {
    return;
  }
  for (const Protocols over : {kBothProtocols, kIpv4, kIpv6}) {
    send_questions(link, asked, over);
  }
}

Time querier_deadline(const Link& link) { return link.querier.due.next(); }

void querier_free(Link& link) {
  for (const auto& [key, name] : link.names) {
    for (const RRset* rrset : name->rrsets) {
      delete rrset->question;
    }
  }
}

}  // namespace mdns
