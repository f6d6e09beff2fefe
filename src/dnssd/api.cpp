// SPDX-License-Identifier: MIT
// The functions of dns_sd.h: what is checked, and which operation is started. A call that fails has started nothing and
// has left *sdRef as it was. Of several errors, a bad parameter is returned first, then bad flags, then what is not
// supported, then an error of the reference, the system or the interface.
#include <arpa/inet.h>
#include <unistd.h>

#include "dnssd/base/publishable.h"
#include "dnssd/dnssd.h"
#include "dnssd/links/interfaces.h"
#include "dnssd/operations/lookup.h"
#include "dnssd/operations/operations.h"
#include "dnssd/operations/publish.h"

using namespace dnssd;

namespace {

// A null text counts as an empty one, which is neither a name nor a type.
std::string_view text_of(const char* text) { return text == nullptr ? "" : text; }

// Null data counts as empty data, which is not publishable.
std::string bytes_of(const void* data, std::uint16_t size) {
  return {static_cast<const char*>(data), data == nullptr ? 0u : size};
}

// Reads the name of a record. Nothing when it is no name, or the root.
std::optional<std::string> parse_record_name(const char* text) {
  std::optional<std::string> name = parse_name(text_of(text));
  return name && name->size() > 1 ? name : std::nullopt;
}

// The first label of this machine's host name; "localhost" when it has none.
std::string own_name() {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  const std::string_view name = host;
  const std::string label = truncate_utf8(name.substr(0, name.find('.')), kLabelMax);
  return label.empty() ? "localhost" : label;
}

bool is_single_type(std::uint16_t rrtype, std::uint16_t rrclass) {
  return rrclass == kDNSServiceClass_IN && rrtype != kDNSServiceType_ANY;
}

// Makes an operation of `part` on an interface, shared by `flags` or not, and starts it; *ref is then the caller's
// reference. Otherwise nothing has been made and *ref is as it was: kDNSServiceErr_Unsupported unless what is wanted
// `is_supported`; kDNSServiceErr_BadReference when it is to share what is no connection; the errors of engine_open and
// interface_get.
DNSServiceErrorType start_operation(DNSServiceRef* ref, DNSServiceFlags flags, std::uint32_t interface_index,
                                    void* context, bool is_supported, decltype(Operation::part)&& part,
                                    const std::function<void(Operation&)>& start) {
  const bool is_shared = (flags & kFlagsShareConnection) != 0;
  if (!is_supported) {
    return kDNSServiceErr_Unsupported;
  }
  if (is_shared && operation_of<Connection>(*ref) == nullptr) {
    return kDNSServiceErr_BadReference;
  }
  Interface* interface = nullptr;
  DNSServiceErrorType error = engine_open();
  if (error == kDNSServiceErr_NoError) {
    error = interface_get(interface_index, &interface);
  }
  if (error == kDNSServiceErr_NoError) {
    const Handle connection = is_shared ? reinterpret_cast<Handle>(*ref) : 0;
    Operation* operation = operation_new(connection, interface, context, std::move(part));
    start(*operation);
    *ref = service_ref(operation->handle);
  }
  return error;
}

// The operation of a caller's reference; null when the reference is null, stale or wild, or that of a record.
Operation* service_of(DNSServiceRef ref) {
  Operation* operation = operation_find(reinterpret_cast<Handle>(ref));
  const bool is_callers = operation != nullptr && operation->connection != kLibrary;
  return is_callers && !std::holds_alternative<Record>(operation->part) ? operation : nullptr;
}

// RemoveRecord and UpdateRecord: the record `record` of the connection `connection`; null when either is not that.
Operation* record_of_connection(DNSServiceRef connection, DNSRecordRef record) {
  Operation* operation = operation_of<Record>(record);
  return operation != nullptr && operation->connection == reinterpret_cast<Handle>(connection) ? operation : nullptr;
}

}  // namespace

