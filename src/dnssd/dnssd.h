// SPDX-License-Identifier: MIT
// libdns_sd.so.1: the dns_sd.h interface over Avahi's embeddable core, in the caller's own process.
//
// What the library promises
//
//   Functions. DNSServiceCreateConnection, -Browse, -Resolve, -QueryRecord, -Register, -RegisterRecord, -UpdateRecord,
//   -RemoveRecord, -RefSockFD, -ProcessResult and -RefDeallocate, as the comments of dns_sd.h describe them; with
//   kDNSServiceFlagsShareConnection (0x4000, newer than Debian's header) and without it. Nothing else is exported but
//   what Avahi calls in place of its own (key_equal.h, withheld.h).
//
//   One engine. A process has one engine on one epoll descriptor, and every live reference answers DNSServiceRefSockFD
//   with it. DNSServiceProcessResult on any of them drives the engine and delivers the replies of all of them, in the
//   order in which they arose: a caller that always serves one connection first starves no other. It never blocks, does
//   a bounded amount of work and delivers a bounded number of replies; the descriptor stays readable while there is more.
//   The library has no thread of its own and, like dns_sd.h, leaves it to the caller to serialise its calls.
//
//   Interfaces. An operation runs on the one interface that it names. Index 0 (any) and
//   kDNSServiceInterfaceIndexLocalOnly are kDNSServiceErr_Unsupported, an index that is no interface's is
//   kDNSServiceErr_BadInterfaceIndex. Each interface in use has an Avahi server of its own whose sockets are bound to
//   it; no capability is needed for that (where a kernel older than 5.7 refuses it: kDNSServiceErr_NoAuth), and other
//   responders of the machine, avahi-daemon among them, run on undisturbed. Nothing of the machine's own is published.
//   The domain is "local" (null, "local" and "local." mean it); others are kDNSServiceErr_Unsupported.
//
//   Aliases. CNAME records of others are neither followed nor reported, nor is a unique record in the same response, until it is
//   said without one.
//
//   Callbacks. Replies are delivered from DNSServiceProcessResult only, after Avahi's code has returned. Any operation,
//   the callback's own included, or a whole connection may be released in one, and exit() may be called; nothing is
//   delivered for a released operation. DNSServiceProcessResult itself may not be called there (kDNSServiceErr_BadState).
//
//   Signals. While the library works or calls back, all signals are held back but those of a fault (SEGV, BUS, FPE, ILL,
//   ABRT, TRAP): no handler runs in the middle of its data. The calling thread's mask is restored on leaving.
//   While something is registered, each of SIGTERM, SIGINT, SIGHUP and SIGQUIT that the program leaves to its default
//   action (and has not blocked) is taken: blocked, and read from a signalfd in the engine. When one arrives, everything is
//   withdrawn with its goodbyes and the process then dies of that signal as it would have. With a handler of its own the
//   program keeps the signal, and with nothing registered any more it gets it back. (Process 1 of a pid namespace, which
//   the default action does not kill, keeps all of them.)
//
//   Goodbyes. Whatever is withdrawn gets its goodbye on the wire, at once when the last connection is released, when the
//   process returns from main or calls exit(). A child of fork() has no part in its parent's engine: the parent's
//   references are bad ones there, and it sends nothing in its parent's name.
//
//   Flags. Bits that the library does not know, private ones such as 0x08000000 and 0x80000000 among them, are ignored,
//   as are kDNSServiceFlagsForceMulticast (everything here is multicast) and kDNSServiceFlagsLongLivedQuery (so is every
//   query). kDNSServiceErr_BadFlags: a record that is not exactly one of shared and unique; NoAutoRename without a name
//   or a callback.
//
//   References. A DNSServiceRef or DNSRecordRef is a serial number that is never used again, not an address: one that is
//   stale, wild or of the wrong kind is recognised (kDNSServiceErr_BadReference, descriptor -1, or nothing happens).
//
// What it needs: libavahi-core, Linux (epoll, timerfd, eventfd, signalfd, SO_BINDTODEVICE), UDP port 5353 shared with
// others. It includes nothing of the rest of this source tree.
//
// Reading order: api_lookup.cpp and api_publish.cpp (each dns_sd.h function: what is checked, which operation starts),
// this header (the records), references.cpp, engine.cpp (one pass), replies.cpp; then browse.cpp with departures.h, resolve.cpp,
// query.cpp with answers.h, and under all three lookups.h with told_records.h and rests.h, and for pointers pointers.h with
// pointer_questions.h, pointer_hearing.cpp and pointer_records.h; register.cpp and records.cpp with publications.cpp, pacing.h,
// announcer.h, message.cpp, long_names.h, crowd.h, crowd_answers.h and own_records.h; last the ground: server.cpp, gate.h
// with repeats.h and withheld.h, key_equal.h, group_ear.h, links.h, poll.cpp, wall_clock.h, signals.cpp, senders.h, multicast.h,
// message_reader.h, canonical_record.h, names.cpp, service_names.cpp.
#pragma once

#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>
#include <dns_sd.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

