// SPDX-License-Identifier: MIT
// Lifecycle of a registration:
//   1. registration_start: the service's SRV and TXT records are published under the name, which is probed for.
//   2. Established: the name is reported; the PTR records to it follow, and the type is entered under
//      _services._dns-sd._udp (RFC 6763 section 9). Not before: PTR records are shared, and their goodbye after a lost probe
//      would make another host's service of that name disappear.
//   3. Conflict, before or after that: the PTR records go without a goodbye, the next name is tried, and reported once
//      it is established; with NoAutoRename the conflict is reported, and that is the end of it.
//   4. registration_stop: all of them are withdrawn, with goodbyes.
#include "dnssd/engine.h"
#include "dnssd/operations.h"
#include "dnssd/references.h"

namespace dnssd {
namespace {

// RFC 6762 section 8.1: after fifteen conflicts within ten seconds, at least five seconds before each further try. Conflicts
// count together until there has been none for ten seconds.
constexpr std::uint32_t kConflictsMax = 15;
constexpr mdns::Time kConflictsForgotten = 10 * mdns::kSecond;
constexpr mdns::Time kConflictPause = 5 * mdns::kSecond;

std::string srv_rdata(const Registration& registration) {
  const char head[] = {0, 0, 0, 0, static_cast<char>(registration.port >> 8), static_cast<char>(registration.port & 0xFF)};
  return std::string(head, sizeof head) + registration.host;
}

void queue_registration_reply(Operation& operation, const Registration& registration, DNSServiceErrorType error) {
  Reply reply;
  if (error == kDNSServiceErr_NoError) {
    reply.flags = kDNSServiceFlagsAdd;
  }
  reply.error = error;
  reply.name = registration.name;
  reply.detail = type_text(registration.type);
  reply_queue(operation, std::move(reply));
}

void publish_pointer(Operation& operation, Registration& registration, const std::string& name, const std::string& target) {
  const mdns::RecordData record{mdns::kTypePtr, 0, target};
  registration.pointers.push_back(
      mdns::publish(link_of(operation), monotonic_now(), name, {&record, 1}, mdns::Claim::shared, operation.handle));
}

// Publishes the PTR records to the service under its type and each subtype, and the type's under _services._dns-sd._udp.
void publish_pointers(Operation& operation, Registration& registration) {
  const std::string type = type_name(registration.type);
  const std::optional<std::string> instance = prepend_label(registration.name, type);
  if (!instance) {
    return;
  }
  publish_pointer(operation, registration, type, *instance);
  for (const std::string& subtype : registration.type.subtypes) {
    publish_pointer(operation, registration, subtype_name(registration.type, subtype), *instance);
  }
  publish_pointer(operation, registration, name_of({"_services", "_dns-sd", "_udp", "local"}), type);
}

// The name is ours: tells the caller, and lets others find it. A port of 0 only keeps the name (dns_sd.h).
void name_established(Operation& operation, Registration& registration) {
  if (registration.port != 0 && registration.pointers.empty()) {
    publish_pointers(operation, registration);
  }
  if (!registration.is_reported) {
    registration.is_reported = true;
    queue_registration_reply(operation, registration, kDNSServiceErr_NoError);
  }
}

// Publishes SRV and TXT under the present name.
DNSServiceErrorType try_name(Operation& operation, Registration& registration) {
  const std::optional<std::string> instance = prepend_label(registration.name, type_name(registration.type));
  const mdns::RecordData records[] = {{mdns::kTypeSrv, 0, srv_rdata(registration)}, {mdns::kTypeTxt, 0, registration.txt}};
  if (!instance) {
    return kDNSServiceErr_BadParam;
  }
  registration.service =
      mdns::publish(link_of(operation), monotonic_now(), *instance, records, mdns::Claim::exclusive, operation.handle);
  return kDNSServiceErr_NoError;
}

// Whether the conflicts have come so fast that the next name has to wait.
bool must_pause(Registration& registration, mdns::Time now) {
  if (now - registration.last_conflict > kConflictsForgotten) {
    registration.conflicts = 0;
  }
  registration.last_conflict = now;
  return ++registration.conflicts >= kConflictsMax;
}

void try_next_name(Operation& operation, Registration& registration) {
  const mdns::Time now = monotonic_now();
  registration.name = next_service_name(registration.name);
  registration.is_reported = false;
  if (must_pause(registration, now)) {
    gEngine->renamings.emplace(now + kConflictPause, operation.handle);
  } else {
    try_name(operation, registration);
  }
}

// The name belongs to another host: its service must not hear our goodbyes. Only the type's own record gets one.
void forsake_pointers(mdns::Link& link, Registration& registration) {
  const mdns::Time now = monotonic_now();
  if (!registration.pointers.empty()) {
    mdns::publication_withdraw(link, now, registration.pointers.back());
    registration.pointers.pop_back();
  }
  for (const mdns::PublicationId pointer : registration.pointers) {
    mdns::publication_forsake(link, now, pointer);
  }
  registration.pointers.clear();
}

}  // namespace

DNSServiceErrorType registration_start(Operation& operation) { return try_name(operation, part_of<Registration>(operation)); }

void operation_event(Operation& operation, Registration& registration, const mdns::Event& event) {
  if (registration.service == 0 || event.id != registration.service) {
    return;
  }
  if (event.kind == mdns::Event::Kind::established) {
    name_established(operation, registration);
    return;
  }
  registration.service = 0;
  forsake_pointers(link_of(operation), registration);
  if (registration.auto_rename) {
    try_next_name(operation, registration);
    return;
  }
  registration.is_over = true;
  queue_registration_reply(operation, registration, kDNSServiceErr_NameConflict);
}

DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl) {
  Registration& registration = part_of<Registration>(operation);
  if (registration.is_over) {
    return kDNSServiceErr_BadState;
  }
  if (!is_publishable(mdns::kTypeTxt, txt)) {
    return kDNSServiceErr_BadParam;
  }
  if (txt == registration.txt) {
    return kDNSServiceErr_NoError;
  }
  registration.txt = txt;  // of the next name to be tried, too
  mdns::Link& link = link_of(operation);
  if (registration.service == 0 ||
      mdns::publication_update(link, monotonic_now(), registration.service, {mdns::kTypeTxt, ttl, txt})) {
    return kDNSServiceErr_NoError;
  }
  // Others hold the same service and keep what they have: then the new data is a service of its own.
  registration_stop(operation, registration);
  return try_name(operation, registration);
}

void registration_stop(const Operation& operation, Registration& registration) {
  mdns::Link& link = link_of(operation);
  const mdns::Time now = monotonic_now();
  for (const mdns::PublicationId pointer : registration.pointers) {
    mdns::publication_withdraw(link, now, pointer);
  }
  registration.pointers.clear();
  mdns::publication_withdraw(link, now, registration.service);
  registration.service = 0;
}

void registrations_resume(mdns::Time now) {
  while (!gEngine->renamings.empty() && gEngine->renamings.begin()->first <= now) {
    Operation* operation = operation_find(gEngine->renamings.begin()->second);
    gEngine->renamings.erase(gEngine->renamings.begin());
    if (operation != nullptr) {
      try_name(*operation, part_of<Registration>(*operation));
    }
  }
}

}  // namespace dnssd
