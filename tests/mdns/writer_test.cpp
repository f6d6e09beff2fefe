// SPDX-License-Identifier: MIT
#include "mdns/wire/writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mdns/wire/reader.h"
#include "support/wire.h"

namespace mdns {
namespace {

using ::testing::SizeIs;
using wire::header;
using wire::label;
using wire::name;
using wire::number16;
using wire::pointer;
using wire::record;
using wire::srv;
using wire::text;

constexpr unsigned kResponse = 0x8400;
constexpr std::size_t kBody = 12;
const std::string kAddress = "\1\2\3\4";

struct WriterTest : ::testing::Test {
  bool add(const std::string& owner, std::uint16_t type, const std::string& rdata, Section section = Section::answers) {
    return writer_add_record(writer, section, owner, type, 120, false, rdata);
  }

  Writer writer = writer_new(true);
};

TEST_F(WriterTest, BeginsWithNothing) {
  EXPECT_TRUE(writer_is_empty(writer));
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {}));
  writer = writer_new(false, 4711);
  writer_set_truncated(writer);
  EXPECT_EQ(text(writer_take(writer)), header(0x200, {}, 4711));
}

TEST_F(WriterTest, WritesQuestionsAndRecordsWithTheirFlags) {
  writer = writer_new(false);
  EXPECT_TRUE(writer_add_question(writer, name("a"), kTypeAny, true));
  EXPECT_TRUE(writer_add_question(writer, name("b"), kTypeA, false));
  EXPECT_FALSE(writer_is_empty(writer));
  EXPECT_TRUE(writer_add_record(writer, Section::authorities, name("c"), kTypeA, 0x12345678, true, kAddress));
  EXPECT_TRUE(add(name("d"), kTypeA, kAddress, Section::additionals));
  EXPECT_EQ(text(writer_take(writer)), header(0, {.questions = 2, .authorities = 1, .additionals = 1}) + name("a") +
                                           number16(255) + number16(0x8001) + name("b") + number16(1) + number16(1) +
                                           record(name("c"), kTypeA, kAddress, 0x8001, 0x12345678) +
                                           record(name("d"), kTypeA, kAddress));
}

TEST_F(WriterTest, PointsToTheLongestNameThatIsThere) {
  add(name("_ipp._tcp.local"), kTypePtr, name("x._ipp._tcp.local"));
  add(name("x._ipp._tcp.local"), kTypeSrv, srv(631, "host.local"));
  add(name("host.local"), kTypeA, kAddress);
  add(name("y.host.local"), kTypeA, kAddress);
  const std::size_t x = kBody + name("_ipp._tcp.local").size() + 10;
  const std::string first = record(name("_ipp._tcp.local"), kTypePtr, label("x") + pointer(kBody));
  const std::string second =
      record(pointer(x), kTypeSrv, srv(631, "").substr(0, 6) + label("host") + pointer(kBody + 10));
  const std::size_t host = kBody + first.size() + 2 + 10 + 6;
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 4}) + first + second +
                                           record(pointer(host), kTypeA, kAddress) +
                                           record(label("y") + pointer(host), kTypeA, kAddress));
}

TEST_F(WriterTest, CompressesNamesInRdataOfEveryTypeThatHasThem) {
  const std::pair<std::uint16_t, std::string> all[] = {
      {kTypeNs, ""},   {kTypeCname, ""}, {kTypePtr, ""},     {kTypeDname, ""},     {kTypeMx, "ab"},
      {kTypeRt, "ab"}, {kTypeKx, "ab"},  {kTypeAfsdb, "ab"}, {kTypeSrv, "abcdef"},
  };
  for (const auto& [type, head] : all) {
    writer = writer_new(true);
    add(name("a.local"), type, head + name("a.local"));
    EXPECT_EQ(text(writer_take(writer)),
              header(kResponse, {.answers = 1}) + record(name("a.local"), type, head + pointer(kBody)))
        << type;
  }
  writer = writer_new(true);
  add(name("a.local"), kTypeNsec, name("a.local") + std::string("\0\1\x40", 3));
  add(name("a.local"), kTypeSoa, name("a.local") + name("local") + std::string(20, '\7'));
  EXPECT_EQ(text(writer_take(writer)),
            header(kResponse, {.answers = 2}) +
                record(name("a.local"), kTypeNsec, pointer(kBody) + std::string("\0\1\x40", 3)) +
                record(pointer(kBody), kTypeSoa, pointer(kBody) + pointer(kBody + 2) + std::string(20, '\7')));
}

TEST_F(WriterTest, LeavesTheTargetOfSrvAsItIsWhenItIsToBe) {
  writer.compresses_srv = false;
  add(name("a.local"), kTypeSrv, srv(631, "a.local"));
  add(name("a.local"), kTypePtr, name("a.local"));
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 2}) +
                                           record(name("a.local"), kTypeSrv, srv(631, "a.local")) +
                                           record(pointer(kBody), kTypePtr, pointer(kBody)));
}

TEST_F(WriterTest, KeepsTheCaseOfNames) {
  add(name("a.local"), kTypePtr, name("A.local"));
  EXPECT_EQ(text(writer_take(writer)),
            header(kResponse, {.answers = 1}) + record(name("a.local"), kTypePtr, label("A") + pointer(kBody + 2)));
}

