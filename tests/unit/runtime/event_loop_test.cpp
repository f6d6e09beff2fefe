// SPDX-License-Identifier: MIT
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include "runtime/held_signals.h"
#include "unit/runtime/runtime_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* kStart = "HandleEvents(): START: else (NOT _DNS_SD_LIBDISPATCH)...\n";
constexpr const char* kServing = "HandleEvents(): result > 0...\n";
constexpr const char* kTimedOut = "HandleEvents(): result == 0, calling myTimerCallBack()...\n";

std::string LoopLine(int number, int max_loops) {
  return "HandleEvents(): LOOP: while (!stopNow): loop #" + std::to_string(number) +
         "  (max_loops = " + std::to_string(max_loops) + ")...\n";
}

class EventLoop : public RuntimeTest {
 protected:
  EventLoop() { fake_process::start(); }

  // Replies that wait at a connection; each is written down when it is delivered.
  void GivenReplies(DNSServiceRef connection, const std::string& name, int count) {
    for (int i = 0; i < count; ++i) {
      fake_dns_sd::post(connection, [this, name] {
        delivered_.push_back(name);
        return kDNSServiceErr_NoError;
      });
    }
  }
  void GivenSharedReplies(int count) { GivenReplies(gDNSServiceRef_Shared, "shared", count); }
  void GivenRecordReplies(int count) { GivenReplies(gDNSServiceRef_RegisterRecord, "records", count); }

  static void GivenReplyThatFails(DNSServiceRef connection, DNSServiceErrorType error) {
    fake_dns_sd::post(connection, [error] { return error; });
  }

  // Runs this many passes and comes back.
  static void Pass(int passes) { HandleEvents(passes + 1); }

  static std::vector<std::string> Waits() { return fake_process::calls_of("pselect"); }

  std::vector<std::string> delivered_;
};

}  // namespace

TEST_F(EventLoop, CountsItsPassesUpToTheMaximum) {
  fake_process::always("pselect", 0);
  HandleEvents(3);
  EXPECT_THAT(Messages(), ElementsAre(kStart, LoopLine(1, 3), kTimedOut, "myTimerCallBack(): START ...\n",
                                      LoopLine(2, 3), kTimedOut, "myTimerCallBack(): START ...\n"));
  EXPECT_THAT(Priorities(), ElementsAre(LOG_DEBUG));
}

TEST_F(EventLoop, ComesBackBeforeItsFirstWaitWithAMaximumOfOne) {
  HandleEvents(1);
  EXPECT_THAT(Messages(), ElementsAre(kStart));
  EXPECT_THAT(Waits(), IsEmpty());
}

TEST_F(EventLoop, HasNoBoundWithAMaximumOfZero) {
  fake_process::always("pselect", 0);
  int passes = 0;
  fake_process::on_call("pselect", [&] { stopNow = ++passes == 1000; });
  HandleEvents(0);
  EXPECT_EQ(passes, 1000);
  EXPECT_THAT(Messages(), Contains(LoopLine(1000, 0)));
}

TEST_F(EventLoop, EndsWhenItIsToStop) {
  stopNow = 1;
  HandleEvents(0);
  EXPECT_THAT(Messages(), ElementsAre(kStart));
}

TEST_F(EventLoop, ServesTheConnectionThatHasAReply) {
  GivenConnections();
  GivenRecordReplies(1);
  Pass(1);
  EXPECT_THAT(delivered_, ElementsAre("records"));
  EXPECT_THAT(Messages(), ElementsAre(kStart, LoopLine(1, 2), kServing));
}

TEST_F(EventLoop, ServesOneConnectionAPassTheSharedOneFirst) {
  GivenConnections();
  GivenSharedReplies(1);
  GivenRecordReplies(1);
  Pass(1);
  EXPECT_THAT(delivered_, ElementsAre("shared"));
  Pass(1);
  EXPECT_THAT(delivered_, ElementsAre("shared", "records"));
}

TEST_F(EventLoop, StarvesNeitherConnection) {
  GivenConnections();
  GivenSharedReplies(20);
  GivenRecordReplies(20);
  Pass(40);
  EXPECT_THAT(delivered_, SizeIs(40));
  EXPECT_EQ(stopNow, 0);
}

