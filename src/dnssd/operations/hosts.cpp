// SPDX-License-Identifier: MIT
// The names under which hosts of other links are published. A registered service or shared address belongs to a host
// that is not on the link. If a host on the link has the same name, that one keeps it, and the other one is published
// as "name-2", also in the SRV records of its services. Nothing of this is reported to the caller.
//
// Lifecycle of a host: the first service or address that names it makes it, and its name is probed for on the link,
// together with the probes for the service (mdns::Claim::yielding). If another host owns the name, and there are
// addresses to be published, the next name is tried. While the host has such a name, the addresses of its own name are
// asked for; when no other host has had one for ten seconds, the host gets its own name back. It ends ten seconds after
// its last service and address have gone, since these may come back with other data.
#include "dnssd/operations/hosts.h"

#include <algorithm>

#include "dnssd/operations/inheritance.h"
#include "dnssd/operations/operations.h"

namespace dnssd {
namespace {

// How long an owner of the name, or the last service and address, must have been gone: they may be restarting.
constexpr mdns::Time kGoneFor = 10 * mdns::kSecond;

// After this many names the next one waits for kConflictPause. That is fewer than for services (RFC 6762 section 8.1),
// since each new name changes the SRV records of all services of the host.
constexpr unsigned kNamesAtOnce = 5;

// The delayed call of host_review and give_way: ends the host, or gives it another name.
void review_in_time(Operation& operation);

// Whether one of its members is an address; with this rdata, if any is given.
bool has_address(const Host& host, const std::string* rdata = nullptr) {
  return std::ranges::any_of(host.members, [&](const Operation* member) {
    const auto* record = std::get_if<Record>(&member->part);
    return record != nullptr && (rdata == nullptr || record->data.rdata == *rdata);
  });
}

// Whether another host owns the host's own name. A host whose addresses are all among those of the members is the same
// host, which is on both links.
bool has_other_owner(const Host& host) {
  return !std::ranges::all_of(host.owner_addresses, [&](const std::string& each) { return has_address(host, &each); });
}

// Gives the host the first free name from this number on, and publishes or updates its members under it.
void assign_name(Operation& operation, unsigned number) {
  Host& host = std::get<Host>(operation.part);
  Interface& interface = *operation.interface;
  const auto is_free = [&](const std::string& name) {  // no other host has it here
    const auto known = interface.hosts.find(name);
    return !interface.aliases.contains(name) && (known == interface.hosts.end() || known->second == &operation);
  };
  if (host.number > 1) {  // 1: `aliases` has it only as another host's
    interface.aliases.erase(host_alias(operation));
  }
  host.number = number;
  while (!is_free(host_alias(operation))) {
    ++host.number;
  }
  mdns::publication_withdraw(link_of(operation), monotonic_now(), host.name_publication);
  host.name_publication = publish(operation, host_alias(operation), {}, mdns::Claim::yielding);
  for (Operation* member : host.members) {
    host_renamed(*member);
  }
  if (host.number == 1) {
    stop_asking(operation);
    host.owner_addresses.clear();
    return;
  }
  interface.aliases.insert(host_alias(operation));
  if (operation.queries.empty()) {
    ask(operation, host.name, mdns::kTypeA);
    ask(operation, host.name, mdns::kTypeAaaa);
  }
}

void give_way(Operation& operation) {
  const unsigned number = std::get<Host>(operation.part).number;
  if (number < kNamesAtOnce) {
    assign_name(operation, number + 1);
  } else {
    resume_in(operation, kConflictPause, review_in_time);
  }
}

void review_in_time(Operation& operation) {
  const Host& host = std::get<Host>(operation.part);
  const bool is_long = monotonic_now() - host.unsettled_since >= kGoneFor;
  if (is_long && host.members.empty()) {
    operation_release(operation);
    return;
  }
  if (host.name_publication == 0 && has_address(host)) {
    assign_name(operation, host.number + 1);
  } else if (is_long) {
    assign_name(operation, 1);
  }
  host_review(operation);
}

}  // namespace

void host_review(Operation& operation) {
  Host& host = std::get<Host>(operation.part);
  const bool is_settled = !host.members.empty() && (host.number == 1 || has_other_owner(host));
  if (is_settled) {
    host.unsettled_since = mdns::kNever;
  } else if (host.unsettled_since == mdns::kNever) {
    host.unsettled_since = monotonic_now();
    resume_in(operation, kGoneFor, review_in_time);
  }
}

Operation& host_join(Operation& member, const std::string& name) {
  Interface& interface = *member.interface;
  const auto known = interface.hosts.find(name);
  Operation& operation = known != interface.hosts.end()
                             ? *known->second
                             : *operation_new(kLibrary, &interface, nullptr, Host{.name = name});
  Host& host = std::get<Host>(operation.part);
  if (known == interface.hosts.end()) {
    interface.hosts.emplace(host.name, &operation);
    assign_name(operation, inheritance_number(interface, host.name));
  }
  if (host.name_publication == 0 && std::holds_alternative<Record>(member.part)) {
    give_way(operation);
  }
  host.members.push_back(&member);
  host_review(operation);
  return operation;
}

void host_leave(Operation& operation, Operation& member) {
  std::erase(std::get<Host>(operation.part).members, &member);
  host_review(operation);
}

std::string host_alias(const Operation& operation) {
  const Host& host = std::get<Host>(operation.part);
  const std::string suffix = host.number == 1 ? "" : "-" + std::to_string(host.number);
  const std::string label = truncate_utf8(mdns::first_label(host.name), kLabelMax - suffix.size()) + suffix;
  return prepend_label(label, mdns::parent_name(host.name)).value_or(name_of({label, "local"}));  // or is too long
}

void operation_event(Operation& operation, Host& host, const mdns::Event& event) {
  if (event.kind == mdns::Event::Kind::added) {
    if (event.is_unique) {
      host.owner_addresses.insert(event.rdata);
    }
  } else if (event.kind == mdns::Event::Kind::removed) {
    host.owner_addresses.erase(event.rdata);
  } else if (event.kind == mdns::Event::Kind::conflict && event.id == host.name_publication) {
    host.name_publication = 0;
    if (has_address(host)) {
      give_way(operation);
    }
  }
  host_review(operation);
}

void operation_stop(Operation& operation, Host& host) {
  mdns::publication_withdraw(link_of(operation), monotonic_now(), host.name_publication);
  operation.interface->aliases.erase(host_alias(operation));
  operation.interface->hosts.erase(host.name);
}

}  // namespace dnssd
