// SPDX-License-Identifier: MIT
// Operations: what a reference of the caller names, and what the library does by itself.
#pragma once

#include <dns_sd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "dnssd/base/names.h"
#include "mdns/mdns.h"
#include "mdns/wire/name.h"

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

// What a former process published on an interface and the caller has not registered again yet (inheritance.cpp).
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

}  // namespace dnssd
