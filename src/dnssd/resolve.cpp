// SPDX-License-Identifier: MIT
// Resolve: two lookups, of the instance's SRV and TXT records. (Avahi's own service resolver gives up for good after five seconds;
// these go on asking, at the growing intervals of RFC 6762 section 5.2, until they are ended, and answer from the cache as
// quickly.) The caller hears of the newest of both, and again when either has changed.
#include <algorithm>
#include <cstring>

#include "dnssd/engine.h"
#include "dnssd/lookups.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// RFC 2782: priority, weight and port of two bytes each, then the target's name.
constexpr std::size_t kSrvPortAt = 4;
constexpr std::size_t kSrvTargetAt = 6;

// The target in `srv` in presentation format; nothing when the rdata is malformed or the name holds a zero byte.
std::optional<std::string> target_text(const std::string& srv) {
  if (srv.size() <= kSrvTargetAt) {
    return std::nullopt;
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(srv.data()) + kSrvTargetAt;
  const std::span<const std::uint8_t> wire(bytes, srv.size() - kSrvTargetAt);
  if (!is_wire_name(wire)) {
    return std::nullopt;
  }
  Name name;
  for (std::size_t at = 0; wire[at] != 0; at += 1u + wire[at]) {
    if (std::ranges::find(wire.subspan(at + 1, wire[at]), std::uint8_t{0}) != wire.subspan(at + 1, wire[at]).end()) {
      return std::nullopt;
    }
    name.labels.emplace_back(reinterpret_cast<const char*>(&wire[at + 1]), wire[at]);
  }
  return name_to_text(name);
}

void tell_if_complete(Operation& operation, Resolve& resolve) {
  const auto* srv = answer_newest(resolve.srv);
  const auto* txt = answer_newest(resolve.txt);
  if (srv == nullptr || txt == nullptr) {
    return;
  }
  if (srv->first == resolve.told_srv && txt->first == resolve.told_txt) {
    return;
  }
  std::optional<std::string> target = target_text(srv->first);
  if (!target) {
    return;
  }
  resolve.told_srv = srv->first;
  resolve.told_txt = txt->first;
  Reply reply;
  reply.name = resolve.full_name;
  reply.detail = std::move(*target);
  std::memcpy(&reply.port, srv->first.data() + kSrvPortAt, sizeof reply.port);
  reply.data = txt->first;
  reply_queue(operation, std::move(reply));
}

void resolve_failed(Operation& operation, const Resolve& resolve) {
  Reply reply;
  reply.error = kDNSServiceErr_Unknown;
  reply.name = resolve.full_name;
  reply_queue(operation, std::move(reply));
}

void record_seen(Operation& operation, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record) {
  Resolve& resolve = part_of<Resolve>(operation);
  if (event == AVAHI_BROWSER_FAILURE) {
    resolve_failed(operation, resolve);
    return;
  }
  const std::string rdata = rdata_of(*record);
  if (rdata.empty()) {
    return;
  }
  AnswerSet& answers = record->key->type == AVAHI_DNS_TYPE_SRV ? resolve.srv : resolve.txt;
  if (event == AVAHI_BROWSER_NEW) {
    answer_add(answers, protocol, rdata, record->ttl);
  } else {
    answer_remove(answers, protocol, rdata);
  }
  tell_if_complete(operation, resolve);
}

}  // namespace

DNSServiceErrorType resolve_start(Operation& operation, const Name& instance) {
  Resolve& resolve = part_of<Resolve>(operation);
  resolve.full_name = name_to_text(instance);
  resolve.srv_lookup = lookup_start(operation, instance, AVAHI_DNS_TYPE_SRV, LookupKind::brief, record_seen);
  resolve.txt_lookup = lookup_start(operation, instance, AVAHI_DNS_TYPE_TXT, LookupKind::brief, record_seen);
  const bool both_run = resolve.srv_lookup != nullptr && resolve.txt_lookup != nullptr;
  return both_run ? kDNSServiceErr_NoError : kDNSServiceErr_BadParam;
}

void resolve_stop(Resolve& resolve) {
  lookup_end(resolve.srv_lookup);
  lookup_end(resolve.txt_lookup);
  resolve.srv_lookup = nullptr;
  resolve.txt_lookup = nullptr;
}

}  // namespace dnssd
