// SPDX-License-Identifier: MIT
// Resolve replies: whether the instance is forwarded, and the start of the queries for its host's addresses.

#include <algorithm>
#include <new>
#include <span>
#include <string_view>

#include "proxy/call_layer.h"
#include "proxy/names.h"
#include "proxy/proxy.h"
#include "proxy/registration.h"
#include "runtime/runtime.h"
#include "state/state.h"

namespace {

// One resolve reply, its full name taken apart.
struct Resolved {
  BridgeContext* bridge;
  std::uint32_t interfaceIndex;
  const char* hosttarget;
  std::uint16_t opaqueport;            // network byte order
  std::span<const unsigned char> txt;  // as on the wire
  char service_name[kNameSize];        // "My Printer"
  char service_type[kNameSize];        // "_ipp._tcp"
};

// Splits "My\032Printer._ipp._tcp.local." into the plain instance name and the service type. False when there is no
// name.
bool split_fullname(const char* fullname, Resolved* resolved) {
  char* const name = resolved->service_name;
  const char* cursor = fullname;
  if (copy_next_label(name, name + kNameSize, &cursor, 3) != 0) {
    return false;
  }
  char* const type = resolved->service_type;
  cursor = fullname;
  if (copy_next_label(type, type + kNameSize, &cursor, 1) != 0 ||
      copy_next_label(type, type + kNameSize, &cursor, 2) != 0) {
    return false;
  }
  char plain_name[kNameSize];
  ConvertDomainNameToCString_UnEnsacpe(terminate_at_first_label(name), plain_name);
  copy_text(resolved->service_name, plain_name);
  return true;
}

// A resolve is used for one answer. Its reference is cleared wherever it is held: a reply may name another instance
// than the one that its resolve was started for.
void end_resolve(const Resolved& resolved, ResponderContext* service_context, DNSServiceRef sdRef) {
  log_message(LOG_DEBUG, "callback_ServiceResolve(): calling DNSServiceRefDeallocate(sdref = %p)...",
              as_pointer(sdRef));
  DNSServiceRefDeallocate(sdRef);
  if (service_context->resolve_service_ref == sdRef) {
    service_context->resolve_service_ref = nullptr;
    return;
  }
  for (ResponderContext* other = resolved.bridge->responder_contexts; other != nullptr;
       other = static_cast<ResponderContext*>(other->hh.next)) {
    if (other->resolve_service_ref == sdRef) {
      other->resolve_service_ref = nullptr;
    }
  }
}

// Whether a proxy has forwarded the instance already. The search ends at the first zero byte of the TXT data.
bool carries_vendor_entry(std::span<const unsigned char> txt) {
  const std::string_view data(reinterpret_cast<const char*>(txt.data()), txt.size());
  return data.substr(0, data.find('\0')).find(kVendorEntry) != std::string_view::npos;
}

void drop_forwarded_instance(BridgeContext* bridge, ResponderContext* service_context) {
  log_message(LOG_DEBUG, "This service is from zenmor mdnsproxy, will not fwd it again");
  state_instance_refused(bridge, service_context->name, StateReason::through_gateway);
  del_responder_context(bridge, service_context);
  if (gResponderCount > 0) {
    --gResponderCount;
  }
}

Addr_query_context* new_addr_query_context(const Resolved& resolved) {
  void* const block = zmk_malloc(sizeof(Addr_query_context), __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 1301171518: malloc failed, exiting.");
  }
  Addr_query_context* result = new (block) Addr_query_context{
      .addr_v4 = {},
      .addr_v6 = {},
      .bridge_context_ptr = resolved.bridge,
      .hosttarget = {},
      .opaqueport = resolved.opaqueport,
      .txtLen = static_cast<std::uint16_t>(resolved.txt.size()),
      .txt = {},
      .service_type = {},
      .service_name = {},
      .IfIndex = resolved.interfaceIndex,
      .record_label = nullptr,
  };
  copy_text(result->hosttarget, resolved.hosttarget);
  if (resolved.txt.size() < sizeof result->txt) {
    std::ranges::copy(resolved.txt, result->txt);
  }
  copy_text(result->service_type, resolved.service_type);
  copy_text(result->service_name, resolved.service_name);
  return result;
}

// Starts a query on the interface where the instance was resolved (its answers: callback_ServiceQueryRecord). *query is
// the new operation only when there is no error.
DNSServiceErrorType start_query(const Resolved& resolved, const char* fullname, std::uint16_t rrtype, void* context,
                                DNSServiceRef* query) {
  *query = gDNSServiceRef_Shared;
  return MyDNSServiceQueryRecord(query, kFlagsLongLivedMulticastQuery, resolved.interfaceIndex, fullname, rrtype,
                                 kDNSServiceClass_IN, callback_ServiceQueryRecord, context);
}

void start_address_queries(const Resolved& resolved, ResponderContext* service_context, Addr_query_context* result) {
  DNSServiceRef query = nullptr;
  DNSServiceErrorType error = start_query(resolved, result->hosttarget, kDNSServiceType_A, result, &query);
  if (error == kDNSServiceErr_NoError) {
    service_context->query_addrv4_ref = query;
    service_context->Addr_query_context = result;
  } else {
    handle_error(
        MYSTATUS__RUNNING__OK, LOG_WARNING,
        "MyDNSServiceQueryRecord(): get IPV4 address FAIL: DNSServiceQueryRecord(sdref_bridge_reply) call failed: %ld",
        static_cast<long>(error));
  }
  error = start_query(resolved, result->hosttarget, kDNSServiceType_AAAA, result, &query);
  if (error == kDNSServiceErr_NoError) {
    service_context->query_addrv6_ref = query;
    service_context->Addr_query_context = result;
  } else {
    handle_error(
        MYSTATUS__RUNNING__OK, LOG_WARNING,
        "MyDNSServiceQueryRecord(): get IPV6 address FAIL: DNSServiceQueryRecord(sdref_bridge_reply) call failed: %ld",
        static_cast<long>(error));
  }
}

// Starts the queries for the host's addresses. False: both were refused, and their context is freed.
bool look_up_addresses(const Resolved& resolved, ResponderContext* service_context) {
  Addr_query_context* result = new_addr_query_context(resolved);
  start_address_queries(resolved, service_context, result);
  log_message(LOG_DEBUG, "%s,%d, vSvcQueIPV4RecRef=%p vSvcQueIPV6RecRef=%p result= %p", "callback_ServiceResolve",
              __LINE__, as_pointer(service_context->query_addrv4_ref), as_pointer(service_context->query_addrv6_ref),
              as_pointer(result));
  if (service_context->Addr_query_context == nullptr) {
    log_message(LOG_DEBUG, "%s,%d,free result, result=%p", "callback_ServiceResolve", __LINE__, as_pointer(result));
    zmk_free(result, __FILE__, __LINE__);
    return false;
  }
  state_instance_resolved(resolved.bridge, resolved.service_name, result->hosttarget, result->opaqueport);
  return true;
}

subtype_query_context* new_subtype_query_context(const Resolved& resolved, const char* query_name) {
  void* const block = zmk_malloc(sizeof(subtype_query_context), __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 1301171518: malloc failed, exiting.");
  }
  subtype_query_context* record_PTR = new (block) subtype_query_context{resolved.bridge, {}, {}};
  copy_text(record_PTR->subtype_query_name, query_name);
  join_text(record_PTR->service_fullname, {resolved.service_name, ".", resolved.service_type, ".local."});
  log_message(LOG_DEBUG, "%s,%d,save record_PTR, service_name:%s, service_type:%s, on interface:%d",
              "callback_ServiceResolve", __LINE__, record_PTR->service_fullname, record_PTR->subtype_query_name,
              resolved.interfaceIndex);
  return record_PTR;
}

// Starts the query for the PTR records of the rule's subtype.
void look_up_subtype(const Resolved& resolved, ResponderContext* service_context) {
  char subtype[kSubtypeSize];
  const char* cursor = resolved.bridge->subtype_service_type;
  copy_next_label(subtype, subtype + sizeof subtype, &cursor, 1);
  char query_name[kNameSize];
  join_text(query_name, {subtype, "._sub.", resolved.service_type, ".local."});
  log_message(LOG_DEBUG, "%s,%d,query PTR record,servicetype:%s on interface:%d", "callback_ServiceResolve", __LINE__,
              query_name, resolved.interfaceIndex);
  subtype_query_context* record_PTR = new_subtype_query_context(resolved, query_name);
  DNSServiceRef query = nullptr;
  const DNSServiceErrorType error = start_query(resolved, query_name, kDNSServiceType_PTR, record_PTR, &query);
  if (error != kDNSServiceErr_NoError) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "MyDNSServiceQueryRecord(): FAIL: DNSServiceQueryRecord(PTR query) call failed: %ld record_PTR=%p",
                 static_cast<long>(error), as_pointer(record_PTR));
    zmk_free(record_PTR, __FILE__, __LINE__);
    return;
  }
  service_context->query_subtype_ref = query;
  service_context->subtype_query_context = record_PTR;
  log_message(LOG_DEBUG, "%s,%d,query PTR record, ref=%p record_PTR=%p", "callback_ServiceResolve", __LINE__,
              as_pointer(query), as_pointer(record_PTR));
}

