// SPDX-License-Identifier: MIT
// What all operations have in common: their making and end, their references, queries, replies and delayed calls; and
// what each kind of them does about an event.
#pragma once

#include <span>
#include <string>

#include "dnssd/state/engine.h"

namespace dnssd {

// Makes an operation with `part`, under a new handle; it counts as a connection when `connection` is 0. Needs gEngine.
Operation* operation_new(Handle connection, Interface* interface, void* context, decltype(Operation::part)&& part);

// Ends an operation; a connection with all operations that belong to it. None of their replies is delivered any more,
// and what they published is withdrawn. `operation` is freed, or if it was the last reference when the library is left.
void operation_release(Operation& operation);

inline DNSServiceRef service_ref(Handle handle) { return reinterpret_cast<DNSServiceRef>(handle); }
inline DNSRecordRef record_ref(Handle handle) { return reinterpret_cast<DNSRecordRef>(handle); }

// The operation of a caller's reference, if it is of that kind; null when the reference is null, stale or wild.
template <typename Part>
Operation* operation_of(const void* ref) {
  Operation* operation = operation_find(reinterpret_cast<Handle>(ref));
  return operation != nullptr && std::holds_alternative<Part>(operation->part) ? operation : nullptr;
}

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

// Has `resume` called after this time, if the operation is still there then.
void resume_in(const Operation& operation, mdns::Time delay, void (*resume)(Operation& operation));

// What is withdrawn and registered again within this time is an update on the wire (mdns::link_hold_goodbyes). A caller
// needs a few milliseconds for that after an instance was reported removed and added again.
inline constexpr mdns::Time kUpdateWithin = 200 * mdns::kMillisecond;

// operation_event: handles an event for an operation of that kind. operation_stop: ends what is particular to the kind
// when an operation is released; operation_release stops its queries. Both stand in the file of their kind: lookup.cpp,
// publish.cpp, hosts.cpp, inheritance.cpp.
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

// The member's host has a new name on the link (host_alias): publishes a shared address under that, or updates the SRV
// record of a registration.
void host_renamed(Operation& member);

}  // namespace dnssd
