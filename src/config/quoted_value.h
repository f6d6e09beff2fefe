// SPDX-License-Identifier: MIT
// How both configuration files delimit a value: by double quotes, nothing else, without escapes.
#pragma once

// The outcome of one split.
struct QuotedValue {
  char* value;  // the text between the quotes, ended by a zero in the buffer itself; null: there is none
  // Where a search after the value goes on: behind its closing quote, or the text's end when there is none.
  char* split;
};

// Splits the text at `from` (ended by the zero at `text_end`) at double quotes in place, as strtok_r does: the first
// piece is passed over, the second is the value, adjacent quotes are one delimiter and each delimiter used is
// overwritten with zero. So "" does not delimit an empty value: the value is then what stands between it and the next
// quote. A zero within the text stands where a value taken before was cut off, and ends a piece as its quote would have
// done at first.
//
// There is no value when no quote follows, when nothing but quotes follows, or when the closing quote is missing.
QuotedValue take_quoted_value(char* from, const char* text_end);
