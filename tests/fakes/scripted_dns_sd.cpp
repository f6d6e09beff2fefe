// SPDX-License-Identifier: MIT
// libdns_sd.so.1 that follows a script: takes the place of the DNS-SD library where a test runs the whole daemon.
//
// Everything lies in the directory that MDNSPROXY_SCRIPT names:
//
//   results       what calls return, read at each call: "DNSServiceBrowse 2 -65537" for the second call of that
//                 function, "DNSServiceBrowse 2+ -65537" from the second one on; 0 for every call without a line
//   calls         one line for every call, written by this library (see the functions below)
//   connection-1  a FIFO for each connection, whose descriptor DNSServiceRefSockFD returns. DNSServiceProcessResult
//   connection-2  reads one line of it and does what it says; the test writes lines whenever it likes:
//
//     browse N FLAGS INTERFACE ERROR NAME TYPE DOMAIN                  a reply to the Nth browse that was accepted
//     resolve N FLAGS INTERFACE ERROR FULLNAME HOST PORT TXT           ... resolve
//     query N FLAGS INTERFACE ERROR FULLNAME TYPE RDATA TTL            ... query
//     register N FLAGS ERROR NAME TYPE DOMAIN                          ... service registration
//     record N FLAGS ERROR                                             ... record registration
//     return CODE                                                      DNSServiceProcessResult returns this
//     signal NUMBER                                                    the process sends itself the signal
//
// Fields are separated by tabs, texts are as they stand ("(null)" for none), RDATA and TXT are hexadecimal, PORT is in
// host order.
#include <arpa/inet.h>
#include <dns_sd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

// A connection, an operation or a record registration; lives until the process ends, so that a script may address what
// the daemon has released already (the reply is then left out).
struct _DNSServiceRef_t {
  std::string name;  // "connection-1", "browse-1", ...
  void* callback = nullptr;
  void* context = nullptr;
  _DNSServiceRef_t* connection = nullptr;
  int fd = -1;
  bool released = false;
};

struct _DNSRecordRef_t {
  _DNSServiceRef_t handle;
};

namespace {

// The flag that makes an operation a sub-operation; not every dns_sd.h names it.
constexpr DNSServiceFlags kShareConnection = 0x4000;

using Fields = std::vector<std::string>;

std::map<std::string, int> calls_so_far;
std::map<std::string, int> accepted_so_far;
std::map<std::string, _DNSServiceRef_t*> handles;

std::string directory() {
  const char* value = std::getenv("MDNSPROXY_SCRIPT");
  return value != nullptr ? value : "/run/script";
}

std::string path_of(const std::string& file) { return directory() + "/" + file; }

const char* shown(const char* text) { return text != nullptr ? text : "(null)"; }

std::string hex(const void* data, std::size_t size) {
  std::string text;
  for (std::size_t at = 0; data != nullptr && at < size; ++at) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char*>(data)[at]);
    text += digits;
  }
  return text;
}

std::string bytes(const std::string& digits) {
  std::string data;
  for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
    data += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return data;
}

// What the script wants this call of `function` to return.
DNSServiceErrorType scripted_result(const std::string& function, int call) {
  std::ifstream results(path_of("results"));
  std::string name;
  std::string which;
  DNSServiceErrorType code = 0;
  while (results >> name >> which >> code) {
    const int first = std::atoi(which.c_str());
    if (name == function && (first == call || (which.back() == '+' && first < call))) {
      return code;
    }
  }
  return kDNSServiceErr_NoError;
}

// Counts the call, writes its line and returns its result.
__attribute__((format(printf, 2, 3))) DNSServiceErrorType called(const char* function, const char* format, ...) {
  const int call = ++calls_so_far[function];
  const DNSServiceErrorType result = scripted_result(function, call);
  char arguments[8192];
  va_list list;
  va_start(list, format);
  std::vsnprintf(arguments, sizeof arguments, format, list);
  va_end(list);
  std::ofstream log(path_of("calls"), std::ios::app);
  log << function << ' ' << call << ' ' << arguments << " -> " << result << std::endl;
  return result;
}

void describe(_DNSServiceRef_t& handle, const char* kind, void* callback, void* context) {
  handle.name = std::string(kind) + "-" + std::to_string(++accepted_so_far[kind]);
  handle.callback = callback;
  handle.context = context;
  handles[handle.name] = &handle;
}

// A sub-operation of the connection in *ref, which it replaces.
DNSServiceErrorType started(DNSServiceErrorType result, DNSServiceRef* ref, const char* kind, void* callback,
                            void* context) {
  if (result == kDNSServiceErr_NoError) {
    auto* operation = new _DNSServiceRef_t;
    operation->connection = *ref;
    describe(*operation, kind, callback, context);
    *ref = operation;
  }
  return result;
}

