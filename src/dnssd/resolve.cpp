// SPDX-License-Identifier: MIT
// Resolve: two queries, for the instance's SRV and TXT records. The caller hears of the newest of both, and again when either has
// changed.
#include <cstring>

#include "dnssd/engine.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// RFC 2782: priority, weight and port of two bytes each, then the target's name.
constexpr std::size_t kSrvPortAt = 4;

// Whether every label of a host's name is a text.
bool is_text_name(std::string_view name) {
  while (name.size() > 1 && is_text(mdns::first_label(name))) {
    name = mdns::parent_name(name);
  }
  return name.size() == 1;
}

void report_if_changed(Operation& operation, Resolve& resolve) {
  if (resolve.srv.empty() || resolve.txt.empty()) {
    return;
  }
  const std::string& srv = resolve.srv.back().rdata;
  const std::string& txt = resolve.txt.back().rdata;
  if (srv == resolve.reported_srv && txt == resolve.reported_txt) {
    return;
  }
  const std::string_view target = mdns::target_of(mdns::kTypeSrv, srv);
  if (!is_text_name(target)) {
    return;
  }
  resolve.reported_srv = srv;
  resolve.reported_txt = txt;
  Reply reply;
  reply.name = name_to_text(resolve.name);
  reply.detail = name_to_text(target);
  std::memcpy(&reply.port, srv.data() + kSrvPortAt, sizeof reply.port);
  reply.data = txt;
  reply_queue(operation, std::move(reply));
}

}  // namespace

DNSServiceErrorType resolve_start(Operation& operation) {
  const std::string& name = part_of<Resolve>(operation).name;
  ask(operation, name, mdns::kTypeSrv);
  ask(operation, name, mdns::kTypeTxt);
  return kDNSServiceErr_NoError;
}

void operation_event(Operation& operation, Resolve& resolve, const mdns::Event& event) {
  answers_change(event.type == mdns::kTypeSrv ? resolve.srv : resolve.txt, event);
  gEngine->touched.push_back(operation.handle);
}

void resolve_review(Operation& operation) { report_if_changed(operation, part_of<Resolve>(operation)); }

}  // namespace dnssd
