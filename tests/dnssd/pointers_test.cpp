// SPDX-License-Identifier: MIT
// A server of this test's own, without Avahi and without sockets: what its lookups are told of the pointers that are heard. Time
// passes by making everything older that is remembered of it.
#include "dnssd/pointers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

#include "dnssd/engine.h"
#include "dnssd/lookups.h"
#include "dnssd/server.h"

namespace dnssd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kPatience = 60 * kSecond;
constexpr std::uint16_t kPtr = 12, kSrv = 33, kIn = 1, kChaos = 3;
constexpr std::uint16_t kCacheFlush = 0x8000, kUnicastWanted = 0x8000, kTruncated = 0x0200;
constexpr std::uint16_t kResponse = 0x8400;
constexpr AvahiProtocol kIpv4 = AVAHI_PROTO_INET, kIpv6 = AVAHI_PROTO_INET6;

const std::string kType("\4_ipp\4_tcp\5local\0", 17);
const std::string kTypeInCapitals("\4_IPP\4_TCP\5LOCAL\0", 17);
const std::string kOtherType("\4_lpr\4_tcp\5local\0", 17);

std::string number16(unsigned value) { return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)}; }
std::string number32(std::uint32_t value) { return number16(value >> 16) + number16(value); }

std::string header(unsigned flags, unsigned questions, unsigned answers) {
  return number16(0) + number16(flags) + number16(questions) + number16(answers) + number32(0);
}

std::string pointer(const std::string& type, const std::string& instance, std::uint32_t ttl, unsigned rrclass = kIn) {
  const std::string target = static_cast<char>(instance.size()) + instance + type;
  return type + number16(kPtr) + number16(rrclass) + number32(ttl) + number16(static_cast<unsigned>(target.size())) + target;
}

std::string question(const std::string& type, unsigned rrtype = kPtr, unsigned rrclass = kIn) {
  return type + number16(rrtype) + number16(rrclass);
}

Name type_of(const std::string& label) { return Name{{label, "_tcp", "local"}}; }

// A lookup, and what it has been told.
struct Follower {
  explicit Follower(Server& server) {
    operation.context = this;
    lookup.operation = &operation;
    lookup.server = &server;
    lookup.callback = [](Operation& to, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record) {
      static_cast<Follower*>(to.context)->Note(protocol, event, *record);
    };
  }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  void Note(AvahiProtocol protocol, AvahiBrowserEvent event, const AvahiRecord& record) {
    const std::string target = record.data.ptr.name;
    const std::string what = target.substr(0, target.find('.')) + (protocol == kIpv6 ? "/6" : "");
    told.push_back((event == AVAHI_BROWSER_NEW ? "+" : "-") + what);
    if (event == AVAHI_BROWSER_NEW) {
      EXPECT_TRUE(present.insert(what).second) << what << " is told twice";
    } else {
      EXPECT_EQ(present.erase(what), 1U) << what << " goes without having come";
    }
  }

  Operation operation;
  Lookup lookup;
  std::vector<std::string> told;
  std::set<std::string> present;
};

class PointersTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(engine_open(), kDNSServiceErr_NoError); }
  void TearDown() override {
    pointers_close(server_);
    EXPECT_TRUE(gEngine->poll.timers.empty());
    engine_close();
  }

  void Follow(Follower& follower, const Name& name = type_of("_ipp")) { pointers_follow(follower.lookup, name); }
  void FollowAndBeTold(Follower& follower) {
    Follow(follower);
    LetTimerRun();
  }
  void Leave(Follower& follower) { pointers_leave(follower.lookup); }

  bool HasList() const { return pointers_are_kept(server_, "_ipp._tcp.local"); }
  PointerList& TheList() { return *server_.pointers.at("_ipp._tcp.local"); }
  PointersByTarget& Pointers(AvahiProtocol protocol = kIpv4) { return TheList().pointers[static_cast<std::size_t>(protocol)]; }
  Pointer& ThePointer(const std::string& instance, AvahiProtocol protocol = kIpv4) {
    return Pointers(protocol).at(instance + "._ipp._tcp.local");
  }
  AskedByOthers& Others(AvahiProtocol protocol = kIpv4) { return TheList().questions.others[static_cast<std::size_t>(protocol)]; }

  void HearBytes(const std::string& bytes, AvahiProtocol protocol = kIpv4) {
    pointers_heard(server_, protocol, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
  void Hear(const std::string& record, AvahiProtocol protocol = kIpv4) { HearBytes(header(kResponse, 0, 1) + record, protocol); }
  void Alive(const std::string& instance, AvahiProtocol protocol = kIpv4) { Hear(pointer(kType, instance, 4500), protocol); }
  void Goodbye(const std::string& instance, AvahiProtocol protocol = kIpv4) { Hear(pointer(kType, instance, 0), protocol); }
  void Ask(const std::string& bytes, AvahiProtocol protocol = kIpv4) {
    pointers_asked(server_, protocol, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }

  // Makes the list's timer fire, whenever it would have. (It sets `fires_at` again when it has, unless the list has ended.)
  void LetTimerRun() {
    TheList().fires_at = 0;
    poll_timer_start(TheList().timer, 1);
    const std::int64_t end = monotonic_now() + kPatience;
    while (HasList() && TheList().fires_at == 0 && monotonic_now() < end) {
      ASSERT_TRUE(poll_dispatch(gEngine->poll));
    }
    ASSERT_LT(monotonic_now(), end);
  }

  // All that the list remembers is so much longer ago, or sooner; and its timer fires.
  void Pass(std::int64_t time) {
    const auto pass = [time](std::int64_t& at) { at -= at != 0 && at < kFarAway ? time : 0; };
    for (PointersByTarget& pointers : TheList().pointers) {
      for (auto& [target, pointer] : pointers) {
        pass(pointer.heard_at);
        pass(pointer.ends_at);
        pass(pointer.due_at);
      }
    }
    PassForQuestions(TheList().questions, pass);
    for (std::int64_t& at : TheList().superseded_at) {
      pass(at);
    }
    pass(TheList().due_at);
    pass(TheList().unused_until);
    LetTimerRun();
  }

  Server server_;

 private:
  static constexpr std::int64_t kFarAway = std::int64_t{1} << 62;  // what is never

  template <typename Passing>
  static void PassForQuestions(PointerQuestions& questions, Passing pass) {
    for (std::int64_t* at : {&questions.next_at, &questions.again_at, &questions.asked_at}) {
      pass(*at);
    }
    for (AskedByOthers& others : questions.others) {
      for (std::int64_t* at : {&others.asked_at, &others.first_at, &others.last_at, &others.judged_at}) {
        pass(*at);
      }
    }
  }
};

// --- Coming and going

TEST_F(PointersTest, WhatIsHeardIsToldOnce) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Alive("a");
  Alive("a", kIpv6);
  Alive("b");
  EXPECT_THAT(follower.told, ElementsAre("+a", "+a/6", "+b"));
}

TEST_F(PointersTest, NothingElseIs) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Hear(pointer(kOtherType, "a", 4500));
  Hear(pointer(kType, "a", 4500, kChaos));
  HearBytes(header(0, 0, 1) + pointer(kType, "a", 4500));
  Hear(pointer(kType, "\xff", 4500));  // no UTF-8
  Goodbye("a");
  LetTimerRun();
  EXPECT_THAT(follower.told, IsEmpty());
  EXPECT_TRUE(Pointers().empty());
}

TEST_F(PointersTest, EveryTruncationIsHarmless) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  const std::string response = header(kResponse, 0, 1) + pointer(kType, "a", 4500, kIn | kCacheFlush);
  const std::string query = header(0, 1, 0) + question(kType);
  for (std::size_t length = 0; length < response.size(); ++length) {
    HearBytes(response.substr(0, length));
  }
  for (std::size_t length = 0; length < query.size(); ++length) {
    Ask(query.substr(0, length));
  }
  EXPECT_THAT(follower.told, IsEmpty());
  EXPECT_EQ(Others().count, 0U);
}

