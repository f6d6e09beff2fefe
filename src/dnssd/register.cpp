// SPDX-License-Identifier: MIT
// Lifecycle of a registration:
//   1. registration_start: the service's SRV and TXT records become a publication under the name, which is probed for.
//   2. Established: the caller is told the name; the PTR records to it follow, and the type is entered under
//      _services._dns-sd._udp (RFC 6763 section 9). Not before: Avahi answers for a shared record at once, and its goodbye
//      after a lost probe would make another host's service of that name disappear.
//   3. Conflict, before or after that: the publications are dropped, the next name tried, and the caller told that name once
//      it is established; with NoAutoRename the caller is told of the conflict, and that is the end of it.
//   4. registration_stop: all of them are released; the last holder's release sends the goodbye.
#include "dnssd/announcer.h"
#include "dnssd/engine.h"
#include "dnssd/operations.h"
#include "dnssd/publications.h"
#include "dnssd/references.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// RFC 6762 section 8.1: after fifteen conflicts within ten seconds, at least five seconds before each further try. Conflicts
// count together until there has been none for ten seconds.
constexpr std::uint32_t kConflictsMax = 15;
constexpr std::int64_t kConflictsForgotten = 10'000'000;  // microseconds
constexpr std::int64_t kConflictPause = 5'000'000;        // microseconds

std::string to_rdata(const Name& name) {
  const std::vector<std::uint8_t> wire = name_to_wire(name);
  return {wire.begin(), wire.end()};
}

std::string srv_rdata(const Registration& registration) {
  const char head[] = {0, 0, 0, 0, static_cast<char>(registration.port >> 8), static_cast<char>(registration.port & 0xFF)};
  const std::optional<Name> host = parse_name(registration.host);
  return std::string(head, sizeof head) + to_rdata(host ? *host : Name{});
}

// Adds one unique record; false when Avahi takes it for none.
bool add(std::vector<PublishedRecord>& records, const Name& name, std::uint16_t rrtype, const std::string& rdata) {
  AvahiRecord* record = record_from_rdata(name_to_avahi(name), rrtype, rdata, 0);
  if (record != nullptr) {
    records.push_back({record, AVAHI_PUBLISH_UNIQUE});
  }
  return record != nullptr;
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

// Holds a PTR record; its name and target are ours, so that it is never refused.
void hold_pointer(Operation& operation, Registration& registration, const Name& name, const Name& target) {
  Publication* publication = record_hold(operation, name_to_avahi(name), AVAHI_DNS_TYPE_PTR, to_rdata(target), 0, Claim::shared);
  if (publication != nullptr) {
    registration.pointers.push_back(publication);
  }
}

// Holds the PTR records to the service under its type and each subtype, and the type's under _services._dns-sd._udp.
void hold_pointers(Operation& operation, Registration& registration) {
  const Name type = type_name(registration.type);
  const std::optional<Name> instance = prepend_label(registration.name, type);
  if (!instance) {
    return;
  }
  hold_pointer(operation, registration, type, *instance);
  for (const std::string& subtype : registration.type.subtypes) {
    hold_pointer(operation, registration, subtype_name(registration.type, subtype), *instance);
  }
  hold_pointer(operation, registration, Name{{"_services", "_dns-sd", "_udp", "local"}}, type);
}

// The name is ours: tells the caller, and lets others find it. A port of 0 only keeps the name (dns_sd.h).
void name_established(Operation& operation, Registration& registration) {
  if (registration.port != 0 && registration.pointers.empty()) {
    hold_pointers(operation, registration);
  }
  if (registration.told == registration.name) {
    return;
  }
  registration.told = registration.name;
  queue_registration_reply(operation, registration, kDNSServiceErr_NoError);
}

// Under which a registration of the same service finds this one's publication.
std::string key_of(const Registration& registration, const Name& instance) {
  return "service\n" + fold_case(name_to_avahi(instance)) + '\n' + srv_rdata(registration) + '\n' + registration.txt;
}

// Publishes SRV and TXT under the present name.
DNSServiceErrorType try_name(Operation& operation, Registration& registration) {
  const std::optional<Name> instance = prepend_label(registration.name, type_name(registration.type));
  if (!instance) {
    return kDNSServiceErr_BadParam;
  }
  const std::string key = key_of(registration, *instance);
  registration.service = publication_find_shared(*operation.server, key);
  if (registration.service != nullptr) {
    publication_join(*registration.service, operation.serial);
    if (registration.service->stage == Stage::established) {
      name_established(operation, registration);
    }
    return kDNSServiceErr_NoError;
  }
  std::vector<PublishedRecord> records;
  if (!add(records, *instance, AVAHI_DNS_TYPE_SRV, srv_rdata(registration)) ||
      !add(records, *instance, AVAHI_DNS_TYPE_TXT, registration.txt)) {
    for (const PublishedRecord& published : records) {
      avahi_record_unref(published.record);
    }
    return kDNSServiceErr_BadParam;
  }
  registration.service = publication_new(*operation.server, operation.serial, key, std::move(records));
  publication_start(*registration.service);
  return kDNSServiceErr_NoError;
}

// Whether the conflicts have come so fast that the next name has to wait.
bool must_pause(Registration& registration) {
  const std::int64_t now = monotonic_now();
  if (now - registration.last_conflict > kConflictsForgotten) {
    registration.conflicts = 0;
  }
  registration.last_conflict = now;
  return ++registration.conflicts > kConflictsMax;
}

void pause_over(AvahiTimeout*, void* userdata) {
  Operation& operation = *static_cast<Operation*>(userdata);
  try_name(operation, part_of<Registration>(operation));
}

void try_next_name(Operation& operation, Registration& registration) {
  registration.name = next_service_name(registration.name);
  if (!must_pause(registration)) {
    try_name(operation, registration);
    return;
  }
  if (registration.retry == nullptr) {
    registration.retry = poll_timer_new(gEngine->poll, pause_over, &operation);
  }
  poll_timer_start(registration.retry, kConflictPause);
}

void release_all(Operation& operation, Registration& registration) {
  for (Publication* pointer : registration.pointers) {
    publication_release(*pointer, operation.serial);
  }
  registration.pointers.clear();
  if (registration.service != nullptr) {
    publication_release(*registration.service, operation.serial);
  }
  registration.service = nullptr;
}

// The name belongs to another host: its service must not hear our goodbyes. Only the type's own record gets one.
void forsake_all(Operation& operation, Registration& registration) {
  if (!registration.pointers.empty()) {
    publication_release(*registration.pointers.back(), operation.serial);
    registration.pointers.pop_back();
  }
  for (Publication* pointer : registration.pointers) {
    publication_forsake(*pointer, operation.serial);
  }
  registration.pointers.clear();
  publication_forsake(*registration.service, operation.serial);
  registration.service = nullptr;
}

// Changes the TXT record of a service that nobody else holds, in place.
bool update_in_place(Operation& operation, Publication& service, AvahiRecord* record) {
  const Server& server = *operation.server;
  const auto flags = static_cast<AvahiPublishFlags>(AVAHI_PUBLISH_UNIQUE | AVAHI_PUBLISH_UPDATE | AVAHI_PUBLISH_NO_ANNOUNCE);
  const int error = avahi_server_add(server.avahi, service.group, static_cast<AvahiIfIndex>(server.interface_index),
                                     AVAHI_PROTO_UNSPEC, flags, record);
  if (error < 0) {
    return false;
  }
  PublishedRecord& published = service.records.back();
  avahi_record_unref(published.record);
  published.record = avahi_record_ref(record);
  if (service.stage == Stage::established) {
    announce(service);
  }
  return true;
}

}  // namespace