TEST_F(EventLoop, DoesWithoutAConnectionThatDoesNotExist) {
  GivenRegisterRecordConnection();
  GivenRecordReplies(1);
  Pass(1);
  EXPECT_THAT(delivered_, ElementsAre("records"));
  EXPECT_THAT(fake_dns_sd::calls("DNSServiceRefSockFD"), SizeIs(1));
}

TEST_F(EventLoop, WaitsForTheTimeoutAloneWithoutConnections) {
  fake_process::always("pselect", 0);
  Pass(1);
  EXPECT_THAT(Waits(), ElementsAre("pselect(0, {}, 100000000)"));
  EXPECT_THAT(fake_dns_sd::calls(), IsEmpty());
}

TEST_F(EventLoop, WatchesBothSocketsWhicheverIsGreater) {
  fake_process::always("pselect", 0);
  GivenConnections();
  const int shared = DNSServiceRefSockFD(gDNSServiceRef_Shared);
  const int records = DNSServiceRefSockFD(gDNSServiceRef_RegisterRecord);
  const auto [lower, higher] = std::minmax(shared, records);
  const std::string expected = "pselect(" + std::to_string(higher + 1) + ", {" + std::to_string(lower) + " " +
                               std::to_string(higher) + "}, 100000000)";
  Pass(1);
  std::swap(gDNSServiceRef_Shared, gDNSServiceRef_RegisterRecord);
  Pass(1);
  EXPECT_THAT(Waits(), ElementsAre(expected, expected));
}

TEST_F(EventLoop, AsksForTheSocketsOnceBeforeTheLoop) {
  fake_process::always("pselect", 0);
  GivenConnections();
  Pass(10);
  EXPECT_THAT(fake_dns_sd::calls("DNSServiceRefSockFD"), SizeIs(2));
}

TEST_F(EventLoop, LeavesASocketOutThatNoSetHasRoomFor) {
  fake_process::always("pselect", 0);
  GivenConnections();
  fake_dns_sd::fail_next("DNSServiceRefSockFD", 2, kDNSServiceErr_BadParam);
  Pass(1);
  EXPECT_THAT(Waits(), ElementsAre("pselect(0, {}, 100000000)"));
}

