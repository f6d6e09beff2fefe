// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

constexpr const char* kVendorEntry = "\rvender=Zenmor";

// --- The proxied registration ----------------------------------------------------------------------------------------

class ProxiedRegistration : public ProxyTest {};

using ProxiedRegistrationDeathTest = ProxiedRegistration;

TEST_F(ProxiedRegistration, NamesHostPortAndTypeOfTheInstanceOnTheDestination) {
  GivenRegisteredInstance();
  EXPECT_EQ(LastCall("DNSServiceRegister").text,
            "DNSServiceRegister on=connection1 flags=0x4010 if=3 name=My Printer regtype=_ipp._tcp domain=local "
            "host=printer.local. port=631 txt=0d76656e6465723d5a656e6d6f7209747874766572733d31 -> service1");
  EXPECT_EQ(LastCall("DNSServiceRegister").context, Rule());
  EXPECT_EQ(Instance()->reg_service_ref, LastCall("DNSServiceRegister").ref);
  EXPECT_THAT(Traces(),
              Contains("callback_ServiceResolve(): SUCCESS: DNSServiceRegister(sdref_bridge_reply) call returned "
                       "success."));
}

TEST_F(ProxiedRegistration, PutsTheVendorEntryBeforeTheInstancesOwn) {
  const std::string txt(
      "\x03"
      "a=b\x00\x02"
      "cd",
      8);
  GivenResolvedInstance(txt);
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(LastCall("DNSServiceRegister").data, bytes_of(kVendorEntry + txt));
  EXPECT_EQ(LastCall("DNSServiceRegister").data.size(), txt.size() + 14);
}

TEST_F(ProxiedRegistration, HoldsTheVendorEntryAloneWhenThereAreNoOthers) {
  GivenResolvedInstance("");
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(LastCall("DNSServiceRegister").data, bytes_of(kVendorEntry));
}

TEST_F(ProxiedRegistration, ShowsItsTxtDataAndNothingBehindIt) {
  GivenResolvedInstance(
      "\x03"
      "a=b");
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Traces(), Contains(testing::EndsWith(std::string(", txtLen = 18, txtRecord = ") + kVendorEntry +
                                                   "\x03"
                                                   "a=b")));
}

TEST_F(ProxiedRegistration, KeepsTxtDataOf1008Bytes) {
  GivenResolvedInstance(std::string(1008, 'x'));
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(LastCall("DNSServiceRegister").data, bytes_of(kVendorEntry + std::string(1008, 'x')));
}

TEST_F(ProxiedRegistration, HoldsTheVendorEntryAloneWhenTheTxtDataWasTooLongToKeep) {
  for (const std::size_t length : {1009U, 65530U, 65535U}) {
    GivenRule("_ipp._tcp", "br0", length == 1009U ? "br1" : length == 65530U ? "br2" : "br0");
    BrowseAdds("My Printer");
    Resolves("My\\032Printer._ipp._tcp.local.", "printer.local.", std::string(length, 'x'));
    AddressAnswers("192.0.2.1");
    EXPECT_EQ(LastCall("DNSServiceRegister").data, bytes_of(kVendorEntry)) << length;
  }
}

TEST_F(ProxiedRegistration, FreesItsTxtDataWhetherRefusedOrNot) {
  GivenResolvedInstance();
  const ZmkUsage before = zmk_usage();
  fake_dns_sd::fail_call("DNSServiceRegister", 1, kDNSServiceErr_NameConflict);
  AddressAnswers("2001:db8::1");
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  AddressAnswers("2001:db8::1");
  EXPECT_NE(Instance()->reg_service_ref, nullptr);
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
}

