// SPDX-License-Identifier: MIT
// malloc, calloc and realloc of the code under test running out of memory on demand. A call that is not told to fail is
// the real one.
#pragma once

namespace failing_memory {

// Makes the nth of these calls from now, all three counted together, return null (1: the very next). Only that one
// fails.
void fail_call(unsigned nth);

// Lets everything succeed again.
void reset();

}  // namespace failing_memory
