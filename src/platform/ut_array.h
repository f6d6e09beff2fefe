// SPDX-License-Identifier: MIT
// Dynamic arrays of texts and of interface indexes: utarray with its memory taken from the tracking allocator.
//
// An array that cannot grow ends the process with status -1 and no message (the library's default); only the creation
// of an array reports that there is no memory.
#pragma once

#include <utarray.h>

#include <cstdint>

// An empty array whose elements are owned copies of texts; null when there is no memory.
UT_array* text_array_new();

// An empty array of 32-bit integers; null when there is no memory.
UT_array* index_array_new();

// Appends a copy of the text. An element whose copy found no memory is null.
void text_array_push(UT_array* array, const char* text);

// Appends the integer.
void index_array_push(UT_array* array, std::int32_t index);

// Number of elements.
unsigned array_count(const UT_array* array);

// The element at `position` (0 for the first), owned by the array and valid until it changes; null past the end.
const char* text_array_at(const UT_array* array, unsigned position);

// A pointer to the element at `position`, valid until the array changes; null past the end.
const std::int32_t* index_array_at(const UT_array* array, unsigned position);

// Frees the array and everything in it. Null does nothing.
void array_free(UT_array* array);
