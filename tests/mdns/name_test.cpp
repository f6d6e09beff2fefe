// SPDX-License-Identifier: MIT
#include "mdns/wire/name.h"
#include "support/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace mdns {
namespace {

using wire::label;
using wire::name;

const std::string kRoot(1, '\0');

// A name of this many bytes with the root's; at least 66.
std::string name_of_size(std::size_t size) {
  std::string wire;
  for (; size > 2 * (kLabelMax + 1); size -= kLabelMax + 1) {
    wire += label(std::string(kLabelMax, 'x'));
  }
  const std::size_t left = size - 1;
  return wire + label(std::string(left / 2 - 1, 'y')) + label(std::string(left - left / 2 - 1, 'z')) + '\0';
}

TEST(NameSize, IsThatOfTheNameAtTheFront) {
  EXPECT_EQ(name_size(name("printer.local")), 15u);
  EXPECT_EQ(name_size(name("printer.local") + "more"), 15u);
  EXPECT_EQ(name_size(kRoot), 1u);
}

TEST(NameSize, IsZeroForWhatIsNotWhole) {
  const std::string whole = name("printer.local");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(name_size(whole.substr(0, size)), 0u) << size;
  }
}

TEST(NameSize, IsZeroForLabelsOver63BytesAndForPointers) {
  EXPECT_NE(name_size(label(std::string(63, 'x')) + '\0'), 0u);
  for (const int length : {64, 0x80, 0xC0, 0xFF}) {
    EXPECT_EQ(name_size(std::string(1, static_cast<char>(length)) + std::string(255, '\0')), 0u) << length;
  }
}

TEST(NameSize, AllowsFor256BytesAndNotMore) {
  EXPECT_EQ(name_size(name_of_size(255)), 255u);
  EXPECT_EQ(name_size(name_of_size(256)), 256u);
  EXPECT_EQ(name_size(name_of_size(257)), 0u);
  EXPECT_EQ(name_size(name_of_size(300)), 0u);
}

TEST(IsName, WantsNothingBehindTheRoot) {
  EXPECT_TRUE(is_name(name("a.local")));
  EXPECT_TRUE(is_name(kRoot));
  EXPECT_FALSE(is_name(name("a.local") + '\0'));
  EXPECT_FALSE(is_name(""));
}

TEST(SameFolded, IgnoresTheCaseOfTheLettersAToZ) {
  EXPECT_TRUE(same_folded(name("Printer._IPP._tcp.LOCAL"), name("pRINTER._ipp._TCP.local")));
  EXPECT_FALSE(same_folded(name("printer.local"), name("printex.local")));
  EXPECT_FALSE(same_folded(name("printer.local"), name("printer.locax")));
  EXPECT_FALSE(same_folded("abc", "abcd"));
  EXPECT_TRUE(same_folded("", ""));
}

// All pairs of bytes, at each place of a word and in what is left behind the last one.
TEST(SameFolded, IsRightForEveryByteAtEveryPlace) {
  for (std::size_t place = 0; place < 11; ++place) {
    for (int a = 0; a < 256; ++a) {
      for (int b = 0; b < 256; ++b) {
        std::string one(11, 'm');
        std::string other(11, 'M');
        one[place] = static_cast<char>(a);
        other[place] = static_cast<char>(b);
        const bool is_same = fold(static_cast<char>(a)) == fold(static_cast<char>(b));
        ASSERT_EQ(same_folded(one, other), is_same) << place << ' ' << a << ' ' << b;
        ASSERT_EQ(hash_folded(one, 7) == hash_folded(other, 7), is_same) << place << ' ' << a << ' ' << b;
      }
    }
  }
}

TEST(HashFolded, DependsOnTheSeed) {
  EXPECT_EQ(hash_folded(name("a.local"), 1), hash_folded(name("A.Local"), 1));
  EXPECT_NE(hash_folded(name("a.local"), 1), hash_folded(name("a.local"), 2));
}

TEST(HashFolded, TellsZeroBytesAtTheEndApart) {
  std::set<std::uint64_t> hashes;
  for (std::size_t size = 0; size < 40; ++size) {
    hashes.insert(hash_folded(std::string(size, '\0'), 1));
  }
  EXPECT_EQ(hashes.size(), 40u);
}

TEST(HashFolded, SpreadsNumberedNamesOverItsLowBitsAndItsHighOnes) {
  std::set<std::uint64_t> low;
  std::set<std::uint64_t> high;
  for (int i = 0; i < 4096; ++i) {
    const std::uint64_t hash = hash_folded(name("printer" + std::to_string(i) + "._ipp._tcp.local"), 1);
    low.insert(hash & 4095);
    high.insert(hash >> 52);
  }
  // 4096 balls in 4096 bins leave 1 - 1/e of the bins filled: 2589, give or take some 30.
  EXPECT_NEAR(static_cast<double>(low.size()), 2589, 200);
  EXPECT_NEAR(static_cast<double>(high.size()), 2589, 200);
}

TEST(FirstLabel, IsTheTextAlone) {
  EXPECT_EQ(first_label(name("printer.local")), "printer");
  EXPECT_EQ(first_label(kRoot), "");
}

TEST(ParentName, LeavesTheFirstLabelOut) {
  EXPECT_EQ(parent_name(name("printer.local")), name("local"));
  EXPECT_EQ(parent_name(name("local")), kRoot);
  EXPECT_EQ(parent_name(kRoot), kRoot);
}

TEST(IsReverseName, LooksAtTheEndInWholeLabels) {
  EXPECT_TRUE(is_reverse_name(name("1.0.254.169.in-addr.arpa")));
  EXPECT_TRUE(is_reverse_name(name("1.0.0.E.F.IP6.ARPA")));
  EXPECT_TRUE(is_reverse_name(name("In-Addr.Arpa")));
  EXPECT_TRUE(is_reverse_name(name("ip6.arpa")));
  for (const char* other :
       {"", "arpa", "local", "xin-addr.arpa", "xip6.arpa", "ip6.arpa.local", "in-addr.arpa.local", "ip7.arpa"}) {
    EXPECT_FALSE(is_reverse_name(name(other))) << other;
  }
  EXPECT_FALSE(is_reverse_name(label("x\3ip6\4arpa") + '\0')) << "one label that ends like the name";
}

}  // namespace
}  // namespace mdns
