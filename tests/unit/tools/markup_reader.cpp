// SPDX-License-Identifier: MIT
#include "unit/tools/markup_reader.h"

#include <algorithm>

namespace {

struct Reader {
  std::string_view rest;
  MarkupReading reading;
  std::vector<std::string> open;
};

bool fail(Reader& reader, const std::string& why) {
  reader.reading.fault = why + " before: " + std::string(reader.rest.substr(0, 60));
  return false;
}

void add_text(Reader& reader, const std::string& text) {
  if (!reader.open.empty() && reader.open.back() == "style") {
    return;
  }
  reader.reading.text += text;
  for (const std::string& each : reader.open) {
    if (each == "bdi") {
      reader.reading.isolated.back() += text;
    }
  }
}

bool read_end_tag(Reader& reader, const std::string& name) {
  if (reader.open.empty() || reader.open.back() != name) {
    return fail(reader, "</" + name + "> closes something else");
  }
  reader.open.pop_back();
  return true;
}

// Takes what consists of lower-case letters, digits and hyphens; how much that was.
std::size_t skip_word(std::string_view& text) {
  const std::size_t length = std::min(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), text.size());
  text.remove_prefix(length);
  return length;
}

// ' name="value"' for each.
bool skip_attributes(std::string_view& text) {
  while (text.starts_with(" ")) {
    text.remove_prefix(1);
    const bool named = skip_word(text) > 0 && text.starts_with("=\"");
    const std::size_t end = named ? text.find('"', 2) : std::string_view::npos;
    if (end == std::string_view::npos) {
      return false;
    }
    text.remove_prefix(end + 1);
  }
  return true;
}

bool read_start_tag(Reader& reader, const std::string& tag) {
  std::string_view rest = tag;
  const std::string name = tag.substr(0, skip_word(rest));
  if (name.empty() || !skip_attributes(rest) || (!rest.empty() && rest != "/")) {
    return fail(reader, "<" + tag + "> is no tag");
  }
  reader.reading.tags.push_back(tag);
  if (rest.empty()) {
    reader.open.push_back(name);
  }
  if (name == "bdi") {
    reader.reading.isolated.emplace_back();
  }
  return true;
}

bool read_tag(Reader& reader) {
  const std::size_t end = reader.rest.find('>');
  if (end == std::string_view::npos) {
    return fail(reader, "a tag without an end");
  }
  const std::string tag(reader.rest.substr(1, end - 1));
  const bool good = tag == "!DOCTYPE html" ||
                    (tag.starts_with("/") ? read_end_tag(reader, tag.substr(1)) : read_start_tag(reader, tag));
  reader.rest.remove_prefix(good ? end + 1 : 0);
  return good;
}

bool read_escape(Reader& reader) {
  constexpr struct {
    std::string_view escape;
    const char* text;
  } kEscapes[] = {{"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}};
  for (const auto& each : kEscapes) {
    if (reader.rest.starts_with(each.escape)) {
      add_text(reader, each.text);
      reader.rest.remove_prefix(each.escape.size());
      return true;
    }
  }
  return fail(reader, "an unknown escape");
}

bool read_text(Reader& reader) {
  const std::size_t length = std::min(reader.rest.find_first_of("<&"), reader.rest.size());
  const std::string text(reader.rest.substr(0, length));
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F) {
      return fail(reader, "a control character");
    }
  }
  add_text(reader, text);
  reader.rest.remove_prefix(length);
  return true;
}

}  // namespace

MarkupReading read_markup(std::string_view markup) {
  Reader reader = {markup, {}, {}};
  bool good = true;
  while (good && !reader.rest.empty()) {
    good = reader.rest.front() == '<'   ? read_tag(reader)
           : reader.rest.front() == '&' ? read_escape(reader)
                                        : read_text(reader);
  }
  if (good && !reader.open.empty()) {
    fail(reader, "<" + reader.open.back() + "> is not closed");
  }
  return reader.reading;
}
