// SPDX-License-Identifier: MIT
// The packets that answers go out in.
#include <algorithm>

#include "mdns/link.h"
#include "mdns/writer.h"

namespace mdns {
namespace {

constexpr std::uint32_t kLegacyTtlMax = 10;  // seconds (RFC 6762 section 6.7)

// Who is given more answers than this picks from them and asks for what was picked: additional records for all would be
// several packets for each one.
constexpr std::size_t kAdditionalForAtMost = 200;

// A batch of records on its way into packets; each goes into it once.
struct Batch {
  Link& link;
  Protocols over;
  std::vector<OwnedRecord*> answers;
  std::vector<OwnedRecord*> additionals;
};

void add_once(Batch& batch, std::vector<OwnedRecord*>& list, OwnedRecord& record) {
  if (record.packed_in != batch.link.responder.batches) {
    record.packed_in = batch.link.responder.batches;
    list.push_back(&record);
  }
}

// The record with the rest of its RRset, if that is ours alone. A rescue goes without what everybody has just heard and keeps.
void add_rrset(Batch& batch, std::vector<OwnedRecord*>& list, OwnedRecord& record) {
  add_once(batch, list, record);
  if (!record.is_unique || record.type == kTypeNsec) {
    return;
  }
  const bool is_rescue = (record.rescue_over & batch.over) != 0;
  for (OwnedRecord* other : record.owner->records) {
    const bool is_kept = is_rescue && was_multicast_since(*other, batch.over, batch.link.now - kFlushSpares);
    if (other->type == record.type && other->is_unique && other->is_live && !is_kept) {
      add_once(batch, list, *other);
    }
  }
}

bool was_just_multicast(const Batch& batch, const OwnedRecord& record) {
  return rrset_multicast_at(record, batch.over) > batch.link.now - kSecond;
}

// What is live of the name and one of both types goes along, and what surely is not there is denied.
void add_along(Batch& batch, std::string_view name, std::uint16_t type, std::uint16_t other_type) {
  OwnedName* owned = owned_find(batch.link, name);
  if (owned == nullptr) {
    return;
  }
  bool has_type = false;
  bool has_other = false;
  for (OwnedRecord* record : owned->records) {
    ++batch.link.steps;
    has_type = has_type || record->type == type;
    has_other = has_other || record->type == other_type;
    const bool is_wanted = record->type == type || record->type == other_type;
    if (is_wanted && record->is_live && !was_just_multicast(batch, *record)) {
      add_rrset(batch, batch.additionals, *record);
    }
  }
  OwnedRecord* denial = type == kTypeA && has_type != has_other ? zone_denial(*owned) : nullptr;
  if (denial != nullptr && !was_just_multicast(batch, *denial)) {
    add_once(batch, batch.additionals, *denial);
  }
}

bool is_address(const OwnedRecord& record) { return record.type == kTypeA || record.type == kTypeAaaa; }

// RFC 6762 section 6.2, RFC 6763 section 12.
void add_what_belongs_to(Batch& batch, const OwnedRecord& record) {
  if (record.type == kTypePtr) {
    add_along(batch, target_of(record.type, record.rdata), kTypeSrv, kTypeTxt);
  } else if (record.type == kTypeSrv) {
    add_along(batch, target_of(record.type, record.rdata), kTypeA, kTypeAaaa);
  } else if (is_address(record)) {
    add_along(batch, name_of(record), kTypeA, kTypeAaaa);
  }
}

// What an answer brings may bring more: an instance its host. All addresses of a host bring the same, and what was brought by one
// of them brings nothing else.
void collect_additionals(Batch& batch) {
  if (batch.answers.size() > kAdditionalForAtMost) {
    return;
  }
  const OwnedRecord* last = nullptr;
  for (const OwnedRecord* record : batch.answers) {
    if (last == nullptr || last->owner != record->owner || !is_address(*last) || !is_address(*record)) {
      add_what_belongs_to(batch, *record);
    }
    last = record;
  }
  for (std::size_t i = 0; i < batch.additionals.size(); ++i) {  // the list grows
    if (batch.additionals[i]->type == kTypeSrv) {
      add_what_belongs_to(batch, *batch.additionals[i]);
    }
  }
}

// Writes the record into the packet in hand, or into the next one. In a packet of its own an additional record is an answer:
// nobody would look for a response without one.
void write_or_flush(Batch& batch, Writer& writer, Section section, OwnedRecord& record) {
  const std::string_view name = name_of(record);
  ++batch.link.steps;
  if (!writer_add_record(writer, section, name, record.type, record.ttl, record.is_unique, record.rdata)) {
    if (!writer_is_empty(writer)) {
      outbox_add(batch.link, writer_take(writer), batch.over);
      writer_begin(writer, true);
    }
    if (!writer_add_record(writer, Section::answers, name, record.type, record.ttl, record.is_unique, record.rdata)) {
      return;  // more than any packet holds
    }
  }
  record_was_multicast(batch.link, record, batch.over, outbox_send_time(batch.link));
}

// A reply to one host on its way into packets.
struct Reply {
  Link& link;
  const PendingQuery& query;
  bool is_legacy;
  Writer writer;

