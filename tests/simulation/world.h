// SPDX-License-Identifier: MIT
// A simulated world: media (what a link is made of), hosts with an engine for each of their links, virtual time, and
// all that is known about who publishes and who asks what. One seed decides everything that happens in it.
//
// Reading order: wire.h (packets), this header, client.h (how a host uses its engine), books.h (what is then true),
// wire_rules.h and state_rules.h (what must hold), actors.h (devices, gateways, hostile hosts), forwarded_hosts.h (the
// names that gateways borrow), acts.h and life.h (a whole life from a seed). world.cpp drives the engines, air.cpp
// carries the datagrams, trace.cpp prints what happened.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "mdns/mdns.h"
#include "simulation/dice.h"
#include "simulation/wire.h"

namespace simulation {

using mdns::kMillisecond;
using mdns::kNever;
using mdns::kSecond;
using mdns::Time;
using Tag = std::uint64_t;
using Hash = std::uint64_t;

struct World;
struct Port;
struct Host;
struct ForwardedHost;

// --- What is published and asked

struct Publication {
  std::string name;
  Hash name_hash = 0;
  std::vector<mdns::RecordData> records;
  std::vector<Hash> hashes;  // of the records
  mdns::Claim claim{};
  mdns::PublicationId id = 0;
  Time since = 0;  // of the call
  bool is_established = false;
  std::function<void(bool established)> report;
};

struct Known {
  Hash hash = 0;
  std::string rdata;
  Time since = 0;
  bool is_unique = false;
};

struct Query {
  std::string name;
  std::uint16_t type = 0;
  Hash set_hash = 0;
  mdns::QueryId id = 0;
  Time since = 0;
  std::vector<Known> known;  // reported as added and not as removed
  std::function<void(bool added, const std::string& rdata)> report;
};

// One established record on a medium, by one of its holders.
struct Truth {
  Port* port = nullptr;
  Tag tag = 0;
  Hash hash = 0;
  std::string rdata;
  Time since = 0;
  bool unique = false;
  bool was_left = false;  // somebody had left it without a goodbye before: caches may have it, whoever says it
};

// A record that nobody on the medium publishes any more.
struct Gone {
  Time at = 0;
  bool without_goodbye = false;  // its last holder vanished, lost its link or its name
};

// --- Media

// What happens to datagrams on a medium.
struct Weather {
  std::size_t loss = 0;        // percent
  std::size_t duplicates = 0;  // percent
  Time delay = 0;              // the longest
  bool reorders = false;       // a later datagram of one sender may overtake an earlier one
};

struct Medium {
  int index = 0;
  std::vector<Port*> ports;
  Weather weather;
  bool is_partitioned = false;                         // between ports of different `side`
  Time calm_since = 0;                                 // no loss, partition or hostile host since then; kNever: there
                                                       // is one
  std::unordered_map<Hash, std::vector<Truth>> truth;  // by name and type
  std::unordered_map<Hash, std::vector<std::pair<Port*, Tag>>> queriers;  // by name and type
  std::unordered_map<Hash, Gone> gone;                                    // by record
  std::unordered_set<Hash> left_without_goodbye;  // records that one of several hosts withdrew without a goodbye
  std::unordered_map<Hash, std::uint32_t> ttls;   // of every record that was ever published
  std::unordered_map<Hash, std::unordered_set<const Port*>> claimants;  // who has ever claimed a name as its own
};

// --- Hosts

// What a host has published of one record on one link.
struct Holding {
  int holders = 0, established = 0;
  bool unique = false;
  bool yielding = false;
  bool owes_goodbye = false;  // it was established and has been withdrawn by its last holder
  Time gone_at = kNever;      // when the last holder with an established publication left
  Time goodbye_at = kNever;   // when its goodbye went out
};

// The names that a host has claimed on one link: as its own, or only as long as nobody else owns them.
struct Claimed {
  int publications = 0;
  int yielding = 0;        // those of them that give way
  Time changed_at = 0;     // when the set of its records changed last
  bool was_owned = false;  // the name had an established publication when this one was added or a moment ago
  Time owned_until = -kSecond * 1000;
  int probes = 0;  // of the present series
  Time probed_at = -kSecond * 1000;
  bool is_announced = false;
};

// Section 10.1: the longest time until a rescue after another host's goodbye; less than the goodbye's second.
inline constexpr Time kRescuedWithin = 900 * kMillisecond;

// A record as it was received last.
struct ReceivedRecord {
  Time at = 0;
  std::uint32_t ttl = 0;
  Time until = 0;  // the end of the TTL with which another host sent it last; goodbyes do not count
};

// How often something was done in a minute that began then.
struct Minute {
  Time began = -kSecond * 1000;
  int times = 0;
};

// What a port has sent and received, as far as the rules need it.
struct Ledger {
  std::unordered_map<Hash, Time> multicast[2];        // by protocol: record and when it was last multicast
  std::unordered_map<Hash, Time> asked[2];            // question and when it was last asked
  std::unordered_map<Hash, Time> probed[2];           // the same as a probe, by name
  std::unordered_map<Hash, Time> probes_received;     // names that others probed for, and when that arrived
  std::unordered_map<Hash, Time> doubts_received;     // own records with goodbyes of others, and their names and types
  std::unordered_map<Hash, Time> goodbyes_received;   // records with goodbyes of others, and when these arrived
  std::unordered_map<Hash, Time> stopped;             // questions that are not asked any more, and since when
  std::unordered_map<Hash, Minute> asking;            // questions, in the minute at hand
  std::unordered_map<Hash, ReceivedRecord> received;  // records of responses
  std::unordered_map<Hash, Time> flushes_received;    // names and types with the cache-flush bit, and when that arrived
  std::deque<Time> sent;                              // datagrams of the last second
  std::size_t sent_total = 0;
};

struct Port {
  int index = 0;
  World* world = nullptr;
  Host* host = nullptr;
  Medium* medium = nullptr;
  mdns::LinkPtr link;
  mdns::Protocols protocols = mdns::kBothProtocols;
  mdns::Endpoint endpoints[2];
  int side = 0;                         // of a partitioned medium
  Time disturbed_at = -kSecond * 1000;  // when it was last cut off or began anew
  Time deadline = kNever;               // of the engine, on its clock
  Time wake_at = kNever;                // when link_advance is planned for it
  bool is_dirty = false;                // settle is due
  bool is_closing = false;              // link_withdraw_all was called
  std::map<Tag, Publication> publications;
  std::map<Tag, std::function<void(bool established)>> lost;  // conflicts that their owners do not know yet
  std::map<Tag, Query> queries;
  std::unordered_map<Hash, Holding> holdings;                       // by record
  std::unordered_map<Hash, Claimed> claimed;                        // by name
  std::map<std::string, std::shared_ptr<ForwardedHost>> forwarded;  // whose addresses a gateway publishes here, by
                                                                    // folded name
  Ledger ledger;
  Time last_arrival[2] = {0, 0};  // of what it sent, by protocol
};

struct Host {
  int index = 0;
  std::string label;
  bool is_alive = true;  // false: vanished
  bool is_asleep = false;
  Time offset = 0;  // of its clock
  std::vector<Port*> ports;
};

// --- Time

// A goodbye in a datagram: a record with a TTL of 0 or 1 (RFC 6762 section 10.1).
struct Doubt {
  Hash record = 0;
  Hash set = 0;  // its name and type
};

// A datagram on its way.
struct Flight {
  int users = 0;
  mdns::Received received;
  std::vector<std::uint8_t> bytes;
  std::vector<Hash> probes;                             // names that it probes for
  std::vector<Hash> goodbyes;                           // records that it has goodbyes for
  std::vector<Doubt> doubts;                            // goodbyes of records that others must rescue
  std::vector<std::pair<Hash, std::uint32_t>> records;  // the records of a response, and their TTLs
  std::vector<Hash> flushes;                            // names and types that have the cache-flush bit in it
};

struct Item {
  Time at;
  std::uint64_t order;
  enum class Kind : std::uint8_t { deliver, wake, call } kind;
  std::uint32_t port, index;  // of the port; of the flight or the call

