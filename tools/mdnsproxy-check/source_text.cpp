// SPDX-License-Identifier: MIT
#include "mdnsproxy-check/source_text.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>

namespace {

constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kBlanks = " \t\r\n\f\v";

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string_view element_name(std::string_view after_bracket) {
  const std::size_t length = after_bracket.find_first_of(" \t\r\n\f\v/>\"'=<!?");
  return after_bracket.substr(0, length);
}

bool is_blank(char c) { return kBlanks.find(c) != std::string_view::npos; }

}  // namespace

SourceText source_of_text(const std::string& path, std::string_view text) {
  SourceText source;
  source.path = path;
  source.file_size = static_cast<int>(text.size());
  source.has_zero_byte = text.find('\0') != std::string_view::npos;
  source.text = text.substr(0, text.find('\0'));
  source.line_starts.push_back(0);
  for (std::size_t i = 0; i < source.text.size(); ++i) {
    if (source.text[i] == '\n') {
      source.line_starts.push_back(i + 1);
    }
  }
  return source;
}

ReadOutcome read_source(const std::string& path, const std::optional<Reader>& reader, SourceText& source) {
  source = source_of_text(path, "");
  const Stream stream(std::fopen(path.c_str(), "r"), &std::fclose);
  if (stream == nullptr || (reader && !can_read(path, *reader))) {
    return ReadOutcome::not_found;
  }
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || status.st_size == 0) {
    return ReadOutcome::stat_invalid;
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const bool complete = std::fread(text.data(), 1, text.size(), stream.get()) == text.size();
  source = source_of_text(path, complete ? text : "");
  source.file_size = static_cast<int>(text.size());
  return complete ? ReadOutcome::ok : ReadOutcome::read_error;
}

Position position_of(const SourceText& source, std::size_t offset) {
  const auto next = std::upper_bound(source.line_starts.begin(), source.line_starts.end(), offset);
  const std::size_t line = static_cast<std::size_t>(next - source.line_starts.begin());
  return {static_cast<unsigned>(line), static_cast<unsigned>(offset - source.line_starts[line - 1] + 1)};
}

std::vector<Stretch> comments_of(const SourceText& source) {
  std::vector<Stretch> comments;
  const std::string_view text = source.text;
  std::size_t begin = text.find(kCommentStart);
  while (begin != std::string_view::npos) {
    const std::size_t close = text.find(kCommentEnd, begin + kCommentStart.size());
    const std::size_t end = close == std::string_view::npos ? text.size() : close + kCommentEnd.size();
    comments.push_back({begin, end});
    begin = text.find(kCommentStart, end);
  }
  return comments;
}

bool lies_in(const std::vector<Stretch>& stretches, std::size_t offset) {
  return std::any_of(stretches.begin(), stretches.end(),
                     [offset](const Stretch& each) { return offset >= each.begin && offset < each.end; });
}

std::vector<Tag> tags_of(const SourceText& source) {
  std::vector<Tag> tags;
  const std::vector<Stretch> comments = comments_of(source);
  const std::string_view text = source.text;
  for (std::size_t begin = text.find('<'); begin != std::string_view::npos; begin = text.find('<', begin + 1)) {
    if (lies_in(comments, begin)) {
      continue;
    }
    const std::size_t close = text.find('>', begin);
    const std::size_t end = close == std::string_view::npos ? text.size() : close + 1;
    tags.push_back({begin, end, element_name(text.substr(begin + 1, end - begin - 1))});
  }
  return tags;
}

bool same_ignoring_case(std::string_view one, std::string_view other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

std::size_t find_single_quote(const SourceText& source, std::size_t begin, std::size_t end) {
  bool after_equals = false;
  for (std::size_t i = begin; i < end; ++i) {
    const char c = source.text[i];
    if (c == '\'' && after_equals) {
      return i;
    }
    after_equals = c == '=' || (after_equals && is_blank(c));
  }
  return std::string::npos;
}

std::size_t find_empty_value(const SourceText& source, std::size_t from, std::size_t end) {
  const std::size_t quote = source.text.find('"', from);
  const bool empty = quote != std::string::npos && quote + 1 < end && source.text[quote + 1] == '"';
  return empty ? quote : std::string::npos;
}
