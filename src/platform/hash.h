// SPDX-License-Identifier: MIT
// uthash with its memory taken from the tracking allocator. Include this, never <uthash.h>.
//
// When the library cannot get memory for its own buckets it ends the process with status -1 and no message (its
// default).
#pragma once

#include "platform/zmk.h"

#define uthash_malloc(size) zmk_malloc((size), __FILE__, __LINE__)
#define uthash_free(ptr, size) zmk_free((ptr), __FILE__, __LINE__)
#include <uthash.h>
