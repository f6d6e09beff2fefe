// SPDX-License-Identifier: MIT
#include "fakes/fake_zmk.h"

#include <cstddef>
#include <string_view>

extern "C" {
void* __real_zmk_malloc(std::size_t size, const char* file, int line);
char* __real_zmk_strdup(const char* text, const char* file, int line);
void* __wrap_zmk_malloc(std::size_t size, const char* file, int line);
char* __wrap_zmk_strdup(const char* text, const char* file, int line);
}

namespace {

// Calls that are still to succeed, and the failing one; 0: none fails.
struct Countdown {
  unsigned left = 0;

  bool expires() { return left > 0 && --left == 0; }
};

Countdown gAny;
Countdown gMalloc;
Countdown gStrdup;
const char* gFailingFile = nullptr;
int gFailingLine = 0;
unsigned gCalls = 0;

bool fails(Countdown& own, const char* file, int line) {
  ++gCalls;
  const bool any_expired = gAny.expires();
  const bool own_expired = own.expires();
  const bool at_line =
      gFailingFile != nullptr && line == gFailingLine && std::string_view(file).ends_with(gFailingFile);
  return any_expired || own_expired || at_line;
}

}  // namespace

extern "C" void* __wrap_zmk_malloc(std::size_t size, const char* file, int line) {
  return fails(gMalloc, file, line) ? nullptr : __real_zmk_malloc(size, file, line);
}

extern "C" char* __wrap_zmk_strdup(const char* text, const char* file, int line) {
  return fails(gStrdup, file, line) ? nullptr : __real_zmk_strdup(text, file, line);
}

namespace fake_zmk {

void fail_call(unsigned nth) { gAny.left = nth; }
void fail_malloc(unsigned nth) { gMalloc.left = nth; }
void fail_strdup(unsigned nth) { gStrdup.left = nth; }

void fail_line(const char* file, int line) {
  gFailingFile = file;
  gFailingLine = line;
}

unsigned calls() { return gCalls; }

void reset() {
  gAny = gMalloc = gStrdup = Countdown{};
  gFailingFile = nullptr;
  gCalls = 0;
}

}  // namespace fake_zmk
