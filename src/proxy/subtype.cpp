// SPDX-License-Identifier: MIT
#include "proxy/subtype.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "proxy/call_layer.h"
#include "proxy/names.h"
#include "proxy/proxy.h"
#include "proxy/query_reply.h"
#include "proxy/record_labels.h"
#include "proxy/registration.h"
#include "runtime/runtime.h"

namespace {

constexpr const char* kThisFunction = "process_queryrecord_PTR";

// The target of a PTR answer.
struct Target {
  char text[kNameSize];            // the whole name, dotted; empty when the data holds no whole name
  char first_label[kSubtypeSize];  // unescaped
};

// Reads the target within the first kNameSize bytes of the data; a name has at most 255 (RFC 1035 section 2.3.4).
void read_target(std::span<const std::uint8_t> rdata, Target* target) {
  rdata = rdata.first(std::min(rdata.size(), kNameSize));
  std::span<const std::uint8_t> rest = rdata;
  wire_name_to_text(target->text, sizeof target->text, rest);
  rest = rdata;
  const auto first = next_wire_label(rest).value_or(std::span<const std::uint8_t>());
  char escaped[kLabelMax + 1] = "";  // all zero, so the label ends with one
  std::ranges::copy(first, escaped);
  ConvertDomainNameToCString_UnEnsacpe(escaped, target->first_label);
}

// Ends the subtype query and frees its context.
void end_subtype_query(ResponderContext* service_context, DNSServiceRef sdRef) {
  log_message(LOG_DEBUG, "process_queryrecord_PTR(): calling DNSServiceRefDeallocate(sdref = %p)...",
              as_pointer(sdRef));
  DNSServiceRefDeallocate(sdRef);
  service_context->query_subtype_ref = nullptr;
  zmk_free(service_context->subtype_query_context, __FILE__, __LINE__);
  service_context->subtype_query_context = nullptr;
}

// Registers the PTR record on if_to with the same data (its reply: callback_ServiceRegisterRecord). The query ends even
// if that is refused, since its context is freed and no further answer may arrive for it.
void register_subtype_record(ResponderContext* service_context, const subtype_query_context* record_PTR,
                             std::span<const std::uint8_t> rdata, DNSServiceRef sdRef) {
  log_message(LOG_DEBUG, "%s,%d,register PTR record,service type:%s, service name:%s", kThisFunction, __LINE__,
              record_PTR->subtype_query_name, record_PTR->service_fullname);
  char* label = record_label_acquire(record_PTR->subtype_query_name);
  DNSRecordRef record = nullptr;
  const DNSServiceErrorType error = MyDNSServiceRegisterRecord(
      gDNSServiceRef_RegisterRecord, &record, kFlagsProxiedRecord,
      static_cast<std::uint32_t>(record_PTR->bridge_context_ptr->if_to), record_PTR->subtype_query_name,
      kDNSServiceType_PTR, kDNSServiceClass_IN, static_cast<std::uint16_t>(rdata.size()), rdata.data(), 0,
      callback_ServiceRegisterRecord, label);
  if (error != kDNSServiceErr_NoError) {
    record_label_retire(label);
    end_subtype_query(service_context, sdRef);
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING, kRegisterRecordRefused, static_cast<long>(error));
    return;
  }
  service_context->subtype_record_ptr = record;
  service_context->subtype_record_label = label;
  end_subtype_query(service_context, sdRef);
}

}  // namespace

void process_queryrecord_PTR(const QueryReply& reply) {
  const subtype_query_context* record_PTR = static_cast<const subtype_query_context*>(reply.context);
  trace_query_reply(kThisFunction, reply);
  if (reply.rdata == nullptr) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING, "process_queryrecord_PTR(): rdata is NULL");
    return;
  }
  const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(reply.rdata), reply.rdlen);
  Target target = {};
  read_target(bytes, &target);
  log_message(LOG_DEBUG, "process_queryrecord_PTR(): +++++++++hostname = %s++++++++", target.first_label);
  ResponderContext* service_context = get_responder_context_by_name(record_PTR->bridge_context_ptr, target.first_label);
  if (service_context == nullptr) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING, "callback_ServiceResolve(): FAIL to find service context for  %s",
                 target.first_label);
    return;
  }
  // The text alone does not decide: the labels "a" and "b" give the same text as the one label "a.b".
  const bool same_name = std::string_view(target.text) == record_PTR->service_fullname;
  if (!same_name || service_context->subtype_query_context != record_PTR) {
    log_message(LOG_DEBUG, "%s,%d,don't register PTR record because of different service name:%s vs %s", kThisFunction,
                __LINE__, target.text, record_PTR->service_fullname);
    return;
  }
  register_subtype_record(service_context, record_PTR, bytes, reply.sdRef);
}
