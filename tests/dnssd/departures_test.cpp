// SPDX-License-Identifier: MIT
// One browse, of which this test is both the network and Avahi: what an ear that hears, or misses, makes of its instances.
#include "dnssd/departures.h"

#include <gtest/gtest.h>

#include <string>

#include "dnssd/engine.h"
#include "dnssd/server.h"
#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr std::int64_t kLongAfter = 60'000'000;  // microseconds; when all that may happen has happened
constexpr std::uint32_t kNoInterface = 0x7FFFFFFF;
constexpr unsigned kIpv4 = 1;
constexpr unsigned kIpv6 = 2;

const std::string kType("\4_ipp\4_tcp\5local\0", 17);
const std::string kOtherType("\4_lpr\4_tcp\5local\0", 17);

std::string pointer(const std::string& type, const std::string& instance, bool is_goodbye) {
  const std::string target = static_cast<char>(instance.size()) + instance + type;
  return type + std::string("\0\x0c\0\1\0\0", 6) + (is_goodbye ? std::string(2, '\0') : "\x11\x94") + '\0' +
         static_cast<char>(target.size()) + target;
}

std::string response(const std::string& record) { return std::string("\0\0\x84\0\0\0\0\1\0\0\0\0", 12) + record; }

Name target_of(char instance) { return Name{{std::string(1, instance), "_ipp", "_tcp", "local"}}; }

class DeparturesTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_open(), kDNSServiceErr_NoError);
    server_.interface_index = kNoInterface;
    lookup_.server = &server_;
    operation_.server = &server_;
    operation_.part = Browse();
    TheBrowse().type = Name{{"_ipp", "_tcp", "local"}};
    TheBrowse().lookup = &lookup_;
    departures_watch(operation_, TheBrowse().type);
  }

  void TearDown() override {
    departures_unwatch(TheBrowse());
    EXPECT_TRUE(server_.group_ear.listeners.empty());
    engine_close();
  }

  Browse& TheBrowse() { return part_of<Browse>(operation_); }

  // Avahi's side
  void Found(char instance, unsigned protocol = kIpv4) { browse_found(operation_, protocol, target_of(instance)); }
  void Lost(char instance, unsigned protocol = kIpv4) {
    departures_confirm(operation_, protocol, target_of(instance));
    browse_lost(operation_, protocol, target_of(instance));
  }

  bool Has(char instance, unsigned protocol = kIpv4) { return browse_has(TheBrowse(), protocol, target_of(instance)); }

  // The ear's side
  void Hear(const std::string& bytes, bool is_ipv6 = false) {
    for (const GroupListener& listener : server_.group_ear.listeners) {
      listener.heard({{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, is_ipv6}, listener.userdata);
    }
  }
  void Goodbye(char instance, const std::string& type = kType) { Hear(response(pointer(type, {instance}, true))); }
  void Alive(char instance, const std::string& type = kType) { Hear(response(pointer(type, {instance}, false))); }
  void Miss() {
    for (const GroupListener& listener : server_.group_ear.listeners) {
      listener.missed(listener.userdata);
    }
  }

  template <typename Condition>
  bool Becomes(Condition condition) {
    const std::int64_t end = monotonic_now() + kLongAfter;
    while (!condition() && clock_.PassUntilDue(gEngine->poll, end)) {
      EXPECT_TRUE(poll_dispatch(gEngine->poll));
    }
    return condition();
  }
  bool BecomesGone(char instance) {
    return Becomes([=, this] { return !Has(instance); });
  }
  bool ComesBack(char instance) {
    return Becomes([=, this] { return Has(instance); });
  }

  StoppedClock clock_;
  Server server_;
  Lookup lookup_;
  Operation operation_;
};