extern "C" {

// A reference that others share. kErrServiceNotRunning when the system refuses the engine's descriptors.
DNSServiceErrorType DNSServiceCreateConnection(DNSServiceRef* sdRef) {
  const LibraryCall call;
  if (sdRef == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const DNSServiceErrorType error = engine_open();
  if (error == kDNSServiceErr_NoError) {
    *sdRef = service_ref(operation_new(0, nullptr, nullptr, Connection{})->handle);
  }
  return error;
}

// `regtype` may name one subtype: "_ipp._tcp,_universal", or first: "_universal._ipp._tcp".
DNSServiceErrorType DNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                     const char* regtype, const char* domain, DNSServiceBrowseReply callBack,
                                     void* context) {
  const LibraryCall call;
  const std::optional<ServiceType> type = parse_browse_type(text_of(regtype));
  if (sdRef == nullptr || !type || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const std::string asked = type->subtypes.empty() ? type->name : subtype_name(*type, type->subtypes[0]);
  return start_operation(sdRef, flags, interfaceIndex, context, is_local_domain(domain), Browse{callBack, type->name},
                         [&](Operation& operation) { ask(operation, asked, mdns::kTypePtr); });
}

// `name` is the plain instance name of a browse reply.
DNSServiceErrorType DNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                      const char* name, const char* regtype, const char* domain,
                                      DNSServiceResolveReply callBack, void* context) {
  const LibraryCall call;
  const std::optional<ServiceType> type = parse_service_type(text_of(regtype));
  const std::optional<std::string> instance = type ? prepend_label(text_of(name), type->name) : std::nullopt;
  if (sdRef == nullptr || !instance || domain == nullptr || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  return start_operation(sdRef, flags, interfaceIndex, context, is_local_domain(domain), Resolve{callBack, *instance},
                         resolve_start);
}

// Every query is a multicast one that lasts until it is released, whatever the name's domain. One type at a time:
// kDNSServiceType_ANY is kDNSServiceErr_Unsupported.
DNSServiceErrorType DNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                          const char* fullname, uint16_t rrtype, uint16_t rrclass,
                                          DNSServiceQueryRecordReply callBack, void* context) {
  const LibraryCall call;
  const std::optional<std::string> name = parse_record_name(fullname);
  if (sdRef == nullptr || !name || rrtype == 0 || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  return start_operation(sdRef, flags, interfaceIndex, context, is_single_type(rrtype, rrclass),
                         Query{callBack, *name, rrtype}, [&](Operation& operation) { ask(operation, *name, rrtype); });
}

// Also for a host that is not this machine: `host` with or without the trailing dot. A name that is too long is cut, if
// it may be; null and empty TXT data stand for one empty string (dns_sd.h). Identical services registered twice on an
// interface are one; a different one under the same name is a conflict like any other.
DNSServiceErrorType DNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                       const char* name, const char* regtype, const char* domain, const char* host,
                                       uint16_t port, uint16_t txtLen, const void* txtRecord,
                                       DNSServiceRegisterReply callBack, void* context) {
  const LibraryCall call;
  const bool auto_rename = (flags & kDNSServiceFlagsNoAutoRename) == 0;
  const std::optional<ServiceType> type = parse_service_type(text_of(regtype));
  const std::string_view asked = text_of(name);
  const std::string instance = asked.empty() ? own_name() : truncate_utf8(asked, kLabelMax);
  const std::optional<std::string> target =
      text_of(host).empty() ? prepend_label(own_name(), name_of({"local"})) : parse_record_name(host);
  const std::string txt = txtLen == 0 ? std::string(1, '\0') : bytes_of(txtRecord, txtLen);
  if (sdRef == nullptr || !type || !prepend_label(instance, type->name) || (asked.size() > kLabelMax && !auto_rename) ||
      !target || !is_publishable(mdns::kTypeTxt, txt)) {
    return kDNSServiceErr_BadParam;
  }
  if (!auto_rename && (name == nullptr || callBack == nullptr)) {
    return kDNSServiceErr_BadFlags;
  }
  return start_operation(sdRef, flags, interfaceIndex, context, is_local_domain(domain),
                         Registration{.callback = callBack,
                                      .type = *type,
                                      .name = instance,
                                      .auto_rename = auto_rename,
                                      .port = ntohs(port),
                                      .txt = txt},
                         [&](Operation& operation) { registration_start(operation, *target); });
}

// Bit 0x10 means shared (no probes), 0x20 unique, as dns_sd.h has it; exactly one of them.
DNSServiceErrorType DNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef, DNSServiceFlags flags,
                                             uint32_t interfaceIndex, const char* fullname, uint16_t rrtype,
                                             uint16_t rrclass, uint16_t rdlen, const void* rdata, uint32_t ttl,
                                             DNSServiceRegisterRecordReply callBack, void* context) {
  const LibraryCall call;
  const std::optional<std::string> name = parse_record_name(fullname);
  const std::string data = bytes_of(rdata, rdlen);
  if (sdRef == nullptr || RecordRef == nullptr || !name || rrtype == 0 || !is_publishable(rrtype, data) ||
      callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const bool is_unique = (flags & kDNSServiceFlagsUnique) != 0;
  if (((flags & kDNSServiceFlagsShared) != 0) == is_unique) {
    return kDNSServiceErr_BadFlags;
  }
  return start_operation(&sdRef, kFlagsShareConnection, interfaceIndex, context, is_single_type(rrtype, rrclass),
                         Record{callBack, {rrtype, ttl, data}}, [&](Operation& operation) {
                           record_start(operation, *name, is_unique ? mdns::Claim::unique : mdns::Claim::shared);
                           *RecordRef = record_ref(operation.handle);
                         });
}

// A record of a connection, or with a null RecordRef the TXT record of a registered service.
DNSServiceErrorType DNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags, uint16_t rdlen,
                                           const void* rdata, uint32_t ttl) {
  const LibraryCall call;
  if (sdRef == nullptr || rdata == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  Operation* operation =
      RecordRef != nullptr ? record_of_connection(sdRef, RecordRef) : operation_of<Registration>(sdRef);
  if (operation == nullptr) {
    return kDNSServiceErr_BadReference;
  }
  const std::string data = bytes_of(rdata, rdlen);
  return RecordRef != nullptr ? record_update(*operation, data, ttl) : registration_update(*operation, data, ttl);
}

DNSServiceErrorType DNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags) {
  const LibraryCall call;
  if (sdRef == nullptr || RecordRef == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  Operation* record = record_of_connection(sdRef, RecordRef);
  if (record == nullptr) {
    return kDNSServiceErr_BadReference;
  }
  operation_release(*record);
  return kDNSServiceErr_NoError;
}

int DNSServiceRefSockFD(DNSServiceRef sdRef) {
  const LibraryCall call;
  return service_of(sdRef) == nullptr ? -1 : gEngine->poll.epoll_fd;
}

DNSServiceErrorType DNSServiceProcessResult(DNSServiceRef sdRef) {
  const LibraryCall call;
  if (sdRef == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  return service_of(sdRef) == nullptr ? kDNSServiceErr_BadReference : engine_pass();
}

void DNSServiceRefDeallocate(DNSServiceRef sdRef) {
  const LibraryCall call;
  if (Operation* operation = service_of(sdRef)) {
    operation_release(*operation);
  }
}

}  // extern "C"
