// SPDX-License-Identifier: MIT
// A DNS-SD client library that talks to nobody: it defines every function of dns_sd.h that the program calls, writes
// each call down, refuses calls on demand, and delivers replies when a test says so.
//
// It also watches its caller: a reference that is released twice, a record that is removed twice, an operation on
// something that is no live connection, a reply asked for on a released reference, each adds a line to misuses(), which
// a test expects to be empty. Needs nothing of a test framework.
#pragma once

#include <dns_sd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace fake_dns_sd {

// One call. References are named after their kind and number in order of creation: connection1, browse1, resolve1,
// query1, service1, record1. Arguments that a function does not have are empty; a null text is "(null)".
struct Call {
  std::string function;  // "DNSServiceBrowse"
  std::string text;      // all of it on one line, "DNSServiceBrowse on=connection1 flags=0x4000 if=2 ... -> browse1"
  std::string on;        // the connection that it was made on, or the reference that it is about
  DNSServiceFlags flags;
  std::uint32_t interfaceIndex;
  std::string name;  // instance, full or record name
  std::string regtype;
  std::string domain;
  std::string host;
  std::uint16_t port;  // host byte order
  std::uint16_t rrtype;
  std::uint16_t rrclass;
  std::vector<std::uint8_t> data;  // rdata or TXT data
  std::uint32_t ttl;
  void* context;
  DNSServiceErrorType result;
  DNSServiceRef ref;    // the new operation, or the one that is about; null after a refusal
  DNSRecordRef record;  // the new record, or the one that is about; null after a refusal
};

// --- What was called -------------------------------------------------------------------------------------------------

// Every call since reset, in order (DNSServiceRefSockFD and DNSServiceProcessResult too).
const std::vector<Call>& calls();

// The calls of one function.
std::vector<Call> calls(std::string_view function);

// The lines of all calls from the first-th on, in order.
std::vector<std::string> lines(std::size_t first = 0);

const std::vector<std::string>& misuses();

// Number of operations (connections not counted) and of records that have not been released.
std::size_t live_operations();
std::size_t live_records();

bool is_live(DNSServiceRef ref);

// --- What happens next -----------------------------------------------------------------------------------------------

// The nth call of the function from now (1: the very next) returns `error` and does nothing. One such order per
// function and number; orders add up.
void fail_call(std::string_view function, unsigned nth, DNSServiceErrorType error);

// The next `count` calls of the function all fail.
void fail_next(std::string_view function, unsigned count, DNSServiceErrorType error);

// Queues work for a connection: its socket becomes readable, and each DNSServiceProcessResult runs one piece and
// returns its result. With an empty queue DNSServiceProcessResult returns kDNSServiceErr_NoError.
void post(DNSServiceRef connection, std::function<DNSServiceErrorType()> work);

// --- Replies: each calls the callback that was handed over, with its context -----------------------------------------

struct BrowseReply {
  DNSServiceFlags flags = 0;
  std::uint32_t interfaceIndex = 0;
  DNSServiceErrorType error = kDNSServiceErr_NoError;
  const char* name = nullptr;
  const char* type = nullptr;
  const char* domain = nullptr;
};

struct ResolveReply {
  DNSServiceFlags flags = 0;
  std::uint32_t interfaceIndex = 0;
  DNSServiceErrorType error = kDNSServiceErr_NoError;
  const char* fullname = nullptr;
  const char* hosttarget = nullptr;
  std::uint16_t port = 0;  // host byte order
  std::uint16_t txtLen = 0;
  const unsigned char* txt = nullptr;
};

struct QueryReply {
  DNSServiceFlags flags = 0;
  std::uint32_t interfaceIndex = 0;
  DNSServiceErrorType error = kDNSServiceErr_NoError;
  const char* fullname = nullptr;
  std::uint16_t rrtype = 0;
  std::uint16_t rrclass = kDNSServiceClass_IN;
  std::uint16_t rdlen = 0;
  const void* rdata = nullptr;
  std::uint32_t ttl = 120;
};

struct RegisterReply {
  DNSServiceFlags flags = 0;
  DNSServiceErrorType error = kDNSServiceErr_NoError;
  const char* name = nullptr;
  const char* regtype = nullptr;
  const char* domain = nullptr;
};

// False, and a misuse, when the reference is not a live operation of that kind.
bool deliver(DNSServiceRef browse, const BrowseReply& reply);
bool deliver(DNSServiceRef resolve, const ResolveReply& reply);
bool deliver(DNSServiceRef query, const QueryReply& reply);
bool deliver(DNSServiceRef service, const RegisterReply& reply);

// A reply to a record. One that comes late, to a record that has been removed meanwhile, is no misuse: it was on its
// way.
bool deliver_record(DNSRecordRef record, DNSServiceFlags flags, DNSServiceErrorType error);

// Forgets every call, order, reference and queue.
void reset();

}  // namespace fake_dns_sd