TEST_F(ProxiedRegistration, ARefusalIsReportedAndTriedAgainWithTheNextAddressRecord) {
  GivenResolvedInstance();
  fake_dns_sd::fail_call("DNSServiceRegister", 1, kDNSServiceErr_NameConflict);
  AddressAnswers("192.0.2.1");
  EXPECT_THAT(Warnings(),
              ElementsAre("\tcallback_ServiceResolve(): FAIL: DNSServiceRegister(sdref_bridge_reply) call failed: "
                          "-65548"));
  EXPECT_EQ(Instance()->reg_service_ref, nullptr);
  AddressAnswers("192.0.2.2");
  EXPECT_THAT(Calls("DNSServiceRegister"), SizeIs(1)) << "an update registers no record";
  AddressAnswers("2001:db8::1");
  EXPECT_THAT(Calls("DNSServiceRegister"), SizeIs(2));
  EXPECT_NE(Instance()->reg_service_ref, nullptr);
}

TEST_F(ProxiedRegistration, AnUpdatedIpv6AddressIsNoNewAddressRecord) {
  GivenResolvedInstance();
  fake_dns_sd::fail_call("DNSServiceRegister", 1, kDNSServiceErr_NameConflict);
  AddressAnswers("2001:db8::1");
  AddressAnswers("2001:db8::2");
  EXPECT_THAT(Calls("DNSServiceRegister"), SizeIs(1));
}

// The trace of the call shows the data as a text.
TEST_F(ProxiedRegistration, ItsTxtBufferEndsInAZeroByte) {
  GivenResolvedInstance(std::string(100, 'x'));
  const std::size_t before = zmk_usage().bytes;
  static std::size_t held = 0;
  fake_syslog::on_message([] {
    held = fake_syslog::lines().back().text.starts_with("\nMyDNSServiceRegister(): START") ? zmk_usage().bytes : held;
  });
  AddressAnswers("192.0.2.1");
  EXPECT_EQ(held - before, 14U + 100U + 1U);
}

TEST_F(ProxiedRegistrationDeathTest, NoMemoryForTheTxtDataEndsTheProcess) {
  GivenResolvedInstance();
  const auto answer_without_memory = [this] {
    fake_zmk::fail_malloc(2);  // the first is the transaction of the fencing settings
    AddressAnswers("192.0.2.1");
  };
  EXPECT_EXIT(answer_without_memory(), ExitedWithCode(20),
              says("syslog(4): ERROR 1301171518: malloc failed, exiting.\n"));
}

// --- Replies to it ---------------------------------------------------------------------------------------------------

class RegisterReply : public ProxyTest {
 protected:
  RegisterReply() {
    GivenRegisteredInstance();
    before_ = *Instance();
    ForgetMessages();
    MarkCalls();
    gOptionChar = 0;
    gSelectTimeout = 100000000;
  }
  ~RegisterReply() override {
    gOptionChar = 0;
    gSelectTimeout = 100000000;
  }

  void Replies(DNSServiceFlags flags, DNSServiceErrorType error) {
    fake_dns_sd::deliver(Instance()->reg_service_ref,
                         fake_dns_sd::RegisterReply{flags, error, "My Printer", "_ipp._tcp.", "local."});
  }
  void ExpectNothingChanged() {
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_EQ(Instance()->reg_service_ref, before_.reg_service_ref);
    EXPECT_EQ(Instance()->dns_record_ptr, before_.dns_record_ptr);
    EXPECT_THAT(Warnings(), IsEmpty());
  }

  ResponderContext before_;
};

