// SPDX-License-Identifier: MIT
#include "proxy/registration.h"

#include <cstring>

#include "proxy/call_layer.h"
#include "proxy/proxy.h"
#include "runtime/runtime.h"
#include "state/state.h"

namespace {

// The event loop's time limit once a registration has been taken back under one of the options A, U or N.
constexpr int kSelectTimeoutAfterRemoval = 5;

// How much of the instance's own TXT data is known: all or, when it was too long to keep, nothing. Nothing is then
// registered behind the vendor entry; zero bytes in its place would be announced as that many empty entries.
std::uint16_t kept_txt_length(const Addr_query_context* result) {
  return result->txtLen < sizeof result->txt ? result->txtLen : std::uint16_t{0};
}

// The vendor entry, then the instance's own entries, then a zero byte for the trace. Freed by the caller.
unsigned char* new_proxied_txt(const Addr_query_context* result) {
  const std::size_t size = kVendorEntry.size() + kept_txt_length(result) + 1;
  void* const block = zmk_malloc(size, __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 1301171518: malloc failed, exiting.");
  }
  unsigned char* txt = static_cast<unsigned char*>(block);
  std::memset(txt, 0, size);
  std::memcpy(txt, kVendorEntry.data(), kVendorEntry.size());
  std::memcpy(txt + kVendorEntry.size(), result->txt, kept_txt_length(result));
  return txt;
}

}  // namespace

void register_proxied_instance(ResponderContext* service_context, const Addr_query_context* result,
                               DNSServiceFlags flags) {
  BridgeContext* bridge = result->bridge_context_ptr;
  const auto txt_length = static_cast<std::uint16_t>(kVendorEntry.size() + kept_txt_length(result));
  unsigned char* txt = new_proxied_txt(result);
  DNSServiceRef local = gDNSServiceRef_Shared;
  const DNSServiceErrorType error =
      MyDNSServiceRegister(&local, flags | kFlagsShareConnection, static_cast<std::uint32_t>(bridge->if_to),
                           result->service_name, result->service_type, gSettings.domain, result->hosttarget,
                           result->opaqueport, txt_length, txt, callback_ServiceRegister, bridge);
  if (error != kDNSServiceErr_NoError) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "\tcallback_ServiceResolve(): FAIL: DNSServiceRegister(sdref_bridge_reply) call failed: %ld",
                 static_cast<long>(error));
  } else {
    log_message(LOG_DEBUG,
                "callback_ServiceResolve(): SUCCESS: DNSServiceRegister(sdref_bridge_reply) call returned success.");
    service_context->reg_service_ref = local;
  }
  state_instance_registering(bridge, result->service_name, service_context->reg_service_ref);
  zmk_free(txt, __FILE__, __LINE__);
}

namespace {

void note_registration_removed() {
  log_message(LOG_DEBUG, "callback_ServiceRegister(): Name registration removed");
  if (gOptionChar == 'A' || gOptionChar == 'U' || gOptionChar == 'N') {
    gSelectTimeout = kSelectTimeoutAfterRemoval;
  }
}

}  // namespace

// Only reports: a registration that was refused or is in conflict keeps its reference until the instance goes. Our
// DNS-SD library chooses another name by itself, so only another library reports a conflict here.
void DNSSD_API callback_ServiceRegister(DNSServiceRef sdRef, DNSServiceFlags flags, DNSServiceErrorType errorCode,
                                        const char* name, const char* regtype, const char* domain, void* context) {
  log_message(LOG_DEBUG,
              "\ncallback_ServiceRegister(): START: sdref = %p, flags = %d, errorCode = %d, name = %s, regtype = %s, "
              "domain = %s ...",
              as_pointer(sdRef), flags, errorCode, text_or_null(name), text_or_null(regtype), text_or_null(domain));
  print_timestamp();
  log_message(LOG_DEBUG, "callback_ServiceRegister(): Got a reply for service %s.%s %s: ", text_or_null(name),
              text_or_null(regtype), text_or_null(domain));
  if (errorCode == kDNSServiceErr_NoError && (flags & kDNSServiceFlagsAdd) != 0) {
    log_message(LOG_DEBUG, "callback_ServiceRegister(): Name now registered and active");
    state_instance_registered(context, sdRef, name, StateReason::none);
  } else if (errorCode == kDNSServiceErr_NoError) {
    note_registration_removed();
  } else if (errorCode == kDNSServiceErr_NameConflict) {
    log_message(LOG_DEBUG, "callback_ServiceRegister(): Name in use, please choose another");
    state_instance_registered(context, sdRef, name, StateReason::conflict);
  } else {
    log_message(LOG_DEBUG, "callback_ServiceRegister(): Error %d", errorCode);
  }
  if ((flags & kDNSServiceFlagsMoreComing) == 0) {
    std::fflush(stdout);
  }
}

// The reply to an address or subtype record. Any error, a conflict included, ends the process (600): the host's name on
// the other link could not be trusted any more.
void DNSSD_API callback_ServiceRegisterRecord(DNSServiceRef, DNSRecordRef, DNSServiceFlags flags,
                                              DNSServiceErrorType errorCode, void* context) {
  const char* label = text_or_null(static_cast<const char*>(context));
  log_message(LOG_DEBUG, "\ncallback_ServiceRegisterRecord(): START:...");
  print_timestamp();
  log_message(LOG_DEBUG, "callback_ServiceRegisterRecord(): Got a reply for record %s: ", label);
  if (errorCode == kDNSServiceErr_NameConflict) {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING,
                "ERROR: 1301171622: callback_ServiceRegisterRecord(): Name in use, please choose another: name = %s, "
                "errorCode = %d",
                label, errorCode);
  } else if (errorCode == kDNSServiceErr_NoError) {
    log_message(LOG_DEBUG, "callback_ServiceRegisterRecord(): Name now registered and active: %s", label);
  } else {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING, "callback_ServiceRegisterRecord(): Error %d for name = %s",
                errorCode, label);
  }
  if ((flags & kDNSServiceFlagsMoreComing) == 0) {
    std::fflush(stdout);
    if (gDBG != 0) {
      std::fflush(stdout);  // debug messages went to the same stream
    }
  }
}
