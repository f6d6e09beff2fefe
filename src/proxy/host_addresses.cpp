// SPDX-License-Identifier: MIT
// Answers to the address queries; with the host's first address the instance is registered on if_to.
//
// Every answer is taken as an address that the host has now: neither the error code nor the add flag is looked at.

#include "proxy/host_addresses.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "proxy/call_layer.h"
#include "proxy/names.h"
#include "proxy/proxy.h"
#include "proxy/query_reply.h"
#include "proxy/record_labels.h"
#include "proxy/registration.h"
#include "proxy/subtype.h"
#include "runtime/runtime.h"
#include "state/state.h"

bool is_ipv4_link_local(Ipv4Bytes address) { return address[0] == 169 && address[1] == 254; }

bool is_ipv6_link_local(Ipv6Bytes address) { return address[0] == 0xFE && (address[1] & 0xC0) == 0x80; }

namespace {

constexpr const char* kThisFunction = "process_queryrecord_hostaddr";
// Room for the label of address records, "My Printer.local".
constexpr std::size_t kAddressLabelSize = 512;

// One answer for a known instance.
struct Answer {
  ResponderContext* service_context;
  Addr_query_context* result;
  DNSServiceFlags fencing;  // the fencing bit, if any
};

struct AddressText {
  char text[INET6_ADDRSTRLEN];
};

AddressText address_text(int family, const std::uint8_t* address) {
  AddressText shown = {};
  inet_ntop(family, address, shown.text, sizeof shown.text);
  return shown;
}

bool is_zero(std::span<const std::uint8_t> address) {
  return std::ranges::all_of(address, [](std::uint8_t byte) { return byte == 0; });
}

DNSServiceFlags fencing_flags(const char* service_type) {
  switch (check_mdns_service_fencing(service_type)) {
    case 1:
      return kDNSServiceFlagsFencingHopOne;
    case 0:
      return kDNSServiceFlagsFencingHopZero;
    default:
      return 0;
  }
}

// The text that the replies to this instance's address records carry, one for all of them.
char* address_record_label(Addr_query_context* result) {
  if (result->record_label == nullptr) {
    char label[kAddressLabelSize];
    join_text(label, {result->service_name, ".local"});
    result->record_label = record_label_acquire(label);
  }
  return result->record_label;
}

// Registers the host's address on if_to (its reply: callback_ServiceRegisterRecord). *record is written on success.
DNSServiceErrorType register_address(const Answer& answer, std::uint16_t rrtype, std::span<const std::uint8_t> address,
                                     DNSRecordRef* record) {
  DNSRecordRef registered = nullptr;
  const DNSServiceErrorType error = MyDNSServiceRegisterRecord(
      gDNSServiceRef_RegisterRecord, &registered, answer.fencing | kFlagsProxiedRecord,
      static_cast<std::uint32_t>(answer.result->bridge_context_ptr->if_to), answer.result->hosttarget, rrtype,
      kDNSServiceClass_IN, static_cast<std::uint16_t>(address.size()), address.data(), 0,
      callback_ServiceRegisterRecord, address_record_label(answer.result));
  if (error == kDNSServiceErr_NoError) {
    *record = registered;
  }
  return error;
}

DNSServiceErrorType update_address(DNSRecordRef record, std::span<const std::uint8_t> address) {
  return MyDNSServiceUpdateRecord(gDNSServiceRef_RegisterRecord, record, 0, static_cast<std::uint16_t>(address.size()),
                                  address.data(), 0);
}

// --- IPv4 ------------------------------------------------------------------------------------------------------------

// The host's first IPv4 address. A refusal is reported; the next answer tries again.
bool register_ipv4(const Answer& answer, Ipv4Bytes address) {
  const DNSServiceErrorType error =
      register_address(answer, kDNSServiceType_A, address, &answer.service_context->dns_record_ptr);
  if (error != kDNSServiceErr_NoError) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING, kRegisterRecordRefused, static_cast<long>(error));
    return false;
  }
  log_message(LOG_DEBUG, "-----%s-----%d---first query---", kThisFunction, __LINE__);
  std::ranges::copy(address, answer.result->addr_v4);
  return true;
}

