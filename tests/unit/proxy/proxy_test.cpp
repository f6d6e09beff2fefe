// SPDX-License-Identifier: MIT
#include "unit/proxy/proxy_test.h"

#include <arpa/inet.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fakes/fake_syslog.h"
#include "runtime/runtime.h"
#include "support/wire.h"
#include "tables/tables.h"

using testing::AllOf;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

ProxyTest::ProxyTest() {
  fake_dns_sd::reset();
  DNSServiceCreateConnection(&gDNSServiceRef_Shared);
  DNSServiceCreateConnection(&gDNSServiceRef_RegisterRecord);
  hash_add_IfNameToIndex("br0", kBr0);
  hash_add_IfNameToIndex("br1", kBr1);
  hash_add_IfNameToIndex("br2", kBr2);
  gResponderCount = 0;
  ForgetMessages();
  MarkCalls();
}

void ProxyTest::TearDown() {
  GivenSilence();
  for (BridgeContext* rule : rules_) {
    while (rule->responder_contexts != nullptr) {
      del_responder_context(rule, rule->responder_contexts);
    }
  }
  EXPECT_EQ(InstanceBlocks(), 0U);
  EXPECT_THAT(fake_dns_sd::misuses(), IsEmpty());
}

ProxyTest::~ProxyTest() {
  for (BridgeContext* rule : rules_) {
    zmk_free(rule, __FILE__, __LINE__);
  }
  fake_dns_sd::reset();
  gDNSServiceRef_Shared = nullptr;
  gDNSServiceRef_RegisterRecord = nullptr;
  gResponderCount = 0;
  gLogLevel = 2;
}

// --- What is there ---------------------------------------------------------------------------------------------------

BridgeContext* ProxyTest::GivenRule(const char* service_type, const char* if_from, const char* if_to) {
  const std::size_t before = Calls("DNSServiceBrowse").size();
  add_proxy_rule(service_type, if_from, if_to);
  if (Calls("DNSServiceBrowse").size() == before) {
    return nullptr;
  }
  rules_.push_back(static_cast<BridgeContext*>(LastCall("DNSServiceBrowse").context));
  return rules_.back();
}

void ProxyTest::GivenResolvedInstance(const std::string& txt) {
  GivenRule("_ipp._tcp");
  BrowseAdds("My Printer");
  Resolves("My\\032Printer._ipp._tcp.local.", "printer.local.", txt);
}

void ProxyTest::GivenRegisteredInstance(const char* address) {
  GivenResolvedInstance();
  AddressAnswers(address);
}

void ProxyTest::GivenSilence(bool errors) {
  gDBG = 1;
  gLogLevel = errors ? 2 : 0;
}

// --- What happens ----------------------------------------------------------------------------------------------------

void ProxyTest::BrowseAdds(const char* name, const BridgeContext* rule) {
  const BridgeContext* bridge = rule != nullptr ? rule : Rule();
  instance_ = name;
  fake_dns_sd::deliver(bridge->ref,
                       fake_dns_sd::BrowseReply{.flags = kDNSServiceFlagsAdd,
                                                .interfaceIndex = static_cast<std::uint32_t>(bridge->if_from),
                                                .name = name,
                                                .type = "_ipp._tcp.",
                                                .domain = "local."});
}

void ProxyTest::BrowseRemoves(const char* name, const BridgeContext* rule) {
  const BridgeContext* bridge = rule != nullptr ? rule : Rule();
  fake_dns_sd::deliver(bridge->ref,
                       fake_dns_sd::BrowseReply{.interfaceIndex = static_cast<std::uint32_t>(bridge->if_from),
                                                .name = name,
                                                .type = "_ipp._tcp.",
                                                .domain = "local."});
}

void ProxyTest::ResolvesAs(const fake_dns_sd::ResolveReply& reply) {
  fake_dns_sd::deliver(Instance()->resolve_service_ref, reply);
}

void ProxyTest::Resolves(const char* fullname, const char* host, const std::string& txt) {
  ResolvesAs({.interfaceIndex = static_cast<std::uint32_t>(Rule()->if_from),
              .fullname = fullname,
              .hosttarget = host,
              .port = 631,
              .txtLen = static_cast<std::uint16_t>(txt.size()),
              .txt = reinterpret_cast<const unsigned char*>(txt.data())});
}

