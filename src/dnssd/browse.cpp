// SPDX-License-Identifier: MIT
// Browse: one lookup of the PTR records of the type. It reports an instance once per protocol; the caller
// hears of it when the first has it and when the last has lost it. Goodbyes are heard earlier than the lookup believes them
// (see departures.h).
#include "dnssd/departures.h"
#include "dnssd/engine.h"
#include "dnssd/lookups.h"
#include "dnssd/operations.h"

namespace dnssd {
namespace {

// A PTR record's target taken apart.
struct Instance {
  std::string name;  // plain
  std::string type;  // "_ipp._tcp."
};

// Nothing when the target is no instance of the type that is browsed.
std::optional<Instance> instance_of(const Browse& browse, const Name& target) {
  if (target.labels.size() != browse.type.labels.size() + 1) {
    return std::nullopt;
  }
  const Name rest{{target.labels.begin() + 1, target.labels.end()}};
  const std::string text = name_to_text(rest);
  if (fold_case(text) != fold_case(name_to_text(browse.type))) {
    return std::nullopt;
  }
  return Instance{target.labels[0], rest.labels[0] + "." + rest.labels[1] + "."};
}

void queue_browse_reply(Operation& operation, DNSServiceFlags flags, const Instance& instance) {
  Reply reply;
  reply.flags = flags;
  reply.name = instance.name;
  reply.detail = instance.type;
  reply_queue(operation, std::move(reply));
}

void instance_found(Operation& operation, Browse& browse, unsigned protocol, const Instance& instance) {
  BrowsedInstance& known = browse.instances[fold_case(instance.name)];
  const bool is_new = known.protocols == 0;
  known.protocols |= protocol;
  if (is_new) {
    known.name = instance.name;
    queue_browse_reply(operation, kDNSServiceFlagsAdd, instance);
  }
}

void instance_lost(Operation& operation, Browse& browse, unsigned protocol, const Instance& instance) {
  const auto found = browse.instances.find(fold_case(instance.name));
  if (found == browse.instances.end()) {
    return;
  }
  found->second.protocols &= ~protocol;
  if (found->second.protocols != 0) {
    return;
  }
  // The caller knows it as it was told, however its goodbye spells it.
  const Instance told{std::move(found->second.name), instance.type};
  browse.instances.erase(found);
  queue_browse_reply(operation, 0, told);
}

void browse_failed(Operation& operation) {
  Reply reply;
  reply.error = kDNSServiceErr_Unknown;
  reply_queue(operation, std::move(reply));
}

void ptr_changed(Operation& operation, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record) {
  if (event == AVAHI_BROWSER_FAILURE) {
    browse_failed(operation);
    return;
  }
  const std::optional<Name> target = parse_name(record->data.ptr.name);
  if (!target) {
    return;
  }
  const unsigned bit = protocol == AVAHI_PROTO_INET6 ? 2u : 1u;
  if (event == AVAHI_BROWSER_NEW) {
    browse_found(operation, bit, *target);
  } else {
    departures_confirm(operation, bit, *target);
    browse_lost(operation, bit, *target);
  }
}

}  // namespace

bool browse_has(const Browse& browse, unsigned protocol, const Name& target) {
  const std::optional<Instance> instance = instance_of(browse, target);
  const auto found = instance ? browse.instances.find(fold_case(instance->name)) : browse.instances.end();
  return found != browse.instances.end() && (found->second.protocols & protocol) != 0;
}

void browse_found(Operation& operation, unsigned protocol, const Name& target) {
  Browse& browse = part_of<Browse>(operation);
  const std::optional<Instance> instance = instance_of(browse, target);
  if (instance) {
    instance_found(operation, browse, protocol, *instance);
  }
}

void browse_lost(Operation& operation, unsigned protocol, const Name& target) {
  Browse& browse = part_of<Browse>(operation);
  const std::optional<Instance> instance = instance_of(browse, target);
  if (instance) {
    instance_lost(operation, browse, protocol, *instance);
  }
}

DNSServiceErrorType browse_start(Operation& operation, const ServiceType& type) {
  Browse& browse = part_of<Browse>(operation);
  browse.type = type_name(type);
  const Name asked = type.subtypes.empty() ? browse.type : subtype_name(type, type.subtypes[0]);
  browse.lookup = lookup_start(operation, asked, AVAHI_DNS_TYPE_PTR, LookupKind::steady, ptr_changed);
  if (browse.lookup == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  departures_watch(operation, asked);
  return kDNSServiceErr_NoError;
}

void browse_stop(Browse& browse) {
  departures_unwatch(browse);
  lookup_end(browse.lookup);
  browse.lookup = nullptr;
}

}  // namespace dnssd
