// SPDX-License-Identifier: MIT
// The functions of dns_sd.h that make connections and look things up: what is checked, and which operation is started.
// A call that fails has started nothing and has left *sdRef as it was.
#include "dnssd/engine.h"
#include "dnssd/interface.h"
#include "dnssd/operations.h"
#include "dnssd/references.h"

using namespace dnssd;

namespace dnssd {

std::optional<std::string> parse_record_name(const char* text) {
  std::optional<std::string> name = parse_name(text);
  return name && name->size() > 1 ? name : std::nullopt;
}

DNSServiceErrorType start_operation(DNSServiceRef* ref, DNSServiceFlags flags, std::uint32_t interface_index, void* context,
                                    decltype(Operation::part)&& part,
                                    const std::function<DNSServiceErrorType(Operation&)>& start) {
  const bool is_shared = (flags & kFlagsShareConnection) != 0;
  const Operation* shared = is_shared ? connection_of(*ref) : nullptr;
  if (is_shared && shared == nullptr) {
    return kDNSServiceErr_BadReference;
  }
  DNSServiceErrorType error = engine_open();
  if (error != kDNSServiceErr_NoError) {
    return error;
  }
  Interface* interface = nullptr;
  error = interface_get(interface_index, &interface);
  if (error != kDNSServiceErr_NoError) {
    engine_close_if_unused();
    return error;
  }
  Operation* operation = operation_new(is_shared ? shared->handle : 0, interface, context, std::move(part));
  error = start(*operation);
  if (error == kDNSServiceErr_NoError) {
    *ref = service_ref(*operation);
  } else {
    operation_release(operation);
  }
  return error;
}

}  // namespace dnssd

extern "C" {

// A reference that others share. kErrServiceNotRunning when the system refuses the engine's descriptors.
DNSServiceErrorType DNSServiceCreateConnection(DNSServiceRef* sdRef) {
  const LibraryCall call;
  if (sdRef == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const DNSServiceErrorType error = engine_open();
  if (error != kDNSServiceErr_NoError) {
    return error;
  }
  *sdRef = service_ref(*operation_new(0, nullptr, nullptr, Connection{}));
  return kDNSServiceErr_NoError;
}

// `regtype` may name one subtype: "_ipp._tcp,_universal", or first: "_universal._ipp._tcp".
DNSServiceErrorType DNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex, const char* regtype,
                                     const char* domain, DNSServiceBrowseReply callBack, void* context) {
  const LibraryCall call;
  if (sdRef == nullptr || regtype == nullptr || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const std::optional<ServiceType> type = parse_browse_type(regtype);
  if (!type) {
    return kDNSServiceErr_BadParam;
  }
  if (!is_local_domain(domain)) {
    return kDNSServiceErr_Unsupported;
  }
  Browse browse;
  browse.callback = callBack;
  browse.type = type_name(*type);
  const std::string asked = type->subtypes.empty() ? browse.type : subtype_name(*type, type->subtypes[0]);
  return start_operation(sdRef, flags, interfaceIndex, context, std::move(browse),
                         [&](Operation& operation) { return browse_start(operation, asked); });
}

// `name` is the plain instance name of a browse reply.
DNSServiceErrorType DNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex, const char* name,
                                      const char* regtype, const char* domain, DNSServiceResolveReply callBack, void* context) {
  const LibraryCall call;
  if (sdRef == nullptr || name == nullptr || regtype == nullptr || domain == nullptr || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  const std::optional<ServiceType> type = parse_service_type(regtype);
  if (!type) {
    return kDNSServiceErr_BadParam;
  }
  if (!is_local_domain(domain)) {
    return kDNSServiceErr_Unsupported;
  }
  const std::optional<std::string> instance = prepend_label(name, type_name(*type));
  if (!instance) {
    return kDNSServiceErr_BadParam;
  }
  Resolve resolve;
  resolve.callback = callBack;
  resolve.name = *instance;
  return start_operation(sdRef, flags, interfaceIndex, context, std::move(resolve), resolve_start);
}

// Every query is a multicast one that lasts until it is released, whatever the name's domain. One type at a time:
// kDNSServiceType_ANY is kDNSServiceErr_Unsupported.
DNSServiceErrorType DNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                          const char* fullname, uint16_t rrtype, uint16_t rrclass,
                                          DNSServiceQueryRecordReply callBack, void* context) {
  const LibraryCall call;
  if (sdRef == nullptr || fullname == nullptr || rrtype == 0 || callBack == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  if (rrclass != kDNSServiceClass_IN || rrtype == kDNSServiceType_ANY) {
    return kDNSServiceErr_Unsupported;
  }
  const std::optional<std::string> name = parse_record_name(fullname);
  if (!name) {
    return kDNSServiceErr_BadParam;
  }
  Query query;
  query.callback = callBack;
  query.name = *name;
  query.rrtype = rrtype;
  return start_operation(sdRef, flags, interfaceIndex, context, std::move(query), query_start);
}

int DNSServiceRefSockFD(DNSServiceRef sdRef) {
  const LibraryCall call;
  return operation_of(sdRef) == nullptr ? -1 : gEngine->poll.epoll_fd;
}

DNSServiceErrorType DNSServiceProcessResult(DNSServiceRef sdRef) {
  const LibraryCall call;
  if (sdRef == nullptr) {
    return kDNSServiceErr_BadParam;
  }
  return operation_of(sdRef) == nullptr ? kDNSServiceErr_BadReference : engine_pass();
}

void DNSServiceRefDeallocate(DNSServiceRef sdRef) {
  const LibraryCall call;
  Operation* operation = operation_of(sdRef);
  if (operation != nullptr) {
    operation_release(operation);
  }
}

}  // extern "C"
