// SPDX-License-Identifier: MIT
#include "mdns/answer_packets.h"

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

// The record with the rest of its RRset, if that is ours alone.
void add_rrset(Batch& batch, std::vector<OwnedRecord*>& list, OwnedRecord& record) {
  add_once(batch, list, record);
  if (!record.is_unique || record.type == kTypeNsec) {
    return;
  }
  for (OwnedRecord* other : record.owner->records) {
    if (other->type == record.type && other->is_unique && other->is_live) {
      add_once(batch, list, *other);
    }
  }
}

bool was_just_multicast(const Batch& batch, const OwnedRecord& record) {
  return std::ranges::any_of(kEachProtocol, [&](Protocols protocol) {
    return (batch.over & protocol) != 0 && rrset_multicast_at(record, protocol) > batch.link.now - kSecond;
  });
}

// What is live of the name and one of both types goes along, and what surely is not there is denied.
void add_along(Batch& batch, std::string_view name, std::uint16_t type, std::uint16_t other_type) {
  const NameEntry* entry = name_find(batch.link, name);
  if (entry == nullptr || entry->owned == nullptr) {
    return;
  }
  bool has_type = false;
  bool has_other = false;
  for (OwnedRecord* record : entry->owned->records) {
    ++batch.link.steps;
    has_type = has_type || record->type == type;
    has_other = has_other || record->type == other_type;
    const bool is_wanted = record->type == type || record->type == other_type;
    if (is_wanted && record->is_live && !was_just_multicast(batch, *record)) {
      add_rrset(batch, batch.additionals, *record);
    }
  }
  const bool is_address = type == kTypeA;
  OwnedRecord* denial = is_address && has_type != has_other ? zone_denial(*entry->owned) : nullptr;
  if (denial != nullptr && !was_just_multicast(batch, *denial)) {
    add_once(batch, batch.additionals, *denial);
  }
}

// RFC 6762 section 6.2, RFC 6763 section 12.
void add_what_belongs_to(Batch& batch, const OwnedRecord& record) {
  if (record.type == kTypePtr) {
    add_along(batch, target_of(record.type, record.rdata), kTypeSrv, kTypeTxt);
  } else if (record.type == kTypeSrv) {
    add_along(batch, target_of(record.type, record.rdata), kTypeA, kTypeAaaa);
  } else if (record.type == kTypeA || record.type == kTypeAaaa) {
    add_along(batch, name_of(record), kTypeA, kTypeAaaa);
  }
}

void collect_additionals(Batch& batch) {
  if (batch.answers.size() > kAdditionalForAtMost) {
    return;
  }
  for (const OwnedRecord* record : batch.answers) {
    add_what_belongs_to(batch, *record);
  }
  for (std::size_t i = 0; i < batch.additionals.size(); ++i) {  // the list grows: an SRV record brings addresses
    add_what_belongs_to(batch, *batch.additionals[i]);
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

std::uint32_t reply_ttl(const DirectReply& reply, const OwnedRecord& record) {
  return reply.is_legacy ? std::min(record.ttl, kLegacyTtlMax) : record.ttl;
}

// Whether the record went into the packet.
bool write_reply_record(Writer& writer, const DirectReply& reply, Section section, const OwnedRecord& record) {
  return writer_add_record(writer, section, name_of(record), record.type, reply_ttl(reply, record),
                           record.is_unique && !reply.is_legacy, record.rdata);
}

void begin_reply(Writer& writer, const DirectReply& reply) {
  writer_begin(writer, true, reply.id);
  writer.compresses_srv = !reply.is_legacy;
  for (const Question& question : reply.questions) {
    writer_add_question(writer, question.name, question.type, false, question.klass);
  }
}

// The reply goes on in another packet. An ordinary resolver reads one only: false.
bool go_on_in_reply(Link& link, Writer& writer, const DirectReply& reply) {
  if (reply.is_legacy) {
    return false;
  }
  outbox_add_reply(link, writer_take(writer), reply.to);
  begin_reply(writer, reply);
  return true;
}

void write_reply_answers(const Batch& batch, Writer& writer, const DirectReply& reply) {
  for (const OwnedRecord* record : batch.answers) {
    if (write_reply_record(writer, reply, Section::answers, *record)) {
      continue;
    }
    if (!go_on_in_reply(batch.link, writer, reply)) {  // the resolver asks again over TCP in vain, and takes what it has
      writer_set_truncated(writer);
      return;
    }
    write_reply_record(writer, reply, Section::answers, *record);
  }
}

// As many as there is room for, and the rest of an RRset that has begun: its cache-flush bit would take away what is missing
// (RFC 6762 section 10.2).
void write_reply_additionals(const Batch& batch, Writer& writer, const DirectReply& reply) {
  const OwnedRecord* last = nullptr;
  for (const OwnedRecord* record : batch.additionals) {
    if (!write_reply_record(writer, reply, Section::additionals, *record)) {
      const bool is_rest = last != nullptr && last->is_unique && last->owner == record->owner && last->type == record->type;
      if (!is_rest || !go_on_in_reply(batch.link, writer, reply)) {
        return;
      }
      write_reply_record(writer, reply, Section::answers, *record);
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

void send_reply(Link& link, const DirectReply& reply) {
  Batch batch{link, kNoProtocol, {}, {}};
  ++link.responder.batches;
  for (OwnedRecord* record : reply.records) {
    add_rrset(batch, batch.answers, *record);
  }
  if (batch.answers.empty()) {
    return;
  }
  collect_additionals(batch);
  Writer writer;
  begin_reply(writer, reply);
  write_reply_answers(batch, writer, reply);
  write_reply_additionals(batch, writer, reply);
  outbox_add_reply(link, writer_take(writer), reply.to);
}

}  // namespace mdns
