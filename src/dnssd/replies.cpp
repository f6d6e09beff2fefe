// SPDX-License-Identifier: MIT
// A reply is queued when an event arrives and delivered at the end of a pass. It names its operation by handle: once that is
// released, the reply is dropped when its turn comes.
#include "dnssd/engine.h"
#include "dnssd/interface.h"
#include "dnssd/references.h"

namespace dnssd {
namespace {

// Replies per DNSServiceProcessResult: enough to be cheap in a burst, few enough that the caller's loop comes round.
constexpr int kRepliesPerPass = 64;

// A caller that is told that an instance has gone and is there again has withdrawn and registered it within this time:
// measured, a few milliseconds.
constexpr mdns::Time kUpdateWithin = 200 * mdns::kMillisecond;

const unsigned char* bytes_of(const std::string& data) { return reinterpret_cast<const unsigned char*>(data.data()); }

// What a callback needs of its operation, copied, since the operation may be gone when it returns.
struct Target {
  DNSServiceRef ref;
  DNSRecordRef record;
  DNSServiceRef connection;
  std::uint32_t interface_index;
  void* context;
};

void call(const Connection&, const Target&, DNSServiceFlags, const Reply&) {}

void call(const Browse& browse, const Target& to, DNSServiceFlags flags, const Reply& reply) {
  browse.callback(to.ref, flags, to.interface_index, reply.error, reply.name.c_str(), reply.detail.c_str(), "local.", to.context);
}

void call(const Resolve& resolve, const Target& to, DNSServiceFlags flags, const Reply& reply) {
  resolve.callback(to.ref, flags, to.interface_index, reply.error, reply.name.c_str(), reply.detail.c_str(), reply.port,
                   static_cast<std::uint16_t>(reply.data.size()), bytes_of(reply.data), to.context);
}

void call(const Query& query, const Target& to, DNSServiceFlags flags, const Reply& reply) {
  query.callback(to.ref, flags, to.interface_index, reply.error, reply.name.c_str(), reply.rrtype, kDNSServiceClass_IN,
                 static_cast<std::uint16_t>(reply.data.size()), reply.data.data(), reply.ttl, to.context);
}

void call(const Registration& registration, const Target& to, DNSServiceFlags flags, const Reply& reply) {
  if (registration.callback == nullptr) {
    return;
  }
  registration.callback(to.ref, flags, reply.error, reply.name.c_str(), reply.detail.c_str(), "local.", to.context);
}

void call(const Record& record, const Target& to, DNSServiceFlags flags, const Reply& reply) {
  record.callback(to.connection, to.record, flags, reply.error, to.context);
}

void deliver(Operation& operation, const Reply& reply) {
  const Target to{service_ref(operation), record_ref(operation), reinterpret_cast<DNSServiceRef>(operation.connection),
                  operation.interface != nullptr ? operation.interface->index : 0, operation.context};
  DNSServiceFlags flags = reply.flags;
  if (gEngine->deliverable > 0) {
    flags |= kDNSServiceFlagsMoreComing;
  }
  std::visit([&](const auto& part) { call(part, to, flags, reply); }, operation.part);
}

}  // namespace

void reply_queue(Operation& operation, Reply&& reply) {
  reply.to = operation.handle;
  ++operation.queued;
  ++gEngine->deliverable;
  gEngine->replies.push_back(std::move(reply));
}

void replies_deliver() {
  // A callback may end this engine, and another call in it may have begun a new one, which is not passing.
  for (int i = 0; i < kRepliesPerPass && gEngine != nullptr && gEngine->is_passing && gEngine->deliverable > 0;) {
    const Reply reply = std::move(gEngine->replies.front());
    gEngine->replies.pop_front();
    Operation* operation = operation_find(reply.to);
    if (operation == nullptr) {
      continue;
    }
    --operation->queued;
    --gEngine->deliverable;
    ++i;
    if (reply.begins_update) {
      gEngine->goodbyes_until = monotonic_now() + kUpdateWithin;
    }
    deliver(*operation, reply);
  }
  if (gEngine != nullptr && gEngine->deliverable == 0) {
    gEngine->replies.clear();
  }
}

}  // namespace dnssd
