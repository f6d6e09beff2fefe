// SPDX-License-Identifier: MIT
// The services list into the service name table, and every way in which it ends the process.

#include <gmock/gmock.h>

#include <string>

#include "config/config.h"
#include "fakes/fake_syslog.h"
#include "fakes/fake_zmk.h"
#include "runtime/runtime.h"
#include "tables/tables.h"
#include "unit/config/config_test.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::Not;

using ServicesFile = ConfigTest;
using ServicesFileDeath = ConfigTest;

constexpr const char* kAirPlay =
    "<mdnsservice name=\"AirPlay\">\n<service type=\"_airplay._tcp\"/>\n<service "
    "type=\"_raop._tcp\"/>\n</mdnsservice>\n";
constexpr const char* kAirPrint = "<mdnsservice name=\"AirPrint\">\n<service type=\"_ipp._tcp\"/>\n</mdnsservice>\n";

TEST_F(ServicesFile, FillsTheTableInFileOrder) {
  EXPECT_EQ(parse_services(std::string(kAirPlay) + kAirPrint), 0);
  EXPECT_THAT(catalog(), ElementsAre("AirPlay: _airplay._tcp _raop._tcp", "AirPrint: _ipp._tcp"));
}

TEST_F(ServicesFile, LeavesNothingOfItselfInMemory) {
  parse_services(std::string(kAirPlay) + kAirPrint);
  EXPECT_EQ(live_blocks_of_config(), 0U);
}

TEST_F(ServicesFile, AFileWithoutAServiceLeavesTheTableEmpty) {
  EXPECT_EQ(parse_services("<list></list>"), 0);
  EXPECT_THAT(catalog(), IsEmpty());
}

TEST_F(ServicesFile, AServiceWithoutTypesHasAnEmptyList) {
  parse_services("<mdnsservice name=\"Nothing\"</mdnsservice>");
  EXPECT_THAT(catalog(), ElementsAre("Nothing:"));
}

TEST_F(ServicesFile, IsReadUpToItsLastByte) {
  const std::string content = std::string(kAirPlay) + "<mdnsservice name=\"Last\"></mdnsservice>";
  EXPECT_EQ(parse_services_stream(content, content), 0);
  EXPECT_THAT(catalog(), ElementsAre("AirPlay: _airplay._tcp _raop._tcp", "Last:"));
}

TEST_F(ServicesFile, ReturnsWhatClosingTheStreamGave) {
  EXPECT_EQ(parse_services_from_a_stream_that_does_not_close(kAirPrint), EOF);
  EXPECT_THAT(catalog(), ElementsAre("AirPrint: _ipp._tcp"));
}

TEST_F(ServicesFile, AZeroByteEndsIt) {
  parse_services(std::string(kAirPlay) + '\0' + kAirPrint);
  EXPECT_THAT(catalog(), ElementsAre("AirPlay: _airplay._tcp _raop._tcp"));
}

TEST_F(ServicesFile, NamesThatDifferInCaseAreTwoServices) {
  parse_services("mdnsservice name\"a\"</mdnsservice>mdnsservice name\"A\"</mdnsservice>");
  EXPECT_THAT(catalog(), ElementsAre("a:", "A:"));
}

TEST_F(ServicesFile, SaysThatItStartsInDebugModeOnly) {
  parse_services("none");
  EXPECT_THAT(fake_syslog::lines(), IsEmpty());
  switch_to_debug_mode();
  parse_services("none");
  EXPECT_THAT(debug_messages(), ElementsAre("parse_servicefile(): START"));
}

TEST_F(ServicesFileDeath, APathThatIsNotThereEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_services_of_missing_path(), ExitedWithCode(exit_status(110)),
              AllOf(says("syslog(4): ERROR 100130114: services config file stat invalid: " + services_path() + "\n"),
                    says("status file: 110\n"), says("stream closed"), Not(says("syslog(3): services config"))));
}

TEST_F(ServicesFileDeath, AnEmptyFileEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit();
              parse_services_stream("", ""), ExitedWithCode(exit_status(110)),
              AllOf(says("syslog(4): ERROR 100130114: services config file stat invalid: " + services_path() + "\n"),
                    says("status file: 110\n"), says("stream closed")));
}

TEST_F(ServicesFileDeath, ABufferThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_services(kAirPlay), ExitedWithCode(exit_status(20)),
      AllOf(says("syslog(4): ERROR 100130114: cannot alloc buf for services config file: " + services_path() + "\n"),
            says("status file: 20\n"), says("stream closed"), Not(says("syslog(3): cannot alloc"))));
}

TEST_F(ServicesFileDeath, AStreamShorterThanItsPathEndsTheProcess) {
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_services_stream(std::string(4999, 'x'), std::string(5000, 'x')), ExitedWithCode(exit_status(110)),
      AllOf(says("syslog(4): ERROR 100130114: read error size :5000 bytes, services config file " + services_path() +
                 "\n"),
            says("status file: 110\n"), says("stream closed"), says("text freed"), Not(says("syslog(3): read error"))));
}

// The plain line is on the debug stream, which is standard error here, before the line that ends the process.
TEST_F(ServicesFileDeath, InDebugModeAPlainLineComesFirst) {
  gDBG = 1;
  gLogLevel = 2;
  EXPECT_EXIT(
      parse_services_of_missing_path(), ExitedWithCode(exit_status(110)),
      testing::ContainsRegex(":services config file stat invalid: [^\n]*services.xml\nsyslog\\(4\\): ERROR 100130114"));
  EXPECT_EXIT(
      parse_services_stream("x", "xx"), ExitedWithCode(exit_status(110)),
      testing::ContainsRegex(
          ":read error size :2 bytes, services config file [^\n]*services.xml\nsyslog\\(4\\): ERROR 100130114"));
  fake_zmk::fail_malloc(1);
  EXPECT_EXIT(parse_services(kAirPlay), ExitedWithCode(exit_status(20)),
              testing::ContainsRegex(
                  ":cannot alloc buf for services config file: [^\n]*services.xml\nsyslog\\(4\\): ERROR 100130114"));
}

