// SPDX-License-Identifier: MIT
// The names that hosts of elsewhere are published under. A service, or a shared address, names a host that is not on the link;
// one that is there may have the same name, and keeps it: the other one appears as "name-2", also in the SRV records of its
// services. The caller is told nothing of this.
//
// Lifecycle of a host: the first service or address that names it makes it, and its name is looked for on the link, beside the
// probes for the service (mdns::Claim::yielding). When somebody there turns out to own the name, and there are addresses to be
// published under it, the next name is tried. While that lasts, the addresses of the host's own name are asked for; when nobody
// has had one of his own for a while, the name is the host's again. It ends a while after the last service and address, which may
// come back with other data.
#include <utility>

#include "dnssd/interface.h"

namespace dnssd {
namespace {

// Who owns a name and has gone may be starting anew; and so may services and addresses.
constexpr mdns::Time kGoneFor = 10 * mdns::kSecond;

// Each try changes the SRV records of all services: sooner than where a service looks for a name (RFC 6762 section 8.1), the next
// one waits.
constexpr unsigned kNamesAtOnce = 5;

// Does what has waited: the end of the host, or another name.
void review_in_time(Operation& operation);

// The addresses (rdata) that its members have.
std::set<std::string> addresses_of(const Host& host) {
  std::set<std::string> addresses;
  for (const Operation* member : host.members) {
    if (const auto* record = std::get_if<Record>(&member->part)) {
      addresses.insert(record->data.rdata);
    }
  }
  return addresses;
}

// Whether somebody else owns the host's name. Who has no address that a member has not, too, is the host itself, on both links.
bool has_owner(const Host& host) { return !std::ranges::includes(addresses_of(host), host.heard); }

// The first name that is free, from this number on, is the host's; what names it is published anew, or changed.
void take_name(Operation& operation, unsigned number) {
  Host& host = std::get<Host>(operation.part);
  Interface& interface = *operation.interface;
  const auto is_free = [&](const std::string& name) {  // nothing else that this process publishes on the interface needs it
    const auto known = interface.hosts.find(name);
    return !interface.aliases.contains(name) && (known == interface.hosts.end() || known->second == &operation);
  };
  if (host.number > 1) {  // else its name may be another host's alias: then it never had it
    interface.aliases.erase(host_alias(operation));
  }
  host.number = number;
  while (!is_free(host_alias(operation))) {
    ++host.number;
  }
  mdns::publication_withdraw(link_of(operation), monotonic_now(), host.look);
  host.look = publish(operation, host_alias(operation), {}, mdns::Claim::yielding);
  for (Operation* member : host.members) {
    host_renamed(*member);
  }
  if (host.number == 1) {
    stop_asking(operation);
    host.heard.clear();
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
    take_name(operation, number + 1);
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
  if (host.look == 0 && !addresses_of(host).empty()) {
    take_name(operation, host.number + 1);
  } else if (is_long) {
    take_name(operation, 1);
  }
  host_review(operation);
}

}  // namespace

void host_review(Operation& operation) {
  Host& host = std::get<Host>(operation.part);
  const bool is_settled = !host.members.empty() && (host.number == 1 || has_owner(host));
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
  Operation& operation =
      known != interface.hosts.end() ? *known->second : *operation_new(kLibrary, &interface, nullptr, Host{.name = name});
  Host& host = std::get<Host>(operation.part);
  if (known == interface.hosts.end()) {
    interface.hosts.emplace(host.name, &operation);
    take_name(operation, inheritance_number(interface, host.name));
  }
  if (host.look == 0 && std::holds_alternative<Record>(member.part)) {
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
      host.heard.insert(event.rdata);
    }
  } else if (event.kind == mdns::Event::Kind::removed) {
    host.heard.erase(event.rdata);
  } else if (event.kind == mdns::Event::Kind::conflict && event.id == host.look) {
    host.look = 0;
    if (!addresses_of(host).empty()) {
      give_way(operation);
    }
  }
  host_review(operation);
}

void operation_stop(Operation& operation, Host& host) {
  mdns::publication_withdraw(link_of(operation), monotonic_now(), host.look);
  operation.interface->aliases.erase(host_alias(operation));
  operation.interface->hosts.erase(host.name);
}

}  // namespace dnssd
