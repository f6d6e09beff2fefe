// SPDX-License-Identifier: MIT
// When pointers are asked for, and with what. The time is the test's own; what is sent is caught where it would leave the process.
#include "dnssd/pointer_questions.h"

#include <avahi-core/rr.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "dnssd/message_reader.h"
#include "dnssd/server.h"

namespace {

// No process has so many descriptors.
constexpr int kSocketIpv4 = 1'000'004;
constexpr int kSocketIpv6 = 1'000'006;

struct Sent {
  bool is_ipv6 = false;
  std::string bytes;
};

std::vector<Sent> gSent;

}  // namespace

extern "C" {
ssize_t __real_sendto(int fd, const void* bytes, size_t size, int flags, const sockaddr* to, socklen_t length);
ssize_t __wrap_sendto(int fd, const void* bytes, size_t size, int flags, const sockaddr* to, socklen_t length);

// In the place of sendto, for the objects of this program.
ssize_t __wrap_sendto(int fd, const void* bytes, size_t size, int flags, const sockaddr* to, socklen_t length) {
  if (fd != kSocketIpv4 && fd != kSocketIpv6) {
    return __real_sendto(fd, bytes, size, flags, to, length);
  }
  EXPECT_EQ(to->sa_family, fd == kSocketIpv6 ? AF_INET6 : AF_INET);
  gSent.push_back({fd == kSocketIpv6, std::string(static_cast<const char*>(bytes), size)});
  return static_cast<ssize_t>(size);
}
}

namespace dnssd {
namespace {

constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kStart = 1'000'000 * kSecond;
constexpr std::uint16_t kPtr = 12, kAny = 255, kIn = 1;
constexpr std::uint16_t kTruncated = 0x0200;
constexpr AvahiProtocol kIpv4 = AVAHI_PROTO_INET, kIpv6 = AVAHI_PROTO_INET6;

struct Known {
  std::string owner;
  std::string target;
  std::uint32_t ttl = 0;
};

// A query, taken apart.
struct Query {
  MessageHead head;
  std::vector<Question> questions;
  std::vector<Known> known;
};

std::optional<Query> read_query(const std::string& bytes) {
  MessageReader reader{{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}};
  const std::optional<MessageHead> head = read_message_head(reader);
  if (!head) {
    return std::nullopt;
  }
  Query query{*head, {}, {}};
  for (unsigned i = 0; i < head->questions; ++i) {
    const std::optional<Question> question = read_question(reader);
    if (!question) {
      return std::nullopt;
    }
    query.questions.push_back(*question);
  }
  for (unsigned i = 0; i < head->answers; ++i) {
    const std::optional<RecordHead> record = read_record_head(reader);
    const std::optional<Name> target = record ? read_name(reader) : std::nullopt;
    if (!target || record->rrtype != kPtr || record->rrclass != kIn) {
      return std::nullopt;
    }
    query.known.push_back({name_to_avahi(record->owner), name_to_avahi(*target), record->ttl});
  }
  return reader.at == bytes.size() ? std::optional(query) : std::nullopt;
}

class PointerQuestionsTest : public testing::Test {
 protected:
  void SetUp() override {
    gSent.clear();
    server_.sockets[kIpv4] = kSocketIpv4;
    server_.sockets[kIpv6] = kSocketIpv6;
  }
  void TearDown() override {
    for (const auto& [name, list] : server_.pointers) {
      avahi_key_unref(list->key);
    }
  }

  // A list that somebody follows.
  PointerList& NewList(const std::string& type) {
    const std::string text = type + "._tcp.local";
    auto list = std::make_unique<PointerList>();
    list->server = &server_;
    list->name = Name{{type, "_tcp", "local"}};
    list->key = avahi_key_new(text.c_str(), AVAHI_DNS_CLASS_IN, AVAHI_DNS_TYPE_PTR);
    list->followers.push_back(&follower_);
    return *(server_.pointers[text] = std::move(list));
  }