TEST_F(PointersTest, WhatNobodyConfirmsEndsWithItsLifetime) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  const std::int64_t before = monotonic_now();
  Alive("a");
  Hear(pointer(kType, "b", 120));
  EXPECT_GE(ThePointer("a").ends_at, before + 4500 * kSecond);
  EXPECT_LE(ThePointer("a").ends_at, monotonic_now() + 4500 * kSecond);
  Pass(120 * kSecond);
  EXPECT_THAT(follower.present, ElementsAre("a"));
  Pass(4380 * kSecond);
  EXPECT_THAT(follower.told, ElementsAre("+a", "+b", "-b", "-a"));
}

TEST_F(PointersTest, WhatIsConfirmedLivesOn) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Pass(4000 * kSecond);
  EXPECT_GT(ThePointer("a").asked, 0U);
  Alive("a");
  EXPECT_EQ(ThePointer("a").asked, 0U);
  Pass(1000 * kSecond);
  EXPECT_THAT(follower.told, ElementsAre("+a"));
}

TEST_F(PointersTest, AHostileLifetimeIsALongOne) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  const std::int64_t before = monotonic_now();
  Hear(pointer(kType, "a", 0xFFFFFFFF));
  EXPECT_GE(ThePointer("a").ends_at, before + 0xFFFFFFFF * kSecond);
  EXPECT_GT(ThePointer("a").due_at, before);
  LetTimerRun();
  EXPECT_THAT(follower.told, ElementsAre("+a"));
}

TEST_F(PointersTest, AGoodbyeIsBelievedAfterASecond) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Alive("a", kIpv6);
  Alive("b");
  const std::int64_t before = monotonic_now();
  Goodbye("a");
  EXPECT_GE(ThePointer("a").ends_at, before + kSecond);
  EXPECT_LE(ThePointer("a").ends_at, monotonic_now() + kSecond);
  EXPECT_LE(TheList().fires_at, monotonic_now() + kSecond);
  EXPECT_THAT(follower.present, UnorderedElementsAre("a", "a/6", "b"));
  Pass(kSecond);
  EXPECT_THAT(follower.present, UnorderedElementsAre("a/6", "b"));
}

TEST_F(PointersTest, ARepeatedGoodbyeChangesNothing) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Goodbye("a");
  const std::int64_t ends_at = ThePointer("a").ends_at;
  Goodbye("a");
  EXPECT_EQ(ThePointer("a").ends_at, ends_at);
}

TEST_F(PointersTest, ALiveRecordAfterAGoodbyeRescues) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Goodbye("a");
  Alive("a");
  Pass(2 * kSecond);
  EXPECT_THAT(follower.told, ElementsAre("+a"));
}

TEST_F(PointersTest, WhatIsGoneMayComeAgain) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Goodbye("a");
  Pass(kSecond);
  Alive("a");
  EXPECT_THAT(follower.told, ElementsAre("+a", "-a", "+a"));
}

TEST_F(PointersTest, WhatIsSupersededGoesUnlessItWasSaidWithinTheLastSecond) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("old");
  Alive("old", kIpv6);
  Pass(1000 * kSecond);
  Alive("young");
  Hear(pointer(kType, "unique", 4500, kIn | kCacheFlush));
  ThePointer("young").heard_at = ThePointer("unique").heard_at - kSecond / 2;
  LetTimerRun();
  EXPECT_THAT(follower.present, UnorderedElementsAre("old", "old/6", "young", "unique")) << "it may be rescued";
  Pass(kSecond);
  EXPECT_THAT(follower.present, UnorderedElementsAre("old/6", "young", "unique"));
}

TEST_F(PointersTest, WhatIsSupersededAndHeardAgainStays) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Pass(1000 * kSecond);
  Hear(pointer(kType, "b", 4500, kIn | kCacheFlush));
  LetTimerRun();
  Alive("a");
  Pass(2 * kSecond);
  EXPECT_THAT(follower.told, ElementsAre("+a", "+b"));
}

TEST_F(PointersTest, NamesAreComparedAsDnsDoes) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("Printer");
  Hear(pointer(kTypeInCapitals, "PRINTER", 4500));
  EXPECT_THAT(follower.told, ElementsAre("+Printer"));
  Hear(pointer(kTypeInCapitals, "printer", 0));
  Pass(kSecond);
  EXPECT_THAT(follower.told, ElementsAre("+Printer", "-Printer"));
  EXPECT_TRUE(pointers_are_kept(server_, "_IPP._tcp.LOCAL"));
  EXPECT_FALSE(pointers_are_kept(server_, "_lpr._tcp.local"));
}

