// SPDX-License-Identifier: MIT
#include "mdns/exchange/answer_packets.h"

#include <algorithm>

#include "mdns/schedule/answers.h"
#include "mdns/schedule/outbox.h"
#include "mdns/state/lookup.h"
#include "mdns/store/zone.h"
#include "mdns/wire/writer.h"

namespace mdns {
namespace {

constexpr std::uint32_t kLegacyTtlMax = 10;  // seconds (RFC 6762 section 6.7)

// A batch of records that is being written into packets, to the group or to one host. It has each record once.
struct Batch {
  Link& link;
  Protocols over;  // kNoProtocol: to one host
  Endpoint to = {};
  bool is_legacy = false;
  std::vector<OwnedRecord*> answers = {};
  std::vector<OwnedRecord*> additionals = {};
  Writer writer = writer_new(true);
};

void add_once(Batch& batch, std::vector<OwnedRecord*>& list, OwnedRecord& record) {
  if (record.packed_in != batch.link.responder.batches) {
    record.packed_in = batch.link.responder.batches;
    list.push_back(&record);
  }
}

// Adds the record and, if it is unique, the rest of its RRset. A rescue (RFC 6762 section 10.1) leaves out those
// records that were multicast within kFlushSpares: its cache-flush bit does not remove them from caches.
void add_rrset(Batch& batch, std::vector<OwnedRecord*>& list, OwnedRecord& record) {
  add_once(batch, list, record);
  if (!record.is_unique || record.type == kTypeNsec) {
    return;
  }
  const bool is_rescue = (record.rescue_over & batch.over) != 0;
  for (OwnedRecord* other : record.owner->records) {
    const bool is_kept = is_rescue && was_multicast_since(*other, batch.over, batch.link.now - kFlushSpares);
    if (share_rrset(record, *other) && other->is_live && !is_kept) {
      add_once(batch, list, *other);
    }
  }
}

bool was_just_multicast(const Batch& batch, const OwnedRecord& record) {
  return rrset_multicast_at(record, batch.over) > batch.link.now - kSecond;
}

// Adds the live records of the name that have one of both types as additional records. If the types are A and AAAA and
// the name has only one of them, adds its NSEC record, which denies the other.
void add_additional_rrsets(Batch& batch, std::string_view name, std::uint16_t type, std::uint16_t other_type) {
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

// RFC 6762 section 6.2, RFC 6763 section 12.
void add_additionals_of(Batch& batch, const OwnedRecord& record) {
  if (record.type == kTypePtr) {
    add_additional_rrsets(batch, target_of(record.type, record.rdata), kTypeSrv, kTypeTxt);
  } else if (record.type == kTypeSrv) {
    add_additional_rrsets(batch, target_of(record.type, record.rdata), kTypeA, kTypeAaaa);
  } else if (is_address(record.type)) {
    add_additional_rrsets(batch, name_of(record), kTypeA, kTypeAaaa);
  }
}

// Collects the additional records of the answers, and those of additional SRV records in turn. All addresses of a host
// have the same additional records, so only the first of several in a row is looked at.
void collect_additionals(Batch& batch) {
  if (batch.answers.size() > kAdditionalForAtMost) {
    return;
  }
  const OwnedRecord* last = nullptr;
  for (const OwnedRecord* record : batch.answers) {
    const bool is_covered =
        last != nullptr && last->owner == record->owner && is_address(last->type) && is_address(record->type);
    if (!record->is_one_of_many && !is_covered) {
      add_additionals_of(batch, *record);
    }
    last = record;
  }
  for (std::size_t i = 0; i < batch.additionals.size(); ++i) {  // the list grows
    if (batch.additionals[i]->type == kTypeSrv) {
      add_additionals_of(batch, *batch.additionals[i]);
    }
  }
}

// Adds the record to the present packet; false when there is no room.
bool add_record(Batch& batch, Section section, OwnedRecord& record) {
  const std::uint32_t ttl = batch.is_legacy ? std::min(record.ttl, kLegacyTtlMax) : record.ttl;
  const bool cache_flush = record.is_unique && !batch.is_legacy;
  if (!writer_add_record(batch.writer, section, name_of(record), record.type, ttl, cache_flush, record.rdata)) {
    return false;
  }
  if (batch.over != kNoProtocol) {
    ++batch.link.steps;
    record_was_multicast(batch.link, record, batch.over, outbox_send_time(batch.link));
  }
  return true;
}

// Queues the present packet and adds the record to the next one as an answer, since a response should have one. False
// when the record is too long for any packet.
bool add_to_next(Batch& batch, OwnedRecord& record) {
  outbox_add(batch.link, batch.writer, batch.over, batch.to);
  return add_record(batch, Section::answers, record);
}

void write_answers(Batch& batch) {
  for (OwnedRecord* record : batch.answers) {
    if (add_record(batch, Section::answers, *record)) {
      continue;
    }
    if (batch.is_legacy) {  // an ordinary resolver reads one packet only; nobody serves it over TCP
      writer_set_truncated(batch.writer);
      return;
    }
    add_to_next(batch, *record);
  }
}

// Writes the additional records: all of them to the group; to one host as many as there is room for. An RRset is always
// completed, since its cache-flush bit would remove missing records from the cache (RFC 6762 section 10.2).
void write_additionals(Batch& batch) {
  const bool is_multicast = batch.over != kNoProtocol;
  const OwnedRecord* last = nullptr;
  for (OwnedRecord* record : batch.additionals) {
    const bool is_rest =
        last != nullptr && last->is_unique && last->owner == record->owner && last->type == record->type;
    const bool is_needed = is_multicast || (is_rest && !batch.is_legacy);
    const Section section = writer_is_empty(batch.writer) ? Section::answers : Section::additionals;
    if (!add_record(batch, section, *record) && !(is_needed && add_to_next(batch, *record)) && !is_multicast) {
      return;
    }
    last = record;
  }
}

void send_batch(Batch& batch) {
  collect_additionals(batch);
  write_answers(batch);
  write_additionals(batch);
  outbox_add(batch.link, batch.writer, batch.over, batch.to);
}

}  // namespace

void send_answers(Link& link, const std::vector<DueAnswer>& answers, Protocols over) {
  Batch batch{link, over};
  ++link.responder.batches;
  for (const DueAnswer& answer : answers) {
    // Otherwise it is due over other protocols, or an earlier packet has had it as an additional record.
    if ((answer.over & answer.record->answer_over) == over) {
      add_rrset(batch, batch.answers, *answer.record);
    }
  }
  send_batch(batch);
}

void send_reply(Link& link, const PendingQuery& query, const std::vector<OwnedRecord*>& answers) {
  Batch batch{link, kNoProtocol, query.from.source, is_legacy(query)};
  ++link.responder.batches;
  for (OwnedRecord* record : answers) {
    add_rrset(batch, batch.answers, *record);
  }
  if (batch.is_legacy) {
    batch.writer = writer_new(true, query.message.id);
    batch.writer.compresses_srv = false;
    for (const Question& question : query.message.questions) {
      writer_add_question(batch.writer, question.name, question.type, false, question.klass);
    }
  }
  send_batch(batch);
}

}  // namespace mdns
