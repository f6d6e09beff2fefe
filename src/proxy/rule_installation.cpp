// SPDX-License-Identifier: MIT
// Installs a rule: in the rule table, with its BridgeContext and its browse. Runs at start-up only, before the event
// loop.

#include <new>

#include "platform/ut_array.h"
#include "proxy/call_layer.h"
#include "proxy/names.h"
#include "proxy/proxy.h"
#include "runtime/runtime.h"
#include "state/state.h"
#include "tables/tables.h"

namespace {

// A browse is tried four times: the responder may still be starting when the daemon does.
constexpr int kBrowseRetries = 3;
constexpr unsigned kBrowseRetryPauseMicroseconds = 500000;
// Labels of a service type that names a subtype: "_universal._ipp._tcp".
constexpr int kLabelsWithSubtype = 3;

// One rule that is being installed: the texts as given, and what they stand for.
struct Rule {
  const char* service_type;
  std::int32_t service_type_id;
  const char* if_from;
  std::int32_t if_from_index;
  const char* if_to;
  std::int32_t if_to_index;
};

// The indexes of the rule's interfaces. An unknown one ends the process.
void look_up_interfaces(Rule& rule) {
  rule.if_from_index = hash_getIndex_IfNameToIndex(rule.if_from);
  if (rule.if_from_index <= 0) {
    fatal_error(
        MYSTATUS__INTERFACE_ERROR, LOG_WARNING,
        "INTERFACE LOOKUP ERROR 111833: Could not find interface named '%s' on this system, please double-check the "
        "accuracy of the mdnsproxy rules config file: %s.  Critical error, exiting.",
        rule.if_from, gSettings.rules_file);
  }
  rule.if_to_index = hash_getIndex_IfNameToIndex(rule.if_to);
  if (rule.if_to_index <= 0) {
    fatal_error(
        MYSTATUS__INTERFACE_ERROR, LOG_WARNING,
        "INTERFACE LOOKUP ERROR 111834: Could not find interface named '%s' on this system, please double-check the "
        "accuracy of the mdnsproxy rules config file: %s.  Critical error, exiting.",
        rule.if_to, gSettings.rules_file);
  }
}

gHashRulesIfFrom_t* find_or_add_source(const Rule& rule) {
  gHashRulesIfFrom_t* source = hash_find_gHashRulesIfFrom(rule.if_from_index);
  if (source == nullptr) {
    log_message(LOG_DEBUG,
                "add_proxy_rule(): couldn't find existing gHashRulesIfFrom_t if_from_index = %d, creating one now...",
                rule.if_from_index);
    source = hash_add_RulesIfFrom(rule.if_from_index);
  }
  return source;
}

ServiceTypeToIfTo_t* new_destinations(std::int32_t service_type_id) {
  void* const block = zmk_malloc(sizeof(ServiceTypeToIfTo_t), __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 111710: malloc failed, exiting.");
  }
  ServiceTypeToIfTo_t* destinations = new (block) ServiceTypeToIfTo_t{service_type_id, index_array_new(), {}};
  if (destinations->if_to_array == nullptr) {
    fatal_error(MYSTATUS__ARRAY_ERROR, LOG_WARNING, "ERROR 111711: utarray_new() failed, exiting.");
  }
  return destinations;
}

ServiceTypeToIfTo_t* find_or_add_destinations(gHashRulesIfFrom_t* source, const Rule& rule) {
  const SemaphoreGuard guard(gRulesSemaphore);
  ServiceTypeToIfTo_t* destinations = nullptr;
  HASH_FIND_INT(source->serviceType_to_ifTo_hash, &rule.service_type_id, destinations);
  if (destinations == nullptr) {
    log_message(
        LOG_DEBUG,
        "add_proxy_rule(): couldn't find existing svctype hash for service_type_index = %d inside of main hash for "
        "if_from_index = %d, creating one now...",
        rule.service_type_id, rule.if_from_index);
    destinations = new_destinations(rule.service_type_id);
    HASH_ADD_INT(source->serviceType_to_ifTo_hash, service_type_index, destinations);
  }
  return destinations;
}

// Whether the destination is in the list already; every occurrence is reported.
bool is_duplicate(const UT_array* if_to_array, const Rule& rule) {
  bool duplicate = false;
  for (unsigned position = 0; position < array_count(if_to_array); ++position) {
    const std::int32_t* if_to_index = index_array_at(if_to_array, position);
    if (if_to_index == nullptr) {
      fatal_error(MYSTATUS__ARRAY_ERROR, LOG_WARNING,
                  "ERROR 111726: INTERNAL ERROR: Invalid return from loop over UT_array, exiting.");
    }
    if (*if_to_index == rule.if_to_index) {
      handle_error(
          MYSTATUS__RUNNING__OK, LOG_WARNING,
          "WARNING 111727: POSSIBLE ERROR: found existing if_to = %s (if_to_index = %d) in array when adding for "
          "if_from = %s (if_from_index = %d) and service_type = %s (service_type_index = %d).",
          rule.if_to, rule.if_to_index, rule.if_from, rule.if_from_index, rule.service_type, rule.service_type_id);
      duplicate = true;
    }
  }
  return duplicate;
}

// Enters the rule into the rule table. False: it is there already.
bool record_rule(const Rule& rule) {
  ServiceTypeToIfTo_t* destinations = find_or_add_destinations(find_or_add_source(rule), rule);
  log_message(LOG_DEBUG, "add_proxy_rule(): adding new if_to_index = %d to array...", rule.if_to_index);
  if (is_duplicate(destinations->if_to_array, rule)) {
    return false;
  }
  index_array_push(destinations->if_to_array, rule.if_to_index);
  return true;
}

// Sets the subtype of a new BridgeContext. A type of 64 characters or more is cut: only its first label is ever used,
// and a label has at most 63 bytes (but may be longer as text, when it is written with escapes).
void keep_subtype(BridgeContext* bridge, const char* service_type) {
  if (count_labels(service_type) == kLabelsWithSubtype) {
    copy_text(bridge->subtype_service_type, service_type);
    log_message(LOG_DEBUG, "subtype existed in service_type:%s, and record in bridge context",
                bridge->subtype_service_type);
  }
}

BridgeContext* new_bridge(const Rule& rule) {
  void* const block = zmk_malloc(sizeof(BridgeContext), __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 1301171548: malloc failed, exiting.");
  }
  BridgeContext* bridge = new (block) BridgeContext{nullptr, rule.if_from_index, rule.if_to_index, "", nullptr};
  keep_subtype(bridge, rule.service_type);
  return bridge;
}

// The browse of the rule, which lasts as long as the process. Ends the process when every try was refused.
DNSServiceRef browse_with_retries(const Rule& rule, BridgeContext* bridge) {
  DNSServiceRef local = gDNSServiceRef_Shared;
  const auto try_browse = [&] {
    return MyDNSServiceBrowse(&local, kFlagsShareConnection, static_cast<std::uint32_t>(rule.if_from_index),
                              rule.service_type, gSettings.domain, callback_ServiceBrowse, bridge);
  };
  DNSServiceErrorType error = try_browse();
  for (int failures = 1; error != kDNSServiceErr_NoError && failures <= kBrowseRetries; ++failures) {
    log_message(LOG_DEBUG, "******browser request send %d times failed", failures);
    pause_microseconds(kBrowseRetryPauseMicroseconds);
    error = try_browse();
  }
  if (error != kDNSServiceErr_NoError) {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING, "ERROR 131813: MyDNSServiceBrowse  call failed: %d", error);
  }
  return local;
}

