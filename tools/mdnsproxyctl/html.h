// SPDX-License-Identifier: MIT
// HTML that is also well-formed XML, in which words of strangers stay words: a text becomes markup by html_text,
// html_name or html_shown alone, and what is taken as it is must be a constant of the source; anything else does not
// compile.
#pragma once

#include <string>
#include <string_view>

struct Html {
  std::string markup;
};

inline Html& operator+=(Html& html, const Html& more) {
  html.markup += more.markup;
  return html;
}

inline Html operator+(Html html, const Html& more) { return html += more; }

// A text that is known when the program is compiled; a literal becomes one by itself.
struct HtmlConstant {
  consteval HtmlConstant(const char* literal) : text(literal) {}
  const char* text;
};

// Markup as it stands in the source.
Html html_markup(HtmlConstant markup);

// A stranger's text, or any other: made harmless as `shown` does, then escaped. Right between tags, and between double
// quotes as an attribute's value.
Html html_text(std::string_view text);

// The same, apart from its surroundings: a name in a script that is written from right to left does not turn the words
// beside it.
Html html_name(std::string_view name);

// A text that `shown` has made already, or that is our own: only escaped.
Html html_shown(std::string_view text);

// "<tag attributes>content</tag>", for a constant "tag attributes".
Html html_element(HtmlConstant tag_and_attributes, const Html& content);
