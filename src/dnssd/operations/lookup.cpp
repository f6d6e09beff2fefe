// SPDX-License-Identifier: MIT
// The operations that look something up.
//
// Browse: one query for the PTR records of the type or subtype. Each names an instance, unless its target is of another
// type.
//
// Resolve: two queries, for the instance's SRV and TXT records. Reports the newest of both, and again when either has
// changed.
//
// Follower: a resolve without a callback that detects changes after the caller's resolve has ended. A caller that
// browses and resolves each instance once, as dns_sd.h suggests, would otherwise never learn that the SRV or TXT data
// has changed or that the host is gone. A resolve that has reported, for an instance that a browse on the interface has
// reported, starts a follower when it is released. Its queries listen and send no questions. Other data from the host
// that sent the reported data is a change: the instance is reported removed and added again, and the follower ends; a
// new resolve will start a new one. Data from other hosts is ignored. The follower also ends when no browse has the
// instance any more.
//
// Query: the caller takes each answer as the host's present data. Removals are therefore never reported. For A and AAAA
// the newest live address is reported whenever it differs from the one last reported: a change is one answer; when one
// of two addresses is removed, the other one is reported; an address that expires and returns is not reported again.
// Link-local and other addresses are handled separately, so that a link-local address that comes or goes does not
// repeat the global one. For other types each record is reported once while it lives. The unspecified address (all
// zeros) is never reported.
#include "dnssd/operations/lookup.h"

#include <cstring>

#include "dnssd/operations/operations.h"