void ProxyTest::QueryAnswers(std::uint16_t rrtype, const std::vector<std::uint8_t>& rdata) {
  const ResponderContext* instance = Instance();
  const DNSServiceRef query = rrtype == kDNSServiceType_PTR ? instance->query_subtype_ref
                              : rrtype == kDNSServiceType_A ? instance->query_addrv4_ref
                                                            : instance->query_addrv6_ref;
  fake_dns_sd::deliver(query, fake_dns_sd::QueryReply{.flags = kDNSServiceFlagsAdd,
                                                      .interfaceIndex = static_cast<std::uint32_t>(Rule()->if_from),
                                                      .fullname = "printer.local.",
                                                      .rrtype = rrtype,
                                                      .rdlen = static_cast<std::uint16_t>(rdata.size()),
                                                      .rdata = rdata.data()});
}

void ProxyTest::AddressAnswers(const char* address) {
  const std::vector<std::uint8_t> bytes = address_bytes(address);
  QueryAnswers(bytes.size() == 4 ? kDNSServiceType_A : kDNSServiceType_AAAA, bytes);
}

void ProxyTest::SubtypeAnswers(const std::vector<std::uint8_t>& rdata) { QueryAnswers(kDNSServiceType_PTR, rdata); }

// --- What came of it -------------------------------------------------------------------------------------------------

ResponderContext* ProxyTest::Instance(const char* name, const BridgeContext* rule) const {
  const BridgeContext* bridge = rule != nullptr ? rule : Rule();
  ResponderContext* found = nullptr;
  HASH_FIND_STR(bridge->responder_contexts, name, found);
  return found;
}

fake_dns_sd::Call ProxyTest::LastCall(std::string_view function) {
  const std::vector<fake_dns_sd::Call> all = Calls(function);
  EXPECT_FALSE(all.empty()) << "no call of " << function;
  return all.empty() ? fake_dns_sd::Call{} : all.back();
}

std::vector<std::size_t>& ProxyTest::WatchCallsAt(const std::string& beginning) {
  static std::vector<std::size_t> seen;
  seen.clear();
  fake_syslog::on_message([beginning] {
    if (fake_syslog::lines().back().text.starts_with(beginning)) {
      seen.push_back(fake_dns_sd::calls().size());
    }
  });
  return seen;
}

std::vector<std::string> ProxyTest::Traces() { return fake_syslog::texts(LOG_DEBUG); }
std::vector<std::string> ProxyTest::Warnings() { return fake_syslog::texts(LOG_WARNING); }
std::vector<std::string> ProxyTest::Errors() { return fake_syslog::texts(LOG_ERR); }
void ProxyTest::ForgetMessages() { fake_syslog::reset(); }

std::size_t ProxyTest::InstanceBlocks() {
  std::size_t blocks = 0;
  zmk_visit_lines(
      [](const char* file, int, ZmkUsage usage, void* sum) {
        const std::string_view path(file);
        if (path.find("src/proxy/") != path.npos && !path.ends_with("rule_installation.cpp")) {
          *static_cast<std::size_t*>(sum) += usage.blocks;
        }
      },
      &blocks);
  return blocks;
}

std::string printed(const char* format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

testing::Matcher<std::string> around_line(const std::string& before, const std::string& after) {
  return testing::ResultOf(
      "the text without its line number",
      [before](const std::string& text) {
        const std::size_t digits =
            text.rfind(before, 0) == 0 ? text.find_first_not_of("0123456789", before.size()) : text.npos;
        return digits != text.npos && digits > before.size() ? before + text.substr(digits) : text;
      },
      before + after);
}

std::vector<std::uint8_t> wire_name(const std::vector<std::string>& labels) {
  std::string name;
  for (const std::string& label : labels) {
    name += wire::label(label);
  }
  name += '\0';
  return {name.begin(), name.end()};
}

std::vector<std::uint8_t> address_bytes(const char* address) {
  const bool ipv6 = std::strchr(address, ':') != nullptr;
  std::vector<std::uint8_t> bytes(ipv6 ? 16 : 4);
  EXPECT_EQ(inet_pton(ipv6 ? AF_INET6 : AF_INET, address, bytes.data()), 1) << address;
  return bytes;
}
