// SPDX-License-Identifier: MIT
// The functions of dns_sd.h that publish: what is checked, and which operation is started.
#include <arpa/inet.h>
#include <unistd.h>

#include <array>

#include "dnssd/engine.h"
#include "dnssd/operations.h"
#include "dnssd/references.h"

using namespace dnssd;

namespace {

// The first label of this machine's host name; "localhost" when it has none.
std::string own_name() {
  std::array<char, 256> host{};
  gethostname(host.data(), host.size() - 1);
  const std::string name = host.data();
  const std::string label = truncate_utf8(name.substr(0, name.find('.')), kLabelMax);
  return label.empty() ? "localhost" : label;
}

// The service name to try first. Nothing when `name` is too long and may not be cut.
std::optional<std::string> first_name(const char* name, bool auto_rename) {
  if (name == nullptr || *name == '\0') {
    return own_name();
  }
  const std::string text = name;
  if (text.size() > kLabelMax && !auto_rename) {
    return std::nullopt;
  }
  return truncate_utf8(text, kLabelMax);
}

// The SRV target. Nothing when `host` is no name.
std::optional<std::string> host_name(const char* host) {
  return host == nullptr || *host == '\0' ? prepend_label(own_name(), name_of({"local"})) : parse_record_name(host);
}

// TXT data as given; null and empty stand for one empty string (dns_sd.h). Nothing when it is malformed.
std::optional<std::string> txt_data(std::uint16_t length, const void* txt) {
  if (length != 0 && txt == nullptr) {
    return std::nullopt;
  }
  std::string data = length == 0 ? std::string(1, '\0') : std::string(static_cast<const char*>(txt), length);
  return is_publishable(mdns::kTypeTxt, data) ? std::optional(std::move(data)) : std::nullopt;
}

// Fills in what the arguments of DNSServiceRegister say; false when one of them is bad.
bool fill(Registration& registration, const char* name, const char* regtype, const char* host, std::uint16_t txt_length,
          const void* txt) {
  std::optional<ServiceType> type = parse_service_type(regtype);
  std::optional<std::string> first = first_name(name, registration.auto_rename);
  std::optional<std::string> target = host_name(host);
  std::optional<std::string> data = txt_data(txt_length, txt);
  if (!type || !first || !target || !data) {
    return false;
  }
  registration.type = std::move(*type);
  registration.name = std::move(*first);
  registration.host = std::move(*target);
  registration.txt = std::move(*data);
  return true;
}

// RemoveRecord and UpdateRecord: the record `record` of the connection `connection`; null when either is not that.
Operation* record_of(DNSServiceRef connection, DNSRecordRef record) {
  const Operation* owner = connection_of(connection);
  Operation* operation = operation_of(record);
  return owner != nullptr && operation != nullptr && operation->connection == owner->handle ? operation : nullptr;
}

}  // namespace

extern "C" {

// Also for a host that is not this machine: `host` with or without the trailing dot. Identical services registered twice
// on an interface are one; a different one under the same name is a conflict like any other.
DNSServiceErrorType DNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex, const char* name,
                                       const char* regtype, const char* domain, const char* host, uint16_t port, uint16_t txtLen,
                                       const void* txtRecord, DNSServiceRegisterReply callBack, void* context) {
  const LibraryCall call;
  if (sdRef == nullptr || regtype == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  Registration registration;
  registration.auto_rename = (flags & kDNSServiceFlagsNoAutoRename) == 0;
  if (!registration.auto_rename && (name == nullptr || callBack == nullptr)) {
    return kDNSServiceErr_BadFlags;
  }
  if (!fill(registration, name, regtype, host, txtLen, txtRecord)) {
    return kDNSServiceErr_BadParam;
  }
  if (!is_local_domain(domain)) {
    return kDNSServiceErr_Unsupported;
  }
  registration.callback = callBack;
  registration.port = ntohs(port);
  return start_operation(sdRef, flags, interfaceIndex, context, std::move(registration), registration_start);
}

// Bit 0x10 means shared (no probes), 0x20 unique, as the installed header has it; exactly one of them.
DNSServiceErrorType DNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef, DNSServiceFlags flags,
                                             uint32_t interfaceIndex, const char* fullname, uint16_t rrtype, uint16_t rrclass,
                                             uint16_t rdlen, const void* rdata, uint32_t ttl,
                                             DNSServiceRegisterRecordReply callBack, void* context) {
  const LibraryCall call;
  if (sdRef == nullptr || RecordRef == nullptr || fullname == nullptr || rdata == nullptr || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const bool is_shared = (flags & kDNSServiceFlagsShared) != 0;
  const bool is_unique = (flags & kDNSServiceFlagsUnique) != 0;
  if (is_shared == is_unique) {
    return kDNSServiceErr_BadFlags;
  }
  if (rrclass != kDNSServiceClass_IN || rrtype == kDNSServiceType_ANY) {
    return kDNSServiceErr_Unsupported;
  }
  const std::optional<std::string> name = parse_record_name(fullname);
  if (!name || rrtype == 0) {
    return kDNSServiceErr_BadParam;
  }
  Record record;
  record.callback = callBack;
  record.rrtype = rrtype;
  record.is_unique = is_unique;
  return start_operation(&sdRef, kFlagsShareConnection, interfaceIndex, context, record, [&](Operation& operation) {
    const DNSServiceErrorType error = record_start(operation, *name, std::string(static_cast<const char*>(rdata), rdlen), ttl);
    if (error == kDNSServiceErr_NoError) {
      *RecordRef = record_ref(operation);
    }
    return error;
  });
}

// A record of a connection, or with a null RecordRef the TXT record of a registered service.
DNSServiceErrorType DNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags, uint16_t rdlen,
                                           const void* rdata, uint32_t ttl) {
  const LibraryCall call;
  if (sdRef == nullptr || rdata == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const std::string data(static_cast<const char*>(rdata), rdlen);
  if (RecordRef != nullptr) {
    Operation* record = record_of(sdRef, RecordRef);
    return record == nullptr ? kDNSServiceErr_BadReference : record_update(*record, data, ttl);
  }
  Operation* operation = operation_of(sdRef);
  if (operation == nullptr || !std::holds_alternative<Registration>(operation->part)) {
    return kDNSServiceErr_BadReference;
  }
  return registration_update(*operation, data, ttl);
}

DNSServiceErrorType DNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags) {
  const LibraryCall call;
  if (sdRef == nullptr || RecordRef == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  Operation* record = record_of(sdRef, RecordRef);
  if (record == nullptr) {
    return kDNSServiceErr_BadReference;
  }
  operation_release(record);
  return kDNSServiceErr_NoError;
}

}  // extern "C"
