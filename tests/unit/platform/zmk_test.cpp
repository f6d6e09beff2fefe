// SPDX-License-Identifier: MIT
#include "platform/zmk.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>

#include "fakes/failing_memory.h"
#include "support/seed.h"

using testing::HasSubstr;

namespace {

constexpr const char* kFile = "alpha.cpp";
constexpr const char* kOtherFile = "beta.cpp";

class Zmk : public testing::Test {
 protected:
  Zmk() : before_(zmk_usage()) {}
  ~Zmk() override { failing_memory::reset(); }

  // What is live more than when the test began.
  ZmkUsage Growth() const {
    const ZmkUsage now = zmk_usage();
    return {now.blocks - before_.blocks, now.bytes - before_.bytes};
  }

 private:
  ZmkUsage before_;
};

}  // namespace

void PrintTo(const ZmkUsage& usage, std::ostream* out);

void PrintTo(const ZmkUsage& usage, std::ostream* out) {
  *out << usage.blocks << " blocks, " << usage.bytes << " bytes";
}

TEST_F(Zmk, CountsBlocksAndBytesUnderTheLineThatAsked) {
  void* first = zmk_malloc(10, kFile, 1);
  void* second = zmk_malloc(20, kFile, 1);
  void* elsewhere = zmk_malloc(5, kFile, 2);
  EXPECT_EQ(zmk_usage_of(kFile, 1), (ZmkUsage{2, 30}));
  EXPECT_EQ(zmk_usage_of(kFile, 2), (ZmkUsage{1, 5}));
  EXPECT_EQ(Growth(), (ZmkUsage{3, 35}));
  zmk_free(first, kFile, 99);
  EXPECT_EQ(zmk_usage_of(kFile, 1), (ZmkUsage{1, 20}));
  zmk_free(second, kFile, 99);
  zmk_free(elsewhere, kFile, 99);
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, KeepsTheSameLineOfTwoFilesApart) {
  void* block = zmk_malloc(7, kFile, 5);
  EXPECT_EQ(zmk_usage_of(kOtherFile, 5), (ZmkUsage{0, 0}));
  zmk_free(block, kOtherFile, 5);
  EXPECT_EQ(zmk_usage_of(kFile, 5), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, AddsUpOneLineUnderTwoSpellingsOfItsName) {
  // A header's line has a name of its own in every source that includes it.
  const char first_spelling[] = "header.h";
  const char second_spelling[] = "header.h";
  void* one = zmk_malloc(1, first_spelling, 3);
  void* two = zmk_malloc(2, second_spelling, 3);
  EXPECT_EQ(zmk_usage_of("header.h", 3), (ZmkUsage{2, 3}));
  zmk_free(one, kFile, 0);
  zmk_free(two, kFile, 0);
}

TEST_F(Zmk, KnowsNothingOfALineThatNeverAllocated) { EXPECT_EQ(zmk_usage_of(kFile, 4711), (ZmkUsage{0, 0})); }

TEST_F(Zmk, TakesASizeOfZeroAsOne) {
  void* block = zmk_malloc(0, kFile, 10);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(zmk_usage_of(kFile, 10), (ZmkUsage{1, 1}));
  block = zmk_realloc(block, 0, kFile, 11);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(zmk_usage_of(kFile, 11), (ZmkUsage{1, 1}));
  zmk_free(block, kFile, 12);
}

TEST_F(Zmk, GivesBlocksThatAnythingMayStandIn) {
  std::set<void*> blocks;
  for (std::size_t size = 1; size < 100; ++size) {
    void* block = zmk_malloc(size, kFile, 20);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u) << size;
    std::memset(block, 0xA5, size);
    blocks.insert(block);
  }
  for (void* block : blocks) {
    zmk_free(block, kFile, 21);
  }
}

TEST_F(Zmk, FreesNothingForNull) {
  zmk_free(nullptr, kFile, 1);
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, CopiesATextWithItsZero) {
  char* copy = zmk_strdup("abc", kFile, 30);
  EXPECT_STREQ(copy, "abc");
  EXPECT_EQ(zmk_usage_of(kFile, 30), (ZmkUsage{1, 4}));
  zmk_free(copy, kFile, 31);
}

TEST_F(Zmk, MovesAResizedBlockToTheLineThatResizedIt) {
  char* block = zmk_strdup("content", kFile, 40);
  block = static_cast<char*>(zmk_realloc(block, 5000, kOtherFile, 41));
  EXPECT_STREQ(block, "content");
  EXPECT_EQ(zmk_usage_of(kFile, 40), (ZmkUsage{0, 0}));
  EXPECT_EQ(zmk_usage_of(kOtherFile, 41), (ZmkUsage{1, 5000}));
  zmk_free(block, kFile, 42);
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, AllocatesWhenItResizesNull) {
  void* block = zmk_realloc(nullptr, 8, kFile, 50);
  EXPECT_EQ(zmk_usage_of(kFile, 50), (ZmkUsage{1, 8}));
  zmk_free(block, kFile, 51);
}

TEST_F(Zmk, VisitsTheLinesWithLiveBlocksOnceEach) {
  void* live = zmk_malloc(3, kFile, 60);
  void* live_too = zmk_malloc(4, kFile, 60);
  zmk_free(zmk_malloc(3, kFile, 61), kFile, 62);
  std::map<std::pair<std::string, int>, ZmkUsage> visited;
  zmk_visit_lines(
      [](const char* file, int line, ZmkUsage usage, void* context) {
        auto& seen = *static_cast<decltype(visited)*>(context);
        EXPECT_TRUE(seen.emplace(std::pair(std::string(file), line), usage).second) << file << ':' << line;
      },
      &visited);
  EXPECT_EQ(visited.count({kFile, 61}), 0u);
  EXPECT_EQ((visited[{kFile, 60}]), (ZmkUsage{2, 7}));
  zmk_free(live, kFile, 63);
  zmk_free(live_too, kFile, 63);
}