void update_ipv4(const Answer& answer, Ipv4Bytes address) {
  const DNSServiceErrorType error = update_address(answer.service_context->dns_record_ptr, address);
  std::uint32_t shown = 0;
  std::memcpy(&shown, address.data(), sizeof shown);
  log_message(
      LOG_DEBUG,
      "MyDNSServiceUpdateRecord########%s#############%d----service_context = %p----service_context->dns_record_ptr = "
      "%p---sa_addr= %x---",
      kThisFunction, __LINE__, as_pointer(answer.service_context), as_pointer(answer.service_context->dns_record_ptr),
      shown);
  if (error != kDNSServiceErr_NoError) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "MyDNSServiceUpdateRecord(): FAIL: MyDNSServiceUpdateRecord  call failed: %ld",
                 static_cast<long>(error));
    return;
  }
  std::ranges::copy(address, answer.result->addr_v4);
}

// Whether a record was registered for the address.
bool take_ipv4(const Answer& answer, Ipv4Bytes address) {
  const Ipv4Bytes held(answer.result->addr_v4);
  log_message(LOG_DEBUG, "\nthe query ipv4 string ():  %s", address_text(AF_INET, address.data()).text);
  log_message(LOG_DEBUG, "\nthe the old ipv4 string ():  %s", address_text(AF_INET, held.data()).text);
  if (is_ipv4_link_local(address)) {
    log_message(LOG_DEBUG, "-----%s-----%d---ignore the link local addr---", kThisFunction, __LINE__);
    state_instance_link_local(answer.result->bridge_context_ptr, answer.result->service_name, address.data(),
                              address.size());
    return false;
  }
  if (is_zero(held) && !is_zero(address)) {
    return register_ipv4(answer, address);
  }
  if (!is_zero(address) && !std::ranges::equal(held, address)) {
    update_ipv4(answer, address);
    return false;
  }
  std::ranges::copy(address, answer.result->addr_v4);
  return false;
}

// --- IPv6 ------------------------------------------------------------------------------------------------------------

// Unlike the A record's, a refusal ends the process.
void register_ipv6(const Answer& answer, Ipv6Bytes address) {
  const DNSServiceErrorType error =
      register_address(answer, kDNSServiceType_AAAA, address, &answer.service_context->dns_recordv6_ptr);
  if (error != kDNSServiceErr_NoError) {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING, kRegisterRecordRefused, static_cast<long>(error));
  }
  std::ranges::copy(address, answer.result->addr_v6);
}

void update_ipv6(const Answer& answer, Ipv6Bytes address) {
  const DNSServiceErrorType error = update_address(answer.service_context->dns_recordv6_ptr, address);
  if (error != kDNSServiceErr_NoError) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING,
                 "MyDNSServiceUpdateRecord(): FAIL: MyDNSServiceUpdateRecord call failed: %ld",
                 static_cast<long>(error));
    return;
  }
  log_message(LOG_DEBUG, "-----%s-----%d---the IPV6 address changed---", kThisFunction, __LINE__);
  std::ranges::copy(address, answer.result->addr_v6);
}

// Whether a record was registered for the address. One that is held already is registered once more.
bool take_ipv6(const Answer& answer, Ipv6Bytes address) {
  const Ipv6Bytes held(answer.result->addr_v6);
  log_message(LOG_DEBUG, "\nget the ipv6 address %s", address_text(AF_INET6, address.data()).text);
  if (is_ipv6_link_local(address)) {
    state_instance_link_local(answer.result->bridge_context_ptr, answer.result->service_name, address.data(),
                              address.size());
    return false;
  }
  if (!std::ranges::equal(held, address) && !is_zero(held) && !is_zero(address)) {
    update_ipv6(answer, address);
    return false;
  }
  register_ipv6(answer, address);
  return true;
}

