// SPDX-License-Identifier: MIT
// What each kind of operation can be told, one section a file. Every *_start gets an operation that is in the registry and
// whose part is filled in; on an error the caller releases it. Every *_stop frees what the part owns.
#pragma once

#include "dnssd/dnssd.h"

namespace dnssd {

// browse.cpp
DNSServiceErrorType browse_start(Operation& operation, const ServiceType& type);
void browse_stop(Browse& browse);

// resolve.cpp
DNSServiceErrorType resolve_start(Operation& operation, const Name& instance);
void resolve_stop(Resolve& resolve);

// query.cpp
DNSServiceErrorType query_start(Operation& operation, const Name& name);
void query_stop(Query& query);

// register.cpp
DNSServiceErrorType registration_start(Operation& operation);
// The publication's state has changed: reports it, or goes on to the next name.
void registration_changed(Operation& operation, Publication& publication);
// Announces new TXT data under the same name and withdraws the old.
DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl);
void registration_stop(Operation& operation, Registration& registration);

// records.cpp; `ttl` 0 stands for the usual one. kDNSServiceErr_BadParam when `rdata` is none of the record's type.
DNSServiceErrorType record_start(Operation& operation, const std::string& rdata, std::uint32_t ttl);
DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl);
void record_changed(Operation& operation, Publication& publication);
void record_stop(Operation& operation, Record& record);

// Whose the name of a record is.
enum class Claim {
  shared,  // anybody's: no probes
  unique,  // ours, if the probes say so
  proven,  // ours, as earlier probes have said
};

// The publication of one record on the operation's interface, with the operation as one of its holders; made and started if
// nobody holds the very same record yet. Null when `rdata` is none of the type.
Publication* record_hold(Operation& operation, const std::string& name, std::uint16_t rrtype, const std::string& rdata,
                         std::uint32_t ttl, Claim claim);

// A record in Avahi's form, its reference owned by the caller; null when `rdata` is none of its type. `name` is Avahi text.
AvahiRecord* record_from_rdata(const std::string& name, std::uint16_t rrtype, const std::string& rdata, std::uint32_t ttl);

// The rdata of `record`, names uncompressed; empty when it cannot be written.
std::string rdata_of(AvahiRecord& record);

// The TTL of RFC 6762 section 10 in seconds: 120 for records that hold a host's name or address, else 75 minutes.
std::uint32_t usual_ttl(const std::string& name, std::uint16_t rrtype);

}  // namespace dnssd
