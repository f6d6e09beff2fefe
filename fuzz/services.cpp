// SPDX-License-Identifier: MIT
// The services scanner over any text.
//
// Claims: it ends, each finding lies in the text, and a value is what stood there between two double quotes.

#include "config/services_scanner.h"

#include "fuzz.h"

namespace {

void check_value(std::string_view original, const ServicesItem& item) {
  const std::string_view value = item.value;
  fuzz::claim(!value.empty(), "a value is never empty");
  fuzz::claim(value.find('"') == value.npos, "a value holds no quote");
  fuzz::claim(original.substr(item.value_offset, value.size()) == value, "a value stands in the text where it says");
  fuzz::claim(original[item.value_offset - 1] == '"', "a quote stands before a value");
  fuzz::claim(original[item.value_offset + value.size()] == '"', "a quote stands behind a value");
}

void check_phrase(std::string_view original, const ServicesItem& item, std::string_view phrase) {
  fuzz::claim(original.substr(item.phrase_offset, phrase.size()) == phrase,
              "a phrase stands in the text where it says");
}

void check_item(std::string_view original, const ServicesItem& item) {
  switch (item.kind) {
    case ServicesItemKind::service_begins:
      check_phrase(original, item, kServiceStartPhrase);
      check_value(original, item);
      break;
    case ServicesItemKind::type:
      check_phrase(original, item, kServiceTypePhrase);
      check_value(original, item);
      fuzz::claim(item.service != nullptr, "a type belongs to a service");
      break;
    case ServicesItemKind::service_ends:
      check_phrase(original, item, kServiceEndTag);
      break;
    case ServicesItemKind::missing_end_tag:
    case ServicesItemKind::missing_name:
      check_phrase(original, item, kServiceStartPhrase);
      break;
    case ServicesItemKind::missing_type:
      check_phrase(original, item, kServiceTypePhrase);
      break;
    case ServicesItemKind::end:
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::scan<ServicesItemKind>(services_scanner, check_item, data, size);
  return 0;
}
