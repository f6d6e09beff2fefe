// SPDX-License-Identifier: MIT
// A file as one text in memory.

#include "config/config_text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "fakes/fake_zmk.h"
#include "platform/zmk.h"
#include "unit/scratch_directory.h"

namespace {

class ConfigTextTest : public testing::Test {
 protected:
  ConfigText load(const std::string& content) {
    given("file", content);
    return load_config_text(open("file"), path_of("file").c_str());
  }

  void given(const std::string& name, const std::string& content) const { directory_.write(name, content); }
  std::string path_of(const std::string& name) const { return directory_.path_of(name); }
  std::FILE* open(const std::string& name) const { return std::fopen(path_of(name).c_str(), "r"); }

  ~ConfigTextTest() override { fake_zmk::reset(); }

 private:
  ScratchDirectory directory_;
};

TEST_F(ConfigTextTest, HoldsEveryByteAndAZeroBehindThem) {
  const std::string content = std::string("a\0b\xff", 4) + "\r\n";
  const std::size_t bytes_before = zmk_usage().bytes;
  ConfigText text = load(content);
  EXPECT_EQ(text.outcome, LoadOutcome::loaded);
  EXPECT_EQ(zmk_usage().bytes - bytes_before, content.size() + 1);
  EXPECT_EQ(std::string(text.buffer, text.size + 1), content + '\0');
  EXPECT_EQ(close_config_text(text), 0);
  EXPECT_EQ(zmk_usage().bytes, bytes_before);
}

TEST_F(ConfigTextTest, OneByteIsAText) {
  ConfigText text = load("x");
  EXPECT_EQ(text.outcome, LoadOutcome::loaded);
  EXPECT_STREQ(text.buffer, "x");
  close_config_text(text);
}

TEST_F(ConfigTextTest, AStreamIsReadAsFarAsItsPathSays) {
  given("stream", "12345");
  given("path", "123");
  ConfigText text = load_config_text(open("stream"), path_of("path").c_str());
  EXPECT_EQ(text.outcome, LoadOutcome::loaded);
  EXPECT_EQ(std::string(text.buffer, text.size + 1), std::string("123") + '\0');
  close_config_text(text);
}

TEST_F(ConfigTextTest, AStreamShorterThanItsPathIsShort) {
  given("stream", "12");
  given("path", "123");
  ConfigText text = load_config_text(open("stream"), path_of("path").c_str());
  EXPECT_EQ(text.outcome, LoadOutcome::short_read);
  EXPECT_EQ(text.size, 3U);
  close_config_text(text);
}

TEST_F(ConfigTextTest, ADirectoryIsNoText) {
  ConfigText text = load_config_text(open(""), path_of("").c_str());
  EXPECT_NE(text.outcome, LoadOutcome::loaded);
  close_config_text(text);
}

TEST_F(ConfigTextTest, AnEmptyFileIsInvalidAndHasNoBuffer) {
  ConfigText text = load("");
  EXPECT_EQ(text.outcome, LoadOutcome::stat_invalid);
  EXPECT_EQ(text.buffer, nullptr);
  EXPECT_EQ(text.size, 0U);
  EXPECT_EQ(close_config_text(text), 0);
}

TEST_F(ConfigTextTest, WithoutMemoryThereIsNoBufferButAStreamToClose) {
  fake_zmk::fail_malloc(1);
  ConfigText text = load("four");
  EXPECT_EQ(text.outcome, LoadOutcome::no_memory);
  EXPECT_EQ(text.buffer, nullptr);
  EXPECT_EQ(text.size, 4U);
  EXPECT_EQ(close_config_text(text), 0);
}

TEST_F(ConfigTextTest, NothingOfAClosedTextCanBeUsedByAccident) {
  ConfigText text = load("x");
  close_config_text(text);
  EXPECT_EQ(text.buffer, nullptr);
  EXPECT_EQ(text.file, nullptr);
}

}  // namespace
