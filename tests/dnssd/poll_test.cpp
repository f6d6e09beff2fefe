// SPDX-License-Identifier: MIT
// The epoll descriptor: when it is readable, and whom it calls.
#include "dnssd/base/poll.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <fcntl.h>
#include <cerrno>

namespace dnssd {
namespace {

constexpr int kPatience = 10'000;  // milliseconds; what has not come by then never will

class PollTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(poll_open(poll_)); }
  void TearDown() override { poll_close(poll_); }

  bool IsReadable(int timeout = 0) const {
    pollfd one{poll_.epoll_fd, POLLIN, 0};
    return poll(&one, 1, timeout) == 1;
  }

  Watch watches_[50];  // the poll is closed before they go

  // A watch on an eventfd that is readable.
  void AddReadable(Watch& watch) {
    watch = {eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK), [](void* context) { ++*static_cast<int*>(context); }, &calls_};
    ASSERT_TRUE(poll_add(poll_, watch));
  }

  Poll poll_;
  int calls_ = 0;
};

TEST_F(PollTest, WithNothingToDoItIsNotReadable) {
  poll_arm(poll_, mdns::kNever);
  EXPECT_FALSE(IsReadable());
}

TEST_F(PollTest, ItIsReadableAtTheDeadlineAndNotBefore) {
  const mdns::Time deadline = monotonic_now() + 20 * mdns::kMillisecond;
  poll_arm(poll_, deadline);
  ASSERT_TRUE(IsReadable(kPatience));
  EXPECT_GE(monotonic_now(), deadline);
  EXPECT_TRUE(poll_dispatch(poll_));
  EXPECT_FALSE(IsReadable());
}

TEST_F(PollTest, ADeadlineMayBeTakenBack) {
  poll_arm(poll_, monotonic_now() + 3600 * mdns::kSecond);
  poll_arm(poll_, mdns::kNever);
  poll_arm(poll_, monotonic_now() - 3600 * mdns::kSecond);
  EXPECT_TRUE(IsReadable(kPatience));
}

TEST_F(PollTest, TheSameDeadlineFiresAgain) {
  for (int i = 0; i < 3; ++i) {
    poll_arm(poll_, 1);
    ASSERT_TRUE(IsReadable(kPatience));
    ASSERT_TRUE(poll_dispatch(poll_));
  }
}

TEST_F(PollTest, WithMoreToDoItIsReadableUntilTheNextPass) {
  poll_arm(poll_, 0);
  poll_arm(poll_, 0);
  EXPECT_TRUE(IsReadable());
  EXPECT_TRUE(poll_dispatch(poll_));
  EXPECT_FALSE(IsReadable());
}

TEST_F(PollTest, EachReadableDescriptorGetsItsTurn) {
  int calls[50] = {};
  for (std::size_t i = 0; i < 50; ++i) {
    AddReadable(watches_[i]);
    watches_[i].context = &calls[i];
  }
  for (int pass = 0; pass < 50; ++pass) {
    ASSERT_TRUE(poll_dispatch(poll_));
  }
  for (const int count : calls) {
    EXPECT_GT(count, 0);
  }
}

TEST_F(PollTest, AWatchThatWasRemovedIsCalledNoMoreAndIsClosed) {
  Watch watch;
  AddReadable(watch);
  const int fd = watch.fd;
  poll_remove(poll_, watch);
  poll_remove(poll_, watch);
  EXPECT_TRUE(poll_dispatch(poll_));
  EXPECT_EQ(calls_, 0);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(PollTest, ADescriptorThatSomebodyClosedIsNoticed) {
  close(poll_.epoll_fd);
  EXPECT_FALSE(poll_dispatch(poll_));
}

}  // namespace
}  // namespace dnssd