// Decides whether a resolved instance is forwarded. Its resolve `sdRef` ends here.
void forward_or_drop(const Resolved& resolved, ResponderContext* service_context, DNSServiceRef sdRef) {
  end_resolve(resolved, service_context, sdRef);
  if (carries_vendor_entry(resolved.txt)) {
    drop_forwarded_instance(resolved.bridge, service_context);
    return;
  }
  if (service_context->Addr_query_context != nullptr) {
    log_message(LOG_DEBUG, "callback_ServiceResolve(): %s is resolved already, skip it", resolved.service_name);
    return;
  }
  if (look_up_addresses(resolved, service_context) && resolved.bridge->subtype_service_type[0] != '\0') {
    look_up_subtype(resolved, service_context);
  }
}

}  // namespace

void DNSSD_API callback_ServiceResolve(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                       DNSServiceErrorType errorCode, const char* fullname, const char* hosttarget,
                                       std::uint16_t opaqueport, std::uint16_t txtLen, const unsigned char* txtRecord,
                                       void* context) {
  BridgeContext* bridge = static_cast<BridgeContext*>(context);
  log_message(
      LOG_DEBUG,
      "\ncallback_ServiceResolve(): START: sdref = %p, flags = %d, ifIndex = %d, errorCode = %d, fullname = %s, "
      "hosttarget = %s, opaqueport = %d, txtLen = %d ...",
      as_pointer(sdRef), flags, interfaceIndex, errorCode, text_or_null(fullname), text_or_null(hosttarget), opaqueport,
      txtLen);
  log_message(LOG_DEBUG, "callback_ServiceResolve(): (BridgeContext*)context->if_from = %d, ->if_to = %d",
              bridge->if_from, bridge->if_to);
  if (errorCode != kDNSServiceErr_NoError) {
    log_message(LOG_WARNING, "callback_ServiceResolve(): Error code %d", errorCode);
    return;
  }
  const std::size_t txt_length = txtRecord != nullptr ? txtLen : 0;
  Resolved resolved = {bridge, interfaceIndex, hosttarget, opaqueport, {txtRecord, txt_length}, {}, {}};
  if (hosttarget == nullptr || !split_fullname(fullname, &resolved)) {
    return;
  }
  ResponderContext* service_context = get_responder_context_by_name(bridge, resolved.service_name);
  if (service_context == nullptr) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING, "callback_ServiceResolve(): FAIL to find service context for  %s",
                 resolved.service_name);
    return;
  }
  forward_or_drop(resolved, service_context, sdRef);
}