TEST_F(WriterTest, WritesTheRootWithoutAPointer) {
  add(name(""), kTypePtr, name(""));
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 1}) + record(name(""), kTypePtr, name("")));
}

// All labels are the same: the writer must not point to a name that is not written yet.
TEST_F(WriterTest, WritesNamesThatRepeatTheirOwnLabels) {
  add(name("a.a.a.a"), kTypePtr, name("a.a.a.a.a"));
  add(name("a.a"), kTypeA, kAddress);
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 2}) +
                                           record(name("a.a.a.a"), kTypePtr, label("a") + pointer(kBody)) +
                                           record(pointer(kBody + 4), kTypeA, kAddress));
}

TEST_F(WriterTest, LeavesTheMessageAsItWasWhenThereIsNoRoom) {
  writer.max = 100;
  EXPECT_TRUE(add(name("a.local"), kTypeA, kAddress));
  const std::vector<std::uint8_t> before = writer.bytes;
  EXPECT_FALSE(add(name("b.host.local"), kTypeTxt, label(std::string(60, 'x')), Section::additionals));
  EXPECT_EQ(writer.bytes, before);
  EXPECT_EQ(writer.section, Section::answers);
  EXPECT_TRUE(add(name("c.host.local"), kTypeA, kAddress));
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 2}) + record(name("a.local"), kTypeA, kAddress) +
                                           record(label("c") + label("host") + pointer(kBody + 2), kTypeA, kAddress))
      << "names that were taken back are not pointed to";
}

TEST_F(WriterTest, FillsTheMessageToItsLastByte) {
  writer.max = kBody + 2 * 17;
  EXPECT_TRUE(add(name("a"), kTypeA, kAddress));
  EXPECT_TRUE(add(name("b"), kTypeA, kAddress));
  EXPECT_FALSE(add(name("c"), kTypeA, kAddress));
  EXPECT_EQ(writer.bytes.size(), writer.max);
}

TEST_F(WriterTest, RefusesAQuestionWithoutRoom) {
  writer.max = kBody + 7;
  EXPECT_TRUE(writer_add_question(writer, name("a"), kTypeA, false));
  EXPECT_FALSE(writer_add_question(writer, name("a"), kTypeA, false));
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.questions = 1}) + name("a") + number16(1) + number16(1));
}

TEST_F(WriterTest, LetsASingleLargeRecordGoAlone) {
  const std::string large(kLargeDatagramMax - kBody - 13, 'x');
  EXPECT_FALSE(add(name("a"), 65280, large + 'x'));
  EXPECT_TRUE(writer_is_empty(writer));
  EXPECT_TRUE(add(name("a"), 65280, large));
  EXPECT_FALSE(add(name("a"), kTypeA, kAddress));
  EXPECT_EQ(writer_take(writer).size(), kLargeDatagramMax);
}

TEST_F(WriterTest, RefusesALargeRecordBehindAnother) {
  EXPECT_TRUE(add(name("a"), kTypeA, kAddress));
  EXPECT_FALSE(add(name("a"), 65280, std::string(2000, 'x')));
}

TEST_F(WriterTest, RefusesRecordsOfAnyLength) {
  EXPECT_FALSE(add(name("a"), 65280, std::string(65536 + 4, 'x')));
  EXPECT_TRUE(writer_is_empty(writer));
}

// More names than Writer::names has room for: those that are not in it are written in full.
TEST_F(WriterTest, WritesMoreNamesThanItRemembers) {
  writer.max = 1 << 20;
  const int count = 5000;
  for (int i = 0; i < count; ++i) {
    ASSERT_TRUE(add(name("n" + std::to_string(i) + ".local"), kTypePtr, name("n" + std::to_string(i / 2) + ".local")));
  }
  const std::vector<std::uint8_t> bytes = writer_take(writer);
  const Message message = *read_message(bytes);
  ASSERT_THAT(message.answers, SizeIs(count));
  for (int i = 0; i < count; ++i) {
    const Record& each = message.answers[static_cast<std::size_t>(i)];
    ASSERT_EQ(each.name, name("n" + std::to_string(i) + ".local"));
    ASSERT_EQ(each.rdata, name("n" + std::to_string(i / 2) + ".local"));
  }
}

TEST_F(WriterTest, WritesInFullWhatPointersDoNotReach) {
  writer.max = 1 << 20;
  const std::string filler(17'000, 'x');
  add(name("a"), kTypeA, kAddress);
  for (const std::string& rdata : {filler, kAddress, kAddress}) {
    ASSERT_TRUE(add(name("b"), 65280, rdata) && add(name("far"), kTypeCname, name("far")));
  }
  const std::string near = record(pointer(kBody + 17), 65280, kAddress);
  const std::string far = record(name("far"), kTypeCname, name("far"));
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 7}) + record(name("a"), kTypeA, kAddress) +
                                           record(name("b"), 65280, filler) + far + near + far + near + far);
}

TEST_F(WriterTest, BeginsAgainWithoutTheNamesOfTheLastMessage) {
  add(name("a.local"), kTypeA, kAddress);
  writer_take(writer);
  EXPECT_THAT(writer.names, ::testing::Each(0));
  add(name("a.local"), kTypeA, kAddress);
  EXPECT_EQ(text(writer_take(writer)), header(kResponse, {.answers = 1}) + record(name("a.local"), kTypeA, kAddress));
}

}  // namespace
}  // namespace mdns
