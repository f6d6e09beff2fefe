// SPDX-License-Identifier: MIT
// libdns_sd.so.1: the dns_sd.h interface over the multicast DNS of src/mdns, in the caller's own process.
//
// What the library promises
//
//   Functions. DNSServiceCreateConnection, -Browse, -Resolve, -QueryRecord, -Register, -RegisterRecord, -UpdateRecord,
//   -RemoveRecord, -RefSockFD, -ProcessResult and -RefDeallocate, as the comments of dns_sd.h describe them; with
//   kDNSServiceFlagsShareConnection (0x4000, newer than Debian's header) and without it. Nothing else is exported.
//
//   One engine. A process has one engine on one epoll descriptor, and every live reference answers DNSServiceRefSockFD with
//   it. DNSServiceProcessResult on any of them drives the engine and delivers the replies of all of them, in the order in
//   which they arose: a caller that always serves one connection first starves no other. It never blocks, does a bounded
//   amount of work and delivers a bounded number of replies; the descriptor stays readable while there is more. The library
//   has no thread of its own and, like dns_sd.h, leaves it to the caller to serialise its calls.
//
//   Interfaces. An operation runs on the one interface that it names. Index 0 (any) and kDNSServiceInterfaceIndexLocalOnly
//   are kDNSServiceErr_Unsupported, an index that is no interface's is kDNSServiceErr_BadInterfaceIndex. Each interface in
//   use has sockets of its own for IPv4 and IPv6, bound to it; no capability is needed for that (where a kernel older than
//   5.7 refuses it: kDNSServiceErr_NoAuth), and other responders of the machine run on undisturbed. Packets go out over a
//   protocol only while the interface has an address of it. When an interface goes, all that was found there is reported
//   removed, and its operations go on: what they registered is announced again when it comes back. Nothing of the machine's
//   own is published. The domain is "local" (null, "local" and "local." mean it); others are kDNSServiceErr_Unsupported.
//   Names are UTF-8; others are kDNSServiceErr_BadParam.
//
//   Aliases. CNAME records are not followed: one is reported to whoever asks for that type, like any other record.
//
//   Changes. When the SRV or TXT data of an instance changes that was browsed for and resolved, and that resolve has been
//   released, the browse reports the instance gone and found again. What the caller withdraws then, and registers again
//   within a fifth of a second, is an update on the wire: no goodbye, no probes, one announcement of what is different. When
//   all addresses of a host that are asked for have run out, its services are asked for once more and reported gone after ten
//   seconds without an answer.
//
//   Callbacks. Replies are delivered from DNSServiceProcessResult only. Any operation, the callback's own included, or a
//   whole connection may be released in one, and exit() may be called; nothing is delivered for a released operation.
//   DNSServiceProcessResult itself may not be called there (kDNSServiceErr_BadState).
//
//   Signals. While the library works or calls back, all signals are held back but those of a fault (SEGV, BUS, FPE, ILL,
//   ABRT, TRAP): no handler runs in the middle of its data. The calling thread's mask is restored on leaving. While something
//   is registered, each of SIGTERM, SIGINT, SIGHUP and SIGQUIT that the program leaves to its default action (and has not
//   blocked) is taken: blocked, and read from a signalfd in the engine. When one arrives, everything is withdrawn with its
//   goodbyes and the process then dies of that signal as it would have. With a handler of its own the program keeps the
//   signal, and with nothing registered any more it gets it back. (Process 1 of a pid namespace, which the default action
//   does not kill, keeps all of them.)
//
//   Goodbyes. Whatever is withdrawn gets its goodbye on the wire: before the call returns when the last connection is
//   released, and when the process returns from main or calls exit() (three seconds at most). A child of fork() has no part
//   in its parent's engine: the parent's references are bad ones there, and it sends nothing in its parent's name.
//
//   Flags. Bits that the library does not know, private ones such as 0x08000000 and 0x80000000 among them, are ignored, as
//   are kDNSServiceFlagsForceMulticast (everything here is multicast) and kDNSServiceFlagsLongLivedQuery (so is every query).
//   kDNSServiceErr_BadFlags: a record that is not exactly one of shared and unique; NoAutoRename without a name or a
//   callback.
//
//   References. A DNSServiceRef or DNSRecordRef is a handle, a number that is never used again, not an address: one that is
//   stale, wild or of the wrong kind is recognised (kDNSServiceErr_BadReference, descriptor -1, or nothing happens).
//
// What it needs: Linux (epoll, timerfd, eventfd, signalfd, netlink, SO_BINDTODEVICE), UDP port 5353 shared with others. It
// includes src/mdns and nothing else of this source tree.
//
// Reading order: api_lookup.cpp and api_publish.cpp (each dns_sd.h function: what is checked, which operation starts), this
// header (the records), references.cpp, engine.cpp (one pass), replies.cpp; then an operation a file: browse.cpp,
// resolve.cpp, query.cpp, register.cpp, records.cpp, and followers.h, what becomes of a resolve; last the ground:
// interface.cpp, sockets.cpp, link_monitor.cpp, poll.cpp, signals.cpp, names.cpp, service_names.cpp.
#pragma once

#include <dns_sd.h>
#include <sys/types.h>

#include <array>
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

