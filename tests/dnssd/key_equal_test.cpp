// SPDX-License-Identifier: MIT
// The library's avahi_key_equal against the function of that name that Avahi has itself.
#include "dnssd/key_equal.h"

#include <avahi-common/domain.h>
#include <avahi-core/rr.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "dnssd/withheld.h"

extern "C" int avahi_key_is_pattern(const AvahiKey* key);

namespace dnssd {
namespace {

using ::testing::Test;

constexpr std::uint16_t kPtr = 12, kA = 1, kAny = 255, kIn = 1;

bool surely_differ(const std::string& one, const std::string& other) {
  EXPECT_EQ(names_surely_differ(one.c_str(), other.c_str()), names_surely_differ(other.c_str(), one.c_str()))
      << one << ' ' << other;
  return names_surely_differ(one.c_str(), other.c_str());
}

TEST(NamesSurelyDiffer, SaysSoOfDifferentOnes) {
  EXPECT_TRUE(surely_differ("a.local", "b.local"));
  EXPECT_TRUE(surely_differ("printer-1.local", "printer-2.local"));
  EXPECT_TRUE(surely_differ("a\\0321.local", "a\\0322.local"));
  EXPECT_TRUE(surely_differ("\\..a", "\\..b"));
}

TEST(NamesSurelyDiffer, NeverSaysSoOfEqualOnes) {
  const struct {
    const char* one;
    const char* other;
  } kEqual[] = {
      {"", ""},
      {"a.local", "a.local"},
      {"a.local", "A.LOCAL"},
      {"a.local", "a.local."},
      {"\\065.local", "A.local"},
      {"\\065.local", "a.local"},
      {"\\097.local", "\\065.local"},
      {"a\\032b", "a b"},
      {"a\\.b", "a\\046b"},
      {"a\\\\b", "a\\092b"},
      {"\\0481", "01"},
      {"1\\0482", "\\049\\048\\050"},
      {"\\045", "-"},
  };
  for (const auto& [one, other] : kEqual) {
    EXPECT_FALSE(surely_differ(one, other)) << one << ' ' << other;
    EXPECT_TRUE(avahi_domain_equal(one, other)) << one << ' ' << other;
  }
}

TEST(NamesSurelyDiffer, LeavesIllFormedOnesToAvahi) {
  for (const char* cut : {"\\", "a\\", "\\0", "\\03", "a\\03", "\\03x"}) {
    EXPECT_FALSE(surely_differ(cut, cut)) << cut;
    EXPECT_FALSE(surely_differ(cut, "a\\032")) << cut;
    EXPECT_FALSE(surely_differ(cut, "\\032")) << cut;
  }
  EXPECT_FALSE(surely_differ("a", "a.b"));
  EXPECT_FALSE(surely_differ("a", "ab"));
  EXPECT_FALSE(surely_differ("", "a"));
}

// --- Random ones

class RandomNames : public Test {
 protected:
  static constexpr unsigned kSeed = 1035;
  static constexpr int kPairs = 30'000;

  void SetUp() override { RecordProperty("seed", kSeed); }

  std::size_t Below(std::size_t count) { return random_() % count; }

  std::vector<std::string> Labels() {
    constexpr std::string_view kAlphabet = "aAb.\\032- ";
    std::vector<std::string> labels(1 + Below(2));
    for (std::string& label : labels) {
      for (std::size_t left = 1 + Below(3); left > 0; --left) {
        label += kAlphabet[Below(kAlphabet.size())];
      }
    }
    return labels;
  }

  // One of the ways to write them, in any case of letters.
  std::string Text(const std::vector<std::string>& labels) {
    std::string text;
    for (const std::string& label : labels) {
      text += text.empty() ? "" : ".";
      for (const char c : label) {
        text += Character(c);
      }
    }
    return text + (Below(4) == 0 ? "." : "");
  }