#include "dnssd/answers.h"
#include "dnssd/poll.h"
#include "dnssd/service_names.h"

namespace dnssd {

// Values that Debian's dns_sd.h is too old to name.
inline constexpr DNSServiceFlags kFlagsShareConnection = 0x4000;
inline constexpr DNSServiceErrorType kErrServiceNotRunning = -65563;

// What a reference is made of. 0 is no reference.
using Serial = std::uintptr_t;

struct Lookup;
struct Server;
struct Publication;

// The parts of an operation that only its kind has. Lookups are owned and ended when the operation is released.
struct Connection {};

struct BrowsedInstance {
  std::string name;        // as it was told
  unsigned protocols = 0;  // those that still have it
};

struct Browse {
  DNSServiceBrowseReply callback = nullptr;
  Lookup* lookup = nullptr;
  Name type;                                                   // _ipp._tcp.local: what an instance's name must end in
  std::unordered_map<std::string, BrowsedInstance> instances;  // live ones, by folded name
};

struct Resolve {
  DNSServiceResolveReply callback = nullptr;
  Lookup* srv_lookup = nullptr;
  Lookup* txt_lookup = nullptr;
  std::string full_name;  // presentation format
  AnswerSet srv, txt;
  std::string told_srv, told_txt;  // rdata of the last reply, empty before the first
};

struct Query {
  DNSServiceQueryRecordReply callback = nullptr;
  Lookup* lookup = nullptr;
  std::string full_name;  // presentation format
  std::uint16_t rrtype = 0;
  AnswerSet answers;
  std::string told;  // A and AAAA: rdata of the last reply, empty before the first
};

struct Registration {
  DNSServiceRegisterReply callback = nullptr;  // may be null
  ServiceType type;
  std::string name;        // plain, as it is tried or established now
  std::string told;        // the name in the last reply, empty before the first
  std::string host;        // Avahi text
  std::uint16_t port = 0;  // host order
  std::string txt;         // rdata
  bool auto_rename = true;
  bool over = false;               // it has failed and the caller was told: nothing is published any more
  std::uint32_t conflicts = 0;     // since there was none for a while
  std::int64_t last_conflict = 0;  // monotonic, microseconds
  AvahiTimeout* retry = nullptr;   // runs while the next name waits for its turn
  // Each may be shared with other registrations that want the very same records.
  Publication* service = nullptr;      // SRV and TXT, under the name that is tried or established; null: none is
  std::vector<Publication*> pointers;  // the PTR records that lead to it, held once the name is established;
                                       // the last one is the type's, under _services._dns-sd._udp
};

struct Record {
  DNSServiceRegisterRecordReply callback = nullptr;
  std::string name;  // Avahi text
  std::uint16_t rrtype = 0;
  bool unique = false;
  bool told = false;
  Publication* publication = nullptr;  // null once a conflict has ended it
};

// One thing that the caller has a reference to.
struct Operation {
  Serial serial = 0;
  Serial connection = 0;     // the connection that it shares or belongs to; 0: it stands by itself
  Server* server = nullptr;  // null for a connection
  void* context = nullptr;
  unsigned queued = 0;  // replies that wait for delivery
  std::variant<Connection, Browse, Resolve, Query, Registration, Record> part;
};

// The part of an operation that is known to be of its kind.
template <typename Part>
Part& part_of(Operation& operation) {
  Part* part = std::get_if<Part>(&operation.part);
  if (part == nullptr) {
    std::abort();
  }
  return *part;
}

// One reply on its way to a callback; which fields it uses goes by the operation's kind.
struct Reply {
  Serial to = 0;
  DNSServiceFlags flags = 0;
  DNSServiceErrorType error = kDNSServiceErr_NoError;
  std::string name;    // instance name, or full name in presentation format
  std::string detail;  // type, or host target
  std::string data;    // rdata or TXT data
  std::uint16_t rrtype = 0;
  std::uint16_t port = 0;  // network order
  std::uint32_t ttl = 0;   // seconds
};

// The process's one engine: made with the first reference, gone with the last one that is not part of a connection.
struct Engine {
  pid_t owner = 0;  // the process that made it; in a forked child it is not ours
  Poll poll;
  bool lost = false;         // the descriptor or an Avahi server failed: nothing works any more
  bool passing = false;      // DNSServiceProcessResult is running
  unsigned connections = 0;  // live references that stand by themselves
  unsigned published = 0;    // live registrations and records
  std::unordered_map<Serial, std::unique_ptr<Operation>> operations;
  std::map<std::uint32_t, std::unique_ptr<Server>> servers;  // by interface index
  std::unordered_map<Serial, std::unique_ptr<Publication>> publications;
  std::deque<Reply> replies;
  std::size_t deliverable = 0;               // replies in the queue whose operation is still there
  AvahiWatch* links = nullptr;               // on a netlink socket; null when the system refused it
  std::vector<Serial> changed_publications;  // state changes that Avahi reported, to be acted upon when it has returned
};

// Written by engine.cpp only; null while the process has no live reference.
extern Engine* gEngine;

}  // namespace dnssd