// Whether a record was registered for the answer. Data too short for an address of its type is logged and ignored.
bool take_address(const Answer& answer, const QueryReply& reply) {
  const std::uint8_t* const bytes = static_cast<const std::uint8_t*>(reply.rdata);
  const std::size_t length = bytes != nullptr ? reply.rdlen : 0;
  if (reply.rrtype == kDNSServiceType_A && length >= Ipv4Bytes::extent) {
    return take_ipv4(answer, Ipv4Bytes(bytes, Ipv4Bytes::extent));
  }
  if (reply.rrtype == kDNSServiceType_AAAA && length >= Ipv6Bytes::extent) {
    return take_ipv6(answer, Ipv6Bytes(bytes, Ipv6Bytes::extent));
  }
  log_message(LOG_DEBUG, "-----%s-----%d---ignore %d bytes that are no address---", kThisFunction, __LINE__,
              static_cast<int>(length));
  return false;
}

void process_queryrecord_hostaddr(const QueryReply& reply) {
  Addr_query_context* result = static_cast<Addr_query_context*>(reply.context);
  trace_query_reply(kThisFunction, reply);
  ResponderContext* service_context = get_responder_context_by_name(result->bridge_context_ptr, result->service_name);
  if (service_context == nullptr) {
    handle_error(MYSTATUS__RUNNING__OK, LOG_WARNING, "--%s---%d--- FAIL to find service context for  %s", kThisFunction,
                 __LINE__, result->service_name);
    return;
  }
  log_message(LOG_DEBUG, "&&&&&&&&&%s-----%d----interface_index = %d---result->IfIndex = %d--", kThisFunction, __LINE__,
              reply.interfaceIndex, result->IfIndex);
  const Answer answer = {service_context, result, fencing_flags(result->service_type)};
  const bool registered = take_address(answer, reply);
  state_instance_addresses(result->bridge_context_ptr, result->service_name, result->addr_v4, result->addr_v6);
  if (registered && service_context->reg_service_ref == nullptr) {
    register_proxied_instance(service_context, result, answer.fencing | kFlagsProxiedRecord);
  }
}

}  // namespace

void trace_query_reply(const char* function, const QueryReply& reply) {
  log_message(
      LOG_DEBUG,
      "\n%s(): START: sdref = %p, flags = %d, ifIndex = %d, errorCode = %d, fullname = %s, rrtype = %d, rrclass = %d, "
      "rdlen = %d, ttl = %d ...",
      function, as_pointer(reply.sdRef), reply.flags, reply.interfaceIndex, reply.errorCode,
      text_or_null(reply.fullname), reply.rrtype, reply.rrclass, reply.rdlen, reply.ttl);
}

// The answers to all queries. The record type of an answer is that of its query, and decides of what type the context
// is.
void DNSSD_API callback_ServiceQueryRecord(DNSServiceRef sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                           DNSServiceErrorType errorCode, const char* fullname, std::uint16_t rrtype,
                                           std::uint16_t rrclass, std::uint16_t rdlen, const void* rdata,
                                           std::uint32_t ttl, void* context) {
  const QueryReply reply = {sdRef, flags,  interfaceIndex, errorCode, fullname, rrclass,
                            ttl,   rrtype, rdlen,          rdata,     context};
  if (rrtype == kDNSServiceType_PTR) {
    log_message(LOG_DEBUG, "-----%s-----%d----process_queryrecord_PTR: %p--", "callback_ServiceQueryRecord", __LINE__,
                as_pointer(sdRef));
    process_queryrecord_PTR(reply);
  } else if (rrtype == kDNSServiceType_A || rrtype == kDNSServiceType_AAAA) {
    log_message(LOG_DEBUG, "-----%s-----%d----process_queryrecord_hostaddr: %p--", "callback_ServiceQueryRecord",
                __LINE__, as_pointer(sdRef));
    process_queryrecord_hostaddr(reply);
  }
}
