// SPDX-License-Identifier: MIT
// The tracking allocator running out of memory on demand. Every call that is not told to fail is the real one.
#pragma once

namespace fake_zmk {

// Makes the nth zmk_malloc or zmk_strdup from now return null, counting both together (1: the very next). Only that one
// fails.
void fail_call(unsigned nth);

// Like fail_call, counting the calls of one of the two alone.
void fail_malloc(unsigned nth);
void fail_strdup(unsigned nth);

// Makes every zmk_malloc or zmk_strdup of this source file (the end of its path) at this line fail; null: none.
void fail_line(const char* file, int line);

// zmk_malloc and zmk_strdup calls since reset, the failed ones included.
unsigned calls();

// Lets everything succeed again and counts from 0.
void reset();

}  // namespace fake_zmk
