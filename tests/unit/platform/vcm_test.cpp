// SPDX-License-Identifier: MIT
// What the store answers, given what the settings file says.
#include "platform/vcm.h"

#include "platform/custom_services.h"
#include "unit/child_process.h"
#include "unit/platform/settings_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::StrEq;

namespace {

constexpr int kAirPrint = 3;
constexpr int kFirstCustom = 25;

class Vcm : public SettingsTest {};

}  // namespace

TEST_F(Vcm, KnowsTheExampleOfTheManual) {
  GivenFile(
      "[mdnsproxy]\n"
      "log_level = enable            ; widens the syslog mask\n"
      "\n"
      "[fencing AirPrint]          ; a standard service, by its catalog name\n"
      "wireless_hop = 1\n"
      "wired_hop = 0\n"
      "anchor_ap = 02:00:00:00:00:01\n"
      "[fencing _custom._tcp]      ; any other name is a custom service type\n"
      "wireless_hop = 0\n");
  EXPECT_THAT(LogLevel(), Optional(StrEq("enable")));
  EXPECT_THAT(Wireless("_ipp._tcp"), Optional(1));
  EXPECT_THAT(Wired("_printer._tcp.local"), Optional(0));
  EXPECT_THAT(Anchor(Standard("_pdl-datastream._tcp")), Optional(StrEq("02:00:00:00:00:01")));
  const int custom = Custom("_custom._tcp");
  EXPECT_GE(custom, kFirstCustom);
  EXPECT_THAT(Hop(custom, kVcmFencingWireless), Optional(0));
  EXPECT_EQ(Hop(custom, kVcmFencingWired), std::nullopt);
  EXPECT_EQ(Anchor(custom), std::nullopt);
  EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(Vcm, HasNothingConfiguredWithoutAFile) {
  EXPECT_EQ(LogLevel(), std::nullopt);
  EXPECT_EQ(Wireless("_ipp._tcp"), std::nullopt);
  EXPECT_EQ(Anchor(kAirPrint), std::nullopt);
  EXPECT_EQ(Custom("_custom._tcp"), -1);
  EXPECT_THAT(Reports(), IsEmpty()) << "that is no mistake";
}

TEST_F(Vcm, KnowsAnotherPlaceForTheStateFile) {
  const auto state_file = [] {
    char path[32] = "untouched";
    VcmXact xact = nullptr;
    vcm_beginXact(&xact);
    vcm_mdnsproxy_sget_state_file(xact, path, sizeof path);
    vcm_cancelXact(&xact);
    return std::string(path);
  };
  EXPECT_EQ(state_file(), "untouched");
  GivenFile("[mdnsproxy]\nlog_level = enable\n");
  EXPECT_EQ(state_file(), "untouched");
  GivenFile("[mdnsproxy]\nstate_file = /run/elsewhere/state\n");
  EXPECT_EQ(state_file(), "/run/elsewhere/state");
  EXPECT_EQ(LogLevel(), std::nullopt);
  EXPECT_NE(vcm_mdnsproxy_sget_state_file(nullptr, nullptr, 0), 0);
}

TEST_F(Vcm, HasNothingConfiguredByAnEmptyFile) {
  GivenFile("");
  EXPECT_EQ(LogLevel(), std::nullopt);
  EXPECT_EQ(Wireless("_ipp._tcp"), std::nullopt);
  EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(Vcm, TellsTheNameOfAStandardService) {
  const char* name = nullptr;
  EXPECT_EQ(vcm_bonjour_fencing_serviceTypeToIdx("_smb._tcp", 0, 0, &name), 5);
  EXPECT_STREQ(name, "AppleFileSharing");
  name = "untouched";
  EXPECT_EQ(vcm_bonjour_fencing_serviceTypeToIdx("_custom._tcp", 0, 0, &name), -1);
  EXPECT_STREQ(name, "untouched");
}

TEST_F(Vcm, FindsTheTypeWithALeadingDotOnlyAsACustomOne) {
  GivenFile("[fencing GoogleChromeCast]\nwireless_hop = 5\n[fencing _googlecast._tcp]\nwireless_hop = 6\n");
  EXPECT_EQ(Standard("_googlecast._tcp"), -1);
  EXPECT_THAT(Hop(Custom("_googlecast._tcp"), kVcmFencingWireless), Optional(6));
  EXPECT_THAT(Hop(21, kVcmFencingWireless), Optional(5));
}

TEST_F(Vcm, MatchesACustomTypeWithAndWithoutLocal) {
  GivenFile("[fencing _one._tcp]\nwireless_hop = 1\n[fencing _two._tcp.local]\nwireless_hop = 2\n");
  EXPECT_THAT(Hop(Custom("_one._tcp.local"), kVcmFencingWireless), Optional(1));
  EXPECT_THAT(Hop(Custom("_one._tcp"), kVcmFencingWireless), Optional(1));
  EXPECT_THAT(Hop(Custom("_two._tcp"), kVcmFencingWireless), Optional(2));
  EXPECT_THAT(Hop(Custom("_two._tcp.local"), kVcmFencingWireless), Optional(2));
  for (const char* other : {"_ONE._tcp", "_one._tcp.", "_one._tc", "_one._tcp.local.local", ""}) {
    EXPECT_EQ(Custom(other), -1) << other;
  }
}

TEST_F(Vcm, HasCustomTypesBehindTheStandardOnes) {
  GivenFile("[fencing _three._tcp]\nwired_hop = 1\n[fencing _four._tcp]\nwired_hop = 2\n");
  const int three = Custom("_three._tcp");
  const int four = Custom("_four._tcp");
  EXPECT_GE(three, kFirstCustom);
  EXPECT_GE(four, kFirstCustom);
  EXPECT_NE(three, four);
}

TEST_F(Vcm, KeepsACustomIndexThroughChangesOfTheFile) {
  GivenFile("[fencing _five._tcp]\nwireless_hop = 1\n[fencing _six._tcp]\nwireless_hop = 2\n");
  const int five = Custom("_five._tcp");
  const int six = Custom("_six._tcp");
  GivenFile("[fencing _seven._tcp]\nwireless_hop = 7\n[fencing _six._tcp]\nwireless_hop = 3\n");
  EXPECT_EQ(Custom("_five._tcp"), -1) << "the file no longer names it";
  EXPECT_EQ(Hop(five, kVcmFencingWireless), std::nullopt);
  EXPECT_EQ(Custom("_six._tcp"), six);
  EXPECT_THAT(Hop(six, kVcmFencingWireless), Optional(3));
  GivenFile("[fencing _five._tcp]\nwireless_hop = 4\n");
  EXPECT_EQ(Custom("_five._tcp"), five);
  EXPECT_THAT(Hop(five, kVcmFencingWireless), Optional(4));
}

TEST_F(Vcm, HoldsManyCustomTypes) {
  std::string text;
  for (int i = 0; i < 500; ++i) {
    text += "[fencing _many" + std::to_string(i) + "._udp]\nwired_hop = " + std::to_string(i) + "\n";
  }
  GivenFile(text);
  for (int i = 0; i < 500; ++i) {
    EXPECT_THAT(Hop(Custom(("_many" + std::to_string(i) + "._udp").c_str()), kVcmFencingWired), Optional(i));
  }
}

TEST_F(Vcm, LeavesOutCustomTypesBeyondTheMostOfOneProcess) {
  const ChildProcess child = run_in_child([this] {
    std::string text;
    for (int i = 0; i <= kMostCustomServices + 5; ++i) {
      text += "[fencing _c" + std::to_string(i) + "._tcp]\nwireless_hop = 1\nwired_hop = 2\n";
    }
    GivenFile(text + "[fencing AirDisk]\nwireless_hop = 3\n");
    EXPECT_THAT(Hop(0, kVcmFencingWireless), Optional(3)) << "the rest is configured";
    EXPECT_THAT(
        Reports(),
        ElementsAre(testing::HasSubstr(": too many custom service types since the program began, not configured")));
    EXPECT_THAT(Hop(Custom("_c0._tcp"), kVcmFencingWireless), Optional(1));
    EXPECT_EQ(Custom(("_c" + std::to_string(kMostCustomServices + 5) + "._tcp").c_str()), -1);
  });
  EXPECT_EQ(child.exit_status, 0) << describe(child);
}

TEST_F(Vcm, TakesTheNamesOfSectionsAndKeysExactly) {
  GivenFile(
      "[Mdnsproxy]\nlog_level = enable\n[mdnsproxy ]\nlog_level = enable\n[mdnsproxy]\nLog_level = enable\nlog_level2 "
      "= enable\n"
      "[fencing airprint]\nwireless_hop = 1\n[Fencing AirPrint]\nwireless_hop = 1\n[fencingAirPrint]\nwireless_hop = "
      "1\n"
      "[fencing  AirPrint]\nwireless_hop = 1\n[fencing AirPrint]\nWireless_hop = 1\nwireless = 1\n[fencing "
      "]\nwireless_hop = "
      "1\n");
  EXPECT_EQ(LogLevel(), std::nullopt);
  EXPECT_EQ(Hop(kAirPrint, kVcmFencingWireless), std::nullopt);
  EXPECT_EQ(Custom(""), -1);
  EXPECT_THAT(Reports(), IsEmpty()) << "what is not ours is passed over";
}

TEST_F(Vcm, LetsTheLaterOfTwoSettingsCount) {
  GivenFile(
      "[fencing AirPrint]\nwireless_hop = 1\nwireless_hop = 2\n[fencing AirPlay]\n[fencing AirPrint]\nwireless_hop = "
      "3\n");
  EXPECT_THAT(Hop(kAirPrint, kVcmFencingWireless), Optional(3));
}

TEST_F(Vcm, ReadsHopsUpToTheLimitsOfThirtyTwoBits) {
  GivenFile(
      "[fencing AirDisk]\nwireless_hop = -2147483648\nwired_hop = 2147483647\n[fencing AirPlay]\nwireless_hop = -1\n");
  EXPECT_THAT(Hop(0, kVcmFencingWireless), Optional(INT32_MIN));
  EXPECT_THAT(Hop(0, kVcmFencingWired), Optional(INT32_MAX));
  EXPECT_THAT(Hop(1, kVcmFencingWireless), Optional(-1));
  EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(Vcm, ReportsAHopThatIsNoNumberOnceWithItsLine) {
  GivenFile(
      "[fencing AirDisk]\nwireless_hop = one\nwired_hop = 1x\n"
      "[fencing AirPlay]\nwireless_hop = 2147483648\nwired_hop = -2147483649\n"
      "[fencing AirPrint]\nwireless_hop =\nwired_hop = 99999999999999999999\n"
      "[fencing AirTunes]\nwireless_hop = 0x1\nwired_hop = 1 2\n");
  for (int index : {0, 1, 3, 4}) {
    EXPECT_EQ(Hop(index, kVcmFencingWireless), std::nullopt) << index;
    EXPECT_EQ(Hop(index, kVcmFencingWired), std::nullopt) << index;
  }
  EXPECT_THAT(Reports(), ElementsAre(":2: wireless_hop is no number: \"one\", not configured",
                                     ":3: wired_hop is no number: \"1x\", not configured",
                                     ":5: wireless_hop is no number: \"2147483648\", not configured",
                                     ":6: wired_hop is no number: \"-2147483649\", not configured",
                                     ":8: wireless_hop is no number: \"\", not configured",
                                     ":9: wired_hop is no number: \"99999999999999999999\", not configured",
                                     ":11: wireless_hop is no number: \"0x1\", not configured",
                                     ":12: wired_hop is no number: \"1 2\", not configured"));
}

TEST_F(Vcm, KeepsTheRestOfTheFileBesideAWrongValue) {
  GivenFile("[fencing AirDisk]\nwireless_hop = 1\nwired_hop = none\n");
  EXPECT_THAT(Hop(0, kVcmFencingWireless), Optional(1));
  EXPECT_EQ(Hop(0, kVcmFencingWired), std::nullopt);
}

TEST_F(Vcm, ForgetsAHopThatIsFollowedByAWrongOne) {
  GivenFile("[fencing AirDisk]\nwireless_hop = 1\nwireless_hop = none\n");
  EXPECT_EQ(Hop(0, kVcmFencingWireless), std::nullopt);
}

TEST_F(Vcm, GivesTheAnchorAsTheFileSpellsIt) {
  GivenFile("[fencing AirDisk]\nanchor_ap = 02:AB:00:00:00:0F\n");
  EXPECT_THAT(Anchor(0), Optional(StrEq("02:AB:00:00:00:0F")));
}

TEST_F(Vcm, HasAnAnchorOnlyForWiredFencing) {
  GivenFile("[fencing AirDisk]\nanchor_ap = 02:00:00:00:00:01\n");
  EXPECT_EQ(Anchor(0, kVcmFencingWireless), std::nullopt);
  EXPECT_EQ(Anchor(0, 3), std::nullopt);
}

TEST_F(Vcm, HasNoEmptyAnchor) {
  GivenFile("[fencing AirDisk]\nanchor_ap =\n");
  EXPECT_EQ(Anchor(0), std::nullopt);
}

TEST_F(Vcm, ReportsAnAnchorThatIsTooLongToBeOne) {
  GivenFile("[fencing AirDisk]\nanchor_ap = 02:00:00:00:00:01:02\n");
  EXPECT_EQ(Anchor(0), std::nullopt) << "cut to fit it would be another address";
  EXPECT_THAT(Reports(), ElementsAre(":2: anchor_ap is no MAC address: \"02:00:00:00:00:01:02\", not configured"));
}

TEST_F(Vcm, CutsTextsToTheBuffer) {
  GivenFile("[mdnsproxy]\nlog_level = enable\n");
  char text[4] = "xxx";
  VcmXact xact = nullptr;
  ASSERT_EQ(vcm_beginXact(&xact), 0);
  EXPECT_EQ(vcm_mdnsproxy_sget_log_level(xact, text, sizeof(text)), 0);
  EXPECT_STREQ(text, "ena");
  EXPECT_NE(vcm_mdnsproxy_sget_log_level(xact, text, 0), 0);
  EXPECT_STREQ(text, "ena");
  vcm_cancelXact(&xact);
}

TEST_F(Vcm, KnowsNoOtherKindOfHopAndNoOtherIndex) {
  GivenFile("[fencing AirDisk]\nwireless_hop = 1\nwired_hop = 2\n");
  EXPECT_EQ(Hop(0, 0), std::nullopt);
  EXPECT_EQ(Hop(0, 3), std::nullopt);
  EXPECT_EQ(Hop(-1, kVcmFencingWireless), std::nullopt);
  EXPECT_EQ(Hop(1, kVcmFencingWireless), std::nullopt);
  EXPECT_EQ(Hop(100000, kVcmFencingWireless), std::nullopt);
}

TEST_F(Vcm, KeepsATransactionToOneReading) {
  GivenFile("[mdnsproxy]\nlog_level = enable\n[fencing AirDisk]\nwireless_hop = 1\n");
  VcmXact xact = nullptr;
  ASSERT_EQ(vcm_beginXact(&xact), 0);
  GivenFile("[fencing AirDisk]\nwireless_hop = 2\n");
  EXPECT_THAT(Wireless("_adisk._tcp"), Optional(2)) << "one that begins later";
  std::int32_t hop = 0;
  EXPECT_EQ(vcm_bonjour_fencing_pgetHop(xact, 0, &hop, kVcmFencingWireless), 0);
  EXPECT_EQ(hop, 1);
  char text[64];
  EXPECT_EQ(vcm_mdnsproxy_sget_log_level(xact, text, sizeof(text)), 0);
  vcm_cancelXact(&xact);
  EXPECT_EQ(xact, nullptr);
}

TEST_F(Vcm, AnswersNothingWithoutATransaction) {
  GivenFile("[mdnsproxy]\nlog_level = enable\n[fencing AirDisk]\nwireless_hop = 1\nanchor_ap = 02:00:00:00:00:01\n");
  char text[64] = "untouched";
  std::int32_t hop = 7;
  EXPECT_NE(vcm_mdnsproxy_sget_log_level(nullptr, text, sizeof(text)), 0);
  EXPECT_NE(vcm_bonjour_fencing_pgetHop(nullptr, 0, &hop, kVcmFencingWireless), 0);
  EXPECT_NE(vcm_bonjour_fencing_pgetAnchorAp(nullptr, 0, text, sizeof(text), kVcmFencingWired), 0);
  EXPECT_STREQ(text, "untouched");
  EXPECT_EQ(hop, 7);
  VcmXact none = nullptr;
  EXPECT_EQ(vcm_cancelXact(&none), 0);
}

TEST_F(Vcm, LeavesNothingBehindButTheNewestReading) {
  GivenFile("[fencing AirDisk]\nwireless_hop = 1\n");
  Wireless("_adisk._tcp");
  const ZmkUsage before = zmk_usage();
  VcmXact xact = nullptr;
  vcm_beginXact(&xact);
  GivenFile("[fencing AirDisk]\nwireless_hop = 2\n");
  Wireless("_adisk._tcp");
  vcm_cancelXact(&xact);
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  EXPECT_EQ(zmk_usage().bytes, before.bytes);
}

TEST_F(Vcm, ReportsThatATransactionFoundNoMemory) {
  VcmXact warmed_up = nullptr;  // the allocator knows the line from here on
  vcm_beginXact(&warmed_up);
  vcm_cancelXact(&warmed_up);
  failing_memory::fail_call(1);
  VcmXact xact = warmed_up;
  EXPECT_NE(vcm_beginXact(&xact), 0);
  EXPECT_EQ(xact, nullptr);
}
