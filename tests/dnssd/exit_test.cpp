// SPDX-License-Identifier: MIT
// A program that leaves the library in the middle of its work: linked in as here, or loaded late, the library's own
// static objects are destroyed before the engine ends.
#include <dns_sd.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>

#include <cstdlib>

namespace {

constexpr int kNoNamespace = 3;
constexpr int kNotStarted = 4;
constexpr int kLeft = 7;

void on_browse(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType, const char*, const char*, const char*,
               void*) {}
void on_query(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType, const char*, uint16_t, uint16_t, uint16_t,
              const void*, uint32_t, void*) {}

// In a network of its own, where there is nobody to talk to. Whoever is not root needs a user namespace for that, which
// a process in a changed root may not have.
[[noreturn]] void work_and_exit() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
    std::exit(kNoNamespace);
  }
  const std::uint32_t loopback = if_nametoindex("lo");
  DNSServiceRef browse = nullptr;
  DNSServiceRef query = nullptr;
  DNSServiceRef service = nullptr;
  if (DNSServiceBrowse(&browse, 0, loopback, "_ipp._tcp", nullptr, on_browse, nullptr) != 0 ||
      DNSServiceQueryRecord(&query, 0, loopback, "h.local", 1, 1, on_query, nullptr) != 0 ||
      DNSServiceRegister(&service, 0, loopback, "n", "_ipp._tcp", nullptr, nullptr, 1, 0, nullptr, nullptr, nullptr) !=
          0) {
    std::exit(kNotStarted);
  }
  DNSServiceProcessResult(browse);
  std::exit(kLeft);
}

TEST(Exit, EndsTheEngineAndItsListenersWhateverIsStillRunning) {
  EXPECT_EXIT(work_and_exit(), ::testing::ExitedWithCode(kLeft), "");
}

}  // namespace
