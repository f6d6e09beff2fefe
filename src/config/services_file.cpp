// SPDX-License-Identifier: MIT
// The services list into the service name table. Each failure here closes the stream and frees the text before it ends
// the process; a duplicate name ends it from within the table.

#include "config/config.h"
#include "config/config_text.h"
#include "config/messages.h"
#include "config/services_scanner.h"
#include "runtime/runtime.h"
#include "tables/tables.h"

static_assert(kServicesListStatus == MYSTATUS__SERVICES_FILE);

namespace {

[[noreturn]] void fail_stat(ConfigText& text, const char* path) {
  if (gDBG != 0) {
    log_message(LOG_ERR, "services config file stat invalid: %s", path);
  }
  close_config_text(text);
  fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kServicesStatInvalid, path);
}

[[noreturn]] void fail_memory(ConfigText& text, const char* path) {
  if (gDBG != 0) {
    log_message(LOG_ERR, "cannot alloc buf for services config file: %s", path);
  }
  close_config_text(text);
  fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, kServicesNoBuffer, path);
}

[[noreturn]] void fail_read(ConfigText& text, const char* path) {
  const int size = static_cast<int>(text.size);
  if (gDBG != 0) {
    log_message(LOG_ERR, "read error size :%d bytes, services config file %s", size, path);
  }
  close_config_text(text);
  fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kServicesReadError, size, path);
}

ConfigText load_services(std::FILE* file, const char* path) {
  ConfigText text = load_config_text(file, path);
  switch (text.outcome) {
    case LoadOutcome::loaded:
      break;
    case LoadOutcome::stat_invalid:
      fail_stat(text, path);
    case LoadOutcome::no_memory:
      fail_memory(text, path);
    case LoadOutcome::short_read:
      fail_read(text, path);
  }
  return text;
}

// The three errors of the format.
[[noreturn]] void fail_scan(ConfigText& text, const char* path, const ServicesItem& item) {
  const char* service = copy_for_message(item.service);
  close_config_text(text);
  switch (item.kind) {
    case ServicesItemKind::missing_end_tag:
      fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kServicesMissingEndTag, path);
    case ServicesItemKind::missing_name:
      fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kServicesMissingName, path);
    default:
      fatal_error(MYSTATUS__SERVICES_FILE, LOG_WARNING, kServicesMissingType, path, text_or_null(service));
  }
}

UT_array* new_types(ConfigText& text) {
  UT_array* types = text_array_new();
  if (types == nullptr) {
    close_config_text(text);
    fatal_error(MYSTATUS__ARRAY_ERROR, LOG_WARNING, "ERROR 131156: utarray_new failed, exiting.");
  }
  return types;
}

// A type whose copy found no memory would be a hole in the array, to be met only when its rule is installed.
void append_type(ConfigText& text, UT_array* types, const char* type) {
  text_array_push(types, type);
  if (text_array_at(types, array_count(types) - 1) == nullptr) {
    close_config_text(text);
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 131158: strdup failed, exiting.");
  }
}

}  // namespace

int parse_servicefile(std::FILE* file, const char* path) {
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "parse_servicefile(): START");
  }
  ConfigText text = load_services(file, path);
  ServicesScanner scanner = services_scanner(text.buffer);
  UT_array* types = nullptr;  // of the service being read
  for (ServicesItem item = next_item(scanner); item.kind != ServicesItemKind::end; item = next_item(scanner)) {
    switch (item.kind) {
      case ServicesItemKind::service_begins:
        types = new_types(text);
        break;
      case ServicesItemKind::type:
        append_type(text, types, item.value);
        break;
      case ServicesItemKind::service_ends:
        hash_add_ServiceNameToServiceTypesArray(item.service, types);
        break;
      default:
        fail_scan(text, path, item);
    }
  }
  return close_config_text(text);
}
