// SPDX-License-Identifier: MIT
// Configuration files as people really break them. Each must get a message that names the line and the cure.

#include "unit/tools/check_test.h"

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

enum class File { services, rules, settings };

struct BrokenFile {
  const char* mistake;
  File file;
  const char* text;
  unsigned line;     // where the mistake is
  const char* cure;  // part of what the message must advise
};

constexpr const char* kGoodRule =
    "<mdnsproxyrule mdnsservice=\"_ipp._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"/>\n";

const BrokenFile kBrokenFiles[] = {
    {"two blanks in a service's start", File::services,
     "<list>\n<mdnsservice  name=\"A\">\n<service type=\"_a._tcp\"/>\n</mdnsservice>\n", 2, "exactly one blank"},
    {"a service without its end tag", File::services, "<mdnsservice name=\"A\">\n<service type=\"_a._tcp\"/>\n", 1,
     "write </mdnsservice>"},
    {"an end tag forgotten before the next service", File::services,
     "<mdnsservice name=\"A\">\n<service type=\"_a._tcp\"/>\n<mdnsservice name=\"B\">\n<service "
     "type=\"_b._tcp\"/>\n</mdnsservice>\n",
     3, "write </mdnsservice> before it"},
    {"single quotes around a type", File::services,
     "<mdnsservice name=\"A\">\n<service type='_a._tcp'/>\n</mdnsservice>\n", 2, "use double quotes"},
    {"an empty service name", File::services,
     "\n\n<mdnsservice name=\"\">\n<service type=\"_a._tcp\"/>\n</mdnsservice>\n", 3, "write the value"},
    {"a type outside of its service", File::services,
     "<mdnsservice name=\"A\">\n</mdnsservice>\n<service type=\"_a._tcp\"/>\n", 3, "move it between"},
    {"a type with its domain", File::services,
     "<mdnsservice name=\"A\">\n<service type=\"_a._tcp.local\"/>\n</mdnsservice>\n", 2, "without a domain"},
    {"a type without its underscores", File::services,
     "<mdnsservice name=\"A\">\n<service type=\"ipp.tcp\"/>\n</mdnsservice>\n", 2, "write an underscore"},
    {"two services of one name", File::services,
     "<mdnsservice name=\"A\"><service type=\"_a._tcp\"/></mdnsservice>\n<mdnsservice name=\"A\"><service "
     "type=\"_b._tcp\"/></mdnsservice>\n",
     2, "rename one of the two"},
    {"a service with nothing in it", File::services, "\n<mdnsservice name=\"A\">\n</mdnsservice>\n", 2,
     "add <service type="},
    {"a rule without its destination", File::rules,
     "\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" bidirectional=\"no\"/>\n", 2,
     "add if_to="},
    {"an attribute in capitals", File::rules,
     "\n\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" IF_FROM=\"br0\" if_to=\"br1\" "
     "bidirectional=\"no\"/>\n",
     3, "in small letters"},
    {"an interface that is not there", File::rules,
     "\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"wlan7\" "
     "bidirectional=\"no\"/>\n",
     2, "lo, br0, br1, br2"},
    {"a service name that is not in the list", File::rules,
     "<mdnsproxyrule mdnsservice=\"Printing\" rule_type=\"0\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"/>\n",
     1, "name one of the services"},
    {"a boolean word that is none", File::rules,
     "\n\n\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" "
     "bidirectional=\"on\"/>\n",
     4, "write bidirectional=\"yes\""},
    {"a rule type that is none", File::rules,
     "\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"type\" if_from=\"br0\" if_to=\"br1\" "
     "bidirectional=\"no\"/>\n",
     2, "write rule_type=\"0\""},
    {"a value without quotes", File::rules,
     "<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=no/>\n", 1,
     "between double quotes"},
    {"a rule commented out", File::rules,
     "<!--\n<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" "
     "bidirectional=\"no\"/>\n-->\n",
     1, "delete it"},
    {"the same rule twice", File::rules,
     "<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"/>\n"
     "<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"/>\n",
     2, "delete one of the two"},
    {"a rule and its inverse, of which one is bidirectional", File::rules,
     "<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"yes\"/>\n"
     "<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br1\" if_to=\"br0\" bidirectional=\"no\"/>\n",
     2, "delete the rule that is not bidirectional"},
    {"an attribute word in a value", File::rules,
     "<mdnsproxyrule name=\"if_to guests\" mdnsservice=\"_a._tcp\" rule_type=\"1\" if_from=\"br0\" if_to=\"br1\" "
     "bidirectional=\"no\"/>\n",
     1, "before this value"},
    {"a rule that is never closed", File::rules, "<mdnsproxyrule mdnsservice=\"_a._tcp\" rule_type=\"1\"\n", 1,
     "write the missing \">\""},
    {"an empty file", File::rules, "", 1, "put at least a comment"},
    {"a setting without its section's brackets", File::settings, "mdnsproxy\nlog_level = enable\n", 1,
     "write [section]"},
    {"a hop that is no number", File::settings, "[fencing AirPrint]\nwireless_hop = one\n", 2, "write a valid value"},
    {"a misspelt setting", File::settings, "[mdnsproxy]\nloglevel = enable\n", 2, "log_level"},
};

const char* name_of(File file) {
  return file == File::services ? "services" : file == File::rules ? "rules" : "settings";
}

class BrokenFiles : public CheckTest, public testing::WithParamInterface<BrokenFile> {};

TEST_P(BrokenFiles, GetAMessageWithLineAndCure) {
  const BrokenFile& broken = GetParam();
  GivenRules(kGoodRule);
  directory_.write(name_of(broken.file), broken.text);
  const std::string place = std::string(name_of(broken.file)) + ":" + std::to_string(broken.line) + ":";
  EXPECT_THAT(Findings(), Contains(AllOf(StartsWith(place), HasSubstr("; cure: "), HasSubstr(broken.cure))))
      << broken.mistake;
  EXPECT_NE(ExitStatus(), 0);
}

INSTANTIATE_TEST_SUITE_P(AsPeopleWriteThem, BrokenFiles, testing::ValuesIn(kBrokenFiles), [](const auto& parameter) {
  std::string name = parameter.param.mistake;
  for (char& c : name) {
    c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  }
  return name;
});

}  // namespace
