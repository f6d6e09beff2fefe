// SPDX-License-Identifier: MIT
// The operations that publish: a registered record is one publication, a service is several.
//
// Lifecycle of a registration:
//   1. registration_start: the service's SRV and TXT records are published under the name, which is probed for.
//   2. Established: the name is reported; the PTR records to it follow, and the type is entered under
//      _services._dns-sd._udp (RFC 6763 section 9). Not before: PTR records are shared, and their goodbye after a lost
//      probe would make another host's service of that name disappear.
//   3. Conflict, before or after that: the PTR records go without a goodbye, the next name is tried, and reported once
//      it is established; with NoAutoRename the conflict is reported, and that is the end of it.
//   4. operation_stop: all of them are withdrawn, with goodbyes.
#include "dnssd/operations/publish.h"

#include <utility>

#include "dnssd/base/publishable.h"
#include "dnssd/operations/hosts.h"
#include "dnssd/operations/inheritance.h"
#include "dnssd/operations/operations.h"

namespace dnssd {
namespace {

// RFC 6762 section 8.1: after fifteen conflicts within ten seconds, at least five seconds (kConflictPause) before each
// further try. Conflicts count together until there has been none for ten seconds.
constexpr std::uint32_t kConflictsMax = 15;
constexpr mdns::Time kConflictsForgotten = 10 * mdns::kSecond;

std::string instance_of(const Registration& registration) {
  return *prepend_label(registration.name, registration.type.name);
}

mdns::RecordData srv_data(const Registration& registration) {
  const char head[] = {
      0, 0, 0, 0, static_cast<char>(registration.port >> 8), static_cast<char>(registration.port & 0xFF)};
  return {mdns::kTypeSrv, 0, std::string(head, sizeof head) + host_alias(*registration.host)};
}

void report_name(Operation& operation, const Registration& registration, DNSServiceFlags flags,
                 DNSServiceErrorType error) {
  if (registration.callback == nullptr) {
    return;
  }
  const std::string name = registration.name;
  reply_queue(operation, [=](const Operation& to, DNSServiceFlags more) {
    const Registration& part = std::get<Registration>(to.part);
    part.callback(service_ref(to.handle), flags | more, error, name.c_str(), type_text(part.type.name).c_str(),
                  "local.", to.context);
  });
}

void report_record(Operation& operation, DNSServiceErrorType error) {
  reply_queue(operation, [=](const Operation& to, DNSServiceFlags more) {
    std::get<Record>(to.part).callback(service_ref(to.connection), record_ref(to.handle), more, error, to.context);
  });
}

// Publishes the PTR records of the service under its type and each subtype, and that of the type under
// _services._dns-sd._udp.
void publish_ptr_records(Operation& operation, Registration& registration) {
  const auto publish_ptr_record = [&](const std::string& name, const std::string& target) {
    const mdns::RecordData record{mdns::kTypePtr, 0, target};
    registration.ptr_records.push_back(publish(operation, name, {&record, 1}, mdns::Claim::shared));
  };
  const std::string instance = instance_of(registration);
  publish_ptr_record(registration.type.name, instance);
  for (const std::string& subtype : registration.type.subtypes) {
    publish_ptr_record(subtype_name(registration.type, subtype), instance);
  }
  publish_ptr_record(name_of({"_services", "_dns-sd", "_udp", "local"}), registration.type.name);
}

// Publishes the SRV and TXT records under the registration's present name.
void try_name(Operation& operation) {
  Registration& registration = std::get<Registration>(operation.part);
  const mdns::RecordData records[] = {srv_data(registration), {mdns::kTypeTxt, 0, registration.txt}};
  inheritance_replace(*operation.interface, instance_of(registration));
  registration.service = publish(operation, instance_of(registration), records, mdns::Claim::exclusive);
}

void try_next_name(Operation& operation, Registration& registration) {
  const mdns::Time now = monotonic_now();
  registration.conflicts = now - registration.last_conflict > kConflictsForgotten ? 1 : registration.conflicts + 1;
  registration.last_conflict = now;
  registration.name = next_service_name(registration.name);
  registration.is_reported = false;
  if (registration.conflicts >= kConflictsMax) {
    resume_in(operation, kConflictPause, try_name);
  } else {
    try_name(operation);
  }
}

// Withdraws the PTR records. After a lost conflict (not is_ours) only that of the type gets a goodbye: those of the
// instance would remove the other host's service, which has the same name, from caches.
void withdraw_ptr_records(Operation& operation, Registration& registration, bool is_ours) {
  for (const mdns::PublicationId& ptr_record : registration.ptr_records) {
    const bool with_goodbye = is_ours || &ptr_record == &registration.ptr_records.back();
    mdns::publication_withdraw(link_of(operation), monotonic_now(), ptr_record, with_goodbye);
  }
  registration.ptr_records.clear();
}

void withdraw(Operation& operation, Registration& registration) {
  withdraw_ptr_records(operation, registration, true);
  mdns::publication_withdraw(link_of(operation), monotonic_now(), registration.service);
}

}  // namespace

void registration_start(Operation& operation, const std::string& host) {
  std::get<Registration>(operation.part).host = &host_join(operation, host);
  try_name(operation);
}

void operation_event(Operation& operation, Registration& registration, const mdns::Event& event) {
  if (event.id != registration.service) {
    return;
  }
  if (event.kind == mdns::Event::Kind::established) {
    if (registration.port != 0 && registration.ptr_records.empty()) {  // 0: the name is only claimed
      publish_ptr_records(operation, registration);
    }
    if (!std::exchange(registration.is_reported, true)) {
      report_name(operation, registration, kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
    }
    return;
  }
  // A conflict, which another host has won.
  registration.service = 0;
  withdraw_ptr_records(operation, registration, false);
  if (registration.auto_rename) {
    try_next_name(operation, registration);
  } else {
    report_name(operation, registration, 0, kDNSServiceErr_NameConflict);
  }
}

DNSServiceErrorType registration_update(Operation& operation, const std::string& txt, std::uint32_t ttl) {
  Registration& registration = std::get<Registration>(operation.part);
  if (registration.service == 0 && !registration.auto_rename) {
    return kDNSServiceErr_BadState;
  }
  if (!is_publishable(mdns::kTypeTxt, txt)) {
    return kDNSServiceErr_BadParam;
  }
  if (txt == registration.txt) {
    return kDNSServiceErr_NoError;
  }
  registration.txt = txt;  // also used for the next name that is tried
  const mdns::RecordData data{mdns::kTypeTxt, ttl, txt};
  if (registration.service != 0 &&
      !mdns::publication_update(link_of(operation), monotonic_now(), registration.service, data)) {
    // Another registration holds the same service with the old data: conflict, so the new data needs a name of its own.
    withdraw(operation, registration);
    try_name(operation);
  }
  return kDNSServiceErr_NoError;
}

void operation_stop(Operation& operation, Registration& registration) {
  withdraw(operation, registration);
  host_leave(*registration.host, operation);
}

void record_start(Operation& operation, const std::string& name, mdns::Claim claim) {
  Record& record = std::get<Record>(operation.part);
  if (claim == mdns::Claim::shared && is_address(record.data.type)) {
    record.host = &host_join(operation, name);
    host_renamed(operation);
    record.is_reported = true;  // a shared record has no conflicts
    report_record(operation, kDNSServiceErr_NoError);
  } else {
    if (claim != mdns::Claim::shared) {
      inheritance_replace(*operation.interface, name);
    }
    record.publication = publish(operation, name, {&record.data, 1}, claim);
  }
}

void host_renamed(Operation& member) {
  if (auto* registration = std::get_if<Registration>(&member.part)) {
    mdns::publication_update(link_of(member), monotonic_now(), registration->service, srv_data(*registration), true);
  } else if (auto* record = std::get_if<Record>(&member.part)) {
    mdns::publication_withdraw(link_of(member), monotonic_now(), record->publication);
    record->publication = publish(member, host_alias(*record->host), {&record->data, 1}, mdns::Claim::yielding);
  }
}

void operation_event(Operation& operation, Record& record, const mdns::Event& event) {
  if (event.id != record.publication) {
    return;
  }
  if (event.kind == mdns::Event::Kind::conflict) {
    record.publication = 0;
    if (record.host == nullptr) {  // the address of a host is published under the host's next name
      report_record(operation, kDNSServiceErr_NameConflict);
    }
  } else if (!std::exchange(record.is_reported, true)) {
    report_record(operation, kDNSServiceErr_NoError);
  }
}

void operation_stop(Operation& operation, Record& record) {
  mdns::publication_withdraw(link_of(operation), monotonic_now(), record.publication);
  if (record.host != nullptr) {
    host_leave(*record.host, operation);
  }
}

DNSServiceErrorType record_update(Operation& operation, const std::string& rdata, std::uint32_t ttl) {
  Record& record = std::get<Record>(operation.part);
  if (record.publication == 0 && record.host == nullptr) {
    return kDNSServiceErr_BadState;
  }
  if (!is_publishable(record.data.type, rdata)) {
    return kDNSServiceErr_BadParam;
  }
  const mdns::RecordData data{record.data.type, ttl, rdata};
  if (record.publication != 0 &&
      !mdns::publication_update(link_of(operation), monotonic_now(), record.publication, data)) {
    return kDNSServiceErr_NameConflict;
  }
  record.data = data;
  if (record.host != nullptr) {
    host_review(*record.host);
  }
  return kDNSServiceErr_NoError;
}

}  // namespace dnssd
