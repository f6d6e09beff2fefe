// SPDX-License-Identifier: MIT
// The proxy engine: one browse per rule, one chain of DNS-SD operations per service instance found, and the
// registrations that make the instance usable on the other link.
//
// Promises: an instance is advertised on if_to only once its host has an address there, and everything made for it is
// taken back, in a fixed order, when its browse reports it gone. A peer's misbehaviour is logged. What ends the process
// once it runs: a DNS-SD call that must not fail (a resolve, an AAAA record), an error in the reply to a record's
// registration, a lack of memory. Needs: the two connections of runtime/connections.h, the tables, the fencing settings
// of the platform.
//
// Sources, in the order in which a service instance meets them: call_layer, rule_installation, responder_contexts,
// browse, resolve, host_addresses, fencing, registration, subtype; beside them names (label helpers), record_labels and
// host_lookup (host names over nss-mdns, a facility that the proxy itself does not use).
#pragma once

#include <dns_sd.h>

#include <cstddef>
#include <cstdint>

#include "platform/hash.h"

// --- Flags -----------------------------------------------------------------------------------------------------------

// Makes an operation a sub-operation of a connection; not every dns_sd.h names this flag.
inline constexpr DNSServiceFlags kFlagsShareConnection = 0x4000;
// What every address and subtype query asks for: the shared connection, multicast, an answer for as long as it lives.
inline constexpr DNSServiceFlags kFlagsLongLivedMulticastQuery =
    kFlagsShareConnection | kDNSServiceFlagsForceMulticast | kDNSServiceFlagsLongLivedQuery;  // 0x4500
// How individual records are registered: without probing, since the host that owns the name is on another link, and
// another gateway may announce the same record. Only the value matters: our header calls it Shared, some others call it
// Unique.
inline constexpr DNSServiceFlags kFlagsProxiedRecord = 0x10;
// Private bits that a device's responder may interpret; passed through unchanged.
inline constexpr DNSServiceFlags kDNSServiceFlagsFencingHopOne = 0x08000000;
inline constexpr DNSServiceFlags kDNSServiceFlagsFencingHopZero = 0x80000000;

// --- Sizes -----------------------------------------------------------------------------------------------------------

inline constexpr std::size_t kNameSize = 1009;       // a DNS name as text: 1005 bytes at most, escapes and the zero
                                                     // included
inline constexpr std::size_t kHostTargetSize = 512;  // a host target as text
inline constexpr std::size_t kSubtypeSize = 64;      // one label and its zero

// --- Records ---------------------------------------------------------------------------------------------------------

struct ResponderContext;

// One installed rule: a service type, a source and a destination interface. Made by add_proxy_rule, lives as long as
// the process; no table holds it, it is the context of its browse.
struct BridgeContext {
  DNSServiceRef ref;                        // the browse; a sub-operation of gDNSServiceRef_Shared
  std::int32_t if_from;                     // interface index that is browsed
  std::int32_t if_to;                       // interface index on which found instances are re-announced
  char subtype_service_type[kSubtypeSize];  // the rule's type when it has three labels (subtype first, cut to fit),
                                            // else ""
  ResponderContext* responder_contexts;     // instances found by this rule, keyed by name; null: none
};

// The resolved data of one instance, the context of its two address queries. Owned by the ResponderContext.
struct Addr_query_context {
  std::uint8_t addr_v4[4];            // network order; last IPv4 address seen, all zero: none yet
  std::uint8_t addr_v6[16];           // last IPv6 address seen, all zero: none yet
  BridgeContext* bridge_context_ptr;  // the rule; not owned
  char hosttarget[kHostTargetSize];   // presentation format, as the resolve reply gave it
  std::uint16_t opaqueport;           // network byte order, never converted
  std::uint16_t txtLen;               // bytes of the resolved TXT data, also when they were too many to keep
  std::uint8_t txt[kNameSize];        // the TXT data; kept only when txtLen is below the size
  char service_type[kNameSize];       // "_ipp._tcp"
  char service_name[kNameSize];       // the instance name, unescaped
  std::uint32_t IfIndex;              // interface of the resolve reply
  char* record_label;                 // text that names the instance in replies to its address records; see
                                      // record_labels.h
};