  PointerQuestions& Questions() { return list_.questions; }
  AskedByOthers& Others(AvahiProtocol protocol = kIpv4) { return Questions().others[static_cast<std::size_t>(protocol)]; }

  // The first question has been asked, and the next regular one is far away.
  void BeginLongBefore() {
    questions_begin(list_, kStart);
    AskWhenDue();
    Questions().next_at = kStart + 3600 * kSecond;
  }

  // How many packets are sent at that time.
  std::size_t Ask(std::int64_t now) {
    gSent.clear();
    questions_ask(server_, now);
    return gSent.size();
  }
  // And at the time when the next are due, which is returned.
  std::int64_t AskWhenDue() {
    const std::int64_t due = questions_due(Questions());
    EXPECT_EQ(Ask(due - 1), 0U);
    Ask(due);
    return due;
  }

  void Knows(const std::string& instance, std::uint32_t ttl, std::int64_t heard_at, AvahiProtocol protocol = kIpv4) {
    const std::string target = instance + "._ipp._tcp.local";
    list_.pointers[static_cast<std::size_t>(protocol)][target] = Pointer{target, ttl, heard_at, heard_at + ttl * kSecond, 0, 0};
  }

  // Another host asks, over IPv4.
  void Note(std::int64_t now, std::uint16_t rrtype = kPtr, std::uint16_t rrclass = kIn) {
    questions_note(Questions(), kIpv4, Question{list_.name, rrtype, rrclass}, now);
  }

