// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/text.h"

#include <clocale>
#include <cstdio>
#include <ctime>
#include <cwchar>
#include <iterator>
#include <optional>

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

// One character of a text: its code point and the bytes that it takes; no code point: the first byte is no UTF-8.
struct Character {
  std::optional<char32_t> code_point;
  std::size_t bytes;
};

// RFC 3629 section 4: shortest forms only, no surrogates, at most U+10FFFF.
Character first_character(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) {
    return {lead, 1};
  }
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
    return {std::nullopt, 1};
  }
  char32_t point = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return {std::nullopt, 1};
    }
    point = point << 6 | (byte(i) & 0x3FU);
  }
  const bool shortest = length == 2 || (length == 3 && point >= 0x800) || (length == 4 && point >= 0x10000);
  if (!shortest || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
    return {std::nullopt, 1};
  }
  return {point, length};
}

// Characters that format text without being seen (Unicode's Cf, and the separators of lines and paragraphs).
constexpr struct {
  char32_t first;
  char32_t last;
} kInvisible[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},       {0x600, 0x605},
                  {0x61C, 0x61C},   {0x6DD, 0x6DD},   {0x70F, 0x70F},     {0x180E, 0x180E},
                  {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},   {0xFEFF, 0xFEFF},
                  {0xFFF0, 0xFFFB}, {0xFFFE, 0xFFFF}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF}};

bool is_invisible(char32_t point) {
  for (const auto& range : kInvisible) {
    if (point >= range.first && point <= range.last) {
      return true;
    }
  }
  return false;
}

void append_bytes(std::string& text, std::string_view bytes) {
  for (const char c : bytes) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\%03u", static_cast<unsigned char>(c));
    text += escape;
  }
}

// Widths come from the C library, whose tables depend on the locale's encoding alone.
int width_of(char32_t point) {
  static const bool utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  const int width = utf8 ? wcwidth(static_cast<wchar_t>(point)) : 1;
  return width < 0 ? 1 : width;
}

}  // namespace

std::string shown(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Character character = first_character(text);
    const std::string_view bytes = text.substr(0, character.bytes);
    if (bytes == "\\") {
      result += "\\\\";
    } else if (!character.code_point || is_invisible(*character.code_point)) {
      append_bytes(result, bytes);
    } else {
      result += bytes;
    }
    text.remove_prefix(character.bytes);
  }
  return result;
}

std::string in_quotes(std::string_view text) {
  std::string result = "\"";
  for (const char c : shown(text)) {
    result += c == '"' ? "\\\"" : std::string(1, c);
  }
  return result + "\"";
}

std::size_t display_width(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = first_character(text);
    width += static_cast<std::size_t>(character.code_point ? width_of(*character.code_point) : 1);
    text.remove_prefix(character.bytes);
  }
  return width;
}

std::string table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], display_width(row[column]));
    }
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      text += row[column];
      text += column + 1 < row.size() ? std::string(widths[column] - display_width(row[column]) + 2, ' ') : "\n";
    }
  }
  return text;
}

std::string duration(std::uint64_t nanoseconds) {
  constexpr struct {
    std::uint64_t seconds;
    const char* name;
  } kUnits[] = {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}};
  const std::uint64_t seconds = nanoseconds / kNsPerSecond;
  for (std::size_t i = 0; i + 1 < std::size(kUnits); ++i) {
    if (seconds >= kUnits[i].seconds) {
      const std::uint64_t rest = seconds % kUnits[i].seconds / kUnits[i + 1].seconds;
      return std::to_string(seconds / kUnits[i].seconds) + " " + kUnits[i].name +
             (rest > 0 ? " " + std::to_string(rest) + " " + kUnits[i + 1].name : "");
    }
  }
  return std::to_string(seconds) + " s";
}

Clocks clocks_now() {
  const auto read = [](clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * kNsPerSecond + static_cast<std::uint64_t>(now.tv_nsec);
  };
  return {read(CLOCK_BOOTTIME), read(CLOCK_REALTIME)};
}

std::uint64_t age(std::uint64_t time, const Clocks& clocks) {
  return time < clocks.boottime ? clocks.boottime - time : 0;
}

std::string utc_time(std::uint64_t time, const Clocks& clocks) {
  const std::uint64_t ago = age(time, clocks);
  const std::uint64_t moment = ago < clocks.realtime ? clocks.realtime - ago : 0;
  const std::time_t seconds = static_cast<std::time_t>(moment / kNsPerSecond);
  std::tm utc = {};
  gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}
