// SPDX-License-Identifier: MIT
// DNS names as text and on the wire: splitting, unescaping, bounded copies.
//
// Text is the presentation format of dns_sd.h: labels separated by dots, a dot or backslash inside a label escaped by a
// backslash, other bytes as "\DDD". Every operation stays inside its source (never past the terminating zero, never
// past the end of wire data) and inside its destination, terminator included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

// RFC 1035 section 2.3.4: the most bytes that one label holds.
inline constexpr std::size_t kLabelMax = 63;

// Joins texts into dst[size] (size > 0), terminated and cut to fit. Whether all of them fitted.
bool join_text(char* dst, std::size_t size, std::initializer_list<std::string_view> texts);

template <std::size_t Size>
bool join_text(char (&dst)[Size], std::initializer_list<std::string_view> texts) {
  return join_text(dst, Size, texts);
}

// Copies a text into dst, terminated and cut to fit; a null text gives an empty one. Whether all of it fitted.
template <std::size_t Size>
bool copy_text(char (&dst)[Size], const char* text) {
  return join_text(dst, Size, {text != nullptr ? std::string_view(text) : std::string_view()});
}

// The number of labels of a dotted name. The end of the text ends the count, and so does an empty label (two dots in a
// row, a dot at the end). 0 for null.
int count_labels(const char* name);

// Copies from the text at *cursor up to its n-th unescaped dot, or its end, into [dst, dst_end), escapes as they stand,
// and terminates the copy. The last byte of the room is kept for the terminator; what does not fit is left out. *cursor
// goes one past where the copy stopped (past the dot), but never past the terminating zero. 0, or -1 and nothing
// touched when there is no text or no room for a terminator.
int copy_next_label(char* dst, const char* dst_end, const char** cursor, int n);

// Unescapes a label of presentation format into dst, which must have room for strlen(src) + 1 bytes: "\\" and "\." give
// the second character, a backslash before anything else takes the next three characters as decimal digits of one byte
// (they are not checked; the value is taken modulo 256). An escape that the end of the text cuts short is left out.
// Returns the terminating zero in dst. A null argument, or more than kNameSize characters, ends the process (600).
char* ConvertDomainNameToCString_UnEnsacpe(const char* src, char* dst);

// Cuts a name of presentation format down to its first label: every unescaped dot becomes a zero. Returns `name`; null
// for null.
char* terminate_at_first_label(char* name);

// Takes the next label off a name in wire format (RFC 1035 section 3.1, uncompressed): its bytes, none for the root.
// Nothing, and `rest` untouched, when `rest` does not begin with a whole label.
std::optional<std::span<const std::uint8_t>> next_wire_label(std::span<const std::uint8_t>& rest);

// Turns the name in wire format at the start of `rest` into dotted text in dst[size] (size > 0), "a.b.local.", empty
// for the root, and moves `rest` behind the name's terminating zero. Label bytes are copied as they are (a label's own
// zero byte ends it); the text is cut to fit. A name that is not whole within `rest` gives an empty text. Returns the
// number of characters written.
std::size_t wire_name_to_text(char* dst, std::size_t size, std::span<const std::uint8_t>& rest);
