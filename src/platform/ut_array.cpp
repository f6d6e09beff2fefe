// SPDX-License-Identifier: MIT
#include "platform/ut_array.h"

#include <cstdlib>
#include <cstring>

#include "platform/zmk.h"

namespace {

void copy_text(void* destination, const void* source) {
  const char* text = *static_cast<const char* const*>(source);
  *static_cast<char**>(destination) = text != nullptr ? zmk_strdup(text, __FILE__, __LINE__) : nullptr;
}

void free_text(void* element) { zmk_free(*static_cast<char**>(element), __FILE__, __LINE__); }

const UT_icd kTextElement = {sizeof(char*), nullptr, copy_text, free_text};
const UT_icd kIndexElement = {sizeof(std::int32_t), nullptr, nullptr, nullptr};

}  // namespace

// The macros of utarray.h name these functions where they are used; here is where, and nowhere else.
#define malloc(size) zmk_malloc((size), __FILE__, __LINE__)
#define realloc(ptr, size) zmk_realloc((ptr), (size), __FILE__, __LINE__)
#define free(ptr) zmk_free((ptr), __FILE__, __LINE__)

namespace {

// utarray_new would end the process when there is no memory; a caller here wants to say so itself.
UT_array* new_array(const UT_icd* element) {
  UT_array* array = static_cast<UT_array*>(zmk_malloc(sizeof(UT_array), __FILE__, __LINE__));
  if (array != nullptr) {
    utarray_init(array, element);
  }
  return array;
}

}  // namespace

UT_array* text_array_new() { return new_array(&kTextElement); }

UT_array* index_array_new() { return new_array(&kIndexElement); }

void text_array_push(UT_array* array, const char* text) { utarray_push_back(array, &text); }

void index_array_push(UT_array* array, std::int32_t index) { utarray_push_back(array, &index); }

unsigned array_count(const UT_array* array) { return utarray_len(array); }

const char* text_array_at(const UT_array* array, unsigned position) {
  if (position >= array_count(array)) {
    return nullptr;
  }
  return *reinterpret_cast<char* const*>(array->d + sizeof(char*) * position);
}

const std::int32_t* index_array_at(const UT_array* array, unsigned position) {
  if (position >= array_count(array)) {
    return nullptr;
  }
  return reinterpret_cast<const std::int32_t*>(array->d + sizeof(std::int32_t) * position);
}

void array_free(UT_array* array) {
  if (array != nullptr) {
    utarray_free(array);
  }
}
