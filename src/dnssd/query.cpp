// SPDX-License-Identifier: MIT
// Query: one lookup. What is reported goes by the caller's view of an answer, "this is what the host now has":
// for A and AAAA the newest live address whenever it differs from the one last reported, so that a change is one answer,
// the loss of one of two addresses is followed by the other, and a repeated or expired one is silence; for other types each
// distinct rdata once while it lives. Losses are never reported: the caller would take them for answers. The unspecified
// address is nobody's and never reported.
#include "dnssd/engine.h"
#include "dnssd/lookups.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

bool is_address(std::uint16_t rrtype) { return rrtype == kDNSServiceType_A || rrtype == kDNSServiceType_AAAA; }

bool is_unspecified(const std::string& address) { return address.find_first_not_of('\0') == address.npos; }

void queue_answer(Operation& operation, const Query& query, std::uint16_t rrtype, const std::string& rdata, std::uint32_t ttl) {
  Reply reply;
  reply.flags = kDNSServiceFlagsAdd;
  reply.name = query.full_name;
  reply.rrtype = rrtype;
  reply.data = rdata;
  reply.ttl = ttl;
  reply_queue(operation, std::move(reply));
}

void tell_newest_address(Operation& operation, Query& query) {
  const auto* newest = answer_newest(query.answers);
  if (newest == nullptr || newest->first == query.told) {
    return;
  }
  query.told = newest->first;
  queue_answer(operation, query, query.rrtype, newest->first, newest->second.ttl);
}

void query_failed(Operation& operation, const Query& query) {
  Reply reply;
  reply.error = kDNSServiceErr_Unknown;
  reply.name = query.full_name;
  reply.rrtype = query.rrtype;
  reply_queue(operation, std::move(reply));
}

void answer_changed(Operation& operation, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record) {
  Query& query = part_of<Query>(operation);
  if (event == AVAHI_BROWSER_FAILURE) {
    query_failed(operation, query);
    return;
  }
  const std::string rdata = rdata_of(*record);
  if (rdata.empty() || (is_address(query.rrtype) && is_unspecified(rdata))) {
    return;
  }
  const bool has_become_live = event == AVAHI_BROWSER_NEW && answer_add(query.answers, protocol, rdata, record->ttl);
  if (event == AVAHI_BROWSER_REMOVE) {
    answer_remove(query.answers, protocol, rdata);
  }
  if (is_address(query.rrtype)) {
    tell_newest_address(operation, query);
  } else if (has_become_live) {
    queue_answer(operation, query, record->key->type, rdata, record->ttl);
  }
}

}  // namespace

DNSServiceErrorType query_start(Operation& operation, const Name& name) {
  Query& query = part_of<Query>(operation);
  query.full_name = name_to_text(name);
  // What is not an address may be everybody's: there are as many pointers of a name as services, and each of them is told.
  const LookupKind kind = is_address(query.rrtype) ? LookupKind::lasting : LookupKind::steady;
  query.lookup = lookup_start(operation, name, query.rrtype, kind, answer_changed);
  return query.lookup == nullptr ? kDNSServiceErr_BadParam : kDNSServiceErr_NoError;
}

void query_stop(Query& query) {
  lookup_end(query.lookup);
  query.lookup = nullptr;
}

}  // namespace dnssd
