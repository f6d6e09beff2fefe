// SPDX-License-Identifier: MIT
#include "fakes/fake_dns_sd.h"

#include <arpa/inet.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "fakes/fake_dns_sd_state.h"

namespace fake_dns_sd {

Operation::~Operation() {
  if (socket >= 0) {
    close(socket);
  }
}

State& state() {
  static State the_state;
  return the_state;
}

void misuse(const std::string& text) {
  std::fprintf(stderr, "fake_dns_sd: misuse: %s\n", text.c_str());
  state().misuses.push_back(text);
}

Operation* find(DNSServiceRef ref) {
  const auto found = state().operations.find(ref);
  return found != state().operations.end() ? found->second.get() : nullptr;
}

Record* find(DNSRecordRef ref) {
  const auto found = state().records.find(ref);
  return found != state().records.end() ? found->second.get() : nullptr;
}

std::string id_of(DNSServiceRef ref) {
  const Operation* found = find(ref);
  return found != nullptr ? found->id : ref == nullptr ? "null" : "unknown";
}

std::string id_of(DNSRecordRef ref) {
  const Record* found = find(ref);
  return found != nullptr ? found->id : ref == nullptr ? "null" : "unknown";
}

// --- What a test asks and orders -------------------------------------------------------------------------------------

const std::vector<Call>& calls() { return state().calls; }

std::vector<Call> calls(std::string_view function) {
  std::vector<Call> found;
  std::ranges::copy_if(state().calls, std::back_inserter(found),
                       [&](const Call& call) { return call.function == function; });
  return found;
}

std::vector<std::string> lines(std::size_t first) {
  std::vector<std::string> texts;
  for (std::size_t i = first; i < state().calls.size(); ++i) {
    texts.push_back(state().calls[i].text);
  }
  return texts;
}

const std::vector<std::string>& misuses() { return state().misuses; }

std::size_t live_operations() {
  return static_cast<std::size_t>(std::ranges::count_if(state().operations, [](const auto& entry) {
    return entry.second->live && entry.second->kind != Kind::Connection;
  }));
}

std::size_t live_records() {
  return static_cast<std::size_t>(
      std::ranges::count_if(state().records, [](const auto& entry) { return entry.second->live; }));
}

bool is_live(DNSServiceRef ref) {
  const Operation* operation = find(ref);
  return operation != nullptr && operation->live;
}

void fail_call(std::string_view function, unsigned nth, DNSServiceErrorType error) {
  const std::string name(function);
  state().orders[{name, state().counts[name] + nth}] = error;
}

void fail_next(std::string_view function, unsigned count, DNSServiceErrorType error) {
  for (unsigned nth = 1; nth <= count; ++nth) {
    fail_call(function, nth, error);
  }
}

void post(DNSServiceRef connection, std::function<DNSServiceErrorType()> work) {
  find(connection)->work.push_back(std::move(work));
  eventfd_write(find(connection)->socket, 1);
}

void reset() { state() = State{}; }

// --- Replies ---------------------------------------------------------------------------------------------------------

namespace {

// The live operation that a reply is for, or null and a misuse.
const Operation* addressee(DNSServiceRef ref, Kind kind) {
  const Operation* operation = find(ref);
  if (operation == nullptr || !operation->live || operation->kind != kind) {
    misuse("a reply for " + id_of(ref) + ", which is no live operation of its kind");
    return nullptr;
  }
  return operation;
}

template <typename Callback>
Callback callback_of(const Operation& operation) {
  return reinterpret_cast<Callback>(operation.callback);
}

}  // namespace

bool deliver(DNSServiceRef browse, const BrowseReply& reply) {
  const Operation* operation = addressee(browse, Kind::Browse);
  if (operation != nullptr) {
    callback_of<DNSServiceBrowseReply> (*operation)(browse, reply.flags, reply.interfaceIndex, reply.error, reply.name,
                                                    reply.type, reply.domain, operation->context);
  }
  return operation != nullptr;
}

bool deliver(DNSServiceRef resolve, const ResolveReply& reply) {
  const Operation* operation = addressee(resolve, Kind::Resolve);
  if (operation != nullptr) {
    callback_of<DNSServiceResolveReply> (*operation)(resolve, reply.flags, reply.interfaceIndex, reply.error,
                                                     reply.fullname, reply.hosttarget, htons(reply.port), reply.txtLen,
                                                     reply.txt, operation->context);
  }
  return operation != nullptr;
}

bool deliver(DNSServiceRef query, const QueryReply& reply) {
  const Operation* operation = addressee(query, Kind::Query);
  if (operation != nullptr) {
    callback_of<DNSServiceQueryRecordReply> (*operation)(query, reply.flags, reply.interfaceIndex, reply.error,
                                                         reply.fullname, reply.rrtype, reply.rrclass, reply.rdlen,
                                                         reply.rdata, reply.ttl, operation->context);
  }
  return operation != nullptr;
}

bool deliver(DNSServiceRef service, const RegisterReply& reply) {
  const Operation* operation = addressee(service, Kind::Service);
  if (operation != nullptr) {
    callback_of<DNSServiceRegisterReply> (*operation)(service, reply.flags, reply.error, reply.name, reply.regtype,
                                                      reply.domain, operation->context);
  }
  return operation != nullptr;
}

bool deliver_record(DNSRecordRef ref, DNSServiceFlags flags, DNSServiceErrorType error) {
  const Record* record = find(ref);
  if (record == nullptr) {
    misuse("a reply for a record that never was");
    return false;
  }
  record->callback(record->connection, ref, flags, error, record->context);
  return true;
}

}  // namespace fake_dns_sd
