// SPDX-License-Identifier: MIT
#include "mdns/state/heap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "mdns/state/random.h"
#include "support/seed.h"

namespace mdns {
namespace {

struct Item {
  Deadline due;
};
using Items = Heap<Item, &Item::due>;

TEST(Heap, IsNeverDueWhenEmpty) { EXPECT_EQ(Items().next(), kNever); }

TEST(Heap, KnowsTheEarliest) {
  std::array<Item, 3> items;
  Items heap;
  heap.set(items[0], 30);
  heap.set(items[1], 10);
  heap.set(items[2], 20);
  EXPECT_EQ(heap.next(), 10);
  EXPECT_EQ(heap.first(), &items[1]);
}

TEST(Heap, MovesToEarlierAndLater) {
  std::array<Item, 2> items;
  Items heap;
  heap.set(items[0], 10);
  heap.set(items[1], 20);
  heap.set(items[0], 30);
  EXPECT_EQ(heap.first(), &items[1]);
  heap.set(items[0], 5);
  EXPECT_EQ(heap.first(), &items[0]);
  EXPECT_EQ(heap.items.size(), 2u);
}

TEST(Heap, TakesOut) {
  std::array<Item, 2> items;
  Items heap;
  heap.set(items[0], 10);
  heap.set(items[1], 20);
  heap.set(items[0], kNever);
  heap.set(items[0], kNever);
  EXPECT_EQ(heap.next(), 20);
  heap.set(items[1], kNever);
  EXPECT_EQ(heap.next(), kNever);
  EXPECT_TRUE(heap.items.empty());
}

TEST(Heap, AgreesWithASearchAfterAnyChanges) {
  Random random;
  random_seed(random, support::chosen_seed());
  std::array<Item, 50> items;
  Items heap;
  for (int i = 0; i < 20'000; ++i) {
    Item& item = items[static_cast<std::size_t>(random_between(random, 0, 49))];
    heap.set(item, random_between(random, 0, 3) == 0 ? kNever : random_between(random, 0, 100));
    const auto earlier = [](const Item& a, const Item& b) { return a.due.at < b.due.at; };
    ASSERT_EQ(heap.next(), std::min_element(items.begin(), items.end(), earlier)->due.at);
    const auto is_in = [](const Item& each) { return each.due.at != kNever; };
    ASSERT_EQ(heap.items.size(), static_cast<std::size_t>(std::count_if(items.begin(), items.end(), is_in)));
    ASSERT_TRUE(heap.items.empty() || heap.first()->due.at == heap.next());
  }
}

TEST(Random, IsDecidedByItsSeed) {
  Random one;
  Random same;
  Random other;
  random_seed(one, 1);
  random_seed(same, 1);
  random_seed(other, 2);
  EXPECT_EQ(random_next(one), random_next(same));
  EXPECT_NE(random_next(one), random_next(other));
}

TEST(Random, TakesZeroForASeed) {
  Random random;
  random_seed(random, 0);
  EXPECT_NE(random_next(random), random_next(random));
}

TEST(Random, ReachesBothEndsAndNothingBeyond) {
  Random random;
  random_seed(random, support::chosen_seed());
  std::array<int, 5> counts{};
  for (int i = 0; i < 1000; ++i) {
    const Time time = random_between(random, 20, 24);
    ASSERT_GE(time, 20);
    ASSERT_LE(time, 24);
    ++counts[static_cast<std::size_t>(time - 20)];
  }
  EXPECT_THAT(counts, ::testing::Each(::testing::Gt(100)));
  EXPECT_EQ(random_between(random, 7, 7), 7);
}

}  // namespace
}  // namespace mdns
