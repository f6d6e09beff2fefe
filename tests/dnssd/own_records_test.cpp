// SPDX-License-Identifier: MIT
#include "dnssd/own_records.h"

#include <gtest/gtest.h>

#include <string>

#include "dnssd/message.h"
#include "dnssd/operations.h"
#include "dnssd/stopped_clock.h"

namespace dnssd {
namespace {

constexpr std::int64_t kTenSeconds = 10'000'000;  // microseconds

const std::string kInstance("\1p\4_ipp\4_tcp\5local\0", 19);
const std::string kShoutedInstance("\1P\4_IPP\4_tcp\5LOCAL\0", 19);
const std::string kTarget("\0\0\0\0\2\x77\1h\5local\0", 15);

class OwnRecordsTest : public testing::Test {
 protected:
  ~OwnRecordsTest() override {
    for (AvahiRecord* record : made_) {
      avahi_record_unref(record);
    }
  }

  AvahiRecord& Record(const std::string& name, std::uint16_t rrtype, const std::string& rdata) {
    made_.push_back(record_from_rdata(name, rrtype, rdata, 0));
    EXPECT_NE(made_.back(), nullptr);
    return *made_.back();
  }
  AvahiRecord& Pointer(const std::string& target) { return Record("_ipp._tcp.local", 12, target); }
  AvahiRecord& Address(char last) { return Record("h.local", 1, std::string("\x0a\1\1") + last); }

  bool Say(const std::string& bytes) const {
    return own_records_say(own_, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
  static std::string Response(std::initializer_list<AvahiRecord*> records, std::uint32_t ttl) {
    Message message;
    for (AvahiRecord* record : records) {
      EXPECT_TRUE(message_add(message, *record, ttl == 1 ? record->ttl : ttl, record->key->type != 12));
    }
    return message.bytes;
  }
  // Each with its own lifetime.
  static std::string Response(std::initializer_list<AvahiRecord*> records) { return Response(records, 1); }

  StoppedClock clock_;
  OwnRecords own_;

 private:
  std::vector<AvahiRecord*> made_;
};

TEST_F(OwnRecordsTest, SayWhatIsPublishedHoweverItIsCompressedAndSpelled) {
  AvahiRecord& pointer = Pointer(kInstance);
  AvahiRecord& service = Record("p._ipp._tcp.local", 33, kTarget);
  AvahiRecord& address = Address(1);
  own_records_add(own_, pointer);
  own_records_add(own_, service);
  own_records_add(own_, address);
  EXPECT_TRUE(Say(Response({&pointer, &service, &address})));
  EXPECT_TRUE(Say(Response({&address, &pointer})));
  EXPECT_TRUE(Say(Response({&Record("_IPP._tcp.local", 12, kShoutedInstance)})));
}

TEST_F(OwnRecordsTest, DoNotSayAnythingElse) {
  AvahiRecord& address = Address(1);
  EXPECT_FALSE(Say(Response({&address})));
  own_records_add(own_, address);
  EXPECT_FALSE(Say(Response({&Address(2)})));
  EXPECT_FALSE(Say(Response({&address, &Address(2)})));
  EXPECT_FALSE(Say(Response({&Record("g.local", 1, "\x0a\1\1\1")})));
  EXPECT_FALSE(Say(Response({&Record("h.local", 16, std::string("\3\x0a\1\1"))})));
}

TEST_F(OwnRecordsTest, TellWhatIsPublishedAgainAfterItsWithdrawal) {
  AvahiRecord& address = Address(1);
  EXPECT_FALSE(own_records_add(own_, address));
  EXPECT_FALSE(own_records_add(own_, address));
  own_records_remove(own_, address);
  EXPECT_FALSE(own_records_add(own_, address));
  own_records_remove(own_, address);
  own_records_remove(own_, address);
  EXPECT_TRUE(own_records_add(own_, address));
  EXPECT_FALSE(own_records_add(own_, Address(2)));
}

TEST_F(OwnRecordsTest, DoNotSayAGoodbyeOrAnotherLifetime) {
  AvahiRecord& address = Address(1);
  own_records_add(own_, address);
  EXPECT_FALSE(Say(Response({&address}, 0)));
  EXPECT_FALSE(Say(Response({&address}, 119)));
  EXPECT_TRUE(Say(Response({&address}, 120)));
}

TEST_F(OwnRecordsTest, DoNotSayAnotherClass) {
  AvahiRecord& address = Address(1);
  own_records_add(own_, address);
  std::string chaos = Response({&address});
  const std::size_t class_at = 12 + std::string("\1h\5local\0\0\1", 11).size();
  ASSERT_EQ(chaos.substr(class_at, 2), "\x80\1");
  chaos[class_at + 1] = 3;
  EXPECT_FALSE(Say(chaos));
}

TEST_F(OwnRecordsTest, DoNotSayAQuestionOrWhatIsNoMessage) {
  AvahiRecord& address = Address(1);
  own_records_add(own_, address);
  const std::string response = Response({&address});
  std::string query = response;
  query[2] = 0;
  EXPECT_FALSE(Say(query));
  std::string error = response;
  error[3] = 5;
  EXPECT_FALSE(Say(error));
  for (const std::size_t count_at : {5u, 9u}) {  // questions, authorities
    std::string more = response;
    more[count_at] = 1;
    EXPECT_FALSE(Say(more));
  }
  for (std::size_t length = 0; length < response.size(); ++length) {
    EXPECT_FALSE(Say(response.substr(0, length))) << length;
  }
  EXPECT_FALSE(Say(Message().bytes));
}

TEST_F(OwnRecordsTest, SayWhatSeveralPublishUntilTheLastHasGone) {
  AvahiRecord& address = Address(1);
  own_records_add(own_, address);
  own_records_add(own_, address);
  own_records_remove(own_, address);
  EXPECT_EQ(own_.withdrawn.size(), 0U);
  EXPECT_TRUE(Say(Response({&address})));
  own_records_remove(own_, address);
  EXPECT_EQ(own_.withdrawn.size(), 1U);
}

TEST_F(OwnRecordsTest, SayWhatWasWithdrawnForTenSecondsMore) {
  AvahiRecord& first = Address(1);
  own_records_add(own_, first);
  own_records_remove(own_, first);
  EXPECT_TRUE(Say(Response({&first})));
  clock_.Pass(kTenSeconds - 1);
  own_records_remove(own_, Address(2));
  EXPECT_TRUE(Say(Response({&first})));
  clock_.Pass(1);
  own_records_remove(own_, Address(2));
  EXPECT_FALSE(Say(Response({&first})));
  EXPECT_TRUE(own_.records.empty());
}

TEST_F(OwnRecordsTest, KeepWhatIsPublishedAgain) {
  AvahiRecord& address = Address(1);
  own_records_add(own_, address);
  own_records_remove(own_, address);
  own_records_add(own_, address);
  clock_.Pass(2 * kTenSeconds);
  own_records_remove(own_, Address(2));
  EXPECT_TRUE(Say(Response({&address})));
}

}  // namespace
}  // namespace dnssd
