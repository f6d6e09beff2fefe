// SPDX-License-Identifier: MIT
// The instances of a rule.
//
// Lifecycle of a ResponderContext:
//   1. the browse handler adds it when an instance appears (everything but the name empty) and stores its resolve;
//   2. the resolve handler ends the resolve and stores the queries and their contexts;
//   3. the address and subtype handlers store the records, the registration step the service;
//   4. the browse handler (the instance is gone) or the resolve handler (it is a proxied one) ends it in
//      del_responder_context.
// Every change is made inside a reply callback, one at a time. Once an operation's reference has been released here
// nothing is delivered for it any more, so no reply finds a record that has been freed; only replies to records come
// later, and they carry a label of record_labels.h.

#include <cstdint>
#include <cstring>
#include <new>

#include "proxy/call_layer.h"
#include "proxy/proxy.h"
#include "proxy/record_labels.h"
#include "runtime/runtime.h"

std::int32_t gResponderCount = 0;

ResponderContext* get_responder_context_by_name(const BridgeContext* bridge, const char* name) {
  log_message(LOG_DEBUG, "get_responder_context_by_name(): start bridge_context_ptr=%p, name=%s", as_pointer(bridge),
              text_or_null(name));
  ResponderContext* service_context = nullptr;
  if (bridge->responder_contexts != nullptr && name != nullptr) {
    HASH_FIND_STR(bridge->responder_contexts, name, service_context);
  }
  log_message(LOG_DEBUG,
              "get_responder_context_by_name(): START: bridge_context_ptr=%p, service_context=%p, if_from=%d if_to=%d, "
              "name = %s, ref=%p...  ",
              as_pointer(bridge), as_pointer(service_context), bridge->if_from, bridge->if_to, text_or_null(name),
              as_pointer(bridge->ref));
  return service_context;
}

namespace {

ResponderContext* new_responder_context(const char* name) {
  void* const block = zmk_malloc(sizeof(ResponderContext), __FILE__, __LINE__);
  if (block == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 102046: malloc failed, exiting.");
  }
  ResponderContext* service_context = new (block) ResponderContext{};
  service_context->name = zmk_strdup(name, __FILE__, __LINE__);
  if (service_context->name == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 102047: strdup failed, exiting.");
  }
  return service_context;
}

}  // namespace

int add_responder_context(BridgeContext* bridge, const char* name) {
  if (name == nullptr) {
    return -1;
  }
  if (get_responder_context_by_name(bridge, name) != nullptr) {
    log_message(LOG_DEBUG, "hash_add_responder_context(): name of %s already exist.", name);
    return -1;
  }
  ResponderContext* service_context = new_responder_context(name);
  HASH_ADD_KEYPTR(hh, bridge->responder_contexts, service_context->name, std::strlen(service_context->name),
                  service_context);
  log_message(LOG_DEBUG,
              "add_responder_context(): bridge_context_ptr=%p, service_context=%p,if_from = %d, if_to = %d, name=%s, "
              "ref=%p... ",
              as_pointer(bridge), as_pointer(service_context), bridge->if_from, bridge->if_to, name,
              as_pointer(bridge->ref));
  return 0;
}

// --- Withdrawal
// -----------------------------------------------------------------------------------------------------------------

namespace {

void remove_record(DNSRecordRef& record) {
  MyDNSServiceRemoveRecord(gDNSServiceRef_RegisterRecord, record, 0);
  record = nullptr;
}

// The records on if_to. The address records go only while the service is registered; else they stay with the
// connection, and so does the label that their replies carry.
void remove_records(ResponderContext* service_context) {
  if (service_context->dns_record_ptr != nullptr && service_context->reg_service_ref != nullptr) {
    log_message(LOG_DEBUG, "del_responder_context(): REMOVE:  dns_record_ptr :%p",
                as_pointer(service_context->dns_record_ptr));
    remove_record(service_context->dns_record_ptr);
  }
  if (service_context->dns_recordv6_ptr != nullptr && service_context->reg_service_ref != nullptr) {
    log_message(LOG_DEBUG, "del_responder_context(): REMOVE:  dns_recordv6_ptr=%p",
                as_pointer(service_context->dns_recordv6_ptr));
    remove_record(service_context->dns_recordv6_ptr);
  }
  if (service_context->subtype_record_ptr != nullptr) {
    log_message(LOG_DEBUG, "del_responder_context(): REMOVE:  subtype_record_ptr=%p",
                as_pointer(service_context->subtype_record_ptr));
    remove_record(service_context->subtype_record_ptr);
  }
}

void end_operation(DNSServiceRef& operation, const char* field) {
  if (operation != nullptr) {
    log_message(LOG_DEBUG, "del_responder_context(): REMOVE:  %s=%p", field, as_pointer(operation));
    DNSServiceRefDeallocate(operation);
    operation = nullptr;
  }
}

// The queries and the resolve, then the registration: releasing it withdraws the service from if_to.
void end_operations(ResponderContext* service_context) {
  end_operation(service_context->query_addrv4_ref, "query_addrv4_ref");
  end_operation(service_context->query_addrv6_ref, "query_addrv6_ref");
  end_operation(service_context->resolve_service_ref, "resolve_service_ref");
  end_operation(service_context->query_subtype_ref, "query_subtype_ref");
  end_operation(service_context->reg_service_ref, "reg_service_ref");
}

void retire_labels(ResponderContext* service_context) {
  const bool address_records_stay =
      service_context->dns_record_ptr != nullptr || service_context->dns_recordv6_ptr != nullptr;
  if (service_context->Addr_query_context != nullptr && !address_records_stay) {
    record_label_retire(service_context->Addr_query_context->record_label);
  }
  record_label_retire(service_context->subtype_record_label);
}

void free_contexts(ResponderContext* service_context) {
  if (service_context->Addr_query_context != nullptr) {
    log_message(LOG_DEBUG, "del_responder_context(): REMOVE:  Addr_query_context=%p",
                as_pointer(service_context->Addr_query_context));
    zmk_free(service_context->Addr_query_context, __FILE__, __LINE__);
    service_context->Addr_query_context = nullptr;
  }
  if (service_context->subtype_query_context != nullptr) {
    log_message(LOG_DEBUG, "del_responder_context(): REMOVE:  subtype_query_context=%p",
                as_pointer(service_context->subtype_query_context));
    zmk_free(service_context->subtype_query_context, __FILE__, __LINE__);
    service_context->subtype_query_context = nullptr;
  }
}

}  // namespace

void del_responder_context(BridgeContext* bridge, ResponderContext* service_context) {
  log_message(LOG_DEBUG,
              "del_responder_context(): bridge_context_ptr=%p, service_context=%p,if_from = %d, if_to = %d, name=%s, "
              "ref=%d ... ",
              as_pointer(bridge), as_pointer(service_context), bridge->if_from, bridge->if_to,
              text_or_null(service_context->name), static_cast<int>(reinterpret_cast<std::intptr_t>(bridge->ref)));
  remove_records(service_context);
  end_operations(service_context);
  retire_labels(service_context);
  free_contexts(service_context);
  zmk_free(service_context->name, __FILE__, __LINE__);
  HASH_DEL(bridge->responder_contexts, service_context);
  zmk_free(service_context, __FILE__, __LINE__);
}
