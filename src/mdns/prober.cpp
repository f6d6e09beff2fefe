// SPDX-License-Identifier: MIT
#include "mdns/prober.h"

#include <algorithm>

#include "mdns/link.h"
#include "mdns/writer.h"

namespace mdns {
namespace {

// RFC 6762 section 8.1: a random wait, then three probes, a quarter of a second apart, and another quarter for answers.
constexpr Time kFirstProbeWithin = 250 * kMillisecond;
constexpr Time kProbesApart = 250 * kMillisecond;
constexpr int kProbes = 3;

// RFC 6762 section 8.2: who loses to another's simultaneous probe waits for a second and begins again.
constexpr Time kDeferFor = kSecond;

// What a question and a record take in a packet besides their names and rdata.
constexpr std::size_t kQuestionRest = 4;
constexpr std::size_t kRecordRest = 12;  // with the pointer that stands for its name
constexpr std::size_t kPointer = 2;
constexpr std::size_t kHeader = 12;

using Proposed = std::vector<const OwnedRecord*>;

// The records that the name is claimed with, in the order in which they are compared.
Proposed proposed_of(const OwnedName& owned) {
  Proposed proposed;
  for (const OwnedRecord* record : owned.records) {
    if (record->is_unique && record->holders > 0) {
      proposed.push_back(record);
    }
  }
  std::ranges::sort(proposed, [](const OwnedRecord* a, const OwnedRecord* b) {
    return compare_records(a->type, a->rdata, b->type, b->rdata) < 0;
  });
  return proposed;
}

// How much of a packet the probe for the name takes at most, when its domain stands in it already.
std::size_t probe_size(const OwnedName& owned) {
  std::size_t size = 1 + first_label(owned.name->name).size() + kPointer + kQuestionRest;
  for (const OwnedRecord* record : owned.records) {
    size += record->is_unique ? kRecordRest + record->rdata.size() : 0;
  }
  return size;
}

// The names that are due and whose probes fit into one packet.
std::vector<OwnedName*> take_batch(Link& link) {
  std::vector<OwnedName*> batch;
  std::size_t size = kHeader;
  while (link.prober.due.next() <= link.now) {
    OwnedName& owned = *link.prober.due.first();
    const std::size_t parent = parent_name(owned.name->name).size();
    if (!batch.empty() && size + parent + probe_size(owned) > kDatagramMax) {
      break;
    }
    size += probe_size(owned) + (batch.empty() ? parent : 0);
    batch.push_back(&owned);
    ++link.steps;
    ++owned.probes;
    owned.state = NameState::probing;
    link.prober.due.set(owned, kNever);
    (owned.probes < kProbes ? link.prober.due : link.prober.ending).set(owned, link.now + kProbesApart);
  }
  return batch;
}

// Whether `record` of another host's response contradicts that the name is ours.
bool is_conflict(Link& link, const OwnedName& owned, const Record& record) {
  bool have_type = false;
  for (const OwnedRecord* own : owned.records) {
    ++link.steps;
    if (own->type != record.type || own->holders == 0) {
      continue;
    }
    if (same_rdata(record.type, own->rdata, record.rdata)) {
      return false;
    }
    have_type = have_type || own->is_unique;
  }
  // While the name is probed for, any record of it shows that it has an owner. (The NSEC record of a host that publishes the
  // same says no more than its other records do.)
  return have_type || (owned.state == NameState::probing && record.type != kTypeNsec);
}

// A record that another host's probe proposes for a name that we are probing for.
struct Proposal {
  OwnedName* owned = nullptr;
  const Record* record = nullptr;
};

// RFC 6762 section 8.2.1: negative when ours are earlier, and lose.
int compare_proposed(const Proposed& ours, std::span<const Proposal> theirs) {
  for (std::size_t i = 0; i < ours.size() && i < theirs.size(); ++i) {
    const Record& their = *theirs[i].record;
    const int order = compare_records(ours[i]->type, ours[i]->rdata, their.type, their.rdata);
    if (order != 0) {
      return order;
    }
  }
  return static_cast<int>(ours.size() > theirs.size()) - static_cast<int>(ours.size() < theirs.size());
}

// From now on the name is to be probed for at `at`; kNever: no more.
void probe_from(Link& link, OwnedName& owned, Time at) {
  const bool is_probing = owned.state == NameState::probing;
  const bool is_ending = is_probing && owned.probes == kProbes;
  at = is_probing ? std::max(at, owned.probe.at) : at;  // not sooner after the last probe
  (is_ending ? link.prober.ending : link.prober.due).set(owned, kNever);
  owned.state = at == kNever ? NameState::unclaimed : NameState::waiting;
  owned.probes = 0;
  link.prober.due.set(owned, at);
  if (owned.denial != nullptr) {
    responder_stop(link, *owned.denial);
  }
}

// What the message proposes, name by name, in the order in which it is compared.
std::vector<Proposal> proposals_in(Link& link, const Message& message) {
  std::vector<Proposal> proposals;
  for (const Record& record : message.authorities) {
    ++link.steps;
    OwnedName* owned = owned_find(link, record.name);
    if (owned != nullptr && owned->state == NameState::probing) {
      proposals.push_back({owned, &record});
    }
  }
  std::ranges::sort(proposals, [](const Proposal& a, const Proposal& b) {
    const std::uint64_t id_a = a.owned->name->id, id_b = b.owned->name->id;
    return id_a != id_b ? id_a < id_b : compare_records(a.record->type, a.record->rdata, b.record->type, b.record->rdata) < 0;
  });
  return proposals;
}

}  // namespace

void prober_begin(Link& link, OwnedName& owned) {
  Prober& prober = link.prober;
  if (prober.batch_at < link.now) {
    prober.batch_at = link.now + random_between(link.random, 0, kFirstProbeWithin);
  }
  probe_from(link, owned, prober.batch_at);
}

void prober_stop(Link& link, OwnedName& owned) { probe_from(link, owned, kNever); }

void prober_receive_probe(Link& link, const Message& message) {
  const std::vector<Proposal> proposals = proposals_in(link, message);
  for (auto first = proposals.begin(); first != proposals.end();) {
    OwnedName& owned = *first->owned;
    const auto last = std::find_if(first, proposals.end(), [&](const Proposal& each) { return each.owned != &owned; });
    if (compare_proposed(proposed_of(owned), {first, last}) < 0) {
      probe_from(link, owned, link.now + kDeferFor);
    }
    first = last;
  }
}

void prober_receive_record(Link& link, const Record& record) {
  OwnedName* owned = record.ttl == 0 ? nullptr : owned_find(link, record.name);  // a goodbye claims nothing
  if (owned == nullptr || owned->claimants.empty()) {
    return;
  }
  if (owned->state == NameState::probing && is_conflict(link, *owned, record)) {
    zone_name_lost(link, *owned);
  } else if (owned->state == NameState::owned && is_conflict(link, *owned, record)) {
    zone_name_doubted(link, *owned);
  }
}

void prober_advance(Link& link) {
  Heap<OwnedName, &OwnedName::probe>& ending = link.prober.ending;
  while (ending.next() <= link.now) {
    OwnedName& owned = *ending.first();
    ending.set(owned, kNever);
    zone_name_established(link, owned);
  }
}

void prober_write(Link& link, Writer& writer) {
  writer_begin(writer, false);
  const std::vector<OwnedName*> batch = take_batch(link);
  if (batch.size() == 1) {
    writer.max = kLargeDatagramMax;
  }
  for (const OwnedName* owned : batch) {
    writer_add_question(writer, owned->name->name, kTypeAny, false);
  }
  for (const OwnedName* owned : batch) {
    for (const OwnedRecord* record : proposed_of(*owned)) {
      writer_add_record(writer, Section::authorities, owned->name->name, record->type, record->ttl, false, record->rdata);
    }
  }
}

}  // namespace mdns
