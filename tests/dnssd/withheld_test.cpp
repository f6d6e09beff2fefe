// SPDX-License-Identifier: MIT
// What Avahi is not to remember, as the function that it calls says so.
#include "dnssd/withheld.h"

#include <avahi-core/rr.h>
#include <gtest/gtest.h>

#include "dnssd/engine.h"
#include "dnssd/server.h"

extern "C" {
struct AvahiResponseScheduler;
int avahi_key_is_pattern(const AvahiKey* key);
void avahi_response_scheduler_incoming(AvahiResponseScheduler* scheduler, AvahiRecord* record, int flush_cache);
}

namespace dnssd {
namespace {

constexpr std::uint16_t kPtr = 12, kSrv = 33, kAny = 255, kIn = 1, kChaos = 3;

class WithheldTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_open(), kDNSServiceErr_NoError);
    lookup_.server = &server_;
    pointers_follow(lookup_, Name{{"_ipp", "_tcp", "local"}});
  }
  void TearDown() override {
    pointers_close(server_);
    engine_close();
  }

  static bool IsLeftOut(const char* name, std::uint16_t rrtype, std::uint16_t rrclass = kIn) {
    AvahiKey* key = avahi_key_new(name, rrclass, rrtype);
    const bool is_left_out = avahi_key_is_pattern(key) != 0;
    avahi_key_unref(key);
    return is_left_out;
  }

  Server server_;
  Lookup lookup_;
};

TEST_F(WithheldTest, OnlyPointersThatAreKeptAre) {
  const Withholding withholding(&server_);
  EXPECT_TRUE(IsLeftOut("_ipp._tcp.local", kPtr));
  EXPECT_TRUE(IsLeftOut("_IPP._tcp.LOCAL.", kPtr));
  EXPECT_FALSE(IsLeftOut("_lpr._tcp.local", kPtr));
  EXPECT_FALSE(IsLeftOut("_ipp._tcp.local", kSrv));
  EXPECT_FALSE(IsLeftOut("_ipp._tcp.local", kPtr, kChaos));
}

TEST_F(WithheldTest, PatternsAreAlwaysLeftOut) {
  EXPECT_TRUE(IsLeftOut("h.local", kAny));
  EXPECT_TRUE(IsLeftOut("h.local", kSrv, kAny));
  const Withholding withholding(&server_);
  EXPECT_TRUE(IsLeftOut("h.local", kAny));
  EXPECT_TRUE(IsLeftOut("h.local", kSrv, kAny));
}

// Avahi's own function would look into the scheduler.
TEST_F(WithheldTest, WhoPublishesNothingDoesNotNoteWhatOthersAnswer) {
  const Withholding withholding(&server_);
  avahi_response_scheduler_incoming(nullptr, nullptr, 0);
}

TEST_F(WithheldTest, NothingIsWithheldOfOtherResponses) {
  const Withholding withholding(nullptr);
  EXPECT_FALSE(IsLeftOut("_ipp._tcp.local", kPtr));
}

TEST_F(WithheldTest, NothingIsWithheldAfterwards) {
  { const Withholding withholding(&server_); }
  EXPECT_FALSE(IsLeftOut("_ipp._tcp.local", kPtr));
}

}  // namespace
}  // namespace dnssd
