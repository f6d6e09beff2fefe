// SPDX-License-Identifier: MIT
// The functions of dns_sd.h.

#include <arpa/inet.h>
#include <sys/eventfd.h>

#include <cstdio>

#include "fakes/fake_dns_sd_state.h"

namespace fake_dns_sd {
namespace {

// A flag that not every dns_sd.h names.
constexpr DNSServiceFlags kShareConnection = 0x4000;

template <typename Callback>
AnyCallback any(Callback callback) {
  return reinterpret_cast<AnyCallback>(callback);
}

// --- Texts -----------------------------------------------------------------------------------------------------------

std::string shown(const char* text) { return text != nullptr ? text : "(null)"; }

std::string in_hex(const char* pattern, unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}

std::string in_hex(const std::vector<std::uint8_t>& data) {
  std::string text;
  for (const std::uint8_t byte : data) {
    text += in_hex("%02x", byte);
  }
  return text;
}

std::vector<std::uint8_t> bytes_of(const void* data, std::size_t length) {
  const std::uint8_t* bytes = static_cast<const std::uint8_t*>(data);
  return bytes != nullptr ? std::vector<std::uint8_t>(bytes, bytes + length) : std::vector<std::uint8_t>();
}

// --- References ------------------------------------------------------------------------------------------------------

std::string new_id(const std::string& kind) { return kind + std::to_string(++state().numbers[kind]); }

bool is_live_connection(DNSServiceRef ref) { return is_live(ref) && find(ref)->kind == Kind::Connection; }

DNSServiceRef add_operation(Kind kind, const char* name) {
  auto operation = std::make_unique<Operation>(kind, new_id(name));
  const DNSServiceRef ref = reinterpret_cast<DNSServiceRef>(operation.get());
  state().operations.emplace(ref, std::move(operation));
  return ref;
}

// A released connection ends everything that was made on it.
void release(DNSServiceRef ref) {
  find(ref)->live = false;
  if (find(ref)->kind != Kind::Connection) {
    return;
  }
  for (auto& [other, operation] : state().operations) {
    operation->live = operation->live && operation->connection != ref;
  }
  for (auto& [other, record] : state().records) {
    record->live = record->live && record->connection != ref;
  }
}

// --- Calls -----------------------------------------------------------------------------------------------------------

// A call that has just come in; its result says whether it is to fail.
Call begin(const char* function, DNSServiceRef on, DNSServiceFlags flags) {
  Call call = {};
  call.function = function;
  call.on = id_of(on);
  call.flags = flags;
  const auto order = state().orders.find({function, ++state().counts[function]});
  if (order != state().orders.end()) {
    call.result = order->second;
    state().orders.erase(order);
  }
  return call;
}

DNSServiceErrorType write_down(Call call, std::string text, const std::string& new_reference = "") {
  if (call.result != kDNSServiceErr_NoError) {
    text += " -> error " + std::to_string(call.result);
  } else if (!new_reference.empty()) {
    text += " -> " + new_reference;
  }
  call.text = std::move(text);
  state().calls.push_back(std::move(call));
  return state().calls.back().result;
}

// "DNSServiceBrowse on=connection1 flags=0x4000"
std::string opening(const Call& call) {
  return call.function + " on=" + call.on + " flags=" + in_hex("0x%x", call.flags);
}

std::string on_interface(const Call& call) { return " if=" + std::to_string(call.interfaceIndex); }

std::string type_and_class(const Call& call) {
  return " rrtype=" + std::to_string(call.rrtype) + " rrclass=" + std::to_string(call.rrclass);
}

std::string data_and_ttl(const Call& call) {
  return " rdata=" + in_hex(call.data) + " ttl=" + std::to_string(call.ttl);
}

// The common end of the four calls that start an operation: it must be one on a shared connection.
DNSServiceErrorType start(Call call, const std::string& arguments, DNSServiceRef* sdRef, Kind kind,
                          const char* kind_name, AnyCallback callback, void* context) {
  const std::string text = opening(call) + on_interface(call) + arguments;
  call.context = context;
  if ((call.flags & kShareConnection) == 0 || !is_live_connection(*sdRef)) {
    misuse(call.function + " on " + call.on + " is on no live shared connection");
    call.result = kDNSServiceErr_BadReference;
  }
  if (call.result != kDNSServiceErr_NoError) {
    return write_down(std::move(call), text);
  }
  call.ref = add_operation(kind, kind_name);
  Operation* operation = find(call.ref);
  operation->connection = *sdRef;
  operation->callback = callback;
  operation->context = context;
  *sdRef = call.ref;
  return write_down(std::move(call), text, operation->id);
}

// Whether the call is about a live record of that connection; if not, it is a misuse and fails.
bool is_about_live_record(Call& call, DNSServiceRef connection, DNSRecordRef ref) {
  const Record* record = find(ref);
  if (record == nullptr || !record->live || record->connection != connection) {
    misuse(call.function + " of " + id_of(ref) + " on " + call.on + ", which has no such live record");
    call.result = kDNSServiceErr_BadReference;
    return false;
  }
  return true;
}

}  // namespace

// --- dns_sd.h --------------------------------------------------------------------------------------------------------

extern "C" {

DNSServiceErrorType DNSSD_API DNSServiceCreateConnection(DNSServiceRef* sdRef) {
  Call call = begin("DNSServiceCreateConnection", nullptr, 0);
  if (call.result != kDNSServiceErr_NoError) {
    return write_down(std::move(call), "DNSServiceCreateConnection");
  }
  *sdRef = add_operation(Kind::Connection, "connection");
  find(*sdRef)->socket = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  call.ref = *sdRef;
  return write_down(std::move(call), "DNSServiceCreateConnection", id_of(*sdRef));
}

int DNSSD_API DNSServiceRefSockFD(DNSServiceRef sdRef) {
  Call call = begin("DNSServiceRefSockFD", sdRef, 0);
  call.ref = sdRef;
  if (!is_live_connection(sdRef)) {
    misuse("DNSServiceRefSockFD of " + call.on + ", which is no live connection");
    call.result = kDNSServiceErr_BadReference;
  }
  const DNSServiceErrorType result = write_down(std::move(call), "DNSServiceRefSockFD " + id_of(sdRef));
  return result == kDNSServiceErr_NoError ? find(sdRef)->socket : -1;
}

// The work may release anything, the connection included, so it is taken off its queue before it runs.
DNSServiceErrorType DNSSD_API DNSServiceProcessResult(DNSServiceRef sdRef) {
  Call call = begin("DNSServiceProcessResult", sdRef, 0);
  call.ref = sdRef;
  const std::string text = "DNSServiceProcessResult " + call.on;
  if (!is_live_connection(sdRef)) {
    misuse(text + ", which is no live connection");
    call.result = kDNSServiceErr_BadReference;
  }
  if (call.result != kDNSServiceErr_NoError || find(sdRef)->work.empty()) {
    return write_down(std::move(call), text);
  }
  write_down(std::move(call), text);
  Operation* connection = find(sdRef);
  const auto work = std::move(connection->work.front());
  connection->work.pop_front();
  eventfd_t count = 0;
  if (connection->work.empty()) {
    eventfd_read(connection->socket, &count);
  }
  return work();
}

void DNSSD_API DNSServiceRefDeallocate(DNSServiceRef sdRef) {
  Call call = begin("DNSServiceRefDeallocate", sdRef, 0);
  call.ref = sdRef;
  if (!is_live(sdRef)) {
    misuse("DNSServiceRefDeallocate of " + call.on + ", which is not live");
  } else {
    release(sdRef);
  }
  const std::string text = "DNSServiceRefDeallocate " + call.on;
  write_down(std::move(call), text);
}

DNSServiceErrorType DNSSD_API DNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                               const char* regtype, const char* domain, DNSServiceBrowseReply callBack,
                                               void* context) {
  Call call = begin("DNSServiceBrowse", *sdRef, flags);
  call.interfaceIndex = interfaceIndex;
  call.regtype = shown(regtype);
  call.domain = shown(domain);
  const std::string arguments = " regtype=" + call.regtype + " domain=" + call.domain;
  return start(std::move(call), arguments, sdRef, Kind::Browse, "browse", any(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                const char* name, const char* regtype, const char* domain,
                                                DNSServiceResolveReply callBack, void* context) {
  Call call = begin("DNSServiceResolve", *sdRef, flags);
  call.interfaceIndex = interfaceIndex;
  call.name = shown(name);
  call.regtype = shown(regtype);
  call.domain = shown(domain);
  const std::string arguments = " name=" + call.name + " regtype=" + call.regtype + " domain=" + call.domain;
  return start(std::move(call), arguments, sdRef, Kind::Resolve, "resolve", any(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex, const char* fullname, uint16_t rrtype,
                                                    uint16_t rrclass, DNSServiceQueryRecordReply callBack,
                                                    void* context) {
  Call call = begin("DNSServiceQueryRecord", *sdRef, flags);
  call.interfaceIndex = interfaceIndex;
  call.name = shown(fullname);
  call.rrtype = rrtype;
  call.rrclass = rrclass;
  const std::string arguments = " name=" + call.name + type_and_class(call);
  return start(std::move(call), arguments, sdRef, Kind::Query, "query", any(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                 const char* name, const char* regtype, const char* domain,
                                                 const char* host, uint16_t port, uint16_t txtLen,
                                                 const void* txtRecord, DNSServiceRegisterReply callBack,
                                                 void* context) {
  Call call = begin("DNSServiceRegister", *sdRef, flags);
  call.interfaceIndex = interfaceIndex;
  call.name = shown(name);
  call.regtype = shown(regtype);
  call.domain = shown(domain);
  call.host = shown(host);
  call.port = ntohs(port);
  call.data = bytes_of(txtRecord, txtLen);
  const std::string arguments = " name=" + call.name + " regtype=" + call.regtype + " domain=" + call.domain +
                                " host=" + call.host + " port=" + std::to_string(call.port) +
                                " txt=" + in_hex(call.data);
  return start(std::move(call), arguments, sdRef, Kind::Service, "service", any(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef,
                                                       DNSServiceFlags flags, uint32_t interfaceIndex,
                                                       const char* fullname, uint16_t rrtype, uint16_t rrclass,
                                                       uint16_t rdlen, const void* rdata, uint32_t ttl,
                                                       DNSServiceRegisterRecordReply callBack, void* context) {
  Call call = begin("DNSServiceRegisterRecord", sdRef, flags);
  call.interfaceIndex = interfaceIndex;
  call.name = shown(fullname);
  call.rrtype = rrtype;
  call.rrclass = rrclass;
  call.data = bytes_of(rdata, rdlen);
  call.ttl = ttl;
  call.context = context;
  const std::string text =
      opening(call) + on_interface(call) + " name=" + call.name + type_and_class(call) + data_and_ttl(call);
  if (!is_live_connection(sdRef)) {
    misuse("DNSServiceRegisterRecord on " + call.on + ", which is no live connection");
    call.result = kDNSServiceErr_BadReference;
  }
  if (call.result != kDNSServiceErr_NoError) {
    return write_down(std::move(call), text);
  }
  auto record = std::make_unique<Record>(Record{new_id("record"), true, sdRef, callBack, context});
  *RecordRef = call.record = reinterpret_cast<DNSRecordRef>(record.get());
  const std::string id = record->id;
  state().records.emplace(*RecordRef, std::move(record));
  return write_down(std::move(call), text, id);
}

DNSServiceErrorType DNSSD_API DNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags,
                                                     uint16_t rdlen, const void* rdata, uint32_t ttl) {
  Call call = begin("DNSServiceUpdateRecord", sdRef, flags);
  call.record = RecordRef;
  call.data = bytes_of(rdata, rdlen);
  call.ttl = ttl;
  const std::string text = opening(call) + " " + id_of(RecordRef) + data_and_ttl(call);
  is_about_live_record(call, sdRef, RecordRef);
  return write_down(std::move(call), text);
}

DNSServiceErrorType DNSSD_API DNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef,
                                                     DNSServiceFlags flags) {
  Call call = begin("DNSServiceRemoveRecord", sdRef, flags);
  call.record = RecordRef;
  const std::string text = opening(call) + " " + id_of(RecordRef);
  if (is_about_live_record(call, sdRef, RecordRef) && call.result == kDNSServiceErr_NoError) {
    find(RecordRef)->live = false;
  }
  return write_down(std::move(call), text);
}

}  // extern "C"

}  // namespace fake_dns_sd
