// SPDX-License-Identifier: MIT
#include "config/services_scanner.h"

#include <cstring>

#include "config/quoted_value.h"

namespace {

std::size_t offset_of(const ServicesScanner& scanner, const char* position) {
  return static_cast<std::size_t>(position - scanner.buffer);
}

ServicesItem make_item(const ServicesScanner& scanner, ServicesItemKind kind, const char* phrase,
                       const char* value = nullptr) {
  return {kind, scanner.service, value, offset_of(scanner, phrase), value != nullptr ? offset_of(scanner, value) : 0};
}

// The service's text is cut off at its end tag first, so that neither its name nor a type is searched beyond.
ServicesItem begin_service(ServicesScanner& scanner) {
  char* start = scanner.next_start;
  char* end_tag = std::strstr(start, kServiceEndTag);
  if (end_tag == nullptr) {
    scanner.next_start = nullptr;
    return make_item(scanner, ServicesItemKind::missing_end_tag, start);
  }
  *end_tag = '\0';
  scanner.next_start = std::strstr(end_tag + 1, kServiceStartPhrase);
  const QuotedValue name = take_quoted_value(start, end_tag);
  if (name.value == nullptr) {
    return make_item(scanner, ServicesItemKind::missing_name, start);
  }
  scanner = {scanner.buffer, scanner.next_start, end_tag, name.split, name.value};
  return make_item(scanner, ServicesItemKind::service_begins, start, name.value);
}

ServicesItem take_type(ServicesScanner& scanner, char* phrase) {
  const QuotedValue type = take_quoted_value(phrase, scanner.end_tag);
  scanner.split = type.split;
  const ServicesItemKind kind = type.value != nullptr ? ServicesItemKind::type : ServicesItemKind::missing_type;
  return make_item(scanner, kind, phrase, type.value);
}

ServicesItem end_service(ServicesScanner& scanner) {
  const ServicesItem item = make_item(scanner, ServicesItemKind::service_ends, scanner.end_tag);
  scanner.end_tag = nullptr;
  scanner.service = nullptr;
  return item;
}

}  // namespace

ServicesScanner services_scanner(char* buffer) {
  return {buffer, std::strstr(buffer, kServiceStartPhrase), nullptr, nullptr, nullptr};
}

ServicesItem next_item(ServicesScanner& scanner) {
  if (scanner.end_tag != nullptr) {
    char* phrase = std::strstr(scanner.split, kServiceTypePhrase);
    return phrase != nullptr ? take_type(scanner, phrase) : end_service(scanner);
  }
  if (scanner.next_start != nullptr) {
    return begin_service(scanner);
  }
  return {ServicesItemKind::end, nullptr, nullptr, 0, 0};
}
