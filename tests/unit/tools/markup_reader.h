// SPDX-License-Identifier: MIT
// A strict reader of the pages that mdnsproxyctl makes: markup that both HTML and XML take for the same.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct MarkupReading {
  std::string fault;                  // "": it is well-formed
  std::string text;                   // everything between tags, with its escapes undone; the style sheet is left out
  std::vector<std::string> isolated;  // the text of each <bdi>, in order
  std::vector<std::string> tags;      // each start tag as it stands, without the angle brackets
};

// Reads markup up to its end or to the first fault. A fault is: a tag that is not closed in its order, an attribute
// that is not name="value", a "<" or "&" that is no tag and none of the five escapes of XML, a control character but
// the newline.
MarkupReading read_markup(std::string_view markup);
