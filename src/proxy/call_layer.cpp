// SPDX-License-Identifier: MIT
#include "proxy/call_layer.h"

#include "proxy/proxy.h"
#include "runtime/runtime.h"

DNSServiceErrorType MyDNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                       const char* regtype, const char* domain, DNSServiceBrowseReply callBack,
                                       void* context) {
  const BridgeContext* bridge = static_cast<const BridgeContext*>(context);
  log_message(LOG_DEBUG,
              "\nMyDNSServiceBrowse(): START: flags = %d, interfaceIndex = %d, regtype = %s, domain = %s, "
              "(BridgeContext*)context->if_from = %d, ->if_to = %d ...",
              flags, interfaceIndex, text_or_null(regtype), text_or_null(domain), bridge->if_from, bridge->if_to);
  return DNSServiceBrowse(sdRef, flags, interfaceIndex, regtype, domain, callBack, context);
}

DNSServiceErrorType MyDNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                        const char* name, const char* regtype, const char* domain,
                                        DNSServiceResolveReply callBack, void* context) {
  log_message(
      LOG_DEBUG,
      "\nMyDNSServiceResolve(): START: flags = %d, interfaceIndex = %d, name = %s, regtype = %s, domain = %s...", flags,
      interfaceIndex, text_or_null(name), text_or_null(regtype), text_or_null(domain));
  return DNSServiceResolve(sdRef, flags, interfaceIndex, name, regtype, domain, callBack, context);
}

DNSServiceErrorType MyDNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                            const char* fullname, std::uint16_t rrtype, std::uint16_t rrclass,
                                            DNSServiceQueryRecordReply callBack, void* context) {
  log_message(
      LOG_DEBUG,
      "\nMyDNSServiceQueryRecord(): START: flags = %d, interfaceIndex = %d, name = %s, rrtype = %d, rrclass = %d...",
      flags, interfaceIndex, text_or_null(fullname), rrtype, rrclass);
  return DNSServiceQueryRecord(sdRef, flags, interfaceIndex, fullname, rrtype, rrclass, callBack, context);
}

DNSServiceErrorType MyDNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, std::uint32_t interfaceIndex,
                                         const char* name, const char* regtype, const char* domain, const char* host,
                                         std::uint16_t port, std::uint16_t txtLen, const void* txtRecord,
                                         DNSServiceRegisterReply callBack, void* context) {
  log_message(LOG_DEBUG,
              "\nMyDNSServiceRegister(): START: flags = %x, interfaceIndex = %d, name = %s, regtype = %s, domain = %s, "
              "host = %s, port = %d, txtLen = %d, txtRecord = %s",
              flags, interfaceIndex, text_or_null(name), text_or_null(regtype), text_or_null(domain),
              text_or_null(host), port, txtLen, text_or_null(static_cast<const char*>(txtRecord)));
  return DNSServiceRegister(sdRef, flags, interfaceIndex, name, regtype, domain, host, port, txtLen, txtRecord,
                            callBack, context);
}

DNSServiceErrorType MyDNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef, DNSServiceFlags flags,
                                               std::uint32_t interfaceIndex, const char* fullname, std::uint16_t rrtype,
                                               std::uint16_t rrclass, std::uint16_t rdlen, const void* rdata,
                                               std::uint32_t ttl, DNSServiceRegisterRecordReply callBack,
                                               void* context) {
  log_message(LOG_DEBUG,
              "\nMyDNSServiceRegisterRecord(): START: flags = %x, interfaceIndex = %d, fullname = %s, rrtype = %d, "
              "rrclass = %d, rdlen = %d, ttl = %d",
              flags, interfaceIndex, text_or_null(fullname), rrtype, rrclass, rdlen, ttl);
  return DNSServiceRegisterRecord(sdRef, RecordRef, flags, interfaceIndex, fullname, rrtype, rrclass, rdlen, rdata, ttl,
                                  callBack, context);
}

DNSServiceErrorType MyDNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags) {
  log_message(LOG_DEBUG, "\nMyDNSServiceRemoveRecord(): START: flags = %d", flags);
  return DNSServiceRemoveRecord(sdRef, RecordRef, flags);
}

DNSServiceErrorType MyDNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags,
                                             std::uint16_t rdlen, const void* rdata, std::uint32_t ttl) {
  log_message(LOG_DEBUG, "MyDNSServiceUpdateRecord():flags = %d ,rdlen = %d\n", flags, rdlen);
  return DNSServiceUpdateRecord(sdRef, RecordRef, flags, rdlen, rdata, ttl);
}
