// SPDX-License-Identifier: MIT
// Random files through both scanners, held against a second reading of the formats: the plainest program that could be
// written for each, one loop of strstr and strtok_r over the buffer.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/seed.h"
#include "unit/config/scanned.h"

namespace {

constexpr int kFiles = 20000;
constexpr std::size_t kLongestFile = 60;  // pieces

// The second piece of strtok_r; null also when the text ends where the closing quote should be.
char* second_piece(char* from, const char* end, char** split) {
  strtok_r(from, "\"", split);
  char* value = strtok_r(nullptr, "\"", split);
  return value != nullptr && value + strlen(value) == end ? nullptr : value;
}

void reference_types(char* split, const char* end, const char* name, std::vector<std::string>& lines) {
  for (char* found = strstr(split, "service type"); found != nullptr; found = strstr(split, "service type")) {
    const char* type = second_piece(found, end, &split);
    lines.push_back(type != nullptr ? std::string("type ") + type : std::string("missing type of ") + name);
  }
  lines.push_back(std::string("ends ") + name);
}

std::vector<std::string> reference_services(std::string text) {
  std::vector<std::string> lines;
  char* cursor = strstr(text.data(), "mdnsservice name");
  while (cursor != nullptr) {
    char* end = strstr(cursor, "</mdnsservice>");
    if (end == nullptr) {
      lines.emplace_back("missing end tag");
      break;
    }
    *end = '\0';
    char* split = nullptr;
    const char* name = second_piece(cursor, end, &split);
    lines.push_back(name != nullptr ? std::string("begins ") + name : "missing name");
    if (name != nullptr) {
      reference_types(split, end, name, lines);
    }
    cursor = strstr(end + 1, "mdnsservice name");
  }
  return lines;
}

constexpr std::array<const char*, 5> kWords = {"mdnsservice", "rule_type", "if_from", "if_to", "bidirectional"};

std::string reference_rule(const std::array<char*, 5>& positions, const char* end) {
  std::string line;
  const char* service = nullptr;
  for (std::size_t i = 0; i < kWords.size(); ++i) {
    char* split = nullptr;
    const char* value = second_piece(positions[i], end, &split);
    if (value == nullptr) {
      return std::string("missing ") + kWords[i] + (service != nullptr ? std::string(" of ") + service : "");
    }
    service = i == 0 ? value : service;
    line += (i == 0 ? "rule " : "|") + std::string(value);
  }
  return line;
}

std::vector<std::string> reference_rules(std::string text) {
  std::vector<std::string> lines;
  for (char* cursor = strchr(text.data(), '<'); cursor != nullptr;) {
    char* end = strchr(cursor, '>');
    if (end == nullptr) {
      lines.emplace_back("unclosed tag");
      break;
    }
    *end = '\0';
    std::array<char*, 5> positions = {};
    std::string lacking;
    for (std::size_t i = 0; i < kWords.size(); ++i) {
      positions[i] = strstr(cursor, kWords[i]);
      lacking += positions[i] == nullptr ? std::string(" ") + kWords[i] : "";
    }
    lines.push_back(lacking.empty() ? reference_rule(positions, end) : "other tag without" + lacking);
    cursor = strchr(end + 1, '<');
  }
  return lines;
}

// A file of random pieces: whole constructs, so that it gets deep into the format, and fragments of them that break it.
class RandomFiles {
 public:
  RandomFiles(std::vector<std::string> pieces, unsigned seed) : pieces_(std::move(pieces)), random_(seed) {}

  std::string next() {
    std::string text;
    for (std::size_t left = pick(kLongestFile); left > 0; --left) {
      text += pieces_[pick(pieces_.size())];
    }
    if (pick(8) == 0 && !text.empty()) {
      text[pick(text.size())] = static_cast<char>(pick(256));
    }
    return text;
  }

 private:
  std::size_t pick(std::size_t below) { return std::uniform_int_distribution<std::size_t>(0, below - 1)(random_); }

