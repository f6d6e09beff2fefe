// Lifecycle of a registration:
//   1. registration_start: the service's records (SRV and TXT unique, PTR shared) become one publication under the name.
//   2. Established: the caller is told the name, and the type is entered under _services._dns-sd._udp (RFC 6763 section 9),
//      a record that all registrations of the type on the interface hold together.
//   3. Conflict, before or after that: the publication is dropped, the next name tried, and the caller told that name once
//      it is established; with NoAutoRename the caller is told of the conflict, and that is the end of it.
//   4. registration_stop: both publications are released, the last holder's with its goodbye.
#include "dnssd/engine.h"
#include "dnssd/operations.h"
#include "dnssd/publications.h"
#include "dnssd/references.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

// RFC 6762 section 8.1: after fifteen conflicts within ten seconds, at least five seconds before each further try.
constexpr std::uint32_t kConflictsMax = 15;
constexpr std::int64_t kConflictWindow = 10'000'000;  // microseconds
constexpr std::int64_t kConflictPause = 5'000'000;    // microseconds

constexpr auto kUnique = AVAHI_PUBLISH_UNIQUE;
constexpr auto kShared = static_cast<AvahiPublishFlags>(0);

std::string to_rdata(const Name& name) {
  const std::vector<std::uint8_t> wire = name_to_wire(name);
  return {wire.begin(), wire.end()};
}

std::string srv_rdata(const Registration& registration) {
  const char head[] = {0, 0, 0, 0, static_cast<char>(registration.port >> 8), static_cast<char>(registration.port & 0xFF)};
  const std::optional<Name> host = parse_name(registration.host);
  return std::string(head, sizeof head) + to_rdata(host ? *host : Name{});
}

// Adds one record; false when Avahi takes it for none.
bool add(std::vector<PublishedRecord>& records, const Name& name, std::uint16_t rrtype, const std::string& rdata,
         AvahiPublishFlags flags) {
  AvahiRecord* record = record_from_rdata(name_to_avahi(name), rrtype, rdata, 0);
  if (record != nullptr) records.push_back({record, flags});
  return record != nullptr;
}

// All records of the service under `instance`; a port of 0 keeps the name without letting it be found (dns_sd.h).
bool add_service(std::vector<PublishedRecord>& records, const Registration& registration, const Name& instance) {
  bool good = add(records, instance, AVAHI_DNS_TYPE_SRV, srv_rdata(registration), kUnique) &&
              add(records, instance, AVAHI_DNS_TYPE_TXT, registration.txt, kUnique);
  if (registration.port == 0) return good;
  const std::string target = to_rdata(instance);
  good = good && add(records, type_name(registration.type), AVAHI_DNS_TYPE_PTR, target, kShared);
  for (const std::string& subtype : registration.type.subtypes) {
    good = good && add(records, subtype_name(registration.type, subtype), AVAHI_DNS_TYPE_PTR, target, kShared);
  }
  return good;
}

// Publishes the service under its present name.
DNSServiceErrorType try_name(Operation& operation, Registration& registration) {
  const std::optional<Name> instance = prepend_label(registration.name, type_name(registration.type));
  std::vector<PublishedRecord> records;
  if (!instance || !add_service(records, registration, *instance)) {
    for (const PublishedRecord& published : records) avahi_record_unref(published.record);
    return kDNSServiceErr_BadParam;
  }
  registration.service = publication_new(*operation.server, operation.serial, std::move(records));
  registration.service->unique_name = fold_case(name_to_avahi(*instance));
  publication_start(*registration.service);
  return kDNSServiceErr_NoError;
}

void queue_registration_reply(Operation& operation, const Registration& registration, DNSServiceErrorType error) {
  Reply reply;
  if (error == kDNSServiceErr_NoError) reply.flags = kDNSServiceFlagsAdd;
  reply.error = error;
  reply.name = registration.name;
  reply.detail = type_text(registration.type);
  reply_queue(operation, std::move(reply));
}