  Server server_;
  Lookup follower_;
  PointerList& list_ = NewList("_ipp");
};

// --- When

TEST_F(PointerQuestionsTest, TheFirstComesAfterARandomMoment) {
  std::set<std::int64_t> moments;
  for (int i = 0; i < 50; ++i) {
    Questions() = {};
    questions_begin(list_, kStart);
    moments.insert(questions_due(Questions()) - kStart);
  }
  EXPECT_GE(*moments.begin(), 20'000);
  EXPECT_LT(*moments.rbegin(), 120'000);
  EXPECT_GT(moments.size(), 10U);
}

TEST_F(PointerQuestionsTest, IntervalsDoubleFromASecondToAnHour) {
  questions_begin(list_, kStart);
  std::int64_t last = AskWhenDue();
  for (const std::int64_t seconds : {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 3600, 3600, 3600}) {
    const std::int64_t next = AskWhenDue();
    EXPECT_EQ(next - last, seconds * kSecond);
    EXPECT_EQ(gSent.size(), 2U) << "over both protocols";
    last = next;
  }
}

TEST_F(PointerQuestionsTest, WhoBeginsAgainIsNotAskedForWithinASecond) {
  questions_begin(list_, kStart);
  const std::int64_t first = AskWhenDue();
  questions_begin(list_, first + 1000);
  EXPECT_EQ(questions_due(Questions()), first + kSecond);
  AskWhenDue();
  EXPECT_EQ(AskWhenDue() - first, 2 * kSecond);
  questions_begin(list_, first + 100 * kSecond);
  EXPECT_LT(questions_due(Questions()), first + 101 * kSecond);
}

TEST_F(PointerQuestionsTest, WhoBeginsAgainAndAgainIsAskedForAllTheSame) {
  std::int64_t now = kStart;
  questions_begin(list_, now);
  for (; now < questions_due(Questions()) && now < kStart + kSecond; now += 1000) {
    questions_begin(list_, now);
  }
  EXPECT_LT(now, kStart + 121'000);
}

TEST_F(PointerQuestionsTest, WhatGrowsOldIsAskedForOverItsProtocol) {
  BeginLongBefore();
  const std::int64_t now = kStart + 100 * kSecond;
  questions_want(Questions(), kIpv6, now);
  EXPECT_GE(questions_due(Questions()), now + 20'000);
  EXPECT_LT(questions_due(Questions()), now + 120'000);
  AskWhenDue();
  ASSERT_EQ(gSent.size(), 1U);
  EXPECT_TRUE(gSent[0].is_ipv6);
  EXPECT_EQ(questions_due(Questions()), kStart + 3600 * kSecond);
}

TEST_F(PointerQuestionsTest, WhatGrowsOldTogetherIsAskedForTogether) {
  BeginLongBefore();
  const std::int64_t now = kStart + 100 * kSecond;
  questions_want(Questions(), kIpv4, now);
  const std::int64_t due = questions_due(Questions());
  questions_want(Questions(), kIpv6, now + 1000);
  questions_want(Questions(), kIpv4, now + 2000);
  EXPECT_EQ(questions_due(Questions()), due);
  EXPECT_EQ(Ask(due), 2U);
  EXPECT_EQ(Ask(due + 10 * kSecond), 0U);
}

TEST_F(PointerQuestionsTest, TheRegularQuestionServesForWhatGrowsOld) {
  questions_begin(list_, kStart);
  AskWhenDue();
  const std::int64_t regular = questions_due(Questions());
  questions_want(Questions(), kIpv4, regular - 1000);
  EXPECT_EQ(Ask(regular), 2U);
  EXPECT_EQ(questions_due(Questions()), regular + 2 * kSecond);
}

TEST_F(PointerQuestionsTest, TheRegularQuestionDoesNotFollowAnotherWithinASecond) {
  questions_begin(list_, kStart);
  AskWhenDue();
  Questions().next_at = kStart + 100 * kSecond;
  questions_want(Questions(), kIpv4, Questions().next_at - 500'000);
  const std::int64_t asked_at = AskWhenDue();
  ASSERT_LT(asked_at, kStart + 100 * kSecond);
  EXPECT_EQ(questions_due(Questions()), asked_at + kSecond);
}

TEST_F(PointerQuestionsTest, WhatWasDueBeforeItBeginsAgainWaitsForAMoment) {
  questions_want(Questions(), kIpv4, kStart);
  questions_begin(list_, kStart + 10 * kSecond);
  EXPECT_GE(questions_due(Questions()), kStart + 10 * kSecond + 20'000);
}

TEST_F(PointerQuestionsTest, WhateverHappensNoTwoComeWithinASecond) {
  constexpr unsigned kSeed = 6762;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  std::int64_t now = kStart;
  std::int64_t last = 0;
  unsigned count = 0;
  questions_begin(list_, now);
  for (int i = 0; i < 20'000; ++i, now += random() % 200'000) {
    if (random() % 20 == 0) {
      questions_begin(list_, now);
    }
    if (random() % 10 == 0) {
      questions_want(Questions(), random() % 2 == 0 ? kIpv4 : kIpv6, now);
    }
    if (now >= questions_due(Questions()) && Ask(now) > 0) {
      ASSERT_GE(now - last, kSecond) << "step " << i;
      last = now;
      ++count;
    }
  }
  EXPECT_GT(count, 500U);
}

TEST_F(PointerQuestionsTest, WhatAnotherHostHasJustAskedIsNotAskedOnceMore) {
  questions_begin(list_, kStart);
  const std::int64_t due = questions_due(Questions());
  Note(due - 900'000);
  Ask(due);
  ASSERT_EQ(gSent.size(), 1U);
  EXPECT_TRUE(gSent[0].is_ipv6);
  EXPECT_EQ(questions_due(Questions()), due + kSecond) << "it counts as asked";
  EXPECT_EQ(Ask(due + kSecond), 2U);
}

// --- Together

TEST_F(PointerQuestionsTest, WhatBeginsTogetherIsAskedForTogether) {
  PointerList& other = NewList("_lpr");
  questions_begin(list_, kStart);
  questions_begin(other, questions_due(Questions()) - 60'000);
  for (int i = 0; i < 15; ++i) {
    AskWhenDue();
    ASSERT_EQ(gSent.size(), 2U) << "one over each protocol";
    const std::optional<Query> query = read_query(gSent[0].bytes);
    ASSERT_TRUE(query);
    EXPECT_EQ(query->questions.size(), 2U);
    EXPECT_EQ(questions_due(other.questions), questions_due(Questions()));
  }
}

TEST_F(PointerQuestionsTest, WhatIsDueAtAnotherTimeIsNotAskedForWithIt) {
  PointerList& other = NewList("_lpr");
  questions_begin(list_, kStart);
  questions_begin(other, kStart + kSecond);
  AskWhenDue();
  const std::optional<Query> query = read_query(gSent[0].bytes);
  ASSERT_TRUE(query);
  EXPECT_EQ(query->questions.size(), 1U);
  EXPECT_GE(questions_due(other.questions), kStart + kSecond + 20'000);
}

TEST_F(PointerQuestionsTest, WhatBeginsDoesNotJoinALaterQuestion) {
  BeginLongBefore();
  PointerList& other = NewList("_lpr");
  std::set<std::int64_t> moments;
  for (int i = 0; i < 50; ++i) {
    other.questions = {};
    questions_begin(other, Questions().next_at - 70'000);
    moments.insert(questions_due(other.questions));
  }
  EXPECT_GT(moments.size(), 10U);
}

TEST_F(PointerQuestionsTest, WhatNobodyFollowsIsNotAskedFor) {
  questions_begin(list_, kStart);
  list_.followers.clear();
  EXPECT_EQ(Ask(kStart + kSecond), 0U);
}

TEST_F(PointerQuestionsTest, WhatOneHostHasAskedIsLeftOutOfTheOthersQuestion) {
  PointerList& other = NewList("_lpr");
  questions_begin(list_, kStart);
  questions_begin(other, kStart);
  Note(questions_due(Questions()));
  AskWhenDue();
  ASSERT_EQ(gSent.size(), 2U);
  for (const Sent& sent : gSent) {
    const std::optional<Query> query = read_query(sent.bytes);
    ASSERT_TRUE(query);
    EXPECT_EQ(query->questions.size(), sent.is_ipv6 ? 2U : 1U);
  }
}

TEST_F(PointerQuestionsTest, WhatIsKnownStandsBehindAllQuestions) {
  PointerList& other = NewList("_lpr");
  questions_begin(list_, kStart);
  questions_begin(other, kStart);
  const std::int64_t now = questions_due(Questions());
  Knows("a", 4500, now);
  other.pointers[0]["b"] = Pointer{"b._lpr._tcp.local", 4500, now, now + 4500 * kSecond, 0, 0};
  Ask(now);
  const std::optional<Query> query = read_query(gSent.front().bytes);
  ASSERT_TRUE(query);
  EXPECT_EQ(query->questions.size(), 2U);
  std::map<std::string, std::string> known;
  for (const Known& one : query->known) {
    known[one.owner] = one.target;
  }
  EXPECT_EQ(known, (std::map<std::string, std::string>{{"_ipp._tcp.local", "a._ipp._tcp.local"},
                                                       {"_lpr._tcp.local", "b._lpr._tcp.local"}}));
}

TEST_F(PointerQuestionsTest, AsManyPacketsAreSentAsTheQuestionsNeed) {
  constexpr std::size_t kMany = 200;
  questions_begin(list_, kStart);
  std::set<std::string> names{"_ipp._tcp.local"};
  for (std::size_t number = 1; number < kMany; ++number) {
    PointerList& list = NewList("_type-" + std::to_string(number));
    questions_begin(list, kStart);
    names.insert(name_to_avahi(list.name));
  }
  server_.sockets[kIpv6] = -1;
  const std::int64_t now = questions_due(Questions());
  Knows(std::string(63, 'x'), 4500, now);
  EXPECT_GT(Ask(now), 1U);
  EXPECT_LT(gSent.size(), 6U);
  for (const Sent& sent : gSent) {
    EXPECT_LE(sent.bytes.size(), 1440U);
    const std::optional<Query> query = read_query(sent.bytes);
    ASSERT_TRUE(query);
    for (const Question& question : query->questions) {
      EXPECT_EQ(names.erase(name_to_avahi(question.name)), 1U);
    }
  }
  EXPECT_TRUE(names.empty());
}

// --- Growing old

TEST_F(PointerQuestionsTest, ARecordIsDueAtFourPartsOfItsLifetimeAndAtItsEnd) {
  for (const std::uint32_t ttl : {1U, 2U, 120U, 4500U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    Pointer pointer{"a", ttl, kStart, kStart + ttl * kSecond, 0, 0};
    for (const std::int64_t percent : {80, 85, 90, 95}) {
      for (int i = 0; i < 200; ++i) {
        const std::int64_t after = pointer_due(pointer) - kStart;
        EXPECT_GE(after, ttl * kSecond / 100 * percent) << ttl;
        EXPECT_LE(after, ttl * kSecond / 100 * (percent + 2)) << ttl;
      }
      ++pointer.asked;
    }
    EXPECT_EQ(pointer_due(pointer), pointer.ends_at);
    ++pointer.asked;
    EXPECT_EQ(pointer_due(pointer), pointer.ends_at);
  }
}

TEST_F(PointerQuestionsTest, ARecordIsNotDueAfterItsEnd) {
  Pointer pointer{"a", 4500, kStart, kStart + kSecond, 0, 0};
  for (; pointer.asked < 6; ++pointer.asked) {
    EXPECT_EQ(pointer_due(pointer), pointer.ends_at);
  }
}

// --- With what

TEST_F(PointerQuestionsTest, AQuestionIsAPlainOneForTheName) {
  questions_begin(list_, kStart);
  AskWhenDue();
  ASSERT_EQ(gSent.size(), 2U);
  EXPECT_NE(gSent[0].is_ipv6, gSent[1].is_ipv6);
  for (const Sent& sent : gSent) {
    const std::optional<Query> query = read_query(sent.bytes);
    ASSERT_TRUE(query);
    EXPECT_EQ(query->head.flags, 0);
    ASSERT_EQ(query->questions.size(), 1U);
    EXPECT_EQ(name_to_avahi(query->questions[0].name), "_ipp._tcp.local");
    EXPECT_EQ(query->questions[0].rrtype, kPtr);
    EXPECT_EQ(query->questions[0].rrclass, kIn);
    EXPECT_TRUE(query->known.empty());
  }
}

TEST_F(PointerQuestionsTest, ItSaysWhatIsKnownForMoreThanHalfOfItsLifetimeYet) {
  questions_begin(list_, kStart);
  const std::int64_t now = questions_due(Questions());
  Knows("new", 4500, now - 100 * kSecond);
  Knows("old", 4500, now - 2251 * kSecond);
  Knows("other", 120, now, kIpv6);
  Ask(now);
  ASSERT_EQ(gSent.size(), 2U);
  for (const Sent& sent : gSent) {
    const std::optional<Query> query = read_query(sent.bytes);
    ASSERT_TRUE(query);
    ASSERT_EQ(query->known.size(), 1U);
    EXPECT_EQ(query->known[0].owner, "_ipp._tcp.local");
    EXPECT_EQ(query->known[0].target, sent.is_ipv6 ? "other._ipp._tcp.local" : "new._ipp._tcp.local");
    EXPECT_EQ(query->known[0].ttl, sent.is_ipv6 ? 120U : 4400U);
  }
}

TEST_F(PointerQuestionsTest, WhatOnePacketDoesNotHoldFollowsInOthers) {
  constexpr std::size_t kMany = 1000;
  questions_begin(list_, kStart);
  const std::int64_t now = questions_due(Questions());
  for (std::size_t number = 0; number < kMany; ++number) {
    Knows("a-printer-of-the-office-" + std::to_string(number), 4500, now);
  }
  server_.sockets[kIpv6] = -1;
  ASSERT_GT(Ask(now), 2U);
  std::set<std::string> known;
  for (const Sent& sent : gSent) {
    EXPECT_LE(sent.bytes.size(), 1440U);
    const std::optional<Query> query = read_query(sent.bytes);
    ASSERT_TRUE(query);
    EXPECT_EQ(query->head.flags, &sent == &gSent.back() ? 0 : kTruncated);
    EXPECT_EQ(query->questions.size(), &sent == &gSent.front() ? 1U : 0U);
    for (const Known& one : query->known) {
      EXPECT_TRUE(known.insert(one.target).second);
    }
  }
  EXPECT_EQ(known.size(), kMany);
}

TEST_F(PointerQuestionsTest, AFloodOfInventedRecordsMakesNoEndlessQuestion) {
  questions_begin(list_, kStart);
  const std::int64_t now = questions_due(Questions());
  for (int number = 0; number < 4000; ++number) {
    Knows(std::to_string(10'000 + number) + std::string(58, 'x'), 4500, now);
  }
  server_.sockets[kIpv6] = -1;
  EXPECT_EQ(Ask(now), 128U);
  const std::optional<Query> last = read_query(gSent.back().bytes);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->head.flags, 0);
  // Nor many: whoever has something grow old every second is asked as seldom as the question is large.
  Questions().next_at = now + 3600 * kSecond;
  questions_want(Questions(), kIpv4, now + kSecond);
  EXPECT_EQ(questions_due(Questions()), now + 128 * kSecond);
}

// --- The questions of others

TEST_F(PointerQuestionsTest, OnlyAQuestionToEverybodyCounts) {
  Note(kStart, kAny);
  Note(kStart, kPtr, 0x8001);
  Note(kStart, kPtr, 3);
  EXPECT_EQ(Others().count, 0U);
  EXPECT_EQ(Others().asked_at, 0);
  Note(kStart);
  EXPECT_EQ(Others().count, 1U);
  EXPECT_EQ(Others().asked_at, kStart);
  EXPECT_EQ(Others(kIpv6).count, 0U);
}

TEST_F(PointerQuestionsTest, QuestionsWithinASecondCountAsOne) {
  Note(kStart);
  Note(kStart + kSecond - 1);
  EXPECT_EQ(Others().count, 1U);
  EXPECT_EQ(Others().asked_at, kStart + kSecond - 1);
  Note(kStart + kSecond);
  EXPECT_EQ(Others().count, 2U);
  EXPECT_EQ(Others().first_at, kStart);
}

TEST_F(PointerQuestionsTest, QuestionsMoreThanAMinuteApartDoNotCountTogether) {
  Note(kStart);
  Note(kStart + 60 * kSecond);
  EXPECT_EQ(Others().count, 2U);
  Note(kStart + 121 * kSecond);
  EXPECT_EQ(Others().count, 1U);
  EXPECT_EQ(Others().first_at, kStart + 121 * kSecond);
}

TEST_F(PointerQuestionsTest, TenSecondsAfterTheFourthComesTheJudgement) {
  for (int i = 0; i < 3; ++i) {
    Note(kStart + 2 * i * kSecond);
    EXPECT_EQ(Others().judged_at, 0);
  }
  Note(kStart + 6 * kSecond);
  EXPECT_EQ(Others().judged_at, kStart + 16 * kSecond);
  Note(kStart + 8 * kSecond);
  EXPECT_EQ(Others().judged_at, kStart + 16 * kSecond) << "it is not put off";
  EXPECT_EQ(Others().first_at, kStart);
}

}  // namespace
}  // namespace dnssd
