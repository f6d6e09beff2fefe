// SPDX-License-Identifier: MIT
// Browse: one query for the PTR records of the type or subtype. Each is an instance, unless it names something else.
#include <algorithm>

#include "dnssd/engine.h"
#include "dnssd/followers.h"
#include "dnssd/interface.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// Whether a PTR record's target is an instance of the type that is browsed, and its name a text.
bool is_instance(const Browse& browse, const std::string& target) {
  const std::string_view name = mdns::first_label(target);
  return !name.empty() && is_text(name) && mdns::same_folded(mdns::parent_name(target), browse.type);
}

void queue_browse_reply(Operation& operation, DNSServiceFlags flags, const std::string& target, bool begins_update = false) {
  const std::string_view type = mdns::parent_name(target);
  Reply reply;
  reply.flags = flags;
  reply.begins_update = begins_update;
  reply.name = mdns::first_label(target);
  reply.detail = mdns::first_label(type);
  reply.detail += '.';
  reply.detail += mdns::first_label(mdns::parent_name(type));
  reply.detail += '.';
  reply_queue(operation, std::move(reply));
}

}  // namespace

DNSServiceErrorType browse_start(Operation& operation, const std::string& name) {
  Browse& browse = part_of<Browse>(operation);
  browse.instances = decltype(browse.instances)(0, FoldedHash{random_number()});
  operation.interface->browses.push_back(operation.handle);
  ask(operation, name, mdns::kTypePtr);
  return kDNSServiceErr_NoError;
}

void operation_event(Operation& operation, Browse& browse, const mdns::Event& event) {
  if (!is_instance(browse, event.rdata)) {
    return;
  }
  if (event.kind == mdns::Event::Kind::added) {
    if (browse.instances.insert(event.rdata).second) {
      queue_browse_reply(operation, kDNSServiceFlagsAdd, event.rdata);
    }
    return;
  }
  const auto known = browse.instances.find(event.rdata);
  if (known != browse.instances.end()) {
    queue_browse_reply(operation, 0, *known);  // the caller knows it as it was first reported, however its goodbye spells it
    const auto lost = browse.instances.extract(known);
    followers_unneeded(*operation.interface, lost.value());
  }
}

void browse_report_again(Operation& operation, const std::string& instance) {
  const Browse& browse = part_of<Browse>(operation);
  const auto known = browse.instances.find(instance);
  if (known != browse.instances.end()) {
    queue_browse_reply(operation, 0, *known, true);
    queue_browse_reply(operation, kDNSServiceFlagsAdd, *known);
  }
}

void browse_stop(const Operation& operation, const Browse& browse) {
  std::erase(operation.interface->browses, operation.handle);
  for (const std::string& instance : browse.instances) {
    followers_unneeded(*operation.interface, instance);
  }
}

}  // namespace dnssd