const char* name_of(const DNSServiceRef* ref, DNSServiceFlags flags) {
  return (flags & kShareConnection) != 0 && *ref != nullptr ? (*ref)->name.c_str() : "none";
}

template <typename Callback>
void* as_pointer(Callback callback) {
  return reinterpret_cast<void*>(callback);
}

// --- Replies ---------------------------------------------------------------------------------------------------------

template <typename Number>
Number number(const Fields& fields, std::size_t at) {
  return at < fields.size() ? static_cast<Number>(std::strtoll(fields[at].c_str(), nullptr, 0)) : Number{};
}

const char* text(const Fields& fields, std::size_t at) {
  return at < fields.size() && fields[at] != "(null)" ? fields[at].c_str() : nullptr;
}

void reply_browse(DNSServiceRef ref, const Fields& f) {
  reinterpret_cast<DNSServiceBrowseReply>(ref->callback)(ref, number<DNSServiceFlags>(f, 2), number<uint32_t>(f, 3),
                                                         number<DNSServiceErrorType>(f, 4), text(f, 5), text(f, 6),
                                                         text(f, 7), ref->context);
}

void reply_resolve(DNSServiceRef ref, const Fields& f) {
  const std::string txt = bytes(f.size() > 8 ? f[8] : "");
  reinterpret_cast<DNSServiceResolveReply>(ref->callback)(
      ref, number<DNSServiceFlags>(f, 2), number<uint32_t>(f, 3), number<DNSServiceErrorType>(f, 4), text(f, 5),
      text(f, 6), htons(number<uint16_t>(f, 7)), static_cast<uint16_t>(txt.size()),
      reinterpret_cast<const unsigned char*>(txt.data()), ref->context);
}

void reply_query(DNSServiceRef ref, const Fields& f) {
  const std::string rdata = bytes(f.size() > 7 ? f[7] : "");
  reinterpret_cast<DNSServiceQueryRecordReply>(ref->callback)(
      ref, number<DNSServiceFlags>(f, 2), number<uint32_t>(f, 3), number<DNSServiceErrorType>(f, 4), text(f, 5),
      number<uint16_t>(f, 6), kDNSServiceClass_IN, static_cast<uint16_t>(rdata.size()), rdata.data(),
      number<uint32_t>(f, 8), ref->context);
}

void reply_register(DNSServiceRef ref, const Fields& f) {
  reinterpret_cast<DNSServiceRegisterReply>(ref->callback)(ref, number<DNSServiceFlags>(f, 2),
                                                           number<DNSServiceErrorType>(f, 3), text(f, 4), text(f, 5),
                                                           text(f, 6), ref->context);
}

void reply_record(DNSServiceRef ref, const Fields& f) {
  reinterpret_cast<DNSServiceRegisterRecordReply>(ref->callback)(ref->connection, reinterpret_cast<DNSRecordRef>(ref),
                                                                 number<DNSServiceFlags>(f, 2),
                                                                 number<DNSServiceErrorType>(f, 3), ref->context);
}

struct Reply {
  const char* kind;
  void (*deliver)(DNSServiceRef, const Fields&);
};
constexpr Reply kReplies[] = {
    {"browse", reply_browse},     {"resolve", reply_resolve}, {"query", reply_query},
    {"register", reply_register}, {"record", reply_record},
};

// One line of a script; returns what DNSServiceProcessResult returns for it.
DNSServiceErrorType follow(const Fields& fields) {
  if (fields[0] == "return") {
    return number<DNSServiceErrorType>(fields, 1);
  }
  if (fields[0] == "signal") {
    kill(getpid(), number<int>(fields, 1));
    return kDNSServiceErr_NoError;
  }
  for (const Reply& reply : kReplies) {
    const auto found = handles.find(fields[0] + "-" + (fields.size() > 1 ? fields[1] : ""));
    if (fields[0] == reply.kind && found != handles.end() && !found->second->released) {
      reply.deliver(found->second, fields);
      return kDNSServiceErr_NoError;
    }
  }
  called("a script line that addresses nothing:", "%s", fields[0].c_str());
  return kDNSServiceErr_NoError;
}

Fields read_line(int fd) {
  Fields fields(1);
  char byte = 0;
  while (read(fd, &byte, 1) == 1 && byte != '\n') {
    if (byte == '\t') {
      fields.emplace_back();
    } else {
      fields.back() += byte;
    }
  }
  return fields;
}

}  // namespace

// --- The library -----------------------------------------------------------------------------------------------------

