// SPDX-License-Identifier: MIT
#include "dnssd/operations/inheritance.h"

#include <net/if.h>

#include <utility>

#include "dnssd/links/interfaces.h"
#include "dnssd/operations/handover.h"
#include "dnssd/operations/operations.h"

namespace dnssd {
namespace {

// How long inherited records are kept after the caller's first pass: by then it has found its services again.
constexpr mdns::Time kKeptFor = 5 * mdns::kSecond;

void inherit(const HandedInterface& given, mdns::Time now) {
  char name[IF_NAMESIZE];
  Interface* interface = nullptr;
  if (if_indextoname(given.index, name) == nullptr || given.name != name ||
      interface_get(given.index, &interface) != kDNSServiceErr_NoError) {
    return;
  }
  Operation* const operation = operation_new(kLibrary, interface, nullptr, Inheritance{});
  Inheritance& inheritance = std::get<Inheritance>(operation->part);
  for (const mdns::Published& record : given.records) {
    inheritance.records.emplace(record.name,
                                mdns::publish_inherited(link_of(*operation), now, record, operation->handle));
  }
  inheritance.hosts.insert(given.hosts.begin(), given.hosts.end());
  interface->inheritance = operation;
}

}  // namespace

void inheritance_take() {
  if (const std::optional<Handover> handover = handover_receive()) {
    const mdns::Time now = monotonic_now();
    for (const HandedInterface& interface : handover->interfaces) {
      inherit(interface, now);
    }
  }
}

void inheritance_serve() {
  if (std::exchange(gEngine->is_served, true)) {
    return;
  }
  for (const auto& [index, interface] : gEngine->interfaces) {
    if (interface->inheritance != nullptr) {
      resume_in(*interface->inheritance, kKeptFor, operation_release);
    }
  }
}

void inheritance_replace(Interface& interface, const std::string& name) {
  if (interface.inheritance == nullptr) {
    return;
  }
  const mdns::Time now = monotonic_now();
  auto& records = std::get<Inheritance>(interface.inheritance->part).records;
  const auto [first, last] = records.equal_range(name);
  if (first != last) {
    mdns::link_hold_goodbyes(interface_link(interface), now, now + kUpdateWithin);
  }
  for (auto each = first; each != last; ++each) {
    mdns::publication_withdraw(interface_link(interface), now, each->second);
  }
  records.erase(first, last);
}

unsigned inheritance_number(const Interface& interface, const std::string& host) {
  if (interface.inheritance == nullptr) {
    return 1;
  }
  const auto& hosts = std::get<Inheritance>(interface.inheritance->part).hosts;
  const auto known = hosts.find(host);
  return known == hosts.end() ? 1 : known->second;
}

void operation_stop(Operation& operation, Inheritance& inheritance) {
  for (const auto& [name, publication] : inheritance.records) {
    mdns::publication_withdraw(link_of(operation), monotonic_now(), publication);
  }
  operation.interface->inheritance = nullptr;
}

}  // namespace dnssd