TEST_F(Zmk, ReturnsNullAndCountsNothingWithoutMemory) {
  zmk_free(zmk_malloc(1, kFile, 70), kFile, 70);  // its line is known from here on
  failing_memory::fail_call(1);
  EXPECT_EQ(zmk_malloc(10, kFile, 70), nullptr);
  failing_memory::fail_call(1);
  EXPECT_EQ(zmk_strdup("text", kFile, 70), nullptr);
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, ReturnsNullWithoutMemoryToRememberTheLine) {
  failing_memory::fail_call(1);
  EXPECT_EQ(zmk_malloc(10, kFile, 71), nullptr);
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, LeavesABlockAloneThatCannotBeResized) {
  char* block = zmk_strdup("kept", kFile, 72);
  zmk_free(zmk_malloc(1, kFile, 73), kFile, 73);
  failing_memory::fail_call(1);
  EXPECT_EQ(zmk_realloc(block, 100, kFile, 73), nullptr);
  EXPECT_STREQ(block, "kept");
  EXPECT_EQ(zmk_usage_of(kFile, 72), (ZmkUsage{1, 5}));
  failing_memory::fail_call(1);
  EXPECT_EQ(zmk_realloc(block, 100, kFile, 74), nullptr) << "no memory to remember the line";
  EXPECT_EQ(zmk_usage_of(kFile, 72), (ZmkUsage{1, 5}));
  zmk_free(block, kFile, 75);
}

TEST_F(Zmk, StaysConsistentWhenItsOwnTableCannotGrow) {
  // Every second allocation finds no memory, the table's own ones among them.
  std::vector<void*> blocks;
  for (int i = 0; i < 20000; ++i) {
    if (i % 2 == 0) {
      failing_memory::fail_call(1);
    }
    if (void* block = zmk_malloc(1, kFile, 76)) {
      blocks.push_back(block);
    }
    failing_memory::reset();
  }
  EXPECT_EQ(blocks.size(), 10000u);
  EXPECT_EQ(zmk_usage_of(kFile, 76).blocks, blocks.size());
  for (void* block : blocks) {
    zmk_free(block, kFile, 77);
  }
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

TEST_F(Zmk, AgreesWithAPlainModelOverManyRandomCalls) {
  std::mt19937 random(static_cast<unsigned>(support::chosen_seed()));
  struct Block {
    std::size_t size;
    int line;
  };
  std::map<char*, Block> model;
  const auto pick = [&] { return std::next(model.begin(), static_cast<long>(random() % model.size())); };
  for (int i = 0; i < 30000; ++i) {
    const std::size_t size = 1 + random() % 64;
    const int line = 1000 + static_cast<int>(random() % 7);
    const unsigned act = model.empty() ? 0 : random() % 4;
    if (act <= 1) {
      model[static_cast<char*>(zmk_malloc(size, kFile, line))] = {size, line};
    } else if (act == 2) {
      const auto chosen = pick();
      char* resized = static_cast<char*>(zmk_realloc(chosen->first, size, kFile, line));
      model.erase(chosen);
      model[resized] = {size, line};
    } else {
      const auto chosen = pick();
      zmk_free(chosen->first, kFile, line);
      model.erase(chosen);
    }
  }
  std::map<int, ZmkUsage> expected;
  for (const auto& [block, what] : model) {
    expected[what.line].blocks += 1;
    expected[what.line].bytes += what.size;
  }
  for (int line = 1000; line < 1007; ++line) {
    EXPECT_EQ(zmk_usage_of(kFile, line), expected[line]) << line;
  }
  for (const auto& [block, what] : model) {
    zmk_free(block, kFile, what.line);
  }
  EXPECT_EQ(Growth(), (ZmkUsage{0, 0}));
}

using ZmkDeathTest = Zmk;

TEST_F(ZmkDeathTest, AbortsOnADoubleFreeAndSaysWhere) {
  void* block = zmk_malloc(1, kFile, 80);
  zmk_free(block, kFile, 81);
  EXPECT_EXIT(zmk_free(block, "gamma.cpp", 82), testing::KilledBySignal(SIGABRT),
              HasSubstr("is no live block, called at gamma.cpp:82"));
}

TEST_F(ZmkDeathTest, AbortsOnAPointerIntoABlock) {
  char* block = zmk_strdup("text", kFile, 83);
  EXPECT_EXIT(zmk_free(block + 1, "gamma.cpp", 84), testing::KilledBySignal(SIGABRT), HasSubstr("zmk_free(): "));
  zmk_free(block, kFile, 85);
}

TEST_F(ZmkDeathTest, AbortsOnAForeignPointerWithoutLookingAtIt) {
  void* nowhere = reinterpret_cast<void*>(std::uintptr_t{16});
  EXPECT_EXIT(zmk_free(nowhere, "gamma.cpp", 86), testing::KilledBySignal(SIGABRT), HasSubstr("gamma.cpp:86"));
  EXPECT_EXIT(zmk_realloc(nowhere, 5, "gamma.cpp", 87), testing::KilledBySignal(SIGABRT),
              HasSubstr("zmk_realloc(): 0x10 is no live block, called at gamma.cpp:87"));
}