TEST_F(EventLoop, WaitsForNoSocketBeyondTheRoomOfASet) {
  const ChildProcess child = run_in_child([] {
    rlimit room = {};
    getrlimit(RLIMIT_NOFILE, &room);
    room.rlim_cur = 2 * FD_SETSIZE;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &room), 0);
    fake_process::always("pselect", 0);
    GivenSharedConnection();
    for (int file = 0; file != -1 && file < FD_SETSIZE;) {
      file = dup(STDOUT_FILENO);
    }
    GivenRegisterRecordConnection();
    ASSERT_GE(DNSServiceRefSockFD(gDNSServiceRef_RegisterRecord), FD_SETSIZE);
    Pass(1);
    const int shared = DNSServiceRefSockFD(gDNSServiceRef_Shared);
    EXPECT_THAT(Waits(), ElementsAre("pselect(" + std::to_string(shared + 1) + ", {" + std::to_string(shared) +
                                     "}, 100000000)"));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(EventLoop, ServesASocketThatTookThePlaceOfStandardInput) {
  const ChildProcess child = run_in_child([this] {
    close(STDIN_FILENO);
    GivenSharedConnection();
    ASSERT_EQ(DNSServiceRefSockFD(gDNSServiceRef_Shared), 0);
    GivenSharedReplies(1);
    gSelectTimeout = 0;
    Pass(1);
    EXPECT_THAT(delivered_, ElementsAre("shared"));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(EventLoop, ReadsTheTimeoutAfreshOnEveryPass) {
  fake_process::always("pselect", 0);
  fake_process::on_call("pselect", [] { gSelectTimeout = 5; });
  Pass(2);
  EXPECT_THAT(Waits(), ElementsAre("pselect(0, {}, 100000000)", "pselect(0, {}, 5)"));
}

TEST_F(EventLoop, EndsWhenTheSharedConnectionFails) {
  GivenConnections();
  GivenReplyThatFails(gDNSServiceRef_Shared, -65563);
  HandleEvents(0);
  EXPECT_EQ(stopNow, 1);
  EXPECT_THAT(Messages(), ElementsAre(kStart, LoopLine(1, 0), kServing, "DNSServiceProcessResult returned -65563\n"));
  EXPECT_THAT(Priorities(), ElementsAre(LOG_DEBUG));
}

TEST_F(EventLoop, EndsWhenTheOtherConnectionFails) {
  GivenConnections();
  GivenReplyThatFails(gDNSServiceRef_RegisterRecord, -65537);
  HandleEvents(0);
  EXPECT_EQ(stopNow, 1);
  EXPECT_EQ(Messages().back(), "DNSServiceProcessResult returned -65537\n");
}

TEST_F(EventLoop, GoesOnAfterAnInterruptedWait) {
  fake_process::next("pselect", -1, EINTR);
  fake_process::always("pselect", 0);
  Pass(2);
  EXPECT_THAT(Messages(), ElementsAre(kStart, LoopLine(1, 3), "select() returned -1 errno 4 Interrupted system call\n",
                                      LoopLine(2, 3), kTimedOut, "myTimerCallBack(): START ...\n"));
  EXPECT_EQ(stopNow, 0);
}

TEST_F(EventLoop, EndsWhenTheWaitFailsOtherwise) {
  fake_process::always("pselect", -1, EBADF);
  HandleEvents(0);
  EXPECT_EQ(stopNow, 1);
  EXPECT_THAT(Messages(), ElementsAre(kStart, LoopLine(1, 0), "select() returned -1 errno 9 Bad file descriptor\n"));
  EXPECT_THAT(Priorities(), ElementsAre(LOG_DEBUG));
}

TEST_F(EventLoop, LetsASignalInterruptItsWait) {
  const ChildProcess child = run_in_child([] {
    install_signal_handler();
    hold_handled_signals();
    int passes = 0;
    fake_process::on_call("pselect", [&] {
      if (++passes == 1) {
        raise(SIGUSR1);  // held until pselect lets it through
        EXPECT_TRUE(fake_syslog::masks().empty());
      } else {
        stopNow = 1;
        fake_process::always("pselect", 0);
      }
    });
    HandleEvents(0);
    EXPECT_THAT(Messages(), ElementsAre(kStart, LoopLine(1, 0), "signal_handler(): aSignal = 10 ...",
                                        "select() returned -1 errno 4 Interrupted system call\n", LoopLine(2, 0),
                                        kTimedOut, "myTimerCallBack(): START ...\n"));
    EXPECT_THAT(fake_syslog::masks(), ElementsAre(255));
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(EventLoop, IsEndedByASignalThoughThereIsAlwaysAReply) {
  const ChildProcess child = run_in_child([this] {
    install_signal_handler();
    hold_handled_signals();
    GivenConnections();
    fake_dns_sd::post(gDNSServiceRef_Shared, [] {
      raise(SIGTERM);
      return kDNSServiceErr_NoError;
    });
    GivenSharedReplies(1000);
    HandleEvents(900);
    ADD_FAILURE() << "not ended";
  });
  EXPECT_EQ(child.exit_status, 10) << describe(child);
  EXPECT_THAT(child.err, testing::Not(HasSubstr(LoopLine(3, 900)))) << "at the next wait";
}

TEST_F(EventLoop, RunsNoHandlerWhileAReplyIsServed) {
  const ChildProcess child = run_in_child([] {
    install_signal_handler();
    hold_handled_signals();
    GivenSharedConnection();
    fake_dns_sd::post(gDNSServiceRef_Shared, [] {
      raise(SIGTERM);
      log_message(LOG_DEBUG, "the reply is served to its end");
      return kDNSServiceErr_NoError;
    });
    HandleEvents(0);
  });
  EXPECT_EQ(child.exit_status, 10);
  EXPECT_THAT(child.err, HoldsInOrder({"the reply is served to its end", "signal_handler(): aSignal = 15"}));
}
