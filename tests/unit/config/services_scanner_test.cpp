// SPDX-License-Identifier: MIT
// The services list format, finding by finding.

#include "config/services_scanner.h"

#include <gmock/gmock.h>

#include <string>

#include "unit/config/scanned.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ServicesScanner, YieldsServicesAndTheirTypesInFileOrder) {
  EXPECT_THAT(scan_services("<?xml version=\"1.0\"?>\n<list>\n"
                            "<mdnsservice name=\"AirPlay\">\n"
                            "<service type=\"_airplay._tcp\"/>\n"
                            "<service type=\"_raop._tcp\"/>\n"
                            "</mdnsservice>\n"
                            "<mdnsservice name=\"AirPrint\">\n"
                            "<service type=\"_ipp._tcp\"/>\n"
                            "</mdnsservice>\n</list>\n"),
              ElementsAre("begins AirPlay", "type _airplay._tcp", "type _raop._tcp", "ends AirPlay", "begins AirPrint",
                          "type _ipp._tcp", "ends AirPrint"));
}

TEST(ServicesScanner, AFileWithoutAStartHoldsNothing) {
  EXPECT_THAT(scan_services(""), IsEmpty());
  EXPECT_THAT(scan_services("<list><service type=\"_ipp._tcp\"/></mdnsservice></list>"), IsEmpty());
}

TEST(ServicesScanner, AServiceMayHaveNoTypes) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"</mdnsservice>"), ElementsAre("begins A", "ends A"));
}

TEST(ServicesScanner, TwoBlanksInTheStartPhraseMakeItNoStart) {
  EXPECT_THAT(scan_services("<mdnsservice  name=\"A\"><service type=\"a\"/></mdnsservice>"
                            "<mdnsservice name=\"B\"><service type=\"b\"/></mdnsservice>"),
              ElementsAre("begins B", "type b", "ends B"));
}

TEST(ServicesScanner, TwoBlanksInTheTypePhraseMakeItNoType) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"><service  type=\"a\"/><service type=\"b\"/></mdnsservice>"),
              ElementsAre("begins A", "type b", "ends A"));
}

TEST(ServicesScanner, TypesBetweenAnEndTagAndTheNextStartBelongToNoService) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"></mdnsservice><service type=\"x\"/>"
                            "<mdnsservice name=\"B\"></mdnsservice><service type=\"y\"/>"),
              ElementsAre("begins A", "ends A", "begins B", "ends B"));
}

TEST(ServicesScanner, AStartInsideAServiceIsPartOfIt) {
  EXPECT_THAT(scan_services(
                  "<mdnsservice name=\"A\"><mdnsservice name=\"B\"><service type=\"t\"/></mdnsservice></mdnsservice>"),
              ElementsAre("begins A", "type t", "ends A"));
}

TEST(ServicesScanner, CommentsDoNotHideAService) {
  EXPECT_THAT(scan_services("<!-- <mdnsservice name=\"A\"><service type=\"a\"/></mdnsservice> -->"),
              ElementsAre("begins A", "type a", "ends A"));
}

TEST(ServicesScanner, WhatStandsBetweenAPhraseAndItsQuoteIsPassedOver) {
  EXPECT_THAT(scan_services("mdnsservice name is called \"A\" and service type > 'x' \"t\"</mdnsservice>"),
              ElementsAre("begins A", "type t", "ends A"));
}

TEST(ServicesScanner, MatchingIsCaseSensitive) {
  EXPECT_THAT(scan_services("<MDNSService name=\"A\"></mdnsservice>"), IsEmpty());
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"><Service type=\"t\"/></mdnsservice>"),
              ElementsAre("begins A", "ends A"));
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"></MDNSService>"), ElementsAre("missing end tag"));
}

TEST(ServicesScanner, ValuesAreKeptLiterally) {
  EXPECT_THAT(scan_services("<mdnsservice name=\" A <b> &amp; 'c' \"><service type=\"x y>z\"/></mdnsservice>"),
              ElementsAre("begins  A <b> &amp; 'c' ", "type x y>z", "ends  A <b> &amp; 'c' "));
}

TEST(ServicesScanner, ATypePhraseInsideAValueIsNoType) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"service type\"><service type=\"service type\"/></mdnsservice>"),
              ElementsAre("begins service type", "type service type", "ends service type"));
}