DNSServiceErrorType DNSSD_API DNSServiceCreateConnection(DNSServiceRef* sdRef) {
  const DNSServiceErrorType result = called("DNSServiceCreateConnection", "-");
  if (result != kDNSServiceErr_NoError) {
    return result;
  }
  auto* connection = new _DNSServiceRef_t;
  describe(*connection, "connection", nullptr, nullptr);
  const std::string fifo = path_of(connection->name);
  mkfifo(fifo.c_str(), 0600);  // the test may have made it already
  connection->fd = open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  *sdRef = connection;
  return result;
}

int DNSSD_API DNSServiceRefSockFD(DNSServiceRef sdRef) { return sdRef != nullptr ? sdRef->fd : -1; }

DNSServiceErrorType DNSSD_API DNSServiceProcessResult(DNSServiceRef sdRef) { return follow(read_line(sdRef->fd)); }

void DNSSD_API DNSServiceRefDeallocate(DNSServiceRef sdRef) {
  called("DNSServiceRefDeallocate", "%s", sdRef != nullptr ? sdRef->name.c_str() : "none");
  if (sdRef != nullptr) {
    sdRef->released = true;
  }
}

DNSServiceErrorType DNSSD_API DNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                               const char* regtype, const char* domain, DNSServiceBrowseReply callBack,
                                               void* context) {
  return started(called("DNSServiceBrowse", "%s flags=0x%x interface=%u regtype=%s domain=%s", name_of(sdRef, flags),
                        flags, interfaceIndex, shown(regtype), shown(domain)),
                 sdRef, "browse", as_pointer(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                const char* name, const char* regtype, const char* domain,
                                                DNSServiceResolveReply callBack, void* context) {
  return started(called("DNSServiceResolve", "%s flags=0x%x interface=%u name=%s regtype=%s domain=%s",
                        name_of(sdRef, flags), flags, interfaceIndex, shown(name), shown(regtype), shown(domain)),
                 sdRef, "resolve", as_pointer(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex, const char* fullname, uint16_t rrtype,
                                                    uint16_t rrclass, DNSServiceQueryRecordReply callBack,
                                                    void* context) {
  return started(called("DNSServiceQueryRecord", "%s flags=0x%x interface=%u fullname=%s rrtype=%u rrclass=%u",
                        name_of(sdRef, flags), flags, interfaceIndex, shown(fullname), rrtype, rrclass),
                 sdRef, "query", as_pointer(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                 const char* name, const char* regtype, const char* domain,
                                                 const char* host, uint16_t port, uint16_t txtLen,
                                                 const void* txtRecord, DNSServiceRegisterReply callBack,
                                                 void* context) {
  return started(
      called("DNSServiceRegister", "%s flags=0x%x interface=%u name=%s regtype=%s domain=%s host=%s port=%u txt=%s",
             name_of(sdRef, flags), flags, interfaceIndex, shown(name), shown(regtype), shown(domain), shown(host),
             ntohs(port), hex(txtRecord, txtLen).c_str()),
      sdRef, "register", as_pointer(callBack), context);
}

DNSServiceErrorType DNSSD_API DNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef,
                                                       DNSServiceFlags flags, uint32_t interfaceIndex,
                                                       const char* fullname, uint16_t rrtype, uint16_t rrclass,
                                                       uint16_t rdlen, const void* rdata, uint32_t ttl,
                                                       DNSServiceRegisterRecordReply callBack, void* context) {
  const DNSServiceErrorType result = called(
      "DNSServiceRegisterRecord", "%s flags=0x%x interface=%u fullname=%s rrtype=%u rrclass=%u rdata=%s ttl=%u",
      sdRef->name.c_str(), flags, interfaceIndex, shown(fullname), rrtype, rrclass, hex(rdata, rdlen).c_str(), ttl);
  if (result == kDNSServiceErr_NoError) {
    auto* record = new _DNSRecordRef_t;
    record->handle.connection = sdRef;
    describe(record->handle, "record", as_pointer(callBack), context);
    *RecordRef = record;
  }
  return result;
}

DNSServiceErrorType DNSSD_API DNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags,
                                                     uint16_t rdlen, const void* rdata, uint32_t ttl) {
  return called("DNSServiceUpdateRecord", "%s %s flags=0x%x rdata=%s ttl=%u", sdRef->name.c_str(),
                RecordRef != nullptr ? RecordRef->handle.name.c_str() : "none", flags, hex(rdata, rdlen).c_str(), ttl);
}

DNSServiceErrorType DNSSD_API DNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef,
                                                     DNSServiceFlags flags) {
  RecordRef->handle.released = true;
  return called("DNSServiceRemoveRecord", "%s %s flags=0x%x", sdRef->name.c_str(), RecordRef->handle.name.c_str(),
                flags);
}
