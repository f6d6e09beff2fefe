// SPDX-License-Identifier: MIT
// libdns_sd.so.1: the dns_sd.h interface over the multicast DNS of src/mdns, in the caller's own process.
//
// What the library promises
//
//   Functions. DNSServiceCreateConnection, -Browse, -Resolve, -QueryRecord, -Register, -RegisterRecord, -UpdateRecord,
//   -RemoveRecord, -RefSockFD, -ProcessResult and -RefDeallocate, as the comments of dns_sd.h describe them; with
//   kDNSServiceFlagsShareConnection (0x4000) and without it. dns_sd_link_figures says what has
//   passed over the links (dns_sd_figures.h). Nothing else is exported.
//
//   One engine. A process has one engine on one epoll descriptor, and every live reference answers DNSServiceRefSockFD
//   with it. DNSServiceProcessResult on any of them drives the engine and delivers the replies of all of them, in the
//   order in which they arose: a caller that always serves one connection first starves no other. It never blocks, does
//   a bounded amount of work and delivers a bounded number of replies; the descriptor stays readable while there is
//   more. The library has no thread of its own and, like dns_sd.h, leaves it to the caller to serialise its calls.
//
//   Interfaces. An operation runs on the one interface that it names. Index 0 (any) and
//   kDNSServiceInterfaceIndexLocalOnly are kDNSServiceErr_Unsupported, an index that is no interface's is
//   kDNSServiceErr_BadInterfaceIndex. Each interface in use has sockets of its own for IPv4 and IPv6, bound to it; no
//   capability is needed for that (where a kernel older than 5.7 refuses it: kDNSServiceErr_NoAuth), and other
//   responders of the machine run on undisturbed. Packets go out over a protocol only while the interface has an
//   address of it. When an interface goes, all that was found there is reported removed, and its operations go on: what
//   they registered is announced again when it comes back. Nothing of the machine's own is published. The domain is
//   "local" (null, "local" and "local." mean it); others are kDNSServiceErr_Unsupported. Names are UTF-8; others are
//   kDNSServiceErr_BadParam.
//
//   Aliases. CNAME records are not followed: one is reported to whoever asks for that type, like any other record.
//
//   Hosts. A host that is not on the link gives way to one on the link that has the same name: its shared address
//   records (flag 0x10, types A and AAAA) are then published under "name-2", and the SRV records of its services name
//   that.
//
//   Changes. When the SRV or TXT data of an instance changes that was browsed for and resolved, and that resolve has
//   been released, the browse reports the instance removed and added again. What the caller withdraws then, and
//   registers again within a fifth of a second, is an update on the wire: no goodbye, no probes, one announcement of
//   what is different. When all addresses of a host that are asked for have expired, its services are asked for once
//   more and reported removed after ten seconds without an answer.
//
//   Callbacks. Replies are delivered from DNSServiceProcessResult only. Any operation, the callback's own included, or
//   a whole connection may be released in one, and exit() may be called; nothing is delivered for a released operation.
//   DNSServiceProcessResult itself may not be called there (kDNSServiceErr_BadState).
//
//   Signals. While the library works or calls back, all signals are held back but those of a fault (SEGV, BUS, FPE,
//   ILL, ABRT, TRAP): no handler runs in the middle of its data. The calling thread's mask is restored on leaving.
//   While something is registered, each of SIGTERM, SIGINT, SIGHUP and SIGQUIT that the program leaves to its default
//   action (and has not blocked) is taken: blocked, and read from a signalfd in the engine. When one arrives,
//   everything is withdrawn with its goodbyes and the process then dies of that signal as it would have. With a handler
//   of its own the program keeps the signal, and with nothing registered any more it gets it back. (Process 1 of a pid
//   namespace, which the default action does not kill, keeps all of them.)
//
//   Goodbyes. Whatever is withdrawn gets its goodbye on the wire: before the call returns when the last connection is
//   released, and when the process returns from main or calls exit() (three seconds at most). A child of fork() has no
//   part in its parent's engine: the parent's references are bad ones there, and it sends nothing in its parent's name.
//
//   Restarts. Where the environment variable MDNSPROXY_HANDOVER names a file, a process can take over the published
//   records of its predecessor (handover.cpp): they are not withdrawn and announced again.
//
//   Flags. Bits that the library does not know, private ones such as 0x08000000 and 0x80000000 among them, are ignored,
//   as are kDNSServiceFlagsForceMulticast (everything here is multicast) and kDNSServiceFlagsLongLivedQuery (so is
//   every query). kDNSServiceErr_BadFlags: a record that is not exactly one of shared and unique; NoAutoRename without
//   a name or a callback.
//
//   References. A DNSServiceRef or DNSRecordRef is a handle, a number that is never used again, not an address: one
//   that is stale, wild or of the wrong kind is recognised (kDNSServiceErr_BadReference, descriptor -1, or nothing
//   happens).
//
// What it needs: Linux (epoll, timerfd, signalfd, netlink, SO_BINDTODEVICE), UDP port 5353 shared with others. It
// includes src/mdns and nothing else of this source tree.
//
// Reading order: api.cpp (each dns_sd.h function: what is checked, which operation starts), this header (the records),
// operations.cpp (the registry of operations), engine.cpp (one pass, and the delivery of replies); then what the
// operations do: lookup.cpp and publish.cpp, hosts.cpp (the names of hosts of other links) and handover.cpp; last what
// they stand on: interface.cpp, sockets.cpp, link_monitor.cpp, poll.cpp, signals.cpp, names.cpp.
#pragma once