  std::vector<std::string> pieces_;
  std::mt19937 random_;
};

std::string shown(std::string text) {
  for (char& character : text) {
    character = character == '\0' ? '?' : character;
  }
  return text;
}

// So that a generator that has lost the format is noticed: how many files held a finding that begins like this.
int count_of(const std::vector<std::string>& lines, const std::string& beginning) {
  for (const std::string& line : lines) {
    if (line.starts_with(beginning)) {
      return 1;
    }
  }
  return 0;
}

TEST(ScannerProperty, ServicesAreReadAsThePlainLoopReadsThem) {
  RandomFiles files({"<mdnsservice name=\"AirPlay\">",
                     "<service type=\"_ipp._tcp\"/>",
                     "</mdnsservice>",
                     "mdnsservice name",
                     "mdnsservice  name",
                     "service type",
                     "<mdnsservice",
                     " name=",
                     "\"",
                     "\"",
                     "\"\"",
                     "=",
                     ">",
                     "/>",
                     " ",
                     "\n",
                     "x",
                     "<!--",
                     "-->",
                     "</mdnsservice",
                     "'",
                     "&amp;",
                     std::string(1, '\0')},
                    static_cast<unsigned>(support::chosen_seed()));
  int with_types = 0;
  int with_missing_types = 0;
  for (int i = 0; i < kFiles; ++i) {
    const std::string file = files.next();
    const std::vector<std::string> expected = reference_services(file);
    ASSERT_EQ(scan_services(file), expected) << "file " << i << ":\n" << shown(file);
    with_types += count_of(expected, "type ");
    with_missing_types += count_of(expected, "missing type");
  }
  EXPECT_GT(with_types, kFiles / 100);
  EXPECT_GT(with_missing_types, kFiles / 100);
}

TEST(ScannerProperty, RulesAreReadAsThePlainLoopReadsThem) {
  RandomFiles files({"<mdnsproxyrule mdnsservice=\"A\" rule_type=\"0\" if_from=\"b\" if_to=\"c\" bidirectional=\"1\"/>",
                     "<",
                     "<r ",
                     ">",
                     "/>",
                     " mdnsservice=\"S\"",
                     " rule_type=\"1\"",
                     " if_from=\"br0\"",
                     " if_to=\"br1\"",
                     " bidirectional=\"no\"",
                     " mdnsservice=\"if_to\"",
                     " x=\"if_from\"",
                     " bidirectional=\"rule_type\"",
                     "mdnsservice",
                     "rule_type",
                     "if_from",
                     "if_to",
                     "bidirectional",
                     "\"",
                     "\"\"",
                     "=",
                     " ",
                     "'",
                     "x",
                     "<!-- ",
                     std::string(1, '\0')},
                    static_cast<unsigned>(support::chosen_seed()));
  int with_rules = 0;
  int with_missing_values = 0;
  for (int i = 0; i < kFiles; ++i) {
    const std::string file = files.next();
    const std::vector<std::string> expected = reference_rules(file);
    ASSERT_EQ(scan_rules(file), expected) << "file " << i << ":\n" << shown(file);
    with_rules += count_of(expected, "rule ");
    with_missing_values += count_of(expected, "missing ");
  }
  EXPECT_GT(with_rules, kFiles / 100);
  EXPECT_GT(with_missing_values, kFiles / 100);
}

TEST(ScannerProperty, TagsThatHoldEveryWordInAnyOrderAreReadAsThePlainLoopReadsThem) {
  std::mt19937 random(static_cast<unsigned>(support::chosen_seed()));
  std::vector<std::string> pieces = {" mdnsservice=\"S\"",
                                     " rule_type=\"1\"",
                                     " if_from=\"br0\"",
                                     " if_to=\"br1\"",
                                     " bidirectional=\"no\"",
                                     " x=\"if_from\"",
                                     " y=\"mdnsservice",
                                     "\"\"",
                                     "\"",
                                     " if_to "};
  for (int i = 0; i < kFiles; ++i) {
    std::shuffle(pieces.begin(), pieces.end(), random);
    std::string file = "<r";
    for (const std::string& piece : pieces) {
      file += piece;
    }
    file += "/>";
    ASSERT_EQ(scan_rules(file), reference_rules(file)) << "file " << i << ":\n" << file;
  }
}

}  // namespace
