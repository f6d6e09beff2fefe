// SPDX-License-Identifier: MIT
// A configuration file as its writer sees it: lines, tags, comments. The scanners judge what the daemon makes of the
// file; what stands here only serves to find where the two readings differ.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mdnsproxy-check/finding.h"
#include "mdnsproxy-check/reader.h"

enum class ReadOutcome {
  ok,
  not_found,     // cannot be opened
  stat_invalid,  // no size to be had, or nothing in it
  read_error,    // shorter than its size
};

struct SourceText {
  std::string path;
  std::string text;  // up to the first zero byte, where the daemon stops reading
  bool has_zero_byte = false;
  int file_size = 0;                     // bytes in the file
  std::vector<std::size_t> line_starts;  // offset of the first byte of each line
};

// A tag as XML has it, from '<' to the next '>'.
struct Tag {
  std::size_t begin;      // of the '<'
  std::size_t end;        // one past the '>', or the end of the text
  std::string_view name;  // element name as written; empty for a comment, a declaration or an end tag
};

// A stretch of the text, [begin, end).
struct Stretch {
  std::size_t begin;
  std::size_t end;
};

// Reads the file in the order of the daemon's own tests. `source.path` is set whatever the outcome. What the reader, if
// there is one, cannot open counts as not found.
ReadOutcome read_source(const std::string& path, const std::optional<Reader>& reader, SourceText& source);

// A source made of a text instead of a file.
SourceText source_of_text(const std::string& path, std::string_view text);

// Where a byte stands.
Position position_of(const SourceText& source, std::size_t offset);

// The tags outside of comments, in order.
std::vector<Tag> tags_of(const SourceText& source);

// The comments, in order. An unclosed one reaches to the end of the text.
std::vector<Stretch> comments_of(const SourceText& source);

// Whether the offset lies in one of the stretches.
bool lies_in(const std::vector<Stretch>& stretches, std::size_t offset);

// The text of a stretch of the source.
inline std::string_view text_between(const SourceText& source, std::size_t begin, std::size_t end) {
  return std::string_view(source.text).substr(begin, end - begin);
}

// Whether the two are equal but for the case of ASCII letters.
bool same_ignoring_case(std::string_view one, std::string_view other);

// Offset of the first single quote that a writer meant to delimit a value with (it follows an equals sign), within
// [begin, end); npos: none.
std::size_t find_single_quote(const SourceText& source, std::size_t begin, std::size_t end);

// Whether the first double quote in [from, end) has another one right behind it, and where; npos: it has not.
std::size_t find_empty_value(const SourceText& source, std::size_t from, std::size_t end);