#include <dns_sd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "dnssd/names.h"
#include "dnssd/poll.h"
#include "mdns/mdns.h"
#include "mdns/name.h"

namespace dnssd {

// Values that not every dns_sd.h names: another one may stand in for ours.
inline constexpr DNSServiceFlags kFlagsShareConnection = 0x4000;
inline constexpr DNSServiceErrorType kErrServiceNotRunning = -65563;

// A DNSServiceRef or DNSRecordRef is a handle, cast to a pointer type. Handles are odd, so that none equals the address
// of an object, and never used twice, so that a stale reference never names a later operation. 0 is no handle. The
// engine's events have the operation's handle as their tag.
using Handle = std::uintptr_t;

// The `connection` of operations that the library starts by itself; no reference has this handle.
inline constexpr Handle kLibrary = 1;

struct Interface;
struct Operation;

inline bool is_address(std::uint16_t rrtype) { return rrtype == mdns::kTypeA || rrtype == mdns::kTypeAaaa; }

// The order of names in wire format, the same however their letters are written.
struct FoldedLess {
  bool operator()(std::string_view a, std::string_view b) const {
    return std::ranges::lexicographical_compare(a, b, {}, mdns::fold, mdns::fold);
  }
};

// One live answer to a query.
using Answer = mdns::RecordData;

// The live answers to a query, and the last one that was reported.
struct Answers {
  std::vector<Answer> live;              // the newest last
  std::string reported = {};             // rdata of the last reply, empty before the first
  std::array<std::uint32_t, 2> owner{};  // of a follower: the hosts that sent what was reported, by protocol
  bool is_from_owner = false;            // of a follower: the newest differs from that and an owner sent it
};

// The parts of an operation that only its kind has.
struct Connection {};

struct Browse {
  DNSServiceBrowseReply callback = nullptr;
  std::string type;  // wire name; the names of instances end in it
};

struct Resolve {
  DNSServiceResolveReply callback = nullptr;  // null: a follower (lookup.cpp)
  std::string name;                           // of the instance
  std::string host{};                         // of a follower: the target of its SRV record
  Answers srv{}, txt{};
};

struct Query {
  DNSServiceQueryRecordReply callback = nullptr;
  std::string name;
  std::uint16_t rrtype = 0;
  std::array<Answers, 2> answers{};  // A and AAAA only: link-local addresses, and others
};

struct Registration {
  DNSServiceRegisterReply callback = nullptr;  // may be null
  ServiceType type;
  std::string name;          // plain; the one that is probed for or established
  bool is_reported = false;  // this name was reported to the caller
  bool auto_rename = true;
  Operation* host = nullptr;    // the target of its SRV record
  std::uint16_t port = 0;       // host order
  std::string txt;              // rdata
  std::uint32_t conflicts = 0;  // since the last pause of kConflictsForgotten without one
  mdns::Time last_conflict = 0;
  mdns::PublicationId service = 0;                 // SRV and TXT under `name`; 0: none, and with !auto_rename none
                                                   // any more: the conflict was reported
  std::vector<mdns::PublicationId> ptr_records{};  // the PTR records to it, published once the name is established; the
                                                   // last one is the type's, under _services._dns-sd._udp
};

struct Record {
  DNSServiceRegisterRecordReply callback = nullptr;
  mdns::RecordData data;
  Operation* host = nullptr;            // of a shared address: the host that it belongs to; else null
  bool is_reported = false;             // it was reported to the caller as established
  mdns::PublicationId publication = 0;  // 0 once a conflict has ended it
};

// A host that services or shared addresses are registered for, on one interface (hosts.cpp).
struct Host {
  std::string name;                           // as the caller gave it
  unsigned number = 1;                        // of the name that it is published under (host_alias); 1: its own name
  mdns::PublicationId name_publication = 0;   // claims that name without records; 0: lost to another host
  std::vector<Operation*> members{};          // registrations and records that use its name
  std::set<std::string> owner_addresses{};    // addresses (rdata) received for its own name, while it has another one
  mdns::Time unsettled_since = mdns::kNever;  // since when it has no member, or its own name is free
};

// What a former process published on an interface and the caller has not registered again yet (handover.cpp).
struct Inheritance {
  std::multimap<std::string, mdns::PublicationId, FoldedLess> records{};  // by name
  std::map<std::string, std::uint32_t, FoldedLess> hosts{};               // Host::number, by name
};

// One DNS-SD operation: what a reference of the caller names, or what the library does by itself.
struct Operation {
  Handle handle = 0;
  Handle connection = 0;           // that it shares or belongs to, or kLibrary; 0: none
  Interface* interface = nullptr;  // null for a connection
  void* context = nullptr;
  std::vector<mdns::QueryId> queries{};  // that it has started
  unsigned queued = 0;                   // replies that are not delivered yet
  std::variant<Connection, Browse, Resolve, Query, Registration, Record, Host, Inheritance> part;
};

// One queued reply. `deliver` calls the operation's callback; `more` is kDNSServiceFlagsMoreComing, or 0. The operation
// may have been released when it returns.
struct Reply {
  Handle to = 0;
  std::function<void(const Operation& operation, DNSServiceFlags more)> deliver;
};

// A delayed call for an operation; dropped when the operation has ended before.
struct Resumption {
  Handle of = 0;
  void (*resume)(Operation& operation) = nullptr;
};

// The process's one engine: made with the first reference, ended with the last one that belongs to no connection.
struct Engine {
  pid_t owner = getpid();  // the process that made it: a forked child must not use it
  Poll poll;
  Watch link_monitor;                // a netlink socket; not open when the system refused it
  bool is_lost = false;              // the epoll descriptor failed: nothing works any more
  bool is_passing = false;           // DNSServiceProcessResult is running
  bool is_served = false;            // DNSServiceProcessResult has run once
  mdns::Time slept = time_asleep();  // time_asleep() when the links were served last
  unsigned connections = 0;          // live references that belong to no connection
  unsigned published = 0;            // live registrations and records
  std::unordered_map<Handle, std::unique_ptr<Operation>> operations;
  std::map<std::uint32_t, std::unique_ptr<Interface>> interfaces;  // by index
  std::multimap<mdns::Time, Resumption> resumptions;
  mdns::Time goodbyes_until = 0;  // until then goodbyes are held back: updates (lookup.cpp)
  std::deque<Reply> replies;
  std::size_t deliverable = 0;  // replies among them whose operation is live
};

// Written by engine.cpp only; null while the process has no live reference.
extern Engine* gEngine;

// Scope of one call into the library. On entry signals are held back, and a forked child drops its parent's engine. At
// the end an engine without a reference ends, the descriptor's timer is set, and the caller's signal mask is restored.
struct LibraryCall {
  LibraryCall();
  ~LibraryCall();
  LibraryCall(const LibraryCall&) = delete;
  LibraryCall& operator=(const LibraryCall&) = delete;
};

// Makes gEngine unless there is one. kErrServiceNotRunning when the system refuses the descriptors.
DNSServiceErrorType engine_open();

// Withdraws everything with its goodbyes, invalidates every reference, frees everything; gEngine is null afterwards.
void engine_close();

// One pass: serves readable descriptors, due timers and links, then delivers replies. kErrServiceNotRunning when the
// engine is lost, kDNSServiceErr_BadState inside a callback. The process ends in it if a signal that the library took
// has arrived.
DNSServiceErrorType engine_pass();

// --- signals.cpp: see the promises above

// The frame of one call into the library; frames nest, the outermost one restores the caller's mask.
void signals_hold();
void signals_release();

// Takes the fatal signals that the program leaves to their default action while something is `publishing`; gives them
// back when nothing is, or when the program has a handler by now.
void signals_review(bool publishing);

// If a taken signal has arrived: ends the engine with its goodbyes, gives the signal back and raises it; does not
// return then. Not to be called while descriptors are being served.
void signals_die_if_caught();

// In a forked child: gives the signals back without touching the parent's engine.
void signals_forget();

// --- operations.cpp: the registry of operations, and their replies

// Makes an operation with `part`, under a new handle; it counts as a connection when `connection` is 0. Needs gEngine.
Operation* operation_new(Handle connection, Interface* interface, void* context, decltype(Operation::part)&& part);

// Any live operation; null for every other number.
Operation* operation_find(Handle handle);

inline DNSServiceRef service_ref(Handle handle) { return reinterpret_cast<DNSServiceRef>(handle); }
inline DNSRecordRef record_ref(Handle handle) { return reinterpret_cast<DNSRecordRef>(handle); }

// The operation of a caller's reference, if it is of that kind; null when the reference is null, stale or wild.
template <typename Part>
Operation* operation_of(const void* ref) {
  Operation* operation = operation_find(reinterpret_cast<Handle>(ref));
  return operation != nullptr && std::holds_alternative<Part>(operation->part) ? operation : nullptr;
}

// Ends an operation; a connection with all operations that belong to it. None of their replies is delivered any more,
// and what they published is withdrawn. `operation` is freed, or if it was the last reference when the library is left.
void operation_release(Operation& operation);

// The link that the operation runs on, which is then served again (interface_link).
mdns::Link& link_of(const Operation& operation);

// mdns::publish on that link; the events go to operation_event.
mdns::PublicationId publish(const Operation& operation, const std::string& name,
                            std::span<const mdns::RecordData> records, mdns::Claim claim);

// Starts a query for records on the operation's link, which stop_asking stops; its events go to operation_event.
void ask(Operation& operation, const std::string& name, std::uint16_t rrtype,
         mdns::Interest interest = mdns::Interest::asking);
void stop_asking(Operation& operation);

// Appends a reply for `operation`.
void reply_queue(Operation& operation, decltype(Reply::deliver)&& deliver);

// operation_event: handles an event for an operation of that kind. operation_stop: ends what is particular to the kind
// when an operation is released; operation_release stops its queries.
inline void operation_event(Operation&, Connection&, const mdns::Event&) {}
inline void operation_event(Operation&, Inheritance&, const mdns::Event&) {}  // a conflict needs no action
void operation_event(Operation& operation, Browse& browse, const mdns::Event& event);
void operation_event(Operation& operation, Resolve& resolve, const mdns::Event& event);
void operation_event(Operation& operation, Query& query, const mdns::Event& event);
void operation_event(Operation& operation, Registration& registration, const mdns::Event& event);
void operation_event(Operation& operation, Record& record, const mdns::Event& event);
void operation_event(Operation& operation, Host& host, const mdns::Event& event);
inline void operation_stop(Operation&, Connection&) {}
void operation_stop(Operation& operation, Browse& browse);
void operation_stop(Operation& operation, Resolve& resolve);
void operation_stop(Operation& operation, Query& query);
void operation_stop(Operation& operation, Registration& registration);
void operation_stop(Operation& operation, Record& record);
void operation_stop(Operation& operation, Host& host);
void operation_stop(Operation& operation, Inheritance& inheritance);

// Has `resume` called after this time, if the operation is still there then.
void resume_in(const Operation& operation, mdns::Time delay, void (*resume)(Operation& operation));

// What is withdrawn and registered again within this time is an update on the wire (mdns::link_hold_goodbyes). A caller
// needs a few milliseconds for that after an instance was reported removed and added again.
inline constexpr mdns::Time kUpdateWithin = 200 * mdns::kMillisecond;

// --- lookup.cpp

void resolve_start(Operation& operation);

// If the handle is that of a resolve, reports new data. To be called after a batch of events, since one change of data
// may take several events.
void resolve_review(Handle handle);

// Updates the live answers by the event: an added or renewed one becomes the newest, a removed one is taken out.
void answers_change(std::vector<Answer>& answers, const mdns::Event& event);

// --- publish.cpp; `ttl` 0 stands for the usual one

// `host` is the name of the host that the service names.
void registration_start(Operation& operation, const std::string& host);

// Announces new TXT data under the same name. kDNSServiceErr_BadState when it has failed, kDNSServiceErr_BadParam when
// `txt` is no TXT data.
DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl);

// RFC 6762 section 8.1: the delay before the next name is tried after many conflicts.
inline constexpr mdns::Time kConflictPause = 5 * mdns::kSecond;

// The member's host has a new name on the link (host_alias): publishes a shared address under that, or updates the SRV
// record of a registration.
void host_renamed(Operation& member);

// Publishes Record::data, which is publishable.
void record_start(Operation& operation, const std::string& name, mdns::Claim claim);

// The same errors as registration_update; kDNSServiceErr_NameConflict when another operation holds other data as
// unique.
DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl);

// Whether a message can carry the record: well formed for its type, and neither empty nor too long.
bool is_publishable(std::uint16_t rrtype, const std::string& rdata);

// --- hosts.cpp; `operation` is a host's

// The host of that name, on the interface of a registration or record that is about to be published and names it from
// now on. It lives until host_leave at least.
Operation& host_join(Operation& member, const std::string& name);
void host_leave(Operation& operation, Operation& member);

// To be called when a member's address has changed, since that may end or begin a conflict over the host's own name.
void host_review(Operation& operation);

// The name that the host has on the link.
std::string host_alias(const Operation& operation);

}  // namespace dnssd