  bool operator>(const Item& other) const { return at != other.at ? at > other.at : order > other.order; }
};

// One line of the story.
struct Line {
  Time at = 0;
  int port = -1;
  const char* what = "";
  std::string text;                 // or, if it is empty:
  std::vector<std::uint8_t> bytes;  // a datagram
  mdns::Protocols protocols = mdns::kNoProtocol;
};

// Sums over the run.
struct Sums {
  std::uint64_t datagrams = 0, deliveries = 0, events = 0, calls = 0;
  std::uint64_t expected = 0, missing = 0;  // records that should be known after two minutes of loss; those that were
                                            // not
  std::uint64_t worst_steps = 0;            // per mille of what is allowed
};

struct World {
  Dice dice;
  Time now = 0;
  std::deque<Medium> media;
  std::deque<Host> hosts;
  std::deque<Port> ports;
  std::vector<Item> queue;  // a heap
  std::uint64_t order = 0;
  std::vector<Flight> flights;
  std::vector<std::uint32_t> free_flights;
  std::vector<std::function<void()>> calls;
  std::vector<std::uint32_t> free_calls;
  std::vector<Port*> dirty;
  Tag next_tag = 1;
  Time lateness = 0;                                // the longest that a host is late for its deadline
  bool is_hostile = false;                          // a hostile host has spoken: what is known may be anything
  std::deque<std::vector<std::uint8_t>> overheard;  // the last genuine datagrams, for those who forge them
  std::string breach;                               // empty: none
  std::deque<Line> lines;
  std::size_t lines_max = 60;
  std::vector<std::string> overlooked;  // how the invariants begin that are not looked at
  Hash digest = 0;                      // of everything that was sent and reported
  Sums sums;
};

Medium& add_medium(World& world, const Weather& weather);
Host& add_host(World& world, std::string_view label);
Port& add_port(World& world, Host& host, Medium& medium, mdns::Protocols protocols = mdns::kBothProtocols);

// The time on the host's own clock.
Time clock_of(const Port& port);

// Whether the port takes part in what happens on its medium.
bool is_present(const Port& port);

// Puts the item into the queue, behind others of its time.
void plan(World& world, Item item);

// A free place in `slots`, or a new one at its end.
template <typename T>
std::uint32_t take_slot(std::vector<T>& slots, std::vector<std::uint32_t>& free) {
  if (free.empty()) {
    slots.emplace_back();
    return static_cast<std::uint32_t>(slots.size() - 1);
  }
  const std::uint32_t slot = free.back();
  free.pop_back();
  return slot;
}

// Does `call` at that time (in order of time, then of these calls).
void call_at(World& world, Time at, std::function<void()> call);

// To be called after each call of the engine: does what is due, sends, and acts upon events before anything else
// happens.
void touch(Port& port);

// Whether the claim makes the name one's own: its records have the cache-flush bit.
inline bool is_owning(mdns::Claim claim) { return claim == mdns::Claim::unique || claim == mdns::Claim::exclusive; }

// Lets time pass until `until`, or until an invariant is broken.
void run_until(World& world, Time until);
inline void run_for(World& world, Time duration) { run_until(world, world.now + duration); }

// Sends a datagram from an address that no engine stands behind. `to` null: to all ports of the medium.
struct Forged {
  mdns::Endpoint source;
  bool is_local = true;
  std::vector<std::uint8_t> bytes;
};
void inject(World& world, Medium& medium, const Forged& forged);

// --- The story (trace.cpp)

void note(World& world, const Port* port, const char* what, std::string text);
void note_datagram(World& world, const Port* port, const char* what, mdns::Bytes bytes, mdns::Protocols protocols);

// An invariant is broken: the first one is kept, and time stands still. `subject` is what it is about: a name, mostly.
void fail(World& world, const Port* port, const char* invariant, const std::string& subject);

// The breach and the lines before it.
std::string story(const World& world);

}  // namespace simulation