TEST_F(DeparturesTest, AGoodbyeThatNobodyContradictsIsBelieved) {
  Found('a');
  Found('a', kIpv6);
  Found('b');
  const std::int64_t said = monotonic_now();
  Goodbye('a');
  EXPECT_TRUE(BecomesGone('a'));
  EXPECT_GE(monotonic_now() - said, 750'000);
  EXPECT_TRUE(Has('a', kIpv6));
  EXPECT_TRUE(Has('b'));
}

TEST_F(DeparturesTest, ALiveRecordInTimeRescues) {
  Found('a');
  Found('b');
  Goodbye('a');
  Goodbye('b');
  Alive('a');
  EXPECT_TRUE(BecomesGone('b'));
  EXPECT_TRUE(Has('a'));
}

TEST_F(DeparturesTest, OtherLiveRecordsDoNot) {
  Found('a');
  Alive('a');
  Goodbye('a');
  Alive('b');
  Alive('a', kOtherType);
  Hear(response(pointer(kType, "a", false)), true);
  EXPECT_TRUE(BecomesGone('a'));
}

TEST_F(DeparturesTest, NamesAreComparedAsDnsDoes) {
  Found('a');
  Found('b');
  Goodbye('a', kOtherType);
  Goodbye('B', std::string("\4_IPP\4_tcp\5LOCAL\0", 17));
  EXPECT_TRUE(BecomesGone('b'));
  EXPECT_TRUE(Has('a'));
}

TEST_F(DeparturesTest, WhoIsGoneComesBackUntilAvahiHasNoticedHoweverLateThatIs) {
  Found('a');
  Found('b');
  Goodbye('a');
  ASSERT_TRUE(BecomesGone('a'));
  Goodbye('b');
  ASSERT_TRUE(BecomesGone('b'));
  Alive('b');
  ASSERT_TRUE(ComesBack('b'));
  Alive('a');
  EXPECT_TRUE(ComesBack('a'));
}

TEST_F(DeparturesTest, OnceAvahiHasNoticedItIsAvahiThatFindsItAgain) {
  Found('a');
  Found('b');
  Goodbye('a');
  Goodbye('b');
  ASSERT_TRUE(BecomesGone('a') && BecomesGone('b'));
  Alive('a');
  Lost('a');
  Alive('a');
  Alive('b');
  EXPECT_TRUE(ComesBack('b'));
  EXPECT_FALSE(Has('a'));
  Found('a');
  EXPECT_TRUE(Has('a'));
}

TEST_F(DeparturesTest, AGoodbyeAfterAllIsTheLastWord) {
  Found('a');
  Found('b');
  Goodbye('a');
  Goodbye('b');
  ASSERT_TRUE(BecomesGone('a') && BecomesGone('b'));
  Alive('a');
  Goodbye('a');
  Alive('b');
  EXPECT_TRUE(ComesBack('b'));
  EXPECT_FALSE(Has('a'));
}

TEST_F(DeparturesTest, WhatWasMissedMayHaveRescuedItSoThatNothingIsTold) {
  Found('a');
  Found('b');
  Goodbye('a');
  Miss();
  Goodbye('b');
  EXPECT_TRUE(BecomesGone('b'));
  EXPECT_TRUE(Has('a'));
  Lost('a');
  EXPECT_FALSE(Has('a'));
}

TEST_F(DeparturesTest, WhatWasMissedMayHaveBroughtItBackSoThatAvahisWordHolds) {
  Found('a');
  Found('b');
  Goodbye('a');
  Goodbye('b');
  ASSERT_TRUE(BecomesGone('a') && BecomesGone('b'));
  Miss();
  Lost('b');
  EXPECT_TRUE(ComesBack('a'));
  EXPECT_FALSE(Has('b'));
}

TEST_F(DeparturesTest, NothingOfABrowseThatHasEndedIsLeft) {
  Found('a');
  Goodbye('a');
  departures_unwatch(TheBrowse());
  EXPECT_TRUE(server_.group_ear.listeners.empty());
  EXPECT_TRUE(gEngine->poll.timers.empty());
}

TEST_F(DeparturesTest, AllBrowsesOfAnInterfaceShareOneEar) {
  Operation second;
  second.server = &server_;
  second.part = Browse();
  part_of<Browse>(second).lookup = &lookup_;
  departures_watch(second, TheBrowse().type);
  EXPECT_EQ(server_.group_ear.listeners.size(), 1U);
  departures_unwatch(part_of<Browse>(second));
  EXPECT_EQ(server_.group_ear.listeners.size(), 1U);
}

TEST_F(DeparturesTest, WhatIsNotPresentCannotDepart) {
  Goodbye('a');
  EXPECT_TRUE(server_.departures.watchers.begin()->second->departures.empty());
}

}  // namespace
}  // namespace dnssd