namespace dnssd {
namespace {

// RFC 2782: priority, weight and port of two bytes each, then the target's name.
constexpr std::size_t kSrvPortAt = 4;

// Whether a PTR record's target is an instance of the browsed type with a well-formed UTF-8 name.
bool is_instance(const Browse& browse, const std::string& target) {
  const std::string_view name = mdns::first_label(target);
  return !name.empty() && is_text(name) && mdns::same_folded(mdns::parent_name(target), browse.type);
}

// Queues a browse reply. `begins_update`: the instance will be reported as added again at once, with other data.
void report_instance(Operation& browse, DNSServiceFlags flags, const std::string& instance,
                     bool begins_update = false) {
  const std::string name(mdns::first_label(instance));
  const std::string type = type_text(mdns::parent_name(instance));
  reply_queue(browse, [=](const Operation& to, DNSServiceFlags more) {
    if (begins_update) {
      gEngine->goodbyes_until = monotonic_now() + kUpdateWithin;
    }
    std::get<Browse>(to.part).callback(service_ref(to.handle), flags | more, to.interface->index,
                                       kDNSServiceErr_NoError, name.c_str(), type.c_str(), "local.", to.context);
  });
}

void end_follower(const Instance& instance) {
  if (instance.follower != nullptr) {
    operation_release(*instance.follower);
  }
}

// Removes the browse from the instance, and the instance when it has no browse any more. Returns the next instance.
auto browse_lost(Operation& browse, decltype(Interface::instances)::iterator at) {
  Instance& instance = at->second;
  std::erase(instance.browses, &browse);
  if (!instance.browses.empty()) {
    return std::next(at);
  }
  end_follower(instance);
  return browse.interface->instances.erase(at);
}

// Whether every label of a host's name is well-formed UTF-8.
bool is_text_name(std::string_view name) {
  while (name.size() > 1 && is_text(mdns::first_label(name))) {
    name = mdns::parent_name(name);
  }
  return name.size() == 1;
}

void report_if_new(Operation& operation, Resolve& resolve) {
  const std::string& srv = resolve.srv.live.back().rdata;
  const std::string& txt = resolve.txt.live.back().rdata;
  const std::string_view target = mdns::target_of(mdns::kTypeSrv, srv);
  if ((srv == resolve.srv.reported && txt == resolve.txt.reported) || !is_text_name(target)) {
    return;
  }
  resolve.srv.reported = srv;
  resolve.txt.reported = txt;
  std::uint16_t port;  // in network order
  std::memcpy(&port, srv.data() + kSrvPortAt, sizeof port);
  reply_queue(operation, [=, txt = txt, host = name_to_text(target)](const Operation& to, DNSServiceFlags more) {
    const Resolve& part = std::get<Resolve>(to.part);
    part.callback(service_ref(to.handle), more, to.interface->index, kDNSServiceErr_NoError,
                  name_to_text(part.name).c_str(), host.c_str(), port, static_cast<std::uint16_t>(txt.size()),
                  reinterpret_cast<const unsigned char*>(txt.data()), to.context);
  });
}

// The hash that a follower keeps instead of rdata. Case counts in TXT data, but not in the target of SRV data.
std::string digest_of(std::uint16_t rrtype, const std::string& rdata) {
  const std::uint64_t hash = rrtype == mdns::kTypeSrv ? mdns::hash_folded(rdata, 0) : std::hash<std::string>()(rdata);
  return std::string(reinterpret_cast<const char*>(&hash), sizeof hash);
}

// Notes the host that sent the record over each protocol as its owner, if the data is what was reported; sets
// is_from_owner.
void note_owner(Answers& answers, const mdns::Event& event) {
  const bool is_reported = event.rdata == answers.reported;
  bool is_owner = false;
  for (std::size_t protocol = 0; protocol < event.sent_by.size(); ++protocol) {
    std::uint32_t& owner = answers.owner[protocol];
    owner = is_reported && event.sent_by[protocol] != 0 ? event.sent_by[protocol] : owner;
    is_owner = is_owner || (owner != 0 && owner == event.sent_by[protocol]);
  }
  answers.is_from_owner = !is_reported && is_owner;
}

// Whether the newest data differs from what was reported and comes from the host that sent that.
bool has_changed(const Answers& answers) {
  return answers.is_from_owner && answers.live.back().rdata != answers.reported;
}

void report_answer(Operation& operation, const Answer& answer) {
  reply_queue(operation, [=](const Operation& to, DNSServiceFlags more) {
    const Query& query = std::get<Query>(to.part);
    query.callback(service_ref(to.handle), kDNSServiceFlagsAdd | more, to.interface->index, kDNSServiceErr_NoError,
                   name_to_text(query.name).c_str(), query.rrtype, kDNSServiceClass_IN,
                   static_cast<std::uint16_t>(answer.rdata.size()), answer.rdata.data(), answer.ttl, to.context);
  });
}

// No query has an address of the host any more: has the PTR records of its services reconfirmed (RFC 6762 section
// 10.4).
void host_addresses_expired(Interface& interface, const std::string& host) {
  const auto [first, last] = interface.followers.equal_range(host);
  for (auto at = first; at != last; ++at) {
    const std::string& instance = std::get<Resolve>(at->second->part).name;
    mdns::link_reconfirm(interface_link(interface), monotonic_now(), mdns::parent_name(instance), mdns::kTypePtr,
                         instance);
  }
}

}  // namespace

void answers_change(std::vector<Answer>& answers, const mdns::Event& event) {
  if (event.kind != mdns::Event::Kind::added) {
    std::erase_if(answers,
                  [&](const Answer& answer) { return mdns::same_rdata(event.type, answer.rdata, event.rdata); });
  }
  if (event.kind != mdns::Event::Kind::removed) {
    answers.push_back({event.type, event.ttl, event.rdata});
  }
}

void operation_event(Operation& operation, Browse& browse, const mdns::Event& event) {
  auto& instances = operation.interface->instances;
  if (!is_instance(browse, event.rdata)) {
    return;
  }
  const bool is_added = event.kind == mdns::Event::Kind::added;
  const auto at = is_added ? instances.try_emplace(event.rdata).first : instances.find(event.rdata);
  const bool is_known = at != instances.end() && std::ranges::count(at->second.browses, &operation) > 0;
  if (is_added == is_known) {
    return;
  }
  report_instance(operation, is_added ? kDNSServiceFlagsAdd : 0, at->first);  // spelled as at first
  if (is_added) {
    at->second.browses.push_back(&operation);
  } else {
    browse_lost(operation, at);
  }
}

void operation_stop(Operation& operation, Browse&) {
  auto& instances = operation.interface->instances;
  for (auto at = instances.begin(); at != instances.end();) {
    at = browse_lost(operation, at);
  }
}

void resolve_start(Operation& operation) {
  const Resolve& resolve = std::get<Resolve>(operation.part);
  const mdns::Interest interest = resolve.callback == nullptr ? mdns::Interest::listening : mdns::Interest::asking;
  ask(operation, resolve.name, mdns::kTypeSrv, interest);
  ask(operation, resolve.name, mdns::kTypeTxt, interest);
}

void operation_event(Operation&, Resolve& resolve, const mdns::Event& event) {
  Answers& answers = event.type == mdns::kTypeSrv ? resolve.srv : resolve.txt;
  if (resolve.callback != nullptr) {
    answers_change(answers.live, event);
    return;
  }
  mdns::Event digested = event;
  digested.rdata = digest_of(event.type, event.rdata);
  answers_change(answers.live, digested);
  if (event.kind != mdns::Event::Kind::removed) {
    note_owner(answers, digested);
  }
}

void resolve_review(Handle handle) {
  Operation* operation = operation_find(handle);
  Resolve* resolve = operation == nullptr ? nullptr : std::get_if<Resolve>(&operation->part);
  if (resolve == nullptr || resolve->srv.live.empty() || resolve->txt.live.empty()) {
    return;
  }
  if (resolve->callback != nullptr) {
    report_if_new(*operation, *resolve);
  } else if (has_changed(resolve->srv) || has_changed(resolve->txt)) {
    const auto& [name, instance] = *operation->interface->instances.find(resolve->name);
    for (Operation* browse : instance.browses) {  // removed and added again, with other data
      report_instance(*browse, 0, name, true);
      report_instance(*browse, kDNSServiceFlagsAdd, name);
    }
    operation_release(*operation);
  }
}

void operation_stop(Operation& operation, Resolve& resolve) {
  Interface& interface = *operation.interface;
  const auto known = interface.instances.find(resolve.name);
  if (resolve.callback == nullptr) {
    known->second.follower = nullptr;
    const auto [first, last] = interface.followers.equal_range(resolve.host);
    interface.followers.erase(std::find_if(first, last, [&](const auto& entry) { return entry.second == &operation; }));
  } else if (!resolve.srv.reported.empty() && known != interface.instances.end()) {
    end_follower(known->second);
    Resolve part{nullptr, resolve.name, std::string(mdns::target_of(mdns::kTypeSrv, resolve.srv.reported))};
    part.srv.reported = digest_of(mdns::kTypeSrv, resolve.srv.reported);
    part.txt.reported = digest_of(mdns::kTypeTxt, resolve.txt.reported);
    Operation* follower = operation_new(kLibrary, &interface, nullptr, std::move(part));
    known->second.follower = follower;
    interface.followers.emplace(std::get<Resolve>(follower->part).host, follower);
    resolve_start(*follower);
  }
}

void operation_event(Operation& operation, Query& query, const mdns::Event& event) {
  const bool is_added = event.kind == mdns::Event::Kind::added;
  if (!is_address(query.rrtype) && is_added) {
    report_answer(operation, {event.type, event.ttl, event.rdata});
  }
  if (!is_address(query.rrtype) || event.rdata.find_first_not_of('\0') == event.rdata.npos) {
    return;
  }
  const mdns::Protocols protocol = query.rrtype == mdns::kTypeA ? mdns::kIpv4 : mdns::kIpv6;
  Answers& answers = query.answers[is_link_local(protocol, event.rdata) ? 0 : 1];
  answers_change(answers.live, event);
  std::multiset<std::string, FoldedLess>& live_addresses = operation.interface->live_addresses;
  if (is_added) {
    live_addresses.insert(query.name);
  } else if (live_addresses.extract(query.name); !live_addresses.contains(query.name)) {
    host_addresses_expired(*operation.interface, query.name);
  }
  if (!answers.live.empty() && answers.live.back().rdata != answers.reported) {
    answers.reported = answers.live.back().rdata;
    report_answer(operation, answers.live.back());
  }
}

void operation_stop(Operation& operation, Query& query) {
  for (std::size_t live = query.answers[0].live.size() + query.answers[1].live.size(); live > 0; --live) {
    operation.interface->live_addresses.extract(query.name);
  }
}

}  // namespace dnssd