TEST(ServicesScanner, AdjacentQuotesAreOneDelimiterSoAnEmptyNameTakesTheTextAfterIt) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"\"><service type=\"_ipp._tcp\"/></mdnsservice>"),
              ElementsAre("begins ><service type=", "ends ><service type="));
}

TEST(ServicesScanner, AdjacentQuotesAreOneDelimiterSoAnEmptyTypeTakesTheTextAfterIt) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"><service type=\"\"/><service type=\"b\"/></mdnsservice>"),
              ElementsAre("begins A", "type /><service type=", "ends A"));
}

TEST(ServicesScanner, AStartWithoutAQuotedValueIsAMissingName) {
  EXPECT_THAT(scan_services("<mdnsservice name=A></mdnsservice>"), ElementsAre("missing name"));
  EXPECT_THAT(scan_services("<mdnsservice name='A'></mdnsservice>"), ElementsAre("missing name"));
  EXPECT_THAT(scan_services("<mdnsservice name=\"\"</mdnsservice>"), ElementsAre("missing name"));
  EXPECT_THAT(scan_services("<mdnsservice name</mdnsservice>"), ElementsAre("missing name"));
}

TEST(ServicesScanner, ANameWithoutItsClosingQuoteIsMissing) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A></mdnsservice> \""), ElementsAre("missing name"));
}

TEST(ServicesScanner, AnEndTagInsideTheNameEndsTheServiceThere) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A</mdnsservice>\"></mdnsservice>"), ElementsAre("missing name"));
}

TEST(ServicesScanner, ATypePhraseWithoutAQuotedValueIsAMissingType) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"><service type=a/></mdnsservice>"),
              ElementsAre("begins A", "missing type of A", "ends A"));
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"><service type=\"\"</mdnsservice>"),
              ElementsAre("begins A", "missing type of A", "ends A"));
}

TEST(ServicesScanner, ATypeWithoutItsClosingQuoteIsMissing) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"><service type=\"a\"/><service type=\"b/></mdnsservice>\""),
              ElementsAre("begins A", "type a", "missing type of A", "ends A"));
}

TEST(ServicesScanner, AStartWithoutAnEndTagEndsTheScan) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"></mdnsservice><mdnsservice name=\"B\"><service type=\"b\"/>"),
              ElementsAre("begins A", "ends A", "missing end tag"));
}

TEST(ServicesScanner, AnEndTagBeforeTheStartIsNotItsOwn) {
  EXPECT_THAT(scan_services("</mdnsservice><mdnsservice name=\"A\">"), ElementsAre("missing end tag"));
}

TEST(ServicesScanner, TheNextStartIsSearchedRightBehindTheEndTagsFirstByte) {
  EXPECT_THAT(scan_services("<mdnsservice name=\"A\"></mdnsservice>mdnsservice name\"B\"</mdnsservice>"),
              ElementsAre("begins A", "ends A", "begins B", "ends B"));
}

TEST(ServicesScanner, AfterAMissingNameTheNextServiceCanBeRead) {
  EXPECT_THAT(scan_services("<mdnsservice name></mdnsservice><mdnsservice name=\"B\"></mdnsservice>"),
              ElementsAre("missing name", "begins B", "ends B"));
}

TEST(ServicesScanner, AZeroByteEndsTheText) {
  const std::string before = "<mdnsservice name=\"A\"></mdnsservice>";
  EXPECT_THAT(scan_services(before + '\0' + "<mdnsservice name=\"B\"></mdnsservice>"),
              ElementsAre("begins A", "ends A"));
  EXPECT_THAT(scan_services(std::string("<mdnsservice name=\"A\">") + '\0' + "</mdnsservice>"),
              ElementsAre("missing end tag"));
}

TEST(ServicesScanner, LineBreaksAreWhitespaceOnlyOutsideThePhrases) {
  EXPECT_THAT(scan_services("<mdnsservice\nname=\"A\"></mdnsservice>"), IsEmpty());
  EXPECT_THAT(scan_services("<mdnsservice name\r\n=\r\n\"A\"\r\n>\r\n</mdnsservice>"),
              ElementsAre("begins A", "ends A"));
}

}  // namespace