// Holds the record _services._dns-sd._udp.local PTR <type>, which the first registration of a type publishes.
void enter_type(Operation& operation, Registration& registration) {
  if (registration.enumeration != nullptr || registration.port == 0) return;
  const Name type = type_name(registration.type);
  const std::string key = "type\n" + fold_case(name_to_text(type));
  registration.enumeration = publication_find_shared(*operation.server, key);
  if (registration.enumeration != nullptr) {
    publication_join(*registration.enumeration, operation.serial);
    return;
  }
  std::vector<PublishedRecord> records;
  if (!add(records, Name{{"_services", "_dns-sd", "_udp", "local"}}, AVAHI_DNS_TYPE_PTR, to_rdata(type), kShared)) return;
  registration.enumeration = publication_new(*operation.server, operation.serial, std::move(records));
  publication_share(*registration.enumeration, key);
  publication_start(*registration.enumeration);
}

// Whether the conflicts have come so fast that the next name has to wait.
bool must_pause(Registration& registration) {
  const std::int64_t now = monotonic_now();
  if (now - registration.conflicts_since > kConflictWindow) {
    registration.conflicts_since = now;
    registration.conflicts = 0;
  }
  return ++registration.conflicts > kConflictsMax;
}

void pause_over(AvahiTimeout*, void* userdata) {
  Operation& operation = *static_cast<Operation*>(userdata);
  try_name(operation, *std::get_if<Registration>(&operation.part));
}

void try_next_name(Operation& operation, Registration& registration) {
  registration.name = next_service_name(registration.name);
  if (!must_pause(registration)) {
    try_name(operation, registration);
    return;
  }
  if (registration.retry == nullptr) registration.retry = poll_timer_new(gEngine->poll, pause_over, &operation);
  poll_timer_start(registration.retry, kConflictPause);
}

void drop_service(Operation& operation, Registration& registration) {
  if (registration.service != nullptr) publication_release(*registration.service, operation.serial);
  registration.service = nullptr;
}

}  // namespace

DNSServiceErrorType registration_start(Operation& operation) {
  return try_name(operation, *std::get_if<Registration>(&operation.part));
}

void registration_changed(Operation& operation, Publication& publication) {
  Registration& registration = *std::get_if<Registration>(&operation.part);
  if (registration.service != &publication) return;
  if (publication.stage == Stage::established) {
    enter_type(operation, registration);
    if (registration.told == registration.name) return;
    registration.told = registration.name;
    queue_registration_reply(operation, registration, kDNSServiceErr_NoError);
    return;
  }
  const bool conflicts = publication.reported == AVAHI_ENTRY_GROUP_COLLISION;
  drop_service(operation, registration);
  if (conflicts && registration.auto_rename) {
    try_next_name(operation, registration);
  } else {
    queue_registration_reply(operation, registration, conflicts ? kDNSServiceErr_NameConflict : kDNSServiceErr_Unknown);
  }
}

DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl) {
  Registration& registration = *std::get_if<Registration>(&operation.part);
  const std::optional<Name> instance = prepend_label(registration.name, type_name(registration.type));
  if (!instance) return kDNSServiceErr_BadState;
  AvahiRecord* record = record_from_rdata(name_to_avahi(*instance), AVAHI_DNS_TYPE_TXT, txt, ttl);
  if (record == nullptr) return kDNSServiceErr_BadParam;
  registration.txt = txt;
  int error = 0;
  if (registration.service != nullptr && registration.service->group != nullptr) {
    const Server& server = *operation.server;
    error = avahi_server_add(server.avahi, registration.service->group, static_cast<AvahiIfIndex>(server.interface_index),
                             AVAHI_PROTO_UNSPEC,
                             static_cast<AvahiPublishFlags>(AVAHI_PUBLISH_UNIQUE | AVAHI_PUBLISH_UPDATE), record);
  } else if (registration.service != nullptr) {
    drop_service(operation, registration);
    try_name(operation, registration);
  }
  avahi_record_unref(record);
  return error < 0 ? kDNSServiceErr_Unknown : kDNSServiceErr_NoError;
}

void registration_stop(Operation& operation, Registration& registration) {
  poll_timer_free(registration.retry);
  registration.retry = nullptr;
  drop_service(operation, registration);
  if (registration.enumeration != nullptr) publication_release(*registration.enumeration, operation.serial);
  registration.enumeration = nullptr;
}

}  // namespace dnssd