void start_browse(const Rule& rule, BridgeContext* bridge) {
  log_message(LOG_DEBUG, "add_proxy_rule(): No registering BROWSE for %s%s%s if_from_index = %d, if_to_index = %d",
              rule.service_type, ".", gSettings.domain, rule.if_from_index, rule.if_to_index);
  if (gDNSServiceRef_Shared == nullptr) {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING,
                "ERROR 131811: (gDNSServiceRef_Shared == NULL), this should never happen.  Critical error, exiting.");
  }
  const DNSServiceRef browse = browse_with_retries(rule, bridge);
  log_message(LOG_DEBUG,
              "add_proxy_rule(): SUCCESS: MyDNSServiceBrowse(sdref_airplay) call returned success for sdref=%p %s%s%s "
              "if_from_index = %d, if_to_index = %d\n",
              as_pointer(browse), rule.service_type, ".", gSettings.domain, rule.if_from_index, rule.if_to_index);
  bridge->ref = browse;
  state_rule_installed(bridge, rule.service_type, rule.if_from, rule.if_from_index, rule.if_to, rule.if_to_index);
}

}  // namespace

void add_proxy_rule(const char* service_type, const char* if_from, const char* if_to) {
  log_message(LOG_DEBUG, "add_proxy_rule(): START: service_type = %s, if_from = %s, if_to = %s", service_type, if_from,
              if_to);
  Rule rule = {service_type, hash_add_ServiceTypeToId(service_type), if_from, 0, if_to, 0};
  look_up_interfaces(rule);
  if (record_rule(rule)) {
    start_browse(rule, new_bridge(rule));
  }
}