// --- The bounds

TEST_F(PointersTest, BeyondTheBoundWhatIsKnownStaysAndOthersAreLeftOut) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("known");
  for (int number = 1; number < 8191; ++number) {
    Pointers().emplace(std::to_string(number), ThePointer("known"));
  }
  Alive("last");
  Alive("beyond");
  Alive("known");
  EXPECT_EQ(Pointers().size(), 8192U);
  EXPECT_THAT(follower.told, ElementsAre("+known", "+last"));
  Alive("beyond", kIpv6);
  EXPECT_THAT(follower.told, ElementsAre("+known", "+last", "+beyond/6"));
  Pointers().erase("1");
  Alive("beyond");
  EXPECT_EQ(Pointers().size(), 8192U);
}

TEST_F(PointersTest, AllNamesTogetherAreBoundedToo) {
  Follower follower(server_);
  Follower other(server_);
  Follower third(server_);
  FollowAndBeTold(follower);
  Follow(other, type_of("_lpr"));
  Follow(third, type_of("_http"));
  Alive("known");
  for (int number = 0; number < 8192; ++number) {
    server_.pointers.at("_lpr._tcp.local")->pointers[0].emplace(std::to_string(number), Pointer());
    server_.pointers.at("_http._tcp.local")->pointers[0].emplace(std::to_string(number), Pointer());
  }
  Alive("beyond");
  EXPECT_THAT(follower.told, ElementsAre("+known"));
  server_.pointers.at("_http._tcp.local")->pointers[0].clear();
  Alive("beyond");
  EXPECT_THAT(follower.told, ElementsAre("+known", "+beyond"));
}

// --- Followers

TEST_F(PointersTest, NothingIsHeardOfWhatNobodyFollows) {
  Alive("a");
  Ask(header(0, 1, 0) + question(kType));
  EXPECT_TRUE(server_.pointers.empty());
}

TEST_F(PointersTest, ANewcomerIsToldOfEverythingOnceAndTheOthersOfNothing) {
  Follower first(server_);
  Follower second(server_);
  FollowAndBeTold(first);
  Alive("a");
  Alive("b", kIpv6);
  Follow(second);
  Alive("c");
  Alive("b", kIpv6);
  EXPECT_THAT(second.told, IsEmpty()) << "not before its turn";
  LetTimerRun();
  LetTimerRun();
  EXPECT_THAT(first.told, ElementsAre("+a", "+b/6", "+c"));
  EXPECT_THAT(second.told, UnorderedElementsAre("+a", "+b/6", "+c"));
  Alive("d");
  EXPECT_EQ(first.told.back(), "+d");
  EXPECT_EQ(second.told.back(), "+d");
}

TEST_F(PointersTest, ANewcomersTurnComesAtOnce) {
  Follower first(server_);
  Follower second(server_);
  FollowAndBeTold(first);
  Follow(second);
  EXPECT_LE(TheList().fires_at, monotonic_now() + 1);
}

TEST_F(PointersTest, OfWhatHasGoneBeforeItsTurnANewcomerHearsNothing) {
  Follower first(server_);
  Follower second(server_);
  FollowAndBeTold(first);
  Alive("a");
  Follow(second);
  pointers_forget(server_, 1);
  EXPECT_THAT(first.told, ElementsAre("+a", "-a"));
  LetTimerRun();
  EXPECT_THAT(second.told, IsEmpty());
}

TEST_F(PointersTest, WhoHasLeftIsToldNothingInWhateverOrderTheyGo) {
  for (const bool newcomer_goes_first : {true, false}) {
    Follower follower(server_);
    Follower newcomer(server_);
    FollowAndBeTold(follower);
    Follow(newcomer);
    Follower& first = newcomer_goes_first ? newcomer : follower;
    Follower& last = newcomer_goes_first ? follower : newcomer;
    Leave(first);
    EXPECT_EQ(first.lookup.pointers, nullptr);
    EXPECT_EQ(TheList().unused_until, 0) << "one is left";
    Leave(first);
    Alive("a");
    LetTimerRun();
    EXPECT_THAT(first.told, IsEmpty());
    EXPECT_THAT(last.told, ElementsAre("+a"));
    Leave(last);
    Alive("b");
    LetTimerRun();
    EXPECT_THAT(last.told, ElementsAre("+a"));
    pointers_close(server_);
  }
}

