// SPDX-License-Identifier: MIT
#include "proxy/names.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "proxy/proxy.h"
#include "runtime/runtime.h"

bool join_text(char* dst, std::size_t size, std::initializer_list<std::string_view> texts) {
  std::size_t written = 0;
  bool fits = true;
  for (const std::string_view text : texts) {
    const std::size_t kept = text.copy(dst + written, size - 1 - written);
    fits = fits && kept == text.size();
    written += kept;
  }
  dst[written] = '\0';
  return fits;
}

// --- Presentation format ---------------------------------------------------------------------------------------------

int copy_next_label(char* dst, const char* dst_end, const char** cursor, int n) {
  if (*cursor == nullptr || dst >= dst_end) {
    return -1;
  }
  const char* const last = dst_end - 1;  // the terminator's place when the room is used up
  const char* from = *cursor;
  while (*from != '\0' && dst != last) {
    if (*from == '.' && --n < 1) {
      break;
    }
    if (*from == '\\') {
      *dst++ = *from++;
      if (*from == '\0' || dst == last) {
        break;
      }
    }
    *dst++ = *from++;
  }
  *dst = '\0';
  *cursor = *from != '\0' ? from + 1 : from;
  return 0;
}

int count_labels(const char* name) {
  const char* cursor = name;
  int count = 0;
  char label[kNameSize] = {};
  while (copy_next_label(label, label + sizeof label, &cursor, 1) == 0 && label[0] != '\0') {
    ++count;
  }
  return count;
}

namespace {

// The byte that three characters give as decimal digits, whatever they are.
char decimal_byte(const char* digits) {
  const int value = (digits[0] - '0') * 100 + (digits[1] - '0') * 10 + (digits[2] - '0');
  return static_cast<char>(static_cast<unsigned char>(value));
}

}  // namespace

char* ConvertDomainNameToCString_UnEnsacpe(const char* src, char* dst) {
  constexpr std::size_t kDecimalEscape = 4;  // "\DDD"
  if (src == nullptr || dst == nullptr || std::strlen(src) > kNameSize) {
    fatal_error(MYSTATUS__DNSSD_ERROR, LOG_WARNING,
                "ConvertDomainNameToCString_UnEnsacpe(): Error Invalid input parameters!");
  }
  while (*src != '\0') {
    if (*src != '\\') {
      *dst++ = *src++;
    } else if (src[1] == '\\' || src[1] == '.') {
      *dst++ = src[1];
      src += 2;
    } else if (strnlen(src, kDecimalEscape) < kDecimalEscape) {
      break;
    } else {
      *dst++ = decimal_byte(src + 1);
      src += kDecimalEscape;
    }
  }
  *dst = '\0';
  return dst;
}

char* terminate_at_first_label(char* name) {
  for (char* at = name; at != nullptr && *at != '\0'; ++at) {
    if (*at == '.') {
      *at = '\0';
    } else if (*at == '\\' && *++at == '\0') {
      break;
    }
  }
  return name;
}

// --- Wire format -----------------------------------------------------------------------------------------------------

std::optional<std::span<const std::uint8_t>> next_wire_label(std::span<const std::uint8_t>& rest) {
  if (rest.empty() || rest[0] > kLabelMax || rest[0] >= rest.size()) {
    return std::nullopt;
  }
  const std::size_t length = rest[0];
  const std::span<const std::uint8_t> label = rest.subspan(1, length);
  rest = rest.subspan(1 + length);
  return label;
}

std::size_t wire_name_to_text(char* dst, std::size_t size, std::span<const std::uint8_t>& rest) {
  std::size_t written = 0;
  dst[0] = '\0';
  while (const auto label = next_wire_label(rest)) {
    if (label->empty()) {
      return written;
    }
    const int length = std::snprintf(dst + written, size - written, "%.*s.", static_cast<int>(label->size()),
                                     reinterpret_cast<const char*>(label->data()));
    written = std::min(written + static_cast<std::size_t>(length), size - 1);
  }
  dst[0] = '\0';
  return 0;
}
