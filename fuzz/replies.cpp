// SPDX-License-Identifier: MIT
// The whole chain of DNS-SD replies: an input is a sequence of browse, resolve, query and register replies, and of
// calls that are refused, played to the daemon's callbacks over the fake library. Then every instance is removed.
//
// Claims: nothing of the daemon's memory is left, the library is used as dns_sd.h has it, no operation and no record is
// left behind, the number of instances is what the daemon thinks and within its limit, and the process would end only
// in the ways that are meant to end it.

#include <algorithm>
#include <array>
#include <deque>
#include <vector>

#include "fakes/fake_dns_sd.h"
#include "fuzz.h"
#include "platform/vcm.h"
#include "platform/zmk.h"
#include "proxy/call_layer.h"
#include "proxy/proxy.h"
#include "runtime/runtime.h"
#include "support/wire.h"
#include "way_out.h"

namespace {

constexpr std::int32_t kInstancesMax = 6;  // small, so that inputs reach it
constexpr int kStatusDnsSdError = 600;

constexpr const char* kNames[] = {
    "a",        "My Printer", "a.b", "x\\y",
    "\xC3\x84", "a\tb",       "",    "123456789012345678901234567890123456789012345678901234567890123"};
constexpr const char* kHosts[] = {"host.local.",   "HOST.local.", "other.local.", "a\\.b.local.", ".", "",
                                  "host.example.", "host"};
constexpr const char* kTypes[] = {"_ipp._tcp.", "_ipp._tcp", "_http._tcp.", "", ".", "_universal._sub._ipp._tcp."};
constexpr DNSServiceErrorType kErrors[] = {kDNSServiceErr_NoError, kDNSServiceErr_Unknown, kDNSServiceErr_NameConflict,
                                           kDNSServiceErr_BadParam};
constexpr const char* kFunctions[] = {"DNSServiceResolve",        "DNSServiceQueryRecord",  "DNSServiceRegister",
                                      "DNSServiceRegisterRecord", "DNSServiceUpdateRecord", "DNSServiceRemoveRecord"};

using Rdata = std::vector<std::uint8_t>;

const Rdata kIpv4[] = {{10, 0, 0, 1}, {10, 0, 0, 2}, {169, 254, 1, 1}, {0, 0, 0, 0}};
const Rdata kIpv6[] = {{0xFD, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                       {0xFD, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2},
                       {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}};

// What one run has to look after.
struct Run {
  std::array<BridgeContext, 2> rules{};
  std::vector<fake_dns_sd::Call> resolves, queries, services, records;  // the calls that started them, live or not
  std::size_t calls_seen = 0;
  bool record_may_stay = false;  // an answer came for which a record is left behind on purpose
  std::deque<fuzz::Text> texts;
};

// A text that ends where its memory ends, for as long as the run lasts.
const char* keep(Run& run, const std::string& text) { return run.texts.emplace_back(text).data(); }

template <std::size_t Size>
std::string one_of(fuzz::Input& input, const char* const (&texts)[Size]) {
  const std::size_t which = input.byte() % (Size + 1);
  return which < Size ? texts[which] : input.bytes().c_str();
}

DNSServiceErrorType any_error(fuzz::Input& input) { return kErrors[input.below(std::size(kErrors))]; }

// The presentation format of an instance name, as a library gives it.
std::string escaped(const std::string& name) {
  std::string text;
  for (const char c : name) {
    char escape[8];
    if (c == '.' || c == '\\') {
      text += {'\\', c};
    } else if (static_cast<unsigned char>(c) <= ' ') {
      std::snprintf(escape, sizeof escape, "\\%03d", c);
      text += escape;
    } else {
      text += c;
    }
  }
  return text;
}

// --- Following the daemon --------------------------------------------------------------------------------------------

void take_note_of_calls(Run& run) {
  const std::vector<fake_dns_sd::Call>& calls = fake_dns_sd::calls();
  for (; run.calls_seen < calls.size(); ++run.calls_seen) {
    const fake_dns_sd::Call& call = calls[run.calls_seen];
    if (call.result != kDNSServiceErr_NoError) {
      // Without a service its addresses stay with the connection, and so does a record whose removal is refused.
      run.record_may_stay |= call.function == "DNSServiceRegister" || call.function == "DNSServiceRemoveRecord";
    } else if (call.function == "DNSServiceResolve") {
      run.resolves.push_back(call);
    } else if (call.function == "DNSServiceQueryRecord") {
      run.queries.push_back(call);
    } else if (call.function == "DNSServiceRegister") {
      run.services.push_back(call);
    } else if (call.function == "DNSServiceRegisterRecord") {
      run.records.push_back(call);
    }
  }
}

const fake_dns_sd::Call* any_live(fuzz::Input& input, const std::vector<fake_dns_sd::Call>& started) {
  std::vector<const fake_dns_sd::Call*> live;
  for (const fake_dns_sd::Call& call : started) {
    if (fake_dns_sd::is_live(call.ref))
      live.push_back(&call);
  }
  return live.empty() ? nullptr : live[input.below(live.size())];
}

std::int32_t instances(const Run& run) {
  unsigned count = 0;
  for (const BridgeContext& rule : run.rules)
    count += HASH_COUNT(rule.responder_contexts);
  return static_cast<std::int32_t>(count);
}

// --- Replies ---------------------------------------------------------------------------------------------------------

void browse_reply(Run& run, fuzz::Input& input) {
  const BridgeContext& rule = run.rules[input.below(run.rules.size())];
  fake_dns_sd::BrowseReply reply;
  const std::uint8_t how = input.byte();
  reply.flags = (how & 1) != 0 ? kDNSServiceFlagsAdd : 0;
  reply.interfaceIndex = static_cast<std::uint32_t>(rule.if_from);
  reply.error = (how & 0xE0) == 0xE0 ? any_error(input) : kDNSServiceErr_NoError;
  reply.name = (how & 0x1E) == 0x1E ? nullptr : keep(run, one_of(input, kNames));
  reply.type = keep(run, one_of(input, kTypes));
  reply.domain = "local.";
  fake_dns_sd::deliver(rule.ref, reply);
}

std::string any_txt(fuzz::Input& input) {
  switch (input.below(4)) {
    case 0:
      return "\x09txtvers=1";
    case 1:
      return "\x02x=\rvender=Zenmor";
    case 2:
      return std::string(input.word(), 'x');
    default:
      return input.long_bytes();
  }
}

void resolve_reply(Run& run, fuzz::Input& input) {
  const fake_dns_sd::Call* resolve = any_live(input, run.resolves);
  if (resolve == nullptr)
    return;
  const std::uint8_t how = input.byte();
  fake_dns_sd::ResolveReply reply;
  reply.interfaceIndex = resolve->interfaceIndex;
  reply.error = (how & 0xE0) == 0xE0 ? any_error(input) : kDNSServiceErr_NoError;
  const std::string asked_for = escaped(resolve->name) + "._ipp._tcp.local.";
  reply.fullname = (how & 0x1C) == 0x1C ? keep(run, input.long_bytes().c_str()) : keep(run, asked_for);
  reply.hosttarget = keep(run, one_of(input, kHosts));
  reply.port = 631;
  const std::string txt = any_txt(input);
  fuzz::Block block(reinterpret_cast<const std::uint8_t*>(txt.data()), txt.size());
  reply.txt = block.bytes().data();
  reply.txtLen = static_cast<std::uint16_t>(txt.size());
  fake_dns_sd::deliver(resolve->ref, reply);
}

Rdata wire_name(const std::string& first_label) {
  const std::string name = wire::label(first_label.substr(0, 63)) + wire::name("_ipp._tcp.local");
  return {name.begin(), name.end()};
}

Rdata any_rdata(fuzz::Input& input, std::uint16_t rrtype) {
  const std::uint8_t which = input.byte();
  const std::string free = which >= 0xC0 ? input.long_bytes() : "";
  if (which >= 0xC0)
    return Rdata(free.begin(), free.end());
  if (rrtype == kDNSServiceType_A)
    return kIpv4[which % std::size(kIpv4)];
  if (rrtype == kDNSServiceType_AAAA)
    return kIpv6[which % std::size(kIpv6)];
  return wire_name(one_of(input, kNames));
}

// An answer has the type of its query, or one that nobody asked for (a CNAME, say).
void query_reply(Run& run, fuzz::Input& input) {
  const fake_dns_sd::Call* query = any_live(input, run.queries);
  if (query == nullptr)
    return;
  const std::uint8_t how = input.byte();
  fake_dns_sd::QueryReply reply;
  reply.flags = (how & 1) != 0 ? kDNSServiceFlagsAdd : 0;
  reply.interfaceIndex = query->interfaceIndex;
  reply.error = (how & 0xE0) == 0xE0 ? any_error(input) : kDNSServiceErr_NoError;
  reply.rrtype = (how & 0x1C) == 0x1C ? std::uint16_t{kDNSServiceType_CNAME} : query->rrtype;
  reply.fullname = keep(run, query->name);
  const Rdata rdata = any_rdata(input, reply.rrtype);
  fuzz::Block block(rdata.data(), rdata.size());
  reply.rdata = (how & 0x1E) == 0x02 ? nullptr : block.bytes().data();
  reply.rdlen = static_cast<std::uint16_t>(rdata.size());
  // An IPv6 address that the host has already, and a host that has none for a while, make the daemon register another
  // record in the place of the one that it knows of; no library reports the one, and no host has the other. Of data
  // that is longer than an address the beginning counts.
  const std::size_t used = std::min<std::size_t>(rdata.size(), 4);
  const bool is_zero = std::all_of(rdata.data(), rdata.data() + used, [](std::uint8_t byte) { return byte == 0; });
  run.record_may_stay |= is_zero || reply.rrtype == kDNSServiceType_AAAA;
  fake_dns_sd::deliver(query->ref, reply);
}

void register_reply(Run& run, fuzz::Input& input) {
  const fake_dns_sd::Call* service = any_live(input, run.services);
  if (service == nullptr)
    return;
  fake_dns_sd::RegisterReply reply;
  reply.flags = input.byte();
  reply.error = any_error(input);
  reply.name = keep(run, one_of(input, kNames));
  reply.regtype = keep(run, one_of(input, kTypes));
  reply.domain = "local.";
  fake_dns_sd::deliver(service->ref, reply);
}

// To any record, removed ones too: a reply may come late.
void record_reply(Run& run, fuzz::Input& input) {
  if (run.records.empty())
    return;
  const fake_dns_sd::Call& record = run.records[input.below(run.records.size())];
  const std::uint8_t how = input.byte();
  fake_dns_sd::deliver_record(record.record, how & 1, how >= 0xF8 ? any_error(input) : kDNSServiceErr_NoError);
}

void refuse_a_call(fuzz::Input& input) {
  const char* function = kFunctions[input.below(std::size(kFunctions))];
  fake_dns_sd::fail_call(function, 1 + input.byte() % 4u, kDNSServiceErr_BadParam);
}

void step(Run& run, fuzz::Input& input) {
  switch (input.byte() % 12) {
    case 0:
    case 1:
    case 2:
      return browse_reply(run, input);
    case 3:
    case 4:
      return resolve_reply(run, input);
    case 5:
    case 6:
    case 7:
    case 8:
      return query_reply(run, input);
    case 9:
      return register_reply(run, input);
    case 10:
      return record_reply(run, input);
    default:
      return refuse_a_call(input);
  }
}

// --- A run -----------------------------------------------------------------------------------------------------------

void start_rule(BridgeContext& rule, std::int32_t from, std::int32_t to, const char* type) {
  rule = BridgeContext{};
  rule.if_from = from;
  rule.if_to = to;
  std::strcpy(rule.subtype_service_type, std::strchr(type, '.') != std::strrchr(type, '.') ? type : "");
  rule.ref = gDNSServiceRef_Shared;
  MyDNSServiceBrowse(&rule.ref, kFlagsShareConnection, static_cast<std::uint32_t>(from), type, "local",
                     callback_ServiceBrowse, &rule);
}

void begin(Run& run) {
  fake_dns_sd::reset();
  gVcmSettingsFile = "/nonexistent/mdnsproxy.conf";
  gSettings.responder_limit = kInstancesMax - 1;
  gResponderCount = 0;
  DNSServiceCreateConnection(&gDNSServiceRef_Shared);
  DNSServiceCreateConnection(&gDNSServiceRef_RegisterRecord);
  start_rule(run.rules[0], 1, 2, "_ipp._tcp");
  start_rule(run.rules[1], 2, 1, "_universal._ipp._tcp");
}

// The ways in which a reply may end the process: a resolve that cannot start, an AAAA record that is refused at once, a
// record whose registration fails later.
void check_end(int status) {
  fuzz::claim(status == kStatusDnsSdError, "the process ends with the status of a DNS-SD error");
}

void check_invariants(const Run& run) {
  fuzz::claim(instances(run) == gResponderCount, "the daemon knows how many instances it has");
  fuzz::claim(gResponderCount <= kInstancesMax, "there are no more instances than the limit says");
  fuzz::claim(fake_dns_sd::misuses().empty(), "the library is used as dns_sd.h has it");
}

void remove_all(Run& run) {
  for (BridgeContext& rule : run.rules) {
    while (rule.responder_contexts != nullptr) {
      fake_dns_sd::BrowseReply reply;
      const std::string name = rule.responder_contexts->name;
      reply.name = name.c_str();
      callback_ServiceBrowse(rule.ref, reply.flags, 1, reply.error, reply.name, "_ipp._tcp.", "local.", &rule);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const ZmkUsage before = zmk_usage();
  Run run;
  begin(run);
  int ended = -1;
  while (ended == -1 && !input.empty()) {
    ended = fuzz::status_of([&] { step(run, input); });
    take_note_of_calls(run);
    check_invariants(run);
  }
  if (ended != -1)
    check_end(ended);
  remove_all(run);
  take_note_of_calls(run);
  const ZmkUsage after = zmk_usage();
  fuzz::claim(after.blocks == before.blocks && after.bytes == before.bytes, "nothing of the daemon's memory is left");
  if (ended == -1) {
    check_invariants(run);
    fuzz::claim(fake_dns_sd::live_operations() == run.rules.size(), "no operation is left behind");
    fuzz::claim(run.record_may_stay || fake_dns_sd::live_records() == 0, "no record is left behind");
  }
  return 0;
}
