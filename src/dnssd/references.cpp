// SPDX-License-Identifier: MIT
// Lifecycle of an operation: operation_new makes it; events and replies find it by its handle; operation_release
// takes it out of the registry, so that nothing finds it any more, and ends the engine with the last connection.
#include "dnssd/references.h"

#include "dnssd/engine.h"
#include "dnssd/followers.h"
#include "dnssd/interface.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

Handle new_handle() {
  static Handle last = 1;
  last += 2;
  return last;
}

bool is_published(const Operation& operation) {
  return std::holds_alternative<Registration>(operation.part) || std::holds_alternative<Record>(operation.part);
}

// Ends its queries and withdraws what it has published.
void stop(Operation& operation) {
  if (operation.interface == nullptr) {
    return;
  }
  mdns::Link& link = link_of(operation);
  if (gEngine->goodbyes_until > monotonic_now()) {
    mdns::link_hold_goodbyes(link, monotonic_now(), gEngine->goodbyes_until);
  }
  if (const auto* resolve = std::get_if<Resolve>(&operation.part)) {
    followers_begin(operation, *resolve);
  }
  if (const auto* browse = std::get_if<Browse>(&operation.part)) {
    browse_stop(operation, *browse);
  }
  if (const auto* query = std::get_if<Query>(&operation.part)) {
    query_end(operation, *query);
  }
  for (const mdns::QueryId query : operation.queries) {
    mdns::query_stop(link, monotonic_now(), query);
  }
  if (auto* registration = std::get_if<Registration>(&operation.part)) {
    registration_stop(operation, *registration);
  }
  if (auto* record = std::get_if<Record>(&operation.part)) {
    mdns::publication_withdraw(link, monotonic_now(), record->publication);
  }
}

// One operation by itself.
void release_one(Handle handle) {
  const auto found = gEngine->operations.find(handle);
  if (found == gEngine->operations.end()) {
    return;
  }
  const std::unique_ptr<Operation> operation = std::move(found->second);
  gEngine->operations.erase(found);
  gEngine->deliverable -= operation->queued;
  stop(*operation);
  if (is_published(*operation)) {
    --gEngine->published;
  }
  if (operation->interface != nullptr) {
    interface_unuse(*operation->interface);
  }
}

std::vector<Handle> members_of(Handle connection) {
  std::vector<Handle> members;
  for (const auto& [handle, operation] : gEngine->operations) {
    if (operation->connection == connection) {
      members.push_back(handle);
    }
  }
  return members;
}

}  // namespace

Operation* operation_new(Handle connection, Interface* interface, void* context, decltype(Operation::part)&& part) {
  auto owned = std::make_unique<Operation>();
  Operation* operation = owned.get();
  operation->handle = new_handle();
  operation->connection = connection;
  operation->interface = interface;
  operation->context = context;
  operation->part = std::move(part);
  if (connection == 0) {
    ++gEngine->connections;
  }
  if (is_published(*operation)) {
    ++gEngine->published;
  }
  if (interface != nullptr) {
    interface_use(*interface);
  }
  gEngine->operations.emplace(operation->handle, std::move(owned));
  return operation;
}

Operation* operation_find(Handle handle) {
  if (gEngine == nullptr) {
    return nullptr;
  }
  const auto found = gEngine->operations.find(handle);
  return found == gEngine->operations.end() ? nullptr : found->second.get();
}

Operation* operation_of(DNSServiceRef ref) {
  Operation* operation = operation_find(reinterpret_cast<Handle>(ref));
  return operation != nullptr && std::holds_alternative<Record>(operation->part) ? nullptr : operation;
}

Operation* operation_of(DNSRecordRef ref) {
  Operation* operation = operation_find(reinterpret_cast<Handle>(ref));
  return operation != nullptr && std::holds_alternative<Record>(operation->part) ? operation : nullptr;
}

Operation* connection_of(DNSServiceRef ref) {
  Operation* operation = operation_of(ref);
  return operation != nullptr && std::holds_alternative<Connection>(operation->part) ? operation : nullptr;
}

mdns::Link& link_of(const Operation& operation) { return interface_link(*operation.interface); }

void ask(Operation& operation, const std::string& name, std::uint16_t rrtype) {
  mdns::QueryId& place = operation.queries[operation.queries[0] == 0 ? 0 : 1];
  place = mdns::query_start(link_of(operation), monotonic_now(), name, rrtype, operation.handle);
}

void operation_pass(const mdns::Event& event) {
  if (is_follower(static_cast<Handle>(event.tag))) {
    followers_event(event);
    return;
  }
  Operation* operation = operation_find(static_cast<Handle>(event.tag));
  if (operation == nullptr) {
    return;
  }
  std::visit(
      [&]<typename Part>(Part& part) {
        if constexpr (!std::is_same_v<Part, Connection>) {
          operation_event(*operation, part, event);
        }
      },
      operation->part);
}

void operation_review(Handle handle) {
  Operation* operation = operation_find(handle);
  if (is_follower(handle)) {
    followers_review(handle);
  } else if (operation != nullptr) {
    resolve_review(*operation);
  }
}

DNSServiceRef service_ref(const Operation& operation) { return reinterpret_cast<DNSServiceRef>(operation.handle); }
DNSRecordRef record_ref(const Operation& operation) { return reinterpret_cast<DNSRecordRef>(operation.handle); }

void operation_release(Operation* operation) {
  const Handle handle = operation->handle;
  const bool stands_alone = operation->connection == 0;
  if (stands_alone && gEngine->connections == 1) {
    engine_close();
    return;
  }
  if (std::holds_alternative<Connection>(operation->part)) {
    for (const Handle member : members_of(handle)) {
      release_one(member);
    }
  }
  release_one(handle);
  if (stands_alone) {
    --gEngine->connections;
  }
}

}  // namespace dnssd
