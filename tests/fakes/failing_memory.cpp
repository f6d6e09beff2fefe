// SPDX-License-Identifier: MIT
#include "fakes/failing_memory.h"

#include <cstddef>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
}

namespace {

unsigned gCallsUntilFailure = 0;  // 0: none fails

bool fails() { return gCallsUntilFailure > 0 && --gCallsUntilFailure == 0; }

}  // namespace

extern "C" {

void* __wrap_malloc(std::size_t size) { return fails() ? nullptr : __real_malloc(size); }

void* __wrap_calloc(std::size_t count, std::size_t size) { return fails() ? nullptr : __real_calloc(count, size); }

void* __wrap_realloc(void* block, std::size_t size) { return fails() ? nullptr : __real_realloc(block, size); }

}  // extern "C"

namespace failing_memory {

void fail_call(unsigned nth) { gCallsUntilFailure = nth; }
void reset() { gCallsUntilFailure = 0; }

}  // namespace failing_memory
