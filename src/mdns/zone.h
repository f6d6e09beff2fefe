// SPDX-License-Identifier: MIT
// What is published on a link: records by name, who holds them, and whose the name is.
//
// Lifecycle of an owned record: the first publication that has it makes it. A shared one is live at once; a unique one when
// its name has been probed for (prober.h). Live ones are announced (announcer.h), answered for (responder.h) and told to the
// link's own queries. When its last holder leaves, it gets its goodbye, if it has ever been said, and is freed; until then a
// new holder brings it back. Where other data takes the place of a unique one, that data's announcement is all the goodbye it
// gets (RFC 6762 section 8.4). When another host turns out to have the name, all publications that claim it end without a
// goodbye.
#pragma once

#include <array>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "mdns/cache.h"
#include "mdns/mdns.h"

namespace mdns {

struct Query;

struct OwnedRecord {
  OwnedName* owner = nullptr;
  std::uint32_t place = 0;  // in its name's records
  std::uint32_t ttl = 0;    // seconds
  std::uint32_t holders = 0;
  std::uint16_t type = 0;
  bool is_unique = false;
  bool is_live = false;         // the name is ours, or anybody's: it is announced and answered for
  bool is_reported = false;     // to the link's own queries
  bool is_change = false;       // its announcements are still to come, in place of other data
  bool is_forsaken = false;     // it leaves without a goodbye
  bool is_one_of_many = false;  // its answer goes out without additional records
  std::uint8_t announcements_left = 0;
  std::uint8_t answer_over = kNoProtocol;  // protocols over which an answer is due
  std::uint8_t defend_over = kNoProtocol;  // those among them over which it answers a probe
  std::uint8_t rescue_over = kNoProtocol;  // those among them over which it contradicts another host's goodbye
  std::string rdata;
  std::array<Time, 2> multicast_at = {kLongAgo, kLongAgo};  // when it was last sent over each protocol
  std::array<Time, 2> heard_at = {kLongAgo, kLongAgo};      // when another host last said the same
  std::uint32_t known_in = 0;                               // the query whose known answers have it
  std::uint32_t replied_in = 0;                             // the query whose direct reply has it
  std::uint32_t packed_in = 0;                              // the batch of answers that has it
  Deadline announcement;  // or its goodbye, when nobody holds it any more; none: other data has taken its place
  Deadline answer;
};

// A publication: records of one name that one caller holds.
struct Publication {
  PublicationId id = 0;
  std::uint64_t tag = 0;
  OwnedName* owner = nullptr;
  Claim claim = Claim::shared;
  bool is_established = false;
  std::vector<OwnedRecord*> records;  // each held as often as it stands here
};

enum class NameState {
  unclaimed,  // nobody claims it: all of its records are shared
  waiting,    // it is to be probed for, at OwnedName::probe
  probing,    // the next probe, or the end of the probing, is due at OwnedName::probe
  owned,
};

// A name that something is published under.
struct OwnedName {
  NameEntry* name = nullptr;
  NameState state = NameState::unclaimed;
  std::uint8_t probes = 0;  // sent in this round
  std::vector<OwnedRecord*> records;
  std::vector<Publication*> claimants;  // publications that claim the name
  std::unique_ptr<OwnedRecord> denial;  // the NSEC record (RFC 6762 section 6.1), made when it is first needed; in no other table
  std::uint32_t asked_in = 0;           // the query that asks for the name,
  std::uint8_t times_asked = 0;         // and how often it does
  std::uint32_t proposed_in = 0;        // the query that proposes records of the name,
  std::uint32_t contested_in = 0;       // and the one that proposes others than ours
  Deadline probe;
  Time rival_at = kLongAgo;   // when another host last probed for the name, which is only borrowed, with the same addresses
  Time change_at = kLongAgo;  // when changed data may be announced next
  Time change_interval = 0;
};

struct Zone {
  std::unordered_map<PublicationId, Publication> publications;
  std::unordered_set<std::unique_ptr<OwnedRecord>, RecordHash, RecordEqual> records;
};

inline RecordKey key_of(const OwnedRecord& record) { return {record.owner->name, record.type, record.rdata}; }
inline std::string_view name_of(const OwnedRecord& record) { return record.owner->name->name; }

// Null when the record is not published.
OwnedRecord* zone_find(const Link& link, const RecordKey& key);

// Frees a record whose goodbye has been written.
void zone_forget(Link& link, OwnedRecord& record);

// When it was last sent over any of these protocols; the same for the RRset that it is of, if that is ours alone: a unique
// RRset is sent as a whole (RFC 6762 section 10.2), but of its other records only what was sent `before` counts. kLongAgo: never.
Time latest_multicast(const OwnedRecord& record, Protocols protocols);
Time rrset_multicast_at(const OwnedRecord& record, Protocols protocols, Time before = kNever);

// Whether the record was ever sent to the group.
inline bool was_multicast(const OwnedRecord& record) { return latest_multicast(record, kBothProtocols) != kLongAgo; }

// Whether both are of one RRset that is ours alone.
inline bool share_rrset(const OwnedRecord& a, const OwnedRecord& b) { return a.is_unique && b.is_unique && a.type == b.type; }

// What was sent so lately that a cache-flush leaves it alone (RFC 6762 section 10.2), with room for the way of the packets.
constexpr Time kFlushSpares = 500 * kMillisecond;

// Whether the record has been sent over all of these protocols since then.
bool was_multicast_since(const OwnedRecord& record, Protocols protocols, Time time);

// Frees the unique data of the same type whose place the record has taken, and which no cache has any more.
void zone_forget_superseded(Link& link, const OwnedRecord& record, Time last_said);

// Whether the name is claimed in a way that gives way to an owner (Claim::yielding); whether it is ours, and nobody else's.
inline bool yields(const OwnedName& owned) {
  return !owned.claimants.empty() && owned.claimants.front()->claim == Claim::yielding;
}
inline bool is_ours(const OwnedName& owned) { return owned.state == NameState::owned && !yields(owned); }

// Whether the link has a unique record of the type under that name that is live: then nobody else has one.
bool zone_has_unique(const NameEntry& name, std::uint16_t type);

// Whether the record is published and has become live.
bool zone_reports(const Link& link, const RecordKey& key);

// Tells a query that begins what is live of its name and type and not in the cache.
void zone_report_to(Link& link, const RRset& rrset, const Query& query);

// The name is ours, or at least nobody else's: what it is claimed with is live, and the publications are established.
void zone_name_established(Link& link, OwnedName& owned);

// The name is ours no longer until it has been probed for again, which begins.
void zone_name_doubted(Link& link, OwnedName& owned);

// The name is another host's: the publications that claim it end, and are told.
void zone_name_lost(Link& link, OwnedName& owned);

// The NSEC record of the name: it says which types the name has. Null unless the name is ours, and where it has types that
// such a record has no room for (RFC 6762 section 6.1).
OwnedRecord* zone_denial(OwnedName& owned);

// Everything is probed for and announced anew.
void zone_restart(Link& link);

}  // namespace mdns
