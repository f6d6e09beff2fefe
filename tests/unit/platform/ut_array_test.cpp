// SPDX-License-Identifier: MIT
#include "platform/ut_array.h"

#include <gmock/gmock.h>

#include "fakes/failing_memory.h"
#include "platform/zmk.h"

namespace {

class Arrays : public testing::Test {
 protected:
  ~Arrays() override { failing_memory::reset(); }
};

}  // namespace

TEST_F(Arrays, KeepCopiesOfTheirTextsInOrder) {
  UT_array* array = text_array_new();
  char text[] = "first";
  text_array_push(array, text);
  text[0] = 'x';
  text_array_push(array, "second");
  ASSERT_EQ(array_count(array), 2u);
  EXPECT_STREQ(text_array_at(array, 0), "first");
  EXPECT_STREQ(text_array_at(array, 1), "second");
  EXPECT_EQ(text_array_at(array, 2), nullptr);
  array_free(array);
}

TEST_F(Arrays, KeepIntegersInOrder) {
  UT_array* array = index_array_new();
  for (std::int32_t index = 0; index < 100; ++index) {
    index_array_push(array, -index);
  }
  ASSERT_EQ(array_count(array), 100u);
  EXPECT_EQ(*index_array_at(array, 0), 0);
  EXPECT_EQ(*index_array_at(array, 99), -99);
  EXPECT_EQ(index_array_at(array, 100), nullptr);
  array_free(array);
}

TEST_F(Arrays, LeaveNothingBehind) {
  const ZmkUsage before = zmk_usage();
  UT_array* array = text_array_new();
  for (int i = 0; i < 50; ++i) {
    text_array_push(array, "text");
  }
  EXPECT_GT(zmk_usage().blocks, before.blocks + 50);
  array_free(array);
  array_free(nullptr);
  EXPECT_EQ(zmk_usage().blocks, before.blocks);
  EXPECT_EQ(zmk_usage().bytes, before.bytes);
}

TEST_F(Arrays, CannotBeMadeWithoutMemory) {
  array_free(text_array_new());  // the allocator knows the line from here on
  failing_memory::fail_call(1);
  EXPECT_EQ(text_array_new(), nullptr);
  failing_memory::fail_call(1);
  EXPECT_EQ(index_array_new(), nullptr);
}
