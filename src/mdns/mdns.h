// SPDX-License-Identifier: MIT
// Multicast DNS (RFC 6762) for one link, as a state machine without input or output of its own.
//
// What the engine promises
//
//   Sans I/O. It makes no system call, reads no clock, draws no random number of its own and has no global state.
//   Datagrams, calls and the time go in; datagrams to be sent, events and the next deadline come out. The same seed and
//   the same calls give the same output, byte for byte.
//
//   One link. A Link stands for one interface: its cache, what is asked there and what is published there. Links know
//   nothing of each other. IPv4 and IPv6 on a link share all of it: a record is the same record over either.
//
//   Bounded. The work for a datagram is in proportion to its length; memory is bounded for each link, name and source;
//   no TTL counts for more than 75 minutes; a rate limit bounds the packets that are sent.
//
// How it is driven
//
//   Every call takes the time, which never goes back. After any calls, and whenever link_deadline has come:
//   link_advance, then send what link_take_datagrams gives, in its order, and act upon what link_take_events gives.
//   Calls may be made at any time between; none calls back. Names and rdata are plain wire format without compression
//   (name.h, record.h).
//
// Reading order: this header; wire/ (names, records and messages as bytes); state/link.h and what it includes (what a
// link knows); link.cpp (how a datagram and a deadline run through the parts). Then by subject. Records of other hosts:
// store/cache.h, schedule/questions.h, exchange/querier.h. Published records: store/zone.h, store/publications.h,
// schedule/probes.h and announcements.h, exchange/prober.h and announcer.h. Answers: schedule/answers.h,
// exchange/responder.h. What bounds the datagrams: schedule/outbox.h and sources.h. The times are in schedule, the
// messages in exchange.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mdns/wire/record.h"
#include "mdns/wire/types.h"

