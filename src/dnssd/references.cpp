// SPDX-License-Identifier: MIT
// Lifecycle of an operation: operation_new makes it; replies find it by its serial; operation_release takes it out of the
// registry first, so that nothing finds it while its Avahi objects are freed, and ends the engine with the last connection.
#include "dnssd/references.h"

#include "dnssd/engine.h"
#include "dnssd/operations.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

Serial new_serial() {
  static Serial last = 1;
  last += 2;
  return last;
}

bool is_published(const Operation& operation) {
  return std::holds_alternative<Registration>(operation.part) || std::holds_alternative<Record>(operation.part);
}

void stop(Operation& operation) {
  if (auto* browse = std::get_if<Browse>(&operation.part)) {
    browse_stop(*browse);
  }
  if (auto* resolve = std::get_if<Resolve>(&operation.part)) {
    resolve_stop(*resolve);
  }
  if (auto* query = std::get_if<Query>(&operation.part)) {
    query_stop(*query);
  }
  if (auto* registration = std::get_if<Registration>(&operation.part)) {
    registration_stop(operation, *registration);
  }
  if (auto* record = std::get_if<Record>(&operation.part)) {
    record_stop(operation, *record);
  }
}

// One operation by itself.
void release_one(Serial serial) {
  const auto found = gEngine->operations.find(serial);
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
  if (operation->server != nullptr) {
    server_unuse(*operation->server, !is_published(*operation));
  }
}

std::vector<Serial> members_of(Serial connection) {
  std::vector<Serial> members;
  for (const auto& [serial, operation] : gEngine->operations) {
    if (operation->connection == connection) {
      members.push_back(serial);
    }
  }
  return members;
}

}  // namespace

Operation* operation_new(Serial connection, Server* server, void* context, decltype(Operation::part)&& part) {
  auto owned = std::make_unique<Operation>();
  Operation* operation = owned.get();
  operation->serial = new_serial();
  operation->connection = connection;
  operation->server = server;
  operation->context = context;
  operation->part = std::move(part);
  if (connection == 0) {
    ++gEngine->connections;
  }
  if (is_published(*operation)) {
    ++gEngine->published;
  }
  if (server != nullptr) {
    server_use(*server, !is_published(*operation));
  }
  gEngine->operations.emplace(operation->serial, std::move(owned));
  return operation;
}

Operation* operation_find(Serial serial) {
  if (gEngine == nullptr) {
    return nullptr;
  }
  const auto found = gEngine->operations.find(serial);
  return found == gEngine->operations.end() ? nullptr : found->second.get();
}

Operation* operation_of(DNSServiceRef ref) {
  Operation* operation = operation_find(reinterpret_cast<Serial>(ref));
  return operation != nullptr && std::holds_alternative<Record>(operation->part) ? nullptr : operation;
}

Operation* operation_of(DNSRecordRef ref) {
  Operation* operation = operation_find(reinterpret_cast<Serial>(ref));
  return operation != nullptr && std::holds_alternative<Record>(operation->part) ? operation : nullptr;
}

Operation* connection_of(DNSServiceRef ref) {
  Operation* operation = operation_of(ref);
  return operation != nullptr && std::holds_alternative<Connection>(operation->part) ? operation : nullptr;
}

DNSServiceRef service_ref(const Operation& operation) { return reinterpret_cast<DNSServiceRef>(operation.serial); }
DNSRecordRef record_ref(const Operation& operation) { return reinterpret_cast<DNSRecordRef>(operation.serial); }

void operation_release(Operation* operation) {
  const Serial serial = operation->serial;
  const bool stands_alone = operation->connection == 0;
  if (stands_alone && gEngine->connections == 1) {
    engine_close();
    return;
  }
  if (std::holds_alternative<Connection>(operation->part)) {
    for (const Serial member : members_of(serial)) {
      release_one(member);
    }
  }
  release_one(serial);
  if (stands_alone) {
    --gEngine->connections;
  }
}

}  // namespace dnssd