#include "dnssd/poll.h"
#include "dnssd/service_names.h"
#include "mdns/mdns.h"
#include "mdns/name.h"

namespace dnssd {

// Values that Debian's dns_sd.h is too old to name.
inline constexpr DNSServiceFlags kFlagsShareConnection = 0x4000;
inline constexpr DNSServiceErrorType kErrServiceNotRunning = -65563;

// What a reference is made of. 0 is no reference. The engine's events carry it as their tag.
using Handle = std::uintptr_t;

struct Interface;
struct Follower;

// Names in wire format, the same however their letters are written.
struct FoldedHash {
  std::uint64_t seed = 0;
  std::size_t operator()(const std::string& name) const { return mdns::hash_folded(name, seed); }
};

struct FoldedEqual {
  bool operator()(const std::string& a, const std::string& b) const { return mdns::same_folded(a, b); }
};

// One live answer to a query.
struct Answer {
  std::string rdata;
  std::uint32_t ttl = 0;  // seconds
};

// The parts of an operation that only its kind has.
struct Connection {};

struct Browse {
  DNSServiceBrowseReply callback = nullptr;
  std::string type;                                                    // wire name, what an instance's name must end in
  std::unordered_set<std::string, FoldedHash, FoldedEqual> instances;  // live ones: PTR rdata as it was first reported
};

struct Resolve {
  DNSServiceResolveReply callback = nullptr;
  std::string name;                        // of the instance
  std::vector<Answer> srv, txt;            // live ones, the newest last
  std::string reported_srv, reported_txt;  // rdata of the last reply, empty before the first
};

struct Query {
  DNSServiceQueryRecordReply callback = nullptr;
  std::string name;
  std::uint16_t rrtype = 0;
  // A and AAAA only, link-local addresses and others apart: live answers, the newest last, and the rdata of the last reply.
  std::array<std::vector<Answer>, 2> answers;
  std::array<std::string, 2> reported;
};

struct Registration {
  DNSServiceRegisterReply callback = nullptr;  // may be null
  ServiceType type;
  std::string name;          // plain, as it is tried or established now
  bool is_reported = false;  // the caller knows of this name
  bool auto_rename = true;
  bool is_over = false;         // it has failed, which was reported: nothing is published any more
  std::string host;             // wire name
  std::uint16_t port = 0;       // host order
  std::string txt;              // rdata
  std::uint32_t conflicts = 0;  // since there was none for a while
  mdns::Time last_conflict = 0;
  mdns::PublicationId service = 0;            // SRV and TXT, under the name that is tried or established; 0: none is
  std::vector<mdns::PublicationId> pointers;  // the PTR records that lead to it, published once the name is established;
                                              // the last one is the type's, under _services._dns-sd._udp
};

struct Record {
  DNSServiceRegisterRecordReply callback = nullptr;
  std::uint16_t rrtype = 0;
  bool is_unique = false;
  bool is_reported = false;             // the caller knows that it is established
  mdns::PublicationId publication = 0;  // 0 once a conflict has ended it
};

// One thing that the caller has a reference to.
struct Operation {
  Handle handle = 0;
  Handle connection = 0;           // the connection that it shares or belongs to; 0: it stands by itself
  Interface* interface = nullptr;  // null for a connection
  void* context = nullptr;
  std::array<mdns::QueryId, 2> queries{};  // that it has asked; 0: none
  unsigned queued = 0;                     // replies that wait for delivery
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
  Handle to = 0;
  DNSServiceFlags flags = 0;
  DNSServiceErrorType error = kDNSServiceErr_NoError;
  std::string name;    // instance name, or full name in presentation format
  std::string detail;  // type, or host target
  std::string data;    // rdata or TXT data
  std::uint16_t rrtype = 0;
  std::uint16_t port = 0;      // network order
  std::uint32_t ttl = 0;       // seconds
  bool begins_update = false;  // the instance is about to be found again, with other data
};

// The process's one engine: made with the first reference, gone with the last one that is not part of a connection.
struct Engine {
  pid_t owner = 0;  // the process that made it; in a forked child it is not ours
  Poll poll;
  Watch link_monitor;        // a netlink socket; not open when the system refused it
  bool is_lost = false;      // the descriptor failed: nothing works any more
  bool is_passing = false;   // DNSServiceProcessResult is running
  mdns::Time slept = 0;      // time_asleep when the links were served last
  unsigned connections = 0;  // live references that stand by themselves
  unsigned published = 0;    // live registrations and records
  std::unordered_map<Handle, std::unique_ptr<Operation>> operations;
  std::map<std::uint32_t, std::unique_ptr<Interface>> interfaces;  // by index
  std::multimap<mdns::Time, Handle> renamings;                     // registrations whose next name waits for its turn
  std::unordered_map<Handle, std::unique_ptr<Follower>> followers;
  std::vector<Handle> touched;    // followers and resolves, by the events in hand
  mdns::Time goodbyes_until = 0;  // what is withdrawn may come back with other data until then (followers.h)
  std::deque<Reply> replies;
  std::size_t deliverable = 0;  // replies in the queue whose operation is still there
};

// Written by engine.cpp only; null while the process has no live reference.
extern Engine* gEngine;

}  // namespace dnssd