  void begin() {
    writer_begin(writer, true, is_legacy ? query.message.id : std::uint16_t{0});
    writer.compresses_srv = !is_legacy;
    for (const Question& question : query.message.questions) {
      if (is_legacy) {
        writer_add_question(writer, question.name, question.type, false, question.klass);
      }
    }
  }

  // Whether the record went into the packet.
  bool add(Section section, const OwnedRecord& record) {
    const std::uint32_t ttl = is_legacy ? std::min(record.ttl, kLegacyTtlMax) : record.ttl;
    return writer_add_record(writer, section, name_of(record), record.type, ttl, record.is_unique && !is_legacy, record.rdata);
  }

  // The same in another packet. An ordinary resolver reads one only: false.
  bool add_to_next(const OwnedRecord& record) {
    if (is_legacy) {
      return false;
    }
    outbox_add(link, writer_take(writer), kNoProtocol, query.from.source);
    begin();
    return add(Section::answers, record);
  }
};

void write_answers(Reply& reply, const std::vector<OwnedRecord*>& answers) {
  for (const OwnedRecord* record : answers) {
    if (!reply.add(Section::answers, *record) && !reply.add_to_next(*record) && reply.is_legacy) {
      writer_set_truncated(reply.writer);  // the resolver asks again over TCP in vain, and takes what it has
      return;
    }
  }
}

// As many as there is room for, and the rest of an RRset that has begun: its cache-flush bit would take away what is missing
// (RFC 6762 section 10.2).
void write_additionals(Reply& reply, const std::vector<OwnedRecord*>& additionals) {
  const OwnedRecord* last = nullptr;
  for (const OwnedRecord* record : additionals) {
    const bool is_rest = last != nullptr && last->is_unique && last->owner == record->owner && last->type == record->type;
    if (!reply.add(Section::additionals, *record) && !(is_rest && reply.add_to_next(*record))) {
      return;
    }
    last = record;
  }
}

}  // namespace

void send_answers(Link& link, const std::vector<DueAnswer>& answers, Protocols over) {
  Batch batch{link, over, {}, {}};
  ++link.responder.batches;
  for (const DueAnswer& answer : answers) {
    // What an earlier packet has taken along is due no longer.
    if ((answer.over & answer.record->answer_over) == over) {
      add_rrset(batch, batch.answers, *answer.record);
    }
  }
  if (batch.answers.empty()) {
    return;
  }
  collect_additionals(batch);
  Writer writer;
  writer_begin(writer, true);
  for (OwnedRecord* record : batch.answers) {
    write_or_flush(batch, writer, Section::answers, *record);
  }
  for (OwnedRecord* record : batch.additionals) {
    write_or_flush(batch, writer, writer.counts[0] + writer.counts[1] == 0 ? Section::answers : Section::additionals, *record);
  }
  if (!writer_is_empty(writer)) {
    outbox_add(link, writer_take(writer), over);
  }
}

void send_reply(Link& link, const PendingQuery& query, const std::vector<OwnedRecord*>& answers) {
  Batch batch{link, kNoProtocol, {}, {}};
  ++link.responder.batches;
  for (OwnedRecord* record : answers) {
    add_rrset(batch, batch.answers, *record);
  }
  collect_additionals(batch);
  Reply reply{link, query, is_legacy(query), {}};
  reply.begin();
  write_answers(reply, batch.answers);
  write_additionals(reply, batch.additionals);
  outbox_add(link, writer_take(reply.writer), kNoProtocol, query.from.source);
}

}  // namespace mdns
