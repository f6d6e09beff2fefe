// SPDX-License-Identifier: MIT
// Query: the caller takes each answer for what the host has now. Losses are therefore never reported. Of A and AAAA records it
// hears the newest live address whenever it differs from the one last reported: a change is one answer, the loss of one of two
// addresses is followed by the other, and one that expires and returns is silence. Link-local addresses and others are kept apart
// in this, so that the coming and going of a link-local address beside a global one does not repeat the global one. Of other
// types it hears each record once while it lives. The unspecified address is nobody's and never reported.
#include <algorithm>

#include "dnssd/engine.h"
#include "dnssd/followers.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

bool is_address(std::uint16_t rrtype) { return rrtype == mdns::kTypeA || rrtype == mdns::kTypeAaaa; }

bool is_unspecified(const std::string& address) { return address.find_first_not_of('\0') == address.npos; }

// 169.254/16 (RFC 3927) and fe80::/10 (RFC 4291).
bool is_link_local(std::uint16_t rrtype, const std::string& address) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(address[at]); };
  return rrtype == mdns::kTypeA ? byte(0) == 169 && byte(1) == 254 : byte(0) == 0xFE && (byte(1) & 0xC0) == 0x80;
}

void queue_answer(Operation& operation, const Query& query, const std::string& rdata, std::uint32_t ttl) {
  Reply reply;
  reply.flags = kDNSServiceFlagsAdd;
  reply.name = name_to_text(query.name);
  reply.rrtype = query.rrtype;
  reply.data = rdata;
  reply.ttl = ttl;
  reply_queue(operation, std::move(reply));
}

void address_changed(Operation& operation, Query& query, const mdns::Event& event) {
  const std::size_t kind = is_link_local(query.rrtype, event.rdata) ? 1 : 0;
  std::vector<Answer>& answers = query.answers[kind];
  answers_change(answers, event);
  if (event.kind == mdns::Event::Kind::added) {
    host_addresses_changed(*operation.interface, query.name, 1);
  } else {
    host_lost_address(*operation.interface, query.name);
  }
  if (!answers.empty() && answers.back().rdata != query.reported[kind]) {
    query.reported[kind] = answers.back().rdata;
    queue_answer(operation, query, answers.back().rdata, answers.back().ttl);
  }
}

}  // namespace

void answers_change(std::vector<Answer>& answers, const mdns::Event& event) {
  if (event.kind == mdns::Event::Kind::added) {
    answers.push_back({event.rdata, event.ttl});
    return;
  }
  const auto found = std::find_if(answers.rbegin(), answers.rend(), [&](const Answer& a) { return a.rdata == event.rdata; });
  if (found != answers.rend()) {
    answers.erase(std::next(found).base());
  }
}

DNSServiceErrorType query_start(Operation& operation) {
  const Query& query = part_of<Query>(operation);
  ask(operation, query.name, query.rrtype);
  return kDNSServiceErr_NoError;
}

void query_end(const Operation& operation, const Query& query) {
  const std::size_t live = query.answers[0].size() + query.answers[1].size();
  if (live > 0) {
    host_addresses_changed(*operation.interface, query.name, -static_cast<int>(live));
  }
}

void operation_event(Operation& operation, Query& query, const mdns::Event& event) {
  if (!is_address(query.rrtype)) {
    if (event.kind == mdns::Event::Kind::added) {
      queue_answer(operation, query, event.rdata, event.ttl);
    }
  } else if (!is_unspecified(event.rdata)) {
    address_changed(operation, query, event);
  }
}

}  // namespace dnssd