TEST_F(PointersTest, AListThatNobodyFollowsEndsAWhileLater) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  const std::int64_t before = monotonic_now();
  Leave(follower);
  EXPECT_GE(TheList().unused_until, before + 10 * kSecond);
  EXPECT_LE(TheList().unused_until, monotonic_now() + 10 * kSecond);
  TheList().unused_until += kPatience;
  LetTimerRun();
  EXPECT_TRUE(HasList());
  Pass(10 * kSecond + kPatience);
  EXPECT_FALSE(HasList());
  EXPECT_TRUE(gEngine->poll.timers.empty());
}

TEST_F(PointersTest, WhoFollowsItBeforeThatFindsWhatWasHeard) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Leave(follower);
  TheList().unused_until += kPatience;
  LetTimerRun();
  Alive("b");
  Follower next(server_);
  Follow(next);
  Pass(2 * kPatience);
  ASSERT_TRUE(HasList());
  EXPECT_THAT(next.told, UnorderedElementsAre("+a", "+b"));
}

TEST_F(PointersTest, WithoutFollowersNothingIsAsked) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Leave(follower);
  TheList().unused_until += 10'000 * kSecond;
  const std::int64_t asked_at = TheList().questions.asked_at;
  Pass(3600 * kSecond);
  EXPECT_EQ(TheList().questions.asked_at, asked_at == 0 ? 0 : asked_at - 3600 * kSecond);
  FollowAndBeTold(follower);
  Pass(10 * kSecond);
  EXPECT_GT(TheList().questions.asked_at, asked_at);
}

TEST_F(PointersTest, ALookupOfPointersNeedsNoBrowserAndEndsLikeAnyOther) {
  lookups_open(server_);
  Operation operation;
  Follower follower(server_);  // for what is told
  operation.context = &follower;
  operation.server = &server_;
  Lookup* lookup = lookup_start(operation, type_of("_ipp"), kPtr, LookupKind::steady, follower.lookup.callback);
  ASSERT_NE(lookup, nullptr);
  Alive("a");
  LetTimerRun();
  EXPECT_THAT(follower.told, ElementsAre("+a"));
  lookup_end(lookup);
  Alive("b");
  LetTimerRun();
  lookups_close(server_);
  Alive("c");
  EXPECT_THAT(follower.told, ElementsAre("+a"));
  EXPECT_EQ(lookup_start(operation, Name{{std::string(1, '\xff')}}, kPtr, LookupKind::steady, follower.lookup.callback), nullptr);
}

TEST_F(PointersTest, ClosingTellsNobody) {
  Follower follower(server_);
  Follower newcomer(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Follow(newcomer);
  pointers_close(server_);
  EXPECT_THAT(follower.told, ElementsAre("+a"));
  EXPECT_THAT(newcomer.told, IsEmpty());
  EXPECT_TRUE(server_.pointers.empty());
}

// --- The timer

TEST_F(PointersTest, NobodyPutsOffWhatIsDue) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  const std::string unique = pointer(kType, "a", 4500, kIn | kCacheFlush);
  Hear(unique);
  const std::int64_t fires_at = TheList().fires_at;
  for (int i = 0; i < 100; ++i) {
    Ask(header(0, 1, 0) + question(kType));
    Hear(unique);
  }
  EXPECT_EQ(TheList().fires_at, fires_at);
}

// --- Questions

TEST_F(PointersTest, WhatGrowsOldIsAskedForFourTimesAndThenEnds) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Pass(3600 * kSecond - 60 * kSecond);
  EXPECT_EQ(ThePointer("a").asked, 0U);
  unsigned asked = 0;
  for (const std::int64_t time : {60 + 91, 225, 225, 225}) {
    Pass(time * kSecond);
    EXPECT_EQ(ThePointer("a").asked, ++asked);
  }
  EXPECT_EQ(ThePointer("a").due_at, ThePointer("a").ends_at);
  Pass(225 * kSecond);
  EXPECT_THAT(follower.told, ElementsAre("+a", "-a"));
}

