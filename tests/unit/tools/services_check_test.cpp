// SPDX-License-Identifier: MIT
#include "unit/tools/check_test.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using ServicesCheck = CheckTest;

TEST_F(ServicesCheck, AMissingFileIsTheDaemonsOwnError) {
  request_.services_file = directory_.path_of("nowhere");
  EXPECT_THAT(
      Findings(),
      ElementsAre(AllOf(StartsWith("nowhere:1:1: error: ERROR 100130114: cannot find services config file: nowhere"),
                        HasSubstr("status 110"), HasSubstr("cure: create the file"))));
}

TEST_F(ServicesCheck, AnEmptyFileIsTheDaemonsOwnError) {
  GivenServices("");
  EXPECT_THAT(Findings(),
              ElementsAre(HasSubstr("error: ERROR 100130114: services config file stat invalid: services")));
}

TEST_F(ServicesCheck, ADirectoryIsTheDaemonsOwnError) {
  request_.services_file = directory_.path();
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("error: ERROR 100130114: read error size :")));
}

TEST_F(ServicesCheck, AnUnreadableListLeavesServiceNamesOfRulesAlone) {
  request_.services_file = directory_.path_of("nowhere");
  GivenRules(rule("Printing", "0"));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("cannot find services config file")));
}

TEST_F(ServicesCheck, AServiceWithoutANameIsAnErrorAtItsLine) {
  GivenServices("\n<mdnsservice name=></mdnsservice>\n");
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("services:2:2: error: ERROR 131155"), HasSubstr("cure: write its name"))));
}

TEST_F(ServicesCheck, AServiceWithoutItsEndIsAnErrorAtItsLine) {
  GivenServices(service("A", {"_a._tcp"}) + "<mdnsservice name=\"B\">\n<service type=\"_b._tcp\"/>\n");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("services:4:2: error: ERROR 131155"),
                                            HasSubstr("cure: write </mdnsservice>"))));
}

TEST_F(ServicesCheck, ATypeWithoutAValueIsAnErrorThatNamesTheService) {
  GivenServices("<mdnsservice name=\"A\">\n<service type=_a._tcp/>\n</mdnsservice>\n");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("services:2:2: error: ERROR 131157"), HasSubstr("name=\"A\""))));
}

TEST_F(ServicesCheck, TheSecondServiceOfANameIsTheTablesOwnError) {
  GivenServices(service("A", {"_a._tcp"}) + service("A", {"_b._tcp"}));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith(
                              "services:4:2: error: ERROR 131125: existing hash found for service_name = A (likely "
                              "in config file: services)")));
}

TEST_F(ServicesCheck, AStartWithTwoBlanksIsAWarningThatSaysHowToWriteIt) {
  GivenServices("<mdnsservice  name=\"A\">\n<service type=\"_a._tcp\"/>\n</mdnsservice>\n");
  EXPECT_THAT(Findings(), ElementsAre(AllOf(StartsWith("services:1:1: warning: this is no start of a service"),
                                            HasSubstr("exactly one blank"))));
}

TEST_F(ServicesCheck, AStartOfOtherCaseIsAWarning) {
  GivenServices("<MDNSService name=\"A\"></mdnsservice>\n");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("warning: this is no start of a service")));
}

TEST_F(ServicesCheck, ATypeOutsideOfAnyServiceIsAWarning) {
  GivenServices(service("A", {"_a._tcp"}) + "<service type=\"_lost._tcp\"/>\n" + service("B", {"_b._tcp"}));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("services:4:1: warning: this type stands outside of any service")));
}

TEST_F(ServicesCheck, ATypeWithTwoBlanksIsAWarning) {
  GivenServices(
      "<mdnsservice name=\"A\">\n<service type=\"_a._tcp\"/>\n<service  type=\"_b._tcp\"/>\n</mdnsservice>\n");
  EXPECT_THAT(Findings(),
              ElementsAre(AllOf(StartsWith("services:3:1: warning: this is no type"), HasSubstr("exactly one blank"))));
}

TEST_F(ServicesCheck, SingleQuotesAreAWarningAtTheQuote) {
  GivenServices("<mdnsservice name=\"A\">\n<service type=\"_a._tcp\"/>\n<service id='1'/>\n</mdnsservice>\n");
  EXPECT_THAT(
      Findings(),
      Contains(StartsWith("services:3:13: warning: single quotes do not delimit a value; cure: use double quotes")));
}

TEST_F(ServicesCheck, AnEmptyNameIsAWarningThatSaysWhatIsTakenInstead) {
  GivenServices("<mdnsservice name=\"\">\n<service type=\"_a._tcp\"/>\n<service type=\"_b._tcp\"/>\n</mdnsservice>\n");
  EXPECT_THAT(Findings(), Contains(AllOf(StartsWith("services:1:19: warning: empty value"),
                                         HasSubstr("takes \">\\x0a<service type=\" for it"))));
}

TEST_F(ServicesCheck, AServiceWithoutTypesIsAWarning) {
  GivenServices(service("Empty", {}));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("services:1:2: warning: service \"Empty\" has no types")));
}

TEST_F(ServicesCheck, ATypeThatIsNoneIsAWarningAtItsValue) {
  GivenServices(service("A", {"ipp"}));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("services:2:16: warning: \"ipp\" is no DNS-SD service type")));
}

TEST_F(ServicesCheck, ATypeOf64CharactersIsAWarningAndOneOf63IsNone) {
  const std::string tail = "._ipp._tcp";
  GivenServices(service("A", {std::string(64 - tail.size(), 's') + tail}));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("has 64 characters or more")));
  GivenServices(service("A", {std::string(63 - tail.size(), 's') + tail}));
  EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(ServicesCheck, ATypeInTwoServicesIsAWarningAtTheSecond) {
  GivenServices(service("A", {"_a._tcp"}) + service("B", {"_a._tcp"}));
  EXPECT_THAT(Findings(),
              ElementsAre(StartsWith("services:5:16: warning: the type \"_a._tcp\" is also in service \"A\"")));
}

TEST_F(ServicesCheck, ATypeTwiceInOneServiceIsAWarning) {
  GivenServices(service("A", {"_a._tcp", "_a._tcp"}));
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("is listed already in this service")));
}

TEST_F(ServicesCheck, AServiceThatSwallowsTheNextOneIsAWarning) {
  GivenServices("<mdnsservice name=\"A\">\n<service type=\"_a._tcp\"/>\n" + service("B", {"_b._tcp"}));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("services:3:1: warning: a service begins inside another one")));
}

TEST_F(ServicesCheck, AServiceInACommentIsAWarningSinceItCounts) {
  GivenServices("<!-- " + service("A", {"_a._tcp"}) + "-->\n");
  EXPECT_THAT(Findings(), Contains(HasSubstr("the service \"A\" stands in a comment")));
}

TEST_F(ServicesCheck, AZeroByteIsAWarningAtIt) {
  GivenServices(service("A", {"_a._tcp"}) + std::string("\0", 1) + service("B", {}));
  EXPECT_THAT(Findings(), ElementsAre(StartsWith("services:4:1: warning: a zero byte")));
}

TEST_F(ServicesCheck, ATextOfOtherElementsIsNotCommentedOn) {
  GivenServices(
      "<services version=\"2\">\n<!-- the service types of this list "
      "-->\n<description>'quoted'</description>\n</services>\n");
  EXPECT_THAT(Findings(), IsEmpty());
}

}  // namespace