DNSServiceErrorType registration_start(Operation& operation) { return try_name(operation, part_of<Registration>(operation)); }

void registration_changed(Operation& operation, Publication& publication) {
  Registration& registration = part_of<Registration>(operation);
  if (registration.service != &publication) {
    return;
  }
  if (publication.stage == Stage::established) {
    name_established(operation, registration);
    return;
  }
  const bool conflicts = publication.reported == AVAHI_ENTRY_GROUP_COLLISION;
  forsake_all(operation, registration);
  if (conflicts && registration.auto_rename) {
    try_next_name(operation, registration);
    return;
  }
  registration.over = true;
  queue_registration_reply(operation, registration, conflicts ? kDNSServiceErr_NameConflict : kDNSServiceErr_Unknown);
}

DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl) {
  Registration& registration = part_of<Registration>(operation);
  const std::optional<Name> instance = prepend_label(registration.name, type_name(registration.type));
  if (!instance || registration.over) {
    return kDNSServiceErr_BadState;
  }
  AvahiRecord* record = record_from_rdata(name_to_avahi(*instance), AVAHI_DNS_TYPE_TXT, txt, ttl);
  if (record == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  if (txt == registration.txt) {
    avahi_record_unref(record);
    return kDNSServiceErr_NoError;
  }
  registration.txt = txt;  // of the next name to be tried, too
  Publication* service = registration.service;
  bool good = true;
  if (service != nullptr && service->group != nullptr && service->holders.size() == 1) {
    good = update_in_place(operation, *service, record);
    publication_share_anew(*service, key_of(registration, *instance));
  } else if (service != nullptr) {
    // Not yet committed, or held by others too, who keep what they have: then the new data is a service of its own.
    release_all(operation, registration);
    good = try_name(operation, registration) == kDNSServiceErr_NoError;
  }
  avahi_record_unref(record);
  return good ? kDNSServiceErr_NoError : kDNSServiceErr_Unknown;
}

void registration_stop(Operation& operation, Registration& registration) {
  poll_timer_free(registration.retry);
  registration.retry = nullptr;
  release_all(operation, registration);
}

}  // namespace dnssd
