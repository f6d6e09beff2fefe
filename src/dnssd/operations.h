// SPDX-License-Identifier: MIT
// How operations are started, and what each kind of them can be asked to do, one section a file. Every *_start gets an operation
// that is in the registry and whose part is filled in; on an error the caller releases it.
#pragma once

#include <functional>

#include "dnssd/dnssd.h"

namespace dnssd {

// Reads the name of a record as a caller of dns_sd.h gives it. Nothing when it is no name, or the root.
std::optional<std::string> parse_record_name(const char* text);

// Makes an operation of `part` on an interface, shared as `flags` say, and starts it; *ref is then the caller's reference.
// Otherwise nothing has been made and *ref is as it was: kDNSServiceErr_BadReference when it is to share what is no connection;
// the errors of engine_open and interface_get; what `start` returned.
DNSServiceErrorType start_operation(DNSServiceRef* ref, DNSServiceFlags flags, std::uint32_t interface_index, void* context,
                                    decltype(Operation::part)&& part,
                                    const std::function<DNSServiceErrorType(Operation&)>& start);

// Asks for records on the operation's link until it is released; its events go to operation_event.
void ask(Operation& operation, const std::string& name, std::uint16_t rrtype);

// The link that the operation runs on, which is then served again (interface_link).
mdns::Link& link_of(const Operation& operation);

// Adds an answer that has become live as the newest, or takes out one that no longer is.
void answers_change(std::vector<Answer>& answers, const mdns::Event& event);

// browse.cpp: asks for the PTR records of `name`, the type of `Browse::type` or one of its subtypes.
DNSServiceErrorType browse_start(Operation& operation, const std::string& name);
void operation_event(Operation& operation, Browse& browse, const mdns::Event& event);

// Reports the instance gone and found again, with other data; nothing happens if the browse does not have it.
void browse_report_again(Operation& operation, const std::string& instance);
void browse_stop(const Operation& operation, const Browse& browse);

// resolve.cpp
DNSServiceErrorType resolve_start(Operation& operation);
// Reports what is new; after a batch of events, since several of them may make one change.
void resolve_review(Operation& operation);
void operation_event(Operation& operation, Resolve& resolve, const mdns::Event& event);

// query.cpp
DNSServiceErrorType query_start(Operation& operation);
void query_end(const Operation& operation, const Query& query);
void operation_event(Operation& operation, Query& query, const mdns::Event& event);

// register.cpp: kDNSServiceErr_BadParam when the name is none that can be published.
DNSServiceErrorType registration_start(Operation& operation);
void operation_event(Operation& operation, Registration& registration, const mdns::Event& event);
// Announces new TXT data under the same name; `ttl` 0 stands for the usual one.
DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl);
void registration_stop(const Operation& operation, Registration& registration);
// Tries the next names of registrations that had to pause after many conflicts, if their time has come.
void registrations_resume(mdns::Time now);

// records.cpp; `ttl` 0 stands for the usual one. kDNSServiceErr_BadParam when `rdata` is none of the record's type.
DNSServiceErrorType record_start(Operation& operation, const std::string& name, const std::string& rdata, std::uint32_t ttl);
void operation_event(Operation& operation, Record& record, const mdns::Event& event);
DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl);

// Whether a message can carry the record: well formed for its type, and neither empty nor too long.
bool is_publishable(std::uint16_t rrtype, const std::string& rdata);

}  // namespace dnssd