namespace mdns {

struct Link;

struct LinkDeleter {
  void operator()(Link* link) const;
};

using LinkPtr = std::unique_ptr<Link, LinkDeleter>;

// A link on which nothing is known, asked or published, over these protocols. `seed` decides its random delays: no two
// hosts of a link should have the same.
LinkPtr link_new(std::uint64_t seed, Protocols protocols);

// --- Time (link.cpp)

// Does what is due.
void link_advance(Link& link, Time now);

// When link_advance is to be called next; kNever when nothing is planned. A time that is past: at once.
Time link_deadline(const Link& link);

// --- Datagrams (link.cpp)

struct Received {
  Endpoint source;
  bool to_group = true;  // sent to the multicast group, and not to this machine alone
  bool is_local = true;  // the source is on the link, as far as its address tells (RFC 6762 section 11)
  Bytes bytes;
};

// Takes in one datagram. Own ones that the system loops back are recognised and ignored.
void link_receive(Link& link, Time now, const Received& received);

struct Datagram {
  Protocols protocols = kNoProtocol;  // to the multicast group over each of these; kNoProtocol: to `to` alone
  Endpoint to;
  std::vector<std::uint8_t> bytes;
};

// What is to be sent, in this order.
std::vector<Datagram> link_take_datagrams(Link& link);

// --- The link itself (link.cpp)

// The link has an address of these protocols, and of no others. Records that were received only over a protocol that is
// gone are reported as removed. With a new protocol everything that is published is probed for and announced again, and
// all questions are restarted (RFC 6762 section 8).
void link_set_protocols(Link& link, Time now, Protocols protocols);

// The link may have been interrupted: cable out and in, or another address. Everything that is published is probed for
// and announced again, and all questions are restarted. With `was_down` all cached records are reported as removed.
void link_restart(Link& link, Time now, bool was_down);

// What has passed over a link since it was made.
struct LinkFigures {
  std::uint64_t received = 0;      // datagrams, without own ones that came back
  std::uint64_t ignored = 0;       // of these, beyond what their source may say
  std::uint64_t sent = 0;          // datagrams, counted once for each protocol
  std::uint64_t conflicts = 0;     // names that turned out to be another host's
  std::vector<Endpoint> siblings;  // hosts that said within the last hour what is published here: other gateways, as a
                                   // rule
};

LinkFigures link_figures(const Link& link, Time now);

// --- Queries (exchange/querier.cpp, store/cache.cpp)

// 0 is none.
using QueryId = std::uint64_t;

// Whether a query sends questions, or only reports what is cached and received anyway.
enum class Interest { asking, listening };

// Asks for the records of `name` and `type` until query_stop: by multicast, at the intervals of RFC 6762 section 5.2.
// Records in the cache, or published on the link, are reported first. `tag` comes back in each event. A record is not
// reported as added again before it has been reported as removed; one that this link itself no longer publishes is
// reported as removed when the second of its goodbye is over. `type` is one type, not ANY. A listening query gets the
// same events, but no question is sent and no cache entry refreshed or kept for it; it also gets `renewed` when a
// unique record is received again.
QueryId query_start(Link& link, Time now, std::string_view name, std::uint16_t type, std::uint64_t tag,
                    Interest interest = Interest::asking);

// Asks for a cached record again, because the caller has reason to think that it is stale; it is removed unless a host
// sends it again within ten seconds (RFC 6762 section 10.4). A record that is not cached: nothing happens.
void link_reconfirm(Link& link, Time now, std::string_view name, std::uint16_t type, std::string_view rdata);

// Events of the query that have not been taken yet are dropped. 0: nothing happens.
void query_stop(Link& link, Time now, QueryId id);

// --- Publications (store/publications.cpp)

// Whose the name of a publication is.
enum class Claim {
  shared,     // anybody's: its records are announced without probes and without the cache-flush bit
  unique,     // ours, if the probes say so; together with others of this link that are published under that name
  exclusive,  // the same; and within this link nobody else's either, who has other data of one of the types
  yielding,   // for the addresses of a host on another link: shared, as long as no host of this link owns the name. The
              // name is probed for without proposed records before anything is announced; when another host sends other
              // addresses with the cache-flush bit, or proposes other ones, that is a conflict. Shared records of other
              // hosts are none
};

struct RecordData {
  std::uint16_t type = 0;
  std::uint32_t ttl = 0;  // seconds; 0: the usual one (usual_ttl)
  std::string rdata;      // well formed (is_rdata)
};

// 0 is none.
using PublicationId = std::uint64_t;

// Publishes records of one name: probes for it if it is claimed, announces them, answers for them. `tag` comes back in
// each event: `established` when the name is ours, or `conflict` when it is another's: then the publication is gone,
// without a goodbye. The same record (name, type, data) published twice on a link is one record with two holders; TTL
// and claim of the first hold. Without records a name is only looked for: what is published under it later need not
// wait.
PublicationId publish(Link& link, Time now, std::string_view name, std::span<const RecordData> records, Claim claim,
                      std::uint64_t tag);

// The publication's record of that type now has other data. An established one is announced without probes; the old
// data is withdrawn with the new data's announcement, unless others hold it. With `for_all` their records change as
// well. False, and nothing has changed: there is no such publication or record; or the name is claimed as exclusive and
// another publication of this link has other data.
bool publication_update(Link& link, Time now, PublicationId id, const RecordData& data, bool for_all = false);

// Withdraws what nobody else holds, with its goodbye; or without one: the name turned out to be another host's. An id
// of nothing that is published: nothing happens.
void publication_withdraw(Link& link, Time now, PublicationId id, bool with_goodbye = true);

// Delays goodbyes until then: a record that is published again by that time gets none, and one that is published with
// other data in its place is an update (RFC 6762 section 8.4). To be used for a few tenths of a second only, since
// other hosts still find the withdrawn records until then.
void link_hold_goodbyes(Link& link, Time now, Time until);

// Withdraws everything; the link is about to be freed, and only goodbyes are sent from now on. link_deadline is kNever
// when all of them have been taken. With `hands_over` published records get no goodbye, since another process takes
// them over.
void link_withdraw_all(Link& link, Time now, bool hands_over = false);

// --- Handing over: published records that another process of the machine takes over (store/publications.cpp)

// A record that is published and established.
struct Published {
  std::string name;
  RecordData data;
  Claim claim = Claim::shared;                // unique in place of exclusive
  std::uint8_t announcements_left = 0;        // still to come
  std::array<Time, 2> multicast_at = {0, 0};  // when it was last sent over each protocol, by a clock that both
                                              // processes have
};

std::vector<Published> link_published(const Link& link);

// Publishes the record as though it had been published here all the time: its name is not probed for, and nothing is
// announced but what was still to come. To be called before anything else is published under that name.
PublicationId publish_inherited(Link& link, Time now, const Published& inherited, std::uint64_t tag);

// --- Events

struct Event {
  enum class Kind { added, removed, renewed, established, conflict };
  Kind kind{};
  std::uint64_t id = 0;   // of the query or publication
  std::uint64_t tag = 0;  // as its caller gave it
  std::uint16_t type = 0;
  std::uint32_t ttl = 0;   // seconds, as received
  std::string rdata;       // added and removed: the record
  bool is_unique = false;  // added: it was received with the cache-flush bit
  // Added and renewed: a number for the host that sent it last over each protocol; 0: none.
  std::array<std::uint32_t, 2> sent_by{};
};

std::vector<Event> link_take_events(Link& link);

}  // namespace mdns
