// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/html.h"

#include "mdnsproxyctl/text.h"

namespace {

void append_escaped(std::string& markup, char c) {
  switch (c) {
    case '&':
      markup += "&amp;";
      break;
    case '<':
      markup += "&lt;";
      break;
    case '>':
      markup += "&gt;";
      break;
    case '"':
      markup += "&quot;";
      break;
    case '\'':
      markup += "&#39;";
      break;
    default:
      markup += c;
  }
}

}  // namespace

Html html_markup(HtmlConstant markup) { return {markup.text}; }

Html html_text(std::string_view text) { return html_shown(shown(text)); }

Html html_name(std::string_view name) { return html_element("bdi", html_text(name)); }

Html html_shown(std::string_view text) {
  Html html;
  for (const char c : text) {
    append_escaped(html.markup, c);
  }
  return html;
}

Html html_element(HtmlConstant tag_and_attributes, const Html& content) {
  const std::string_view start = tag_and_attributes.text;
  const std::string_view tag = start.substr(0, start.find(' '));
  std::string markup = "<";
  markup.append(start).append(">").append(content.markup).append("</").append(tag).append(">");
  return {markup};
}
