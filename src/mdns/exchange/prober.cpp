// SPDX-License-Identifier: MIT
#include "mdns/exchange/prober.h"

#include <algorithm>
#include <map>
#include <set>

#include "mdns/schedule/probes.h"
#include "mdns/state/lookup.h"
#include "mdns/store/publications.h"

namespace mdns {
namespace {

// RFC 6762 section 8.1: between two probes, and from the last one to the end of probing.
constexpr Time kProbesApart = 250 * kMillisecond;

// RFC 6762 section 8.2: the host that loses the tie-break of simultaneous probes waits for a second and probes again.
constexpr Time kDeferFor = kSecond;

// Bytes of a question besides the first label of its name, and of a record besides its rdata: the rest of the name is a
// compression pointer.
constexpr std::size_t kQuestionRest = 6;
constexpr std::size_t kRecordRest = 12;

struct ProposedRecord {
  std::uint16_t type;
  std::string_view rdata;
  std::uint32_t ttl;  // not compared

  bool operator<(const ProposedRecord& other) const {
    return compare_records(type, rdata, other.type, other.rdata) < 0;
  }
};

// The records that a host proposes, in the order of the comparison: the host with the lexicographically earlier ones
// loses (RFC 6762 section 8.2.1).
using Proposed = std::multiset<ProposedRecord>;

// The unique records of the name, which its probes propose.
Proposed proposed_of(const OwnedName& owned) {
  Proposed proposed;
  for (const OwnedRecord* record : owned.records) {
    if (record->is_unique && record->holders > 0) {
      proposed.insert({record->type, record->rdata, record->ttl});
    }
  }
  return proposed;
}

// The most bytes that the probe for the name takes in a packet that has the name's domain already.
std::size_t probe_size(const OwnedName& owned) {
  std::size_t size = 1 + first_label(owned.name->name).size() + kQuestionRest;
  for (const OwnedRecord* record : owned.records) {
    size += record->is_unique ? kRecordRest + record->rdata.size() : 0;
  }
  return size;
}

// Takes the names that are due and whose probes fit into one packet, and plans their next probes.
std::vector<OwnedName*> take_batch(Link& link) {
  std::vector<OwnedName*> batch;
  std::size_t size = kHeaderSize;
  while (OwnedName* owned = link.prober.due.due(link.now)) {
    const std::size_t parent = parent_name(owned->name->name).size();
    if (!batch.empty() && size + parent + probe_size(*owned) > kDatagramMax) {
      break;
    }
    size += probe_size(*owned) + (batch.empty() ? parent : 0);
    batch.push_back(owned);
    ++link.steps;
    ++owned->probes;
    owned->state = NameState::probing;
    link.prober.due.set(*owned, kNever);
    (owned->probes < kProbes ? link.prober.due : link.prober.ending).set(*owned, link.now + kProbesApart);
  }
  return batch;
}

bool is_own(const Link& link, const OwnedName& owned, std::uint16_t type, std::string_view rdata) {
  const OwnedRecord* own = zone_find(link, {owned.name, type, rdata});
  return own != nullptr && own->holders > 0;
}

// Whether `record` of another host's response is a conflict over the name.
bool is_conflict(Link& link, const OwnedName& owned, const Record& record) {
  ++link.steps;
  if (is_own(link, owned, record.type, record.rdata)) {
    return false;
  }
  if (yields(owned)) {
    return record.cache_flush && is_address(record.type);
  }
  // While the name is probed for, any record of it shows that another host owns it, except an NSEC record: a host that
  // publishes the same records as we do sends that, too.
  return (owned.state == NameState::probing && record.type != kTypeNsec) ||
         (owned.state == NameState::owned && std::ranges::any_of(owned.records, [&](const OwnedRecord* own) {
            ++link.steps;
            return own->type == record.type && own->is_unique && own->holders > 0;
          }));
}

// Whether a host that proposes these records is another one than the host whose addresses we publish under the yielding
// name: it does not have exactly the same addresses.
bool is_other_host(const Link& link, const OwnedName& owned, const Proposed& theirs) {
  const auto is_new = [&](const ProposedRecord& their) {
    return is_address(their.type) && !is_own(link, owned, their.type, their.rdata);
  };
  const auto is_held = [](const OwnedRecord* own) { return own->holders > 0 && is_address(own->type); };
  return std::ranges::any_of(theirs, is_new) || std::ranges::count_if(owned.records, is_held) > std::ssize(theirs);
}

// Whether the cache has addresses of another owner of the yielding name: with the cache-flush bit, and not ours.
bool has_cached_owner(Link& link, const OwnedName& owned) {
  const auto is_owners = [&](const CacheEntry& entry) {
    ++link.steps;
    return entry.is_unique && entry.limit != Limit::goodbye && !is_own(link, owned, entry.rrset->type, entry.rdata);
  };
  return std::ranges::any_of(owned.name->rrsets, [&](const auto& rrset) {
    return is_address(rrset->type) && std::ranges::any_of(rrset->entries, is_owners);
  });
}

}  // namespace

void prober_receive_probe(Link& link, const Message& message) {
  // By name, in the order of the ids: the names that we are probing for or that yield, and the records proposed for
  // each.
  std::map<std::uint64_t, std::pair<OwnedName*, Proposed>> proposals;
  for (const Record& record : message.authorities) {
    ++link.steps;
    OwnedName* owned = owned_find(link, record.name);
    if (owned != nullptr && (owned->state == NameState::probing || yields(*owned))) {
      auto& [name, theirs] = proposals[owned->name->id];
      name = owned;
      theirs.insert({record.type, record.rdata, record.ttl});
    }
  }
  for (const auto& [id, proposal] : proposals) {
    const auto& [owned, theirs] = proposal;
    if (!yields(*owned)) {
      if (proposed_of(*owned) < theirs) {
        probe_from(link, *owned, link.now + kDeferFor);
      }
    } else if (is_other_host(link, *owned, theirs)) {
      name_lost(link, *owned);
    } else {
      owned->probed_by_other_at = link.now;
    }
  }
}

void prober_receive_record(Link& link, const Record& record) {
  OwnedName* owned = record.ttl == 0 ? nullptr : owned_find(link, record.name);  // a goodbye claims nothing
  if (owned == nullptr || owned->claimants.empty() || !is_conflict(link, *owned, record)) {
    return;
  }
  if (owned->state == NameState::probing || yields(*owned)) {
    name_lost(link, *owned);
  } else {
    name_reprobe(link, *owned);
  }
}

void prober_advance(Link& link) {
  while (OwnedName* owned = link.prober.ending.due(link.now)) {
    link.prober.ending.set(*owned, kNever);
    if (yields(*owned) && has_cached_owner(link, *owned)) {
      name_lost(link, *owned);
    } else {
      name_established(link, *owned);
    }
  }
}

Writer prober_write(Link& link) {
  Writer writer = writer_new(false);
  const std::vector<OwnedName*> batch = take_batch(link);
  if (batch.size() == 1) {
    writer.max = kLargeDatagramMax;
  }
  for (const OwnedName* owned : batch) {
    writer_add_question(writer, owned->name->name, kTypeAny, false);
  }
  for (const OwnedName* owned : batch) {
    for (const auto& [type, rdata, ttl] : proposed_of(*owned)) {
      writer_add_record(writer, Section::authorities, owned->name->name, type, ttl, false, rdata);
    }
  }
  return writer;
}

}  // namespace mdns
