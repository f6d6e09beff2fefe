// SPDX-License-Identifier: MIT
// Code under test that calls exit in the middle of a test would end the test program, and with status 0 as if all had
// gone well. Linked into every unit test program, this makes it a failure that names the test. Children of a test may
// exit as they like.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// made first, so that it is there when the handler runs
const testing::UnitTest& gUnitTest = *testing::UnitTest::GetInstance();
const pid_t gTestProgram = getpid();

void fail_in_the_middle_of_a_test() {
  const testing::TestInfo* test = gUnitTest.current_test_info();
  if (test != nullptr && getpid() == gTestProgram) {
    std::fprintf(stderr, "%s.%s ended the test program\n", test->test_suite_name(), test->name());
    _exit(EXIT_FAILURE);
  }
}

[[maybe_unused]] const int gRegistered = std::atexit(fail_in_the_middle_of_a_test);

}  // namespace