TEST_F(RegisterReply, IsTraced) {
  Replies(kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  EXPECT_THAT(
      Traces(),
      ElementsAre(printed("\ncallback_ServiceRegister(): START: sdref = %p, flags = 2, errorCode = 0, name = My "
                          "Printer, regtype = _ipp._tcp., domain = local. ...",
                          static_cast<const void*>(Instance()->reg_service_ref)),
                  "callback_ServiceRegister(): Got a reply for service My Printer._ipp._tcp. local.: ",
                  "callback_ServiceRegister(): Name now registered and active"));
}

TEST_F(RegisterReply, ASuccessChangesNothing) {
  gOptionChar = 'N';
  Replies(kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  ExpectNothingChanged();
  EXPECT_EQ(gSelectTimeout, 100000000);
}

TEST_F(RegisterReply, ARemovalIsLogged) {
  Replies(0, kDNSServiceErr_NoError);
  EXPECT_THAT(Traces(), Contains("callback_ServiceRegister(): Name registration removed"));
  ExpectNothingChanged();
  EXPECT_EQ(gSelectTimeout, 100000000);
}

TEST_F(RegisterReply, ARemovalUnderTheOptionsAUAndNLowersTheTimeLimit) {
  for (const int option : {'A', 'U', 'N'}) {
    gOptionChar = option;
    gSelectTimeout = 100000000;
    Replies(0, kDNSServiceErr_NoError);
    EXPECT_EQ(gSelectTimeout, 5) << static_cast<char>(option);
  }
}

TEST_F(RegisterReply, ARemovalUnderAnotherOptionOnlyLogs) {
  for (const int option : {'d', 'D', 'v', 'a', 'n', '\0'}) {
    gOptionChar = option;
    Replies(0, kDNSServiceErr_NoError);
    EXPECT_EQ(gSelectTimeout, 100000000) << option;
  }
}

TEST_F(RegisterReply, AConflictIsLoggedOnly) {
  Replies(kDNSServiceFlagsAdd, kDNSServiceErr_NameConflict);
  EXPECT_THAT(Traces(), Contains("callback_ServiceRegister(): Name in use, please choose another"));
  ExpectNothingChanged();
}

TEST_F(RegisterReply, AnyOtherErrorIsLoggedOnly) {
  gOptionChar = 'N';
  Replies(0, kDNSServiceErr_Unknown);
  EXPECT_THAT(Traces(), Contains("callback_ServiceRegister(): Error -65537"));
  ExpectNothingChanged();
  EXPECT_EQ(gSelectTimeout, 100000000);
}

TEST_F(RegisterReply, CopesWithMissingNames) {
  fake_dns_sd::deliver(Instance()->reg_service_ref, fake_dns_sd::RegisterReply{});
  EXPECT_THAT(Traces(), Contains("callback_ServiceRegister(): Got a reply for service (null).(null) (null): "));
}

// What has been written to standard output so far; what its buffer still holds is not counted.
class StandardOutput {
 public:
  explicit StandardOutput(const std::string& path) : path_(path), saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    EXPECT_NE(std::freopen(path.c_str(), "w", stdout), nullptr);
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  }
  ~StandardOutput() {
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
  std::string Written() const {
    std::ifstream file(path_);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::string path_;
  int saved_;
};

constexpr const char* kTimestamp = "[ 12][0-9]:[0-5][0-9]:[0-5][0-9]\\.[0-9][0-9][0-9]  ";

TEST_F(RegisterReply, PrintsATimestampAndFlushesOnceNoMoreIsComing) {
  std::string before;
  std::string after;
  {
    const StandardOutput output(directory().path_of("stdout"));
    Replies(kDNSServiceFlagsAdd | kDNSServiceFlagsMoreComing, kDNSServiceErr_NoError);
    before = output.Written();
    Replies(kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
    after = output.Written();
  }
  EXPECT_EQ(before, "");
  EXPECT_THAT(after, MatchesRegex(std::string(kTimestamp) + kTimestamp));
}

// --- Replies to records ----------------------------------------------------------------------------------------------

using RecordReply = RegisterReply;
using RecordReplyDeathTest = RegisterReply;

TEST_F(RecordReply, ASuccessIsLoggedWithTheInstancesLabel) {
  fake_dns_sd::deliver_record(Instance()->dns_record_ptr, kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  EXPECT_THAT(Traces(),
              ElementsAre("\ncallback_ServiceRegisterRecord(): START:...",
                          "callback_ServiceRegisterRecord(): Got a reply for record My Printer.local: ",
                          "callback_ServiceRegisterRecord(): Name now registered and active: My Printer.local"));
  ExpectNothingChanged();
}

TEST_F(RecordReply, PrintsATimestampAndFlushesOnceNoMoreIsComing) {
  std::string before;
  std::string after;
  {
    const StandardOutput output(directory().path_of("stdout"));
    fake_dns_sd::deliver_record(Instance()->dns_record_ptr, kDNSServiceFlagsAdd | kDNSServiceFlagsMoreComing, 0);
    before = output.Written();
    fake_dns_sd::deliver_record(Instance()->dns_record_ptr, kDNSServiceFlagsAdd, 0);
    after = output.Written();
  }
  EXPECT_EQ(before, "");
  EXPECT_THAT(after, MatchesRegex(std::string(kTimestamp) + kTimestamp));
}

TEST_F(RecordReplyDeathTest, AConflictEndsTheProcess) {
  EXPECT_EXIT(
      {
        tell_status_at_exit();
        fake_dns_sd::deliver_record(Instance()->dns_record_ptr, kDNSServiceFlagsAdd, kDNSServiceErr_NameConflict);
      },
      ExitedWithCode(exit_status(600)),
      AllOf(says("syslog(4): ERROR: 1301171622: callback_ServiceRegisterRecord(): Name in use, please choose another: "
                 "name = My "
                 "Printer.local, errorCode = -65548\n"),
            says("status file: 600")));
}

TEST_F(RecordReplyDeathTest, AConflictOverAnAaaaRecordEndsTheProcess) {
  AddressAnswers("2001:db8::1");
  EXPECT_EXIT(fake_dns_sd::deliver_record(Instance()->dns_recordv6_ptr, 0, kDNSServiceErr_NameConflict),
              ExitedWithCode(exit_status(600)),
              says("syslog(4): ERROR: 1301171622: callback_ServiceRegisterRecord(): Name in use, please choose "
                   "another: name = My "
                   "Printer.local, errorCode = -65548\n"));
}

TEST_F(RecordReplyDeathTest, AnyOtherErrorEndsTheProcess) {
  EXPECT_EXIT(fake_dns_sd::deliver_record(Instance()->dns_record_ptr, 0, kDNSServiceErr_Refused),
              ExitedWithCode(exit_status(600)),
              says("syslog(4): callback_ServiceRegisterRecord(): Error -65553 for name = My Printer.local\n"));
}

TEST_F(RecordReply, ComesWithAValidLabelLongAfterTheInstanceIsGone) {
  const DNSRecordRef record = Instance()->dns_record_ptr;
  BrowseRemoves("My Printer");
  ForgetMessages();
  fake_dns_sd::deliver_record(record, kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  EXPECT_THAT(Traces(), Contains("callback_ServiceRegisterRecord(): Name now registered and active: My Printer.local"));
}

TEST_F(RecordReply, CopesWithAMissingLabel) {
  callback_ServiceRegisterRecord(gDNSServiceRef_RegisterRecord, nullptr, 0, kDNSServiceErr_NoError, nullptr);
  EXPECT_THAT(Traces(), Contains("callback_ServiceRegisterRecord(): Got a reply for record (null): "));
}

// A record that stays with the connection keeps its label: the reply to it may come at any time.
TEST_F(RecordReply, ARecordThatStaysKeepsItsLabel) {
  const DNSRecordRef record = Instance()->dns_record_ptr;
  DNSServiceRefDeallocate(Instance()->reg_service_ref);
  Instance()->reg_service_ref = nullptr;
  BrowseRemoves("My Printer");
  GivenSilence();
  for (int i = 0; i < 6000; ++i) {
    BrowseAdds("Other");
    Resolves("Other._ipp._tcp.local.");
    AddressAnswers("192.0.2.2");
    BrowseRemoves("Other");
  }
  switch_to_debug_mode();
  fake_dns_sd::deliver_record(record, kDNSServiceFlagsAdd, kDNSServiceErr_NoError);
  EXPECT_THAT(debug_messages(),
              Contains("callback_ServiceRegisterRecord(): Got a reply for record My Printer.local: "));
}

}  // namespace
