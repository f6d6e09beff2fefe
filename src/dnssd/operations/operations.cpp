// SPDX-License-Identifier: MIT
// Lifecycle of an operation: operation_new makes it; events and replies find it by its handle; operation_release takes
// it out of the registry, so that nothing finds it any more, and stops it.
//
// Lifecycle of a reply: it is queued when an event arrives and delivered at the end of a pass (dnssd.cpp).
#include "dnssd/operations/operations.h"

#include <utility>

#include "dnssd/operations/handover.h"

namespace dnssd {
namespace {

unsigned is_published(const Operation& operation) {
  return std::holds_alternative<Registration>(operation.part) || std::holds_alternative<Record>(operation.part) ||
                 std::holds_alternative<Inheritance>(operation.part)
             ? 1
             : 0;
}

// Releases one operation: stops its queries and withdraws what it has published.
void release_one(Operation& operation) {
  const auto owned = gEngine->operations.extract(operation.handle);  // frees it in the end
  gEngine->deliverable -= operation.queued;
  gEngine->published -= is_published(operation);
  gEngine->connections -= operation.connection == 0 ? 1 : 0;
  if (operation.interface == nullptr) {
    return;
  }
  const mdns::Time now = monotonic_now();
  if (gEngine->goodbyes_until > now) {
    mdns::link_hold_goodbyes(link_of(operation), now, gEngine->goodbyes_until);
  }
  std::visit([&](auto& part) { operation_stop(operation, part); }, operation.part);
  stop_asking(operation);
  --operation.interface->operations;
  operation.interface->idle_since = monotonic_now();
}

}  // namespace

Operation* operation_new(Handle connection, Interface* interface, void* context, decltype(Operation::part)&& part) {
  static Handle last = kLibrary;
  last += 2;
  Operation& operation = *(gEngine->operations[last] = std::make_unique<Operation>());
  operation = {
      .handle = last, .connection = connection, .interface = interface, .context = context, .part = std::move(part)};
  gEngine->connections += connection == 0 ? 1 : 0;
  gEngine->published += is_published(operation);
  if (interface != nullptr) {
    ++interface->operations;
  }
  return &operation;
}

void operation_release(Operation& operation) {
  if (operation.connection == 0 && gEngine->connections == 1) {
    gEngine->connections = 0;  // ~LibraryCall then ends the engine, and the operation with it
    return;
  }
  std::vector<Operation*> released{&operation};
  if (std::holds_alternative<Connection>(operation.part)) {
    handover_give();
    for (const auto& [handle, member] : gEngine->operations) {
      if (member->connection == operation.handle) {
        released.push_back(member.get());
      }
    }
  }
  for (Operation* one : released) {
    release_one(*one);
  }
}

mdns::Link& link_of(const Operation& operation) { return interface_link(*operation.interface); }

mdns::PublicationId publish(const Operation& operation, const std::string& name,
                            std::span<const mdns::RecordData> records, mdns::Claim claim) {
  return mdns::publish(link_of(operation), monotonic_now(), name, records, claim, operation.handle);
}

void stop_asking(Operation& operation) {
  for (const mdns::QueryId query : std::exchange(operation.queries, {})) {
    mdns::query_stop(link_of(operation), monotonic_now(), query);
  }
}

void ask(Operation& operation, const std::string& name, std::uint16_t rrtype, mdns::Interest interest) {
  operation.queries.push_back(
      mdns::query_start(link_of(operation), monotonic_now(), name, rrtype, operation.handle, interest));
}

void reply_queue(Operation& operation, decltype(Reply::deliver)&& deliver) {
  gEngine->replies.push_back({operation.handle, std::move(deliver)});
  ++operation.queued;
  ++gEngine->deliverable;
}

void resume_in(const Operation& operation, mdns::Time delay, void (*resume)(Operation& operation)) {
  gEngine->resumptions.emplace(monotonic_now() + delay, Resumption{operation.handle, resume});
}

}  // namespace dnssd
