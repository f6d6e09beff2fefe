// SPDX-License-Identifier: MIT
// Browse replies: an instance is added or removed.

#include "proxy/call_layer.h"
#include "proxy/proxy.h"
#include "runtime/runtime.h"
#include "state/state.h"

namespace {

// An empty instance name is ignored: a label has at least one byte, and a library would not resolve it.
bool is_nameless(const char* name) { return name == nullptr || *name == '\0'; }

void remove_instance(BridgeContext* bridge, const char* name) {
  log_message(
      LOG_DEBUG,
      "callback_ServiceBrowse(): REMOVE: Now attempting to remove the record and the service register from the other "
      "interfaces...");
  state_instance_gone(bridge, name);
  ResponderContext* service_context = get_responder_context_by_name(bridge, name);
  if (service_context == nullptr) {
    log_message(LOG_DEBUG, "callback_ServiceBrowse(): REMOVE:  service is already removed. skip");
    return;
  }
  del_responder_context(bridge, service_context);
  if (gResponderCount > 0) {
    --gResponderCount;
  }
  const ResponderContext* left = get_responder_context_by_name(bridge, name);
  if (left != nullptr) {
    log_message(LOG_DEBUG, "callback_ServiceBrowse(): REMOVE:  failed %p", as_pointer(left));
  }
}

// Makes the instance's record, which owns the resolve from here on.
void keep_instance(BridgeContext* bridge, const char* name, DNSServiceRef resolve) {
  add_responder_context(bridge, name);
  ResponderContext* service_context = get_responder_context_by_name(bridge, name);
  if (service_context == nullptr) {
    handle_error(
        MYSTATUS__RUNNING__OK, LOG_WARNING,
        "ERROR 13013016492: callback_ServiceBrowse(): REMOVE: bridge_context_ptr->dns_record_service_ptr == NULL, "
        "unhandled case, exiting.");
    return;
  }
  service_context->resolve_service_ref = resolve;
  state_instance_found(bridge, name);
  ++gResponderCount;
}

// Starts the resolve of a new instance (its reply: callback_ServiceResolve), unless there are too many already.
void add_instance(BridgeContext* bridge, std::uint32_t interfaceIndex, const char* name, const char* type,
                  const char* domain) {
  if (get_responder_context_by_name(bridge, name) != nullptr) {
    log_message(LOG_DEBUG, "callback_ServiceBrowse(): ADD: This service is already added, skip it");
    return;
  }
  log_message(LOG_DEBUG, "callback_ServiceBrowse(): ADD: Now attempting to DNSServiceResolve()...");
  if (gResponderCount > gSettings.responder_limit) {  // so that one more than the limit may live
    log_message(LOG_ERR, "callback_ServiceBrowse(): Maxnum(%d) of responder reached...", gResponderCount);
    state_instance_refused(bridge, name, StateReason::limit);
    return;
  }
  DNSServiceRef local = gDNSServiceRef_Shared;
  const DNSServiceErrorType error = MyDNSServiceResolve(&local, kFlagsShareConnection, interfaceIndex, name, type,
                                                        domain, callback_ServiceResolve, bridge);
  if (error != kDNSServiceErr_NoError) {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING,
                "ERROR 1301301638: INTERNAL ERROR:  DNSServiceResolve() call failed: %ld, CRITICAL ERROR, exiting.",
                static_cast<long>(error));
  }
  keep_instance(bridge, name, local);
}

}  // namespace

void DNSSD_API callback_ServiceBrowse(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                      DNSServiceErrorType errorCode, const char* replyName, const char* replyType,
                                      const char* replyDomain, void* context) {
  log_message(
      LOG_DEBUG,
      "\ncallback_ServiceBrowse(): START: sdref = %p, flags = %d, ifIndex = %d, errorCode = %d, replyName = %s, "
      "replyType = %s, replyDomain = %s ...",
      as_pointer(sdRef), flags, interfaceIndex, errorCode, text_or_null(replyName), text_or_null(replyType),
      text_or_null(replyDomain));
  const bool add = (flags & kDNSServiceFlagsAdd) != 0;
  log_message(LOG_DEBUG, "callback_ServiceBrowse(): Operation: %s", add ? "Add" : "Rmv");
  if (context == nullptr) {
    fatal_error(
        MYSTATUS__DNSSD_ERROR, LOG_WARNING,
        "ERROR 13013016491: callback_ServiceBrowse(): REMOVE: bridge_context_ptr == NULL, unhandled case, exiting.");
  }
  BridgeContext* bridge = static_cast<BridgeContext*>(context);
  if (!add) {
    remove_instance(bridge, replyName);
  } else if (errorCode != kDNSServiceErr_NoError) {
    log_message(LOG_DEBUG, "callback_ServiceBrowse(): ADD: Error code %d", errorCode);
  } else if (is_nameless(replyName)) {
    log_message(LOG_DEBUG, "callback_ServiceBrowse(): ADD: a reply without a name, ignored");
  } else {
    add_instance(bridge, interfaceIndex, replyName, replyType, replyDomain);
  }
}
