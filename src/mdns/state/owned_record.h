// SPDX-License-Identifier: MIT
// What the link publishes: records by name, the publications that hold them, the state of their names, and what is due
// of them.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "mdns/mdns.h"
#include "mdns/state/heap.h"
#include "mdns/state/names.h"

namespace mdns {

struct OwnedRecord {
  OwnedName* owner = nullptr;
  std::uint32_t place = 0;  // index in its name's records
  std::uint32_t ttl = 0;    // seconds
  std::uint32_t holders = 0;
  std::uint16_t type = 0;
  bool is_unique = false;
  bool is_live = false;          // its name is ours or not claimed: it is announced and answered with
  bool is_reported = false;      // to the link's own queries, as added
  bool is_change = false;        // replaces other data, and its announcements are not all sent yet
  bool without_goodbye = false;  // its last holder withdraws it without one
  bool is_one_of_many = false;   // its answer is sent without additional records
  std::uint8_t announcements_left = 0;
  std::uint8_t answer_over = kNoProtocol;  // protocols over which it is to be sent as an answer
  std::uint8_t defend_over = kNoProtocol;  // those of them over which it defends the name against a probe
  std::uint8_t rescue_over = kNoProtocol;  // those of them over which that is a rescue
  std::string rdata;
  std::array<Time, 2> multicast_at = {kLongAgo, kLongAgo};  // when it was last sent over each protocol
  std::array<Time, 2> received_at = {kLongAgo, kLongAgo};   // when it was last received from another host
  std::uint32_t known_in = 0;                               // the last query that lists it as known
  std::uint32_t proposed_in = 0;                            // the last query that proposes it
  std::uint32_t replied_in = 0;                             // the last query whose unicast reply has it
  std::uint32_t packed_in = 0;                              // the last batch of answers with it
  // Of its next announcement, in Announcer::due. Without a holder, of its goodbye, in Announcer::goodbyes; kNever then:
  // other data replaces it, and it gets no goodbye.
  Deadline announcement;
  Deadline answer;
};

// A publication: records of one name that one caller holds.
struct Publication {
  PublicationId id = 0;
  std::uint64_t tag = 0;
  OwnedName* owner = nullptr;
  Claim claim = Claim::shared;
  bool is_established = false;
  std::vector<OwnedRecord*> records;  // it counts as a holder once for each element
};

enum class NameState {
  unclaimed,  // no publication claims it: all of its records are shared
  waiting,    // its first probe is due at OwnedName::probe
  probing,    // its next probe, or the end of probing, is due at OwnedName::probe
  owned,
};

// A name that records are published under, or that is probed for.
struct OwnedName {
  NameEntry* name = nullptr;
  NameState state = NameState::unclaimed;
  std::uint8_t probes = 0;  // sent so far in this series
  std::vector<OwnedRecord*> records;
  std::vector<Publication*> claimants;  // publications that claim the name
  std::unique_ptr<OwnedRecord> denial;  // the NSEC record (RFC 6762 section 6.1); null until it is needed
  std::uint32_t asked_in = 0;           // the last query that asks for the name
  std::uint8_t times_asked = 0;         // how often that query does
  std::uint32_t proposed_in = 0;        // the last query that proposes records of the name
  std::uint32_t contested_in = 0;       // the last query that proposes a record that is not published here
  Deadline probe;
  Time probed_by_other_at = kLongAgo;  // of a yielding name: when another host last probed for it with the same
                                       // addresses
  Time change_at = kLongAgo;           // the earliest time at which changed data is announced next
  Time change_interval = 0;
};

struct Zone {
  std::unordered_map<PublicationId, Publication> publications;
  std::unordered_set<std::unique_ptr<OwnedRecord>, RecordHash, RecordEqual> records;
};

inline RecordKey key_of(const OwnedRecord& record) { return {record.owner->name, record.type, record.rdata}; }
inline std::string_view name_of(const OwnedRecord& record) { return record.owner->name->name; }

struct Prober {
  Heap<OwnedName, &OwnedName::probe> due;     // names by the time of their next probe
  Heap<OwnedName, &OwnedName::probe> ending;  // names whose last probe has been sent, by the end of probing
  Time batch_at = kLongAgo;                   // when the first probes of the waiting names are sent
};

struct Announcer {
  Heap<OwnedRecord, &OwnedRecord::announcement> due;
  Heap<OwnedRecord, &OwnedRecord::announcement> goodbyes;  // records without a holder, by the time of their goodbye
};

// latest_multicast: when the record was last multicast over any of these protocols; kLongAgo: never.
// rrset_multicast_at: the same for the record's RRset if it is unique, since a unique RRset is sent as a whole (RFC
// 6762 section 10.2); multicasts of its other records count only if they were before `before`.
Time latest_multicast(const OwnedRecord& record, Protocols protocols);
Time rrset_multicast_at(const OwnedRecord& record, Protocols protocols, Time before = kNever);

// Whether the record was ever multicast.
inline bool was_multicast(const OwnedRecord& record) { return latest_multicast(record, kBothProtocols) != kLongAgo; }

// Whether both, which have one name, belong to the same unique RRset.
inline bool share_rrset(const OwnedRecord& a, const OwnedRecord& b) {
  return a.is_unique && b.is_unique && a.type == b.type;
}

// A record that was sent within this time is not removed by the cache-flush bit of another record of its RRset. RFC
// 6762 section 10.2 says one second; it is half of that here because packets may be delayed on their way.
constexpr Time kFlushSpares = 500 * kMillisecond;

// Whether the record has been multicast over each of these protocols after `time`.
bool was_multicast_since(const OwnedRecord& record, Protocols protocols, Time time);

// yields: whether the name is claimed as Claim::yielding. is_ours: whether it was won by probing and does not yield.
inline bool yields(const OwnedName& owned) {
  return !owned.claimants.empty() && owned.claimants.front()->claim == Claim::yielding;
}
inline bool is_ours(const OwnedName& owned) { return owned.state == NameState::owned && !yields(owned); }

// Whether the link publishes a live unique record of the type under that name: then no other host has one.
bool zone_has_unique(const NameEntry& name, std::uint16_t type);

}  // namespace mdns