// The context of one instance's subtype query. Owned by the ResponderContext until the query has been answered.
struct subtype_query_context {
  BridgeContext* bridge_context_ptr;   // not owned
  char subtype_query_name[kNameSize];  // "_universal._sub._ipp._tcp.local."
  char service_fullname[kNameSize];    // "My Printer._ipp._tcp.local.", unescaped
};

// One service instance that a rule's browse has found. Lives from its add reply to its remove reply, or to the resolve
// reply that shows it to be a forwarded one. Owns every DNS-SD operation, record and context below (null: none):
// del_responder_context ends all that are left, the handlers of the resolve and of the subtype query each end their own
// before.
struct ResponderContext {
  char* name;                         // instance name as the browse reply gave it; owned; the key
  DNSServiceRef reg_service_ref;      // the service as registered on if_to
  DNSServiceRef resolve_service_ref;  // runs until the first resolve reply without an error for a known instance of the
                                      // rule
  DNSServiceRef query_addrv4_ref;
  DNSServiceRef query_addrv6_ref;
  DNSServiceRef query_subtype_ref;  // runs until an answer names this instance, whether its record is taken or refused
  DNSRecordRef dns_record_ptr;      // the host's A record on if_to (on gDNSServiceRef_RegisterRecord)
  DNSRecordRef dns_recordv6_ptr;    // the host's AAAA record on if_to
  DNSRecordRef subtype_record_ptr;  // the subtype's PTR record on if_to
  struct Addr_query_context* Addr_query_context;
  struct subtype_query_context* subtype_query_context;
  UT_hash_handle hh;
  char* subtype_record_label;  // text for the replies to the subtype record; see record_labels.h
};

// Live ResponderContexts over all rules. Written by the browse and resolve handlers alone.
extern std::int32_t gResponderCount;

// --- Rules -----------------------------------------------------------------------------------------------------------

// Installs one rule and starts its browse on if_from; a rule that is there already is reported and skipped. Copies what
// it keeps of its texts. An unknown interface ends the process (40), as do a lack of memory (20, 800) and a browse that
// fails four times, half a second apart (600).
void add_proxy_rule(const char* service_type, const char* if_from, const char* if_to);

// --- Contexts --------------------------------------------------------------------------------------------------------

// The instance of that name in the rule's table, or null (also for a null name).
ResponderContext* get_responder_context_by_name(const BridgeContext* bridge, const char* name);

// Adds an instance with every field but the name empty. 0, or -1 when there is one of that name or the name is null
// (nothing changes). A lack of memory ends the process (20).
int add_responder_context(BridgeContext* bridge, const char* name);

// Ends and withdraws everything of the instance in the fixed order, takes it out of its table and frees it.
void del_responder_context(BridgeContext* bridge, ResponderContext* service_context);

// --- Reply callbacks (the signatures of dns_sd.h) --------------------------------------------------------------------

// The process may end in callback_ServiceBrowse (no resolve, 600; no memory, 20), callback_ServiceResolve (no memory,
// 20), callback_ServiceQueryRecord (no AAAA record, 600; no memory, 20) and callback_ServiceRegisterRecord (any error,
// 600).
void DNSSD_API callback_ServiceBrowse(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                      DNSServiceErrorType errorCode, const char* replyName, const char* replyType,
                                      const char* replyDomain, void* context);
void DNSSD_API callback_ServiceResolve(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                       DNSServiceErrorType errorCode, const char* fullname, const char* hosttarget,
                                       std::uint16_t opaqueport, std::uint16_t txtLen, const unsigned char* txtRecord,
                                       void* context);
void DNSSD_API callback_ServiceQueryRecord(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                           DNSServiceErrorType errorCode, const char* fullname, std::uint16_t rrtype,
                                           std::uint16_t rrclass, std::uint16_t rdlen, const void* rdata,
                                           std::uint32_t ttl, void* context);
void DNSSD_API callback_ServiceRegister(DNSServiceRef sdRef, DNSServiceFlags flags, DNSServiceErrorType errorCode,
                                        const char* name, const char* regtype, const char* domain, void* context);
void DNSSD_API callback_ServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef recordRef, DNSServiceFlags flags,
                                              DNSServiceErrorType errorCode, void* context);

// --- Fencing ---------------------------------------------------------------------------------------------------------

// The hop value that applies to a service type on this access point, read afresh from the settings; -1: none.
std::int32_t check_mdns_service_fencing(const char* service_type);