TEST_F(ServicesFileDeath, InDebugModeAnErrorOfTheFormatHasNoPlainLine) {
  gDBG = 1;
  gLogLevel = 2;
  EXPECT_EXIT(parse_services("<mdnsservice name=></mdnsservice>"), ExitedWithCode(exit_status(110)),
              testing::StartsWith("syslog(4): ERROR 131155"));
  EXPECT_EXIT(parse_services("<mdnsservice name=\"A\">"), ExitedWithCode(exit_status(110)),
              testing::StartsWith("syslog(4): ERROR 131155"));
  EXPECT_EXIT(parse_services("<mdnsservice name=\"A\"><service type=/></mdnsservice>"),
              ExitedWithCode(exit_status(110)), testing::StartsWith("syslog(4): ERROR 131157"));
  EXPECT_EXIT(parse_services(std::string(kAirPlay) + kAirPlay), ExitedWithCode(exit_status(110)),
              testing::StartsWith("syslog(4): ERROR 131125"));
}

TEST_F(ServicesFileDeath, AServiceWithoutANameEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit(); parse_services("<mdnsservice name=></mdnsservice>"),
                                     ExitedWithCode(exit_status(110)),
                                     AllOf(says("syslog(4): ERROR 131155: ERROR in " + services_path() +
                                                ": missing name attribute in <mdnsservice> tag, exiting.\n"),
                                           says("status file: 110\n"), says("stream closed"), says("text freed")));
}

TEST_F(ServicesFileDeath, ANameWithoutItsClosingQuoteEndsTheProcess) {
  EXPECT_EXIT(parse_services("<mdnsservice name=\"AirPlay></mdnsservice>"), ExitedWithCode(exit_status(110)),
              says("syslog(4): ERROR 131155: ERROR in " + services_path() + ": missing name attribute"));
}

TEST_F(ServicesFileDeath, AServiceWithoutAnEndTagEndsTheProcess) {
  EXPECT_EXIT(tell_status_at_exit(); parse_services("<mdnsservice name=\"AirPlay\">"), ExitedWithCode(exit_status(110)),
                                     AllOf(says("syslog(4): ERROR 131155: ERROR in " + services_path() +
                                                ": missing </mdnsservice> after <mdnsservice> tag, exiting.\n"),
                                           says("status file: 110\n"), says("stream closed"), says("text freed")));
}

TEST_F(ServicesFileDeath, ATypesArrayThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_malloc(2);
  EXPECT_EXIT(tell_status_at_exit(); parse_services(kAirPlay), ExitedWithCode(exit_status(800)),
                                     AllOf(says("syslog(4): ERROR 131156: utarray_new failed, exiting.\n"),
                                           says("status file: 800\n"), says("stream closed"), says("text freed")));
}

TEST_F(ServicesFileDeath, ATypeCopyThatFindsNoMemoryEndsTheProcess) {
  fake_zmk::fail_strdup(2);
  EXPECT_EXIT(tell_status_at_exit(); parse_services(kAirPlay), ExitedWithCode(exit_status(20)),
                                     AllOf(says("syslog(4): ERROR 131158: strdup failed, exiting.\n"),
                                           says("status file: 20\n"), says("stream closed"), says("text freed")));
}

TEST_F(ServicesFileDeath, ATypeWithoutAValueEndsTheProcessWithTheServicesName) {
  EXPECT_EXIT(tell_status_at_exit(); parse_services("<mdnsservice name=\"AirPlay\"><service type=/></mdnsservice>"),
                                     ExitedWithCode(exit_status(110)),
                                     AllOf(says("syslog(4): ERROR 131157: ERROR in " + services_path() +
                                                ": missing type= for <mdnsservice name=\"AirPlay\">\n"),
                                           says("status file: 110\n"), says("stream closed"), says("text freed")));
}

TEST_F(ServicesFileDeath, ATypeWithoutItsClosingQuoteEndsTheProcess) {
  EXPECT_EXIT(parse_services("<mdnsservice name=\"AirPlay\"><service type=\"_a._tcp/></mdnsservice>"),
              ExitedWithCode(exit_status(110)), says("syslog(4): ERROR 131157"));
}

TEST_F(ServicesFileDeath, AMessageWhoseNameFindsNoMemoryComesWithoutIt) {
  fake_zmk::fail_strdup(1);
  EXPECT_EXIT(parse_services("<mdnsservice name=\"AirPlay\"><service type=/></mdnsservice>"),
              ExitedWithCode(exit_status(110)), says("missing type= for <mdnsservice name=\"(null)\">"));
}

TEST_F(ServicesFileDeath, ADuplicateNameEndsTheProcessFromWithinTheTable) {
  gSettings.services_file = "/etc/configured.xml";
  EXPECT_EXIT(
      tell_status_at_exit();
      parse_services(std::string(kAirPlay) + kAirPrint + kAirPlay), ExitedWithCode(exit_status(110)),
      AllOf(says("syslog(4): ERROR 131125: existing hash found for service_name = AirPlay (likely in config file: "
                 "/etc/configured.xml), this is an unhandled case.  Exiting.\n"),
            says("status file: 110\n"), says("stream open"), says("text kept")));
}

}  // namespace
