// SPDX-License-Identifier: MIT
#include "mdns/wire/reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mdns/wire/name.h"
#include "support/wire.h"

namespace mdns {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using wire::bytes;
using wire::header;
using wire::label;
using wire::name;
using wire::number16;
using wire::pointer;
using wire::record;
using wire::srv;

constexpr unsigned kResponse = 0x8400;
constexpr std::size_t kBody = 12;  // where it begins
const std::string kAddress = "\1\2\3\4";

// A response with this many answers.
Message read_answers(unsigned count, const std::string& answers) {
  const std::optional<Message> message = read_message(bytes(header(kResponse, {.answers = count}) + answers));
  EXPECT_TRUE(message.has_value());
  return message.value_or(Message());
}

std::vector<std::string> rdata_of(const Message& message) {
  std::vector<std::string> all;
  for (const Record& each : message.answers) {
    all.push_back(each.rdata);
  }
  return all;
}

TEST(ReadMessage, WantsAWholeHeader) {
  const std::string head = header(0, {}, 7);
  for (std::size_t size = 0; size < head.size(); ++size) {
    EXPECT_FALSE(read_message(bytes(head.substr(0, size)))) << size;
  }
  EXPECT_EQ(read_message(bytes(head))->id, 7);
}

TEST(ReadMessage, WantsOpcodeAndRcodeToBeZeroAndNothingElse) {
  for (int bit = 0; bit < 16; ++bit) {
    const bool is_of_code = bit < 4 || (bit >= 11 && bit < 15);
    EXPECT_EQ(read_message(bytes(header(1u << bit, {}))).has_value(), !is_of_code) << bit;
  }
  EXPECT_TRUE(read_message(bytes(header(0x8000, {})))->is_response);
  EXPECT_FALSE(read_message(bytes(header(0x7F0 & ~0x200, {})))->is_response);
  EXPECT_TRUE(read_message(bytes(header(0x200, {})))->is_truncated);
}

TEST(ReadMessage, TakesTheTopBitOfAClassForAFlag) {
  const std::string packet = header(0, {.questions = 2, .answers = 1}) + name("a.local") + number16(kTypeAny) +
                             number16(0x8001) + name("b.local") + number16(kTypeA) + number16(kClassAny) +
                             record(name("c.local"), kTypeA, kAddress, 0x8001, 77);
  const Message message = *read_message(bytes(packet));
  ASSERT_THAT(message.questions, SizeIs(2));
  EXPECT_EQ(message.questions[0].name, name("a.local"));
  EXPECT_EQ(message.questions[0].type, kTypeAny);
  EXPECT_EQ(message.questions[0].klass, kClassIn);
  EXPECT_TRUE(message.questions[0].unicast_response);
  EXPECT_EQ(message.questions[1].klass, kClassAny);
  EXPECT_FALSE(message.questions[1].unicast_response);
  ASSERT_THAT(message.answers, SizeIs(1));
  EXPECT_EQ(message.answers[0].name, name("c.local"));
  EXPECT_EQ(message.answers[0].klass, kClassIn);
  EXPECT_TRUE(message.answers[0].cache_flush);
  EXPECT_EQ(message.answers[0].ttl, 77u);
  EXPECT_EQ(message.answers[0].rdata, kAddress);
}

TEST(ReadMessage, KeepsSectionsApart) {
  const std::string packet = header(0, {.answers = 1, .authorities = 1, .additionals = 2}) +
                             record(name("a"), kTypeA, kAddress) + record(name("b"), kTypeA, kAddress) +
                             record(name("c"), kTypeA, kAddress) + record(name("d"), kTypeA, kAddress);
  const Message message = *read_message(bytes(packet));
  EXPECT_THAT(message.answers, ElementsAre(Field(&Record::name, name("a"))));
  EXPECT_THAT(message.authorities, ElementsAre(Field(&Record::name, name("b"))));
  EXPECT_THAT(message.additionals, ElementsAre(Field(&Record::name, name("c")), Field(&Record::name, name("d"))));
}

TEST(ReadMessage, UnfoldsNamesInEveryTypeThatHasThem) {
  const std::string owner = name("host.local");
  const std::string host = pointer(kBody);
  const std::string other = label("x") + pointer(kBody + 5);
  const std::string zone_numbers(20, '\1');
  const std::string map("\0\1\x40", 3);
  const std::string x = name("x.local");
  std::string answers = record(owner, kTypePtr, host);
  std::vector<std::string> expected{owner};
  const auto add = [&](unsigned type, const std::string& rdata, const std::string& unfolded) {
    answers += record(host, type, rdata);
    expected.push_back(unfolded);
  };
  for (const unsigned type : {kTypeNs, kTypeCname, kTypeDname}) {
    add(type, other, x);
  }
  for (const unsigned type : {kTypeMx, kTypeAfsdb, kTypeRt, kTypeKx}) {
    add(type, "ab" + other, "ab" + x);
  }
  add(kTypeSrv, "abcdef" + other, "abcdef" + x);
  add(kTypeSoa, other + host + zone_numbers, x + owner + zone_numbers);
  add(kTypeRp, other + host, x + owner);
  add(kTypePx, "ab" + other + host, "ab" + x + owner);
  add(kTypeNsec, host + map, owner + map);
  add(65280, host, host);
  EXPECT_EQ(rdata_of(read_answers(static_cast<unsigned>(expected.size()), answers)), expected);
}

TEST(ReadMessage, KeepsTheCaseOfNames) {
  const Message message = read_answers(1, record(name("Host.LOCAL"), kTypePtr, pointer(kBody)));
  ASSERT_THAT(message.answers, SizeIs(1));
  EXPECT_EQ(message.answers[0].name, name("Host.LOCAL"));
  EXPECT_EQ(message.answers[0].rdata, name("Host.LOCAL"));
}

TEST(ReadMessage, LeavesOutARecordWithBadRdataAndReadsTheNext) {
  const std::string bad[] = {
      record(name("a"), kTypeA, "abc"),
      record(name("a"), kTypeA, ""),
      record(name("a"), kTypePtr, pointer(kBody) + "x"),
      record(name("a"), kTypePtr, "\5abc"),
      record(name("a"), kTypePtr, "\xC0"),
      record(name("a"), kTypeSrv, "abc"),
      record(name("a"), kTypeTxt, "\4abc"),
      record(name("a"), kTypeNsec, name("a")),
      record(name("a"), kTypeNsec, name("a") + std::string("\0\x21", 2) + std::string(33, '\1')),
      record(name("a"), 65280, ""),
  };
  for (const std::string& each : bad) {
    const Message message =
        read_answers(3, record(name("b"), kTypeA, kAddress) + each + record(name("c"), kTypeA, kAddress));
    EXPECT_THAT(message.answers, ElementsAre(Field(&Record::name, name("b")), Field(&Record::name, name("c"))))
        << ::testing::PrintToString(each);
  }
}

TEST(ReadMessage, LeavesOutOtherClassesAndPseudoRecords) {
  std::string answers;
  for (const unsigned klass : {0u, 3u, 254u, 255u, 0x80FFu}) {
    answers += record(name("a"), kTypeA, kAddress, klass);
  }
  for (const unsigned type : {41u, 128u, 250u, 255u}) {
    answers += record(name("a"), type, kAddress);
  }
  answers += record(name("b"), 127, kAddress) + record(name("b"), 256, kAddress);
  EXPECT_THAT(read_answers(11, answers).answers, ElementsAre(Field(&Record::type, 127), Field(&Record::type, 256)));
}

TEST(ReadMessage, TakesATxtWithoutRdataForOneEmptyString) {
  EXPECT_THAT(rdata_of(read_answers(1, record(name("a"), kTypeTxt, ""))), ElementsAre(std::string(1, '\0')));
}

TEST(ReadMessage, EndsAtARecordThatIsNotWholeAndKeepsWhatStoodBefore) {
  const std::string first = record(name("a"), kTypeA, kAddress);
  const std::string second = record(name("b"), kTypeSrv, srv(631, "b"));
  for (std::size_t size = 0; size <= second.size(); ++size) {
    const Message message = read_answers(2, first + second.substr(0, size));
    EXPECT_THAT(message.answers, SizeIs(size == second.size() ? 2 : 1)) << size;
  }
}

TEST(ReadMessage, ReservesNoMoreThanTheMessageMayHold) {
  const std::string packet = header(kResponse, {.answers = 0xFFFF}) + record(name("a"), kTypeA, kAddress);
  const std::optional<Message> message = read_message(bytes(packet));
  ASSERT_TRUE(message.has_value());
  EXPECT_THAT(message->answers, SizeIs(1));
  EXPECT_LE(message->answers.capacity(), 2u);
}

TEST(ReadMessage, RefusesPointersThatDoNotLeadBackwards) {
  const std::string first = record(name("a.b"), kTypeA, kAddress);
  const std::size_t second = kBody + first.size();
  const std::string owners[] = {
      pointer(second),               // to itself
      pointer(second + 2),           // forwards
      label("x") + pointer(second),  // to the name's own beginning
      label("x") + pointer(second + 1),
      pointer(0x3FFF),  // beyond the message
      pointer(4),       // into the header
      "\x40" + std::string(64, 'x') + '\0',
      "\x80" + std::string(64, 'x') + '\0',
  };
  for (const std::string& owner : owners) {
    EXPECT_THAT(read_answers(2, first + record(owner, kTypeA, kAddress)).answers, SizeIs(1))
        << ::testing::PrintToString(owner);
  }
  EXPECT_THAT(read_answers(2, first + record(pointer(kBody + 2), kTypeA, kAddress)).answers, SizeIs(2));
}

// The label that the pointer leads to reaches into the name with the pointer.
TEST(ReadMessage, RefusesANameThatRunsIntoItself) {
  const std::string first = record(name("a"), 65280, "\5\1");
  const std::string second = record(pointer(kBody + first.size() - 2), kTypeA, kAddress);
  EXPECT_THAT(read_answers(2, first + second).answers, SizeIs(1));
}

TEST(ReadMessage, ReadsNamesOf256BytesAndNotOfMore) {
  const std::string labels = label(std::string(63, 'a')) + label(std::string(63, 'b')) + label(std::string(63, 'c'));
  const std::string most = labels + label(std::string(62, 'd')) + '\0';
  ASSERT_EQ(most.size(), kNameMax);
  EXPECT_THAT(read_answers(1, record(most, kTypeA, kAddress)).answers, ElementsAre(Field(&Record::name, most)));
  EXPECT_THAT(read_answers(1, record(labels + label(std::string(63, 'd')) + '\0', kTypeA, kAddress)).answers,
              IsEmpty());
  const std::string folded = label("x") + pointer(kBody);
  EXPECT_THAT(read_answers(2, record(most, kTypeA, kAddress) + record(folded, kTypeA, kAddress)).answers, SizeIs(1));
}

TEST(ReadMessage, StopsWhenCompressionUnfoldsToFarMoreThanTheMessage) {
  const std::string longest = label(std::string(63, 'a')) + label(std::string(63, 'b')) + label(std::string(63, 'c')) +
                              label(std::string(62, 'd')) + '\0';
  const std::string root(1, '\0');
  for (const std::string& owner : {pointer(kBody), root}) {
    const unsigned count = 1500;
    std::string answers = record(longest, kTypeA, kAddress);
    for (unsigned i = 2; i < count; ++i) {
      answers += record(owner, kTypePtr, pointer(kBody));
    }
    answers += record(root, kTypeA, kAddress);
    const Message message = read_answers(count, answers);
    std::size_t unfolded = 0;
    for (const Record& each : message.answers) {
      unfolded += each.name.size() + (each.type == kTypePtr ? each.rdata.size() : 0);
    }
    EXPECT_LE(unfolded, 16 * (kBody + answers.size()) + 512);
    EXPECT_LT(message.answers.size(), count);
    EXPECT_EQ(message.answers.back().type, kTypePtr) << "nothing is read behind the end";
  }
}

TEST(ReadMessage, StopsWhenPointersLeadThroughTooManyOthers) {
  std::string chain = "\1a" + std::string(1, '\0');
  const std::size_t chain_begin = kBody + 11;  // behind the header of the record that holds it
  for (std::size_t i = 0; i < 2000; ++i) {
    const std::size_t last = chain_begin + (i == 0 ? 0 : 3 + 2 * (i - 1));
    chain += pointer(last);
  }
  const std::size_t chain_end = chain_begin + chain.size() - 2;
  std::string answers = record(std::string(1, '\0'), 65280, chain);
  for (int i = 0; i < 1000; ++i) {
    answers += record(pointer(chain_end), kTypeA, kAddress);
  }
  const std::size_t read = read_answers(1001, answers).answers.size();
  EXPECT_GT(read, 2u);    // a chain is no mistake
  EXPECT_LT(read, 100u);  // but costs what it takes to follow it
}

TEST(ReadMessage, ReadsADenseMessageOfLongNamesInFull) {
  const std::string service = name("a-rather-long-service-name-for-a-printer._ipp._tcp.local");
  std::string answers = record(service, kTypeTxt, label("a"));
  unsigned count = 1;
  for (; answers.size() < 8800; ++count) {
    answers += record(pointer(kBody), kTypeSrv, std::string(6, '\0') + pointer(kBody));
  }
  EXPECT_THAT(read_answers(count, answers).answers, SizeIs(count));
}

}  // namespace
}  // namespace mdns
