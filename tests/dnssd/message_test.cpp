// SPDX-License-Identifier: MIT
#include "dnssd/message.h"

#include <gtest/gtest.h>

#include "dnssd/operations.h"

namespace dnssd {
namespace {

// A record for the time of one test.
class Made {
 public:
  Made(const std::string& name, std::uint16_t rrtype, const std::string& rdata)
      : record_(record_from_rdata(name, rrtype, rdata, 0)) {}
  ~Made() {
    if (record_ != nullptr)
      avahi_record_unref(record_);
  }
  Made(const Made&) = delete;
  Made& operator=(const Made&) = delete;
  AvahiRecord& operator*() { return *record_; }
  bool is_none() const { return record_ == nullptr; }

 private:
  AvahiRecord* record_;
};

const std::string kTarget("\1p\4_ipp\4_tcp\5local\0", 19);

TEST(Message, IsAnAuthoritativeResponseWithIdZero) { EXPECT_EQ(Message().bytes, std::string("\0\0\x84\0\0\0\0\0\0\0\0\0", 12)); }

TEST(Message, HoldsARecordWithItsTtlAndNoCacheFlushBit) {
  Message message;
  Made record("h.local", 1, "\x0a\1\2\3");
  ASSERT_TRUE(message_add(message, *record, 120, false));
  EXPECT_EQ(message.bytes.substr(4, 4), std::string("\0\0\0\1", 4));
  EXPECT_EQ(message.bytes.substr(12), std::string("\1h\5local\0\0\1\0\1\0\0\0\x78\0\4\x0a\1\2\3", 23));
}

TEST(Message, SetsTheCacheFlushBitOfAUniqueRecord) {
  Message message;
  Made record("h.local", 1, "\x0a\1\2\3");
  message_add(message, *record, 0, true);
  EXPECT_EQ(message.bytes.substr(12 + 9, 8), std::string("\0\1\x80\1\0\0\0\0", 8));
}

TEST(Message, PointsAtNamesThatItHasAlready) {
  Message message;
  Made pointer("_ipp._tcp.local", 12, kTarget);
  message_add(message, *pointer, 4500, false);
  // The target is a new label and a pointer to the owner's name, which stands behind the header.
  EXPECT_EQ(message.bytes.substr(message.bytes.size() - 6), std::string("\0\4\1p\xC0\x0C", 6));
  Made txt("p._ipp._tcp.local", 16, std::string("\1a"));
  const std::size_t size = message.bytes.size();
  message_add(message, *txt, 4500, true);
  EXPECT_EQ(message.bytes.size() - size, 2u + 8 + 2 + 2);
}

TEST(Message, RefusesWhatWouldNotFitIntoAFrameAndStaysAsItWas) {
  Message message;
  std::string long_txt;
  for (int i = 0; i < 5; ++i)
    long_txt += '\xff' + std::string(255, 'x');
  Made first("a.local", 16, long_txt);
  Made second("b.local", 16, long_txt);
  ASSERT_TRUE(message_add(message, *first, 120, true));
  const std::string before = message.bytes;
  EXPECT_FALSE(message_add(message, *second, 120, true));
  EXPECT_EQ(message.bytes, before);
  EXPECT_EQ(message.names.count("b.local."), 0u);
}

TEST(Message, ByItselfARecordMayBeLargerThanAFrame) {
  std::string long_txt;
  for (int i = 0; i < 20; ++i)
    long_txt += '\xff' + std::string(255, 'x');
  Message message;
  Made record("a.local", 16, long_txt);
  EXPECT_TRUE(message_add(message, *record, 120, true));
}

TEST(MessageQuery, AsksAndSaysWhatIsKnown) {
  Message message = message_query();
  EXPECT_EQ(message.bytes, std::string(12, '\0'));
  message_ask(message, Name{{"_ipp", "_tcp", "local"}}, 12);
  const std::string asked = message.bytes;
  EXPECT_EQ(asked, std::string("\0\0\0\0\0\1\0\0\0\0\0\0\4_ipp\4_tcp\5local\0\0\x0c\0\1", 33));
  Made pointer("_ipp._tcp.local", 12, kTarget);
  ASSERT_TRUE(message_add(message, *pointer, 4500, false));
  EXPECT_EQ(message.bytes.substr(4, 4), std::string("\0\1\0\1", 4));
  EXPECT_EQ(message.bytes.substr(asked.size()), std::string("\xC0\x0C\0\x0c\0\1\0\0\x11\x94\0\4\1p\xC0\x0C", 16));
}

TEST(MessageQuery, CountsItsQuestions) {
  Message message = message_query();
  message_ask(message, Name{{"a", "local"}}, 12);
  message_ask(message, Name{{"b", "local"}}, 16);
  EXPECT_EQ(message.bytes.substr(4, 2), std::string("\0\2", 2));
  EXPECT_EQ(message.bytes.substr(12 + 13), std::string("\1b\xC0\x0E\0\x10\0\1", 8));
}

TEST(MessageQuery, HasRoomForAsManyQuestionsAsOneFrame) {
  Message message = message_query();
  std::string before;
  unsigned asked = 0;
  do {
    before = message.bytes;
    ASSERT_LT(++asked, 1000U);
  } while (message_ask(message, Name{{"_type-" + std::to_string(asked), "_tcp", "local"}}, 12));
  EXPECT_EQ(message.bytes, before);
  EXPECT_EQ(message.questions, asked - 1);
  EXPECT_GT(message.bytes.size(), 1400U);
  EXPECT_LE(message.bytes.size(), 1440U);
  // What was not written cannot be pointed at.
  EXPECT_FALSE(message.names.contains(name_to_text(Name{{"_type-" + std::to_string(asked), "_tcp", "local"}})));
}

TEST(MessageQuery, SaysThatMoreFollowsAndNothingElse) {
  Message message = message_query();
  message_ask(message, Name{{"a", "local"}}, 12);
  std::string expected = message.bytes;
  expected[2] = '\2';
  message_continues(message);
  EXPECT_EQ(message.bytes, expected);
}

TEST(RecordFromRdata, RefusesRdataThatIsNoneOfItsType) {
  const std::string name = "h.local";
  EXPECT_TRUE(Made(name, 1, "\1\2\3").is_none());
  EXPECT_TRUE(Made(name, 28, "\1\2\3\4").is_none());
  EXPECT_TRUE(Made(name, 12, "\xC0\x0C").is_none());
  EXPECT_TRUE(Made(name, 12, std::string("\5ab\0", 4)).is_none());
  EXPECT_TRUE(Made(name, 33, std::string("\0\0\0\0\0\1", 6)).is_none());
  EXPECT_TRUE(Made(name, 16, "\5ab").is_none());
  EXPECT_TRUE(Made(name, 16, "").is_none());
  EXPECT_TRUE(Made(name, 13, "\1a").is_none());
  EXPECT_TRUE(Made(name, 65280, std::string(9000, 'x')).is_none());
}

TEST(RecordFromRdata, ComesBackByteForByte) {
  const std::string srv = std::string("\0\0\0\0\2\x77", 6) + kTarget;
  struct {
    std::uint16_t rrtype;
    std::string rdata;
  } const cases[] = {
      {1, "\x0a\1\2\3"},   {28, std::string(16, '\7')}, {12, kTarget}, {33, srv}, {16, "\3a=b\1c"}, {13, "\1a\2bc"},
      {65280, "anything"}, {16, std::string(1, '\0')}};
  for (const auto& [rrtype, rdata] : cases) {
    Made record("h.local", rrtype, rdata);
    ASSERT_FALSE(record.is_none()) << rrtype;
    EXPECT_EQ(rdata_of(*record), rdata) << rrtype;
  }
}

TEST(UsualTtl, IsShortForWhatNamesAHost) {
  for (const int rrtype : {1, 28, 33, 13})
    EXPECT_EQ(usual_ttl("h.local", static_cast<std::uint16_t>(rrtype)), 120u);
  EXPECT_EQ(usual_ttl("_ipp._tcp.local", 12), 4500u);
  EXPECT_EQ(usual_ttl("1.0.9.10.in-addr.arpa", 12), 120u);
  EXPECT_EQ(usual_ttl("1.0.0.F.ip6.ARPA", 12), 120u);
  EXPECT_EQ(usual_ttl("h.local", 16), 4500u);
}

}  // namespace
}  // namespace dnssd
