// SPDX-License-Identifier: MIT
// What a test of the proxy engine needs around it: interfaces br0 (2), br1 (3) and br2 (4), the two connections over
// the recording DNS-SD library, and a few words to tell what happens on the links.
//
// Words without a rule are about the rule given last, words without an instance about the one that was added last.
// After each test the library must have seen no misuse, and the teardown of every instance must leave no block of the
// engine behind.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

#include "fakes/fake_dns_sd.h"
#include "proxy/proxy.h"
#include "unit/tables/daemon_test.h"

inline constexpr std::int32_t kBr0 = 2;
inline constexpr std::int32_t kBr1 = 3;
inline constexpr std::int32_t kBr2 = 4;

class ProxyTest : public DaemonTest {
 protected:
  ProxyTest();
  ~ProxyTest() override;
  void TearDown() override;

  // --- What is there ---
  BridgeContext* GivenRule(const char* service_type, const char* if_from = "br0", const char* if_to = "br1");
  // An instance "My Printer" of "_ipp._tcp" that has been added and resolved to printer.local., port 631, with this TXT
  // data.
  void GivenResolvedInstance(const std::string& txt = std::string("\x09txtvers=1"));
  // ... and whose host has answered this address, so that it is registered.
  void GivenRegisteredInstance(const char* address = "192.0.2.1");
  // From here on messages of every kind are swallowed, for a test with thousands of them. LOG_ERR stays when `errors`
  // is set.
  void GivenSilence(bool errors = false);

  // --- What happens ---
  void BrowseAdds(const char* name, const BridgeContext* rule = nullptr);
  void BrowseRemoves(const char* name, const BridgeContext* rule = nullptr);
  void Resolves(const char* fullname, const char* host = "printer.local.", const std::string& txt = "");
  void ResolvesAs(const fake_dns_sd::ResolveReply& reply);
  // An A or AAAA answer, by the look of the address.
  void AddressAnswers(const char* address);
  void QueryAnswers(std::uint16_t rrtype, const std::vector<std::uint8_t>& rdata);
  void SubtypeAnswers(const std::vector<std::uint8_t>& rdata);

  // --- What came of it ---
  ResponderContext* Instance(const char* name, const BridgeContext* rule = nullptr) const;
  ResponderContext* Instance() const { return Instance(instance_.c_str()); }
  BridgeContext* Rule() const { return rules_.back(); }
  // The lines of the calls to the DNS-SD library since the last MarkCalls; at first, since the connections were made.
  void MarkCalls() { mark_ = fake_dns_sd::calls().size(); }
  std::vector<std::string> Calls() const { return fake_dns_sd::lines(mark_); }
  static std::vector<fake_dns_sd::Call> Calls(std::string_view function) { return fake_dns_sd::calls(function); }
  static fake_dns_sd::Call LastCall(std::string_view function);
  // How many calls the library has seen when each further message that begins so is written.
  static std::vector<std::size_t>& WatchCallsAt(const std::string& beginning);
  // Messages by priority, since the last ForgetMessages.
  static std::vector<std::string> Traces();
  static std::vector<std::string> Warnings();
  static std::vector<std::string> Errors();
  static void ForgetMessages();
  // Blocks that the engine holds for instances; those of rules are not counted.
  static std::size_t InstanceBlocks();

 private:
  std::vector<BridgeContext*> rules_;
  std::string instance_;
  std::size_t mark_ = 0;
};

// What printf makes of it.
std::string printed(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A message that begins and ends so, with a line number in between.
testing::Matcher<std::string> around_line(const std::string& before, const std::string& after);

// A name in wire format, its terminating zero included.
std::vector<std::uint8_t> wire_name(const std::vector<std::string>& labels);

// An address as the bytes of its record.
std::vector<std::uint8_t> address_bytes(const char* address);

inline std::vector<std::uint8_t> bytes_of(std::string_view text) { return {text.begin(), text.end()}; }