 private:
  std::string Character(char c) {
    if ((c == 'a' || c == 'A') && Below(2) == 0) {
      c = c == 'a' ? 'A' : 'a';
    }
    if (Below(3) == 0) {
      return std::string("\\0") + static_cast<char>('0' + c / 10 % 10) + static_cast<char>('0' + c % 10);
    }
    return (c == '.' || c == '\\' ? "\\" : "") + std::string(1, c);
  }

  std::mt19937 random_{kSeed};
};

TEST_F(RandomNames, AreNotToldApartWhereAvahiTakesThemForEqual) {
  int equal = 0;
  int told_apart = 0;
  for (int i = 0; i < kPairs; ++i) {
    const std::vector<std::string> labels = Labels();
    const std::string one = Text(labels);
    const std::string other = Text(Below(2) == 0 ? labels : Labels());
    const bool are_equal = avahi_domain_equal(one.c_str(), other.c_str()) != 0;
    const bool differ = surely_differ(one, other);
    ASSERT_FALSE(are_equal && differ) << one << ' ' << other << ", seed " << kSeed;
    equal += are_equal ? 1 : 0;
    told_apart += differ ? 1 : 0;
  }
  EXPECT_GT(equal, kPairs / 4);
  EXPECT_GT(told_apart, kPairs / 20);
}

// --- Keys

using KeyEqual = int (*)(const AvahiKey*, const AvahiKey*);
using KeyIsPattern = int (*)(const AvahiKey*);

// Avahi's own functions, whatever stands before them under their names.
class AvahisOwn : public Test {
 protected:
  void SetUp() override {
    core_ = dlopen("libavahi-core.so.7", RTLD_NOLOAD | RTLD_NOW);
    ASSERT_NE(core_, nullptr) << dlerror();
    key_equal_ = reinterpret_cast<KeyEqual>(dlsym(core_, "avahi_key_equal"));
    key_is_pattern_ = reinterpret_cast<KeyIsPattern>(dlsym(core_, "avahi_key_is_pattern"));
    ASSERT_NE(key_equal_, nullptr);
    ASSERT_NE(key_is_pattern_, nullptr);
    for (const char* name : {"a.local", "A.local", "\\065.local", "b.local", "a\\032b.local", "a.local.x"}) {
      for (const std::uint16_t rrtype : {kPtr, kA, kAny}) {
        for (const std::uint16_t rrclass : {kIn, kAny}) {
          keys_.push_back(avahi_key_new(name, rrclass, rrtype));
          ASSERT_NE(keys_.back(), nullptr);
        }
      }
    }
  }
  void TearDown() override {
    for (AvahiKey* key : keys_) {
      avahi_key_unref(key);
    }
    if (core_ != nullptr) {
      dlclose(core_);
    }
  }

  void* core_ = nullptr;
  KeyEqual key_equal_ = nullptr;
  KeyIsPattern key_is_pattern_ = nullptr;
  std::vector<AvahiKey*> keys_;
};

TEST_F(AvahisOwn, SaysTheSameOfEveryPairOfKeys) {
  EXPECT_NE(key_equal_, &avahi_key_equal) << "the library's stands before it";
  int equal = 0;
  for (const AvahiKey* one : keys_) {
    for (const AvahiKey* other : keys_) {
      EXPECT_EQ(avahi_key_equal(one, other) != 0, key_equal_(one, other) != 0) << one->name << ' ' << other->name;
      equal += avahi_key_equal(one, other);
    }
  }
  EXPECT_GT(equal, static_cast<int>(keys_.size())) << "not each one to itself alone";
}

TEST_F(AvahisOwn, SaysTheSameOfPatternsWhereNothingIsWithheld) {
  const Withholding nothing(nullptr);
  EXPECT_NE(key_is_pattern_, &avahi_key_is_pattern);
  for (const AvahiKey* key : keys_) {
    EXPECT_EQ(avahi_key_is_pattern(key) != 0, key_is_pattern_(key) != 0) << key->name;
  }
}

}  // namespace
}  // namespace dnssd