TEST_F(PointersTest, QuestionsOfOthersAreNotedByName) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Ask(header(0, 1, 0) + question(kOtherType));
  EXPECT_EQ(Others().count, 0U);
  Ask(header(0, 2, 0) + question(kOtherType) + question(kTypeInCapitals));
  EXPECT_EQ(Others().count, 1U);
  EXPECT_EQ(Others(kIpv6).count, 0U);
}

TEST_F(PointersTest, WhatNobodyHasToAnswerIsNoQuestion) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Ask(header(0, 1, 0) + question(kType, kSrv));
  Ask(header(0, 1, 0) + question(kType, kPtr, kIn | kUnicastWanted));
  Ask(header(0, 1, 0) + question(kType, kPtr, kChaos));
  Ask(header(0, 1, 1) + question(kType) + pointer(kType, "a", 4500));
  Ask(header(0, 1, 2) + question(kType) + pointer(kOtherType, "a", 4500) + pointer(kTypeInCapitals, "a", 4500));
  Ask(header(kTruncated, 1, 0) + question(kType));
  Ask(header(kResponse, 1, 0) + question(kType));
  Ask(header(0x2800, 1, 0) + question(kType));  // an update
  Ask(header(0x0001, 1, 0) + question(kType));  // with an error code
  EXPECT_EQ(Others().count, 0U);
  EXPECT_EQ(Others().asked_at, 0);
}

TEST_F(PointersTest, WhatIsKnownOfAnotherNameLeavesOutNothing) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Ask(header(0, 2, 1) + question(kOtherType) + question(kType) + pointer(kOtherType, "a", 4500));
  EXPECT_EQ(Others().count, 1U);
}

TEST_F(PointersTest, WhatIsAskedForFourTimesAndNotHeardIsGivenUp) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("dead");
  Alive("dead", kIpv6);
  Alive("alive");
  Pass(kSecond);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Others().judged_at, 0);
    Ask(header(0, 1, 0) + question(kType));
    Pass(2 * kSecond);
  }
  EXPECT_NE(Others().judged_at, 0);
  Alive("alive");
  EXPECT_LE(TheList().fires_at, std::max(Others().judged_at, monotonic_now()));
  Pass(10 * kSecond);
  EXPECT_THAT(follower.present, UnorderedElementsAre("dead/6", "alive"));
  EXPECT_EQ(Others().judged_at, 0);
  EXPECT_EQ(Others().count, 0U);
}

TEST_F(PointersTest, WhatWasMissedMayHaveBeenTheAnswer) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Pass(20 * kSecond);
  const std::int64_t now = monotonic_now();
  Others() = {now, now - 9 * kSecond, now, now, 4};
  pointers_missed(server_);
  LetTimerRun();
  EXPECT_THAT(follower.told, ElementsAre("+a"));
  EXPECT_EQ(Others().count, 0U);
}

// --- The link

TEST_F(PointersTest, WithTheLinkGoesWhatWasHeardOverIt) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  Alive("a");
  Alive("a", kIpv6);
  pointers_forget(server_, 0);
  EXPECT_THAT(follower.present, UnorderedElementsAre("a", "a/6"));
  pointers_forget(server_, 2);
  EXPECT_THAT(follower.present, ElementsAre("a"));
  pointers_forget(server_, 1 | 2);
  EXPECT_THAT(follower.told, ElementsAre("+a", "+a/6", "-a/6", "-a"));
}

TEST_F(PointersTest, WhenTheLinkIsBackWhatIsFollowedIsAskedForAnew) {
  Follower follower(server_);
  FollowAndBeTold(follower);
  TheList().questions.asked_at = monotonic_now();
  TheList().questions.next_at = monotonic_now() + 3600 * kSecond;
  TheList().questions.interval = 3600 * kSecond;
  pointers_ask_anew(server_);
  EXPECT_LE(TheList().questions.next_at, monotonic_now() + kSecond);
  EXPECT_EQ(TheList().questions.interval, kSecond);
  Leave(follower);
  TheList().questions.next_at = 5;
  pointers_ask_anew(server_);
  EXPECT_EQ(TheList().questions.next_at, 5);
}

}  // namespace
}  // namespace dnssd
