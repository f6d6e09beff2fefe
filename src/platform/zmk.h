// SPDX-License-Identifier: MIT
// The tracking allocator: every block of the daemon's dynamic memory is counted under the source line that asked for
// it, so that a test (or an operator with a debugger) can tell what a torn-down service instance has left behind.
//
// Plain malloc underneath. Not thread-safe: the daemon has one thread.
#pragma once

#include <cstddef>

extern "C" {

// Allocates `size` bytes (0 is taken as 1) and counts them under file:line. The bytes are not cleared. Returns null
// when there is no memory; nothing is counted then. `file` must live as long as the process (a string literal).
void* zmk_malloc(std::size_t size, const char* file, int line);

// Resizes a block of this allocator to `size` bytes (0 is taken as 1) and counts it under file:line from then on; a
// null `ptr` makes it zmk_malloc. Returns null when there is no memory; the old block is then untouched and still
// counted.
void* zmk_realloc(void* ptr, std::size_t size, const char* file, int line);

// Returns a copy of the text, counted like a block of strlen(text) + 1 bytes; null when there is no memory.
char* zmk_strdup(const char* text, const char* file, int line);

// Frees a block of this allocator; null does nothing. A pointer that is no live block of it is our own bug: the process
// is aborted with file:line on standard error.
void zmk_free(void* ptr, const char* file, int line);

}  // extern "C"

// What is live: number of blocks, and the bytes that were asked for.
struct ZmkUsage {
  std::size_t blocks;
  std::size_t bytes;

  bool operator==(const ZmkUsage&) const = default;
};

// Everything that is live now.
ZmkUsage zmk_usage();

// What is live now of the blocks that were allocated at this line; zeros for a line that never allocated.
ZmkUsage zmk_usage_of(const char* file, int line);

// Calls `visit` once for each allocating line that has live blocks, in no particular order. `visit` must not allocate
// here.
void zmk_visit_lines(void (*visit)(const char* file, int line, ZmkUsage usage, void* context), void* context);
