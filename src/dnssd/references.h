// SPDX-License-Identifier: MIT
// The registry of live references. A reference is a number in the shape of a pointer, the handle: odd, so that no address of an
// object equals one, and never used twice, so that a stale one never names its successor.
#pragma once

#include "dnssd/dnssd.h"

namespace dnssd {

// Makes an operation with `part`, under a new handle; it counts as a connection when `connection` is 0. Needs gEngine.
Operation* operation_new(Handle connection, Interface* interface, void* context, decltype(Operation::part)&& part);

// Any live operation, records included; null for every other number.
Operation* operation_find(Handle handle);

// What a caller's reference names; null when it is null, stale, wild, or a reference of the other sort.
Operation* operation_of(DNSServiceRef ref);
Operation* operation_of(DNSRecordRef ref);

// The same if it is a connection made with DNSServiceCreateConnection; else null.
Operation* connection_of(DNSServiceRef ref);

// Passes an event to the operation that its tag names, if it is still there.
void operation_pass(const mdns::Event& event);

// An event of a batch that is over has touched it: a resolve, or a follower.
void operation_review(Handle handle);

DNSServiceRef service_ref(const Operation& operation);
DNSRecordRef record_ref(const Operation& operation);

// Ends an operation, a connection with all that belongs to it: nothing is delivered for any of them any more, what they
// published is withdrawn. `operation` is gone afterwards; so is the engine, if that was the last connection.
void operation_release(Operation* operation);

}  // namespace dnssd
