// SPDX-License-Identifier: MIT
#include "dnssd/told_records.h"

#include <avahi-common/defs.h>
#include <gtest/gtest.h>

namespace dnssd {
namespace {

// A host's address, of which the test holds one reference.
class Address {
 public:
  explicit Address(unsigned last) : record_(avahi_record_new_full("host.local", AVAHI_DNS_CLASS_IN, AVAHI_DNS_TYPE_A, 120)) {
    record_->data.a.address.address = last;
  }
  ~Address() { avahi_record_unref(record_); }
  Address(const Address&) = delete;
  Address& operator=(const Address&) = delete;

  operator AvahiRecord*() const { return record_; }
  int References() const { return record_->ref; }

 private:
  AvahiRecord* record_;
};

class ToldRecordsTest : public testing::Test {
 protected:
  ~ToldRecordsTest() override { told_forget(told_); }

  // Which address had to leave for it; 0: none.
  unsigned Add(AvahiProtocol protocol, unsigned last) {
    const std::optional<ToldRecord> gone = told_add(told_, protocol, Address(last));
    if (!gone) {
      return 0;
    }
    EXPECT_EQ(gone->protocol, protocol);
    const unsigned left = gone->record->data.a.address.address;
    avahi_record_unref(gone->record);
    return left;
  }

  void FillIpv4() {
    for (unsigned last = 1; last <= kToldMax; ++last) {
      EXPECT_FALSE(told_is_full(told_, AVAHI_PROTO_INET));
      EXPECT_EQ(Add(AVAHI_PROTO_INET, last), 0U);
    }
    EXPECT_TRUE(told_is_full(told_, AVAHI_PROTO_INET));
  }

  ToldRecords told_;
};

TEST_F(ToldRecordsTest, EachIsKnownOverTheProtocolThatHasIt) {
  Add(AVAHI_PROTO_INET, 1);
  EXPECT_TRUE(told_confirm(told_, AVAHI_PROTO_INET, Address(1)));
  EXPECT_FALSE(told_confirm(told_, AVAHI_PROTO_INET6, Address(1)));
  EXPECT_FALSE(told_remove(told_, AVAHI_PROTO_INET6, Address(1)));
  EXPECT_TRUE(told_remove(told_, AVAHI_PROTO_INET, Address(1)));
  EXPECT_TRUE(told_.empty());
}

TEST_F(ToldRecordsTest, TheOldestLeavesForOneTooMany) {
  FillIpv4();
  EXPECT_EQ(Add(AVAHI_PROTO_INET, 100), 1U);
  EXPECT_EQ(Add(AVAHI_PROTO_INET, 101), 2U);
  EXPECT_EQ(told_.size(), kToldMax);
}

TEST_F(ToldRecordsTest, OneThatIsNotConfirmedLeavesFirst) {
  FillIpv4();
  told_doubt(told_);
  for (unsigned last = 1; last <= kToldMax; ++last) {
    if (last != 7) {
      EXPECT_TRUE(told_confirm(told_, AVAHI_PROTO_INET, Address(last)));
    }
  }
  EXPECT_EQ(Add(AVAHI_PROTO_INET, 100), 7U);
}

TEST_F(ToldRecordsTest, TheOtherProtocolHasRoomOfItsOwn) {
  FillIpv4();
  EXPECT_FALSE(told_is_full(told_, AVAHI_PROTO_INET6));
  EXPECT_EQ(Add(AVAHI_PROTO_INET6, 1), 0U);
  EXPECT_EQ(told_.size(), kToldMax + 1);
}

TEST_F(ToldRecordsTest, WhatIsNotConfirmedIsTakenOut) {
  Add(AVAHI_PROTO_INET, 1);
  Add(AVAHI_PROTO_INET, 2);
  told_doubt(told_);
  told_confirm(told_, AVAHI_PROTO_INET, Address(2));
  ToldRecords gone = told_take_unconfirmed(told_);
  ASSERT_EQ(gone.size(), 1U);
  EXPECT_EQ(gone[0].record->data.a.address.address, 1U);
  EXPECT_EQ(told_.size(), 1U);
  told_forget(gone);
}

TEST_F(ToldRecordsTest, OneReferenceIsHeldAndGivenBack) {
  const Address address(1);
  told_add(told_, AVAHI_PROTO_INET, address);
  EXPECT_EQ(address.References(), 2);
  told_confirm(told_, AVAHI_PROTO_INET, address);
  EXPECT_EQ(address.References(), 2);
  told_forget(told_);
  EXPECT_EQ(address.References(), 1);
}

}  // namespace
}  // namespace dnssd
