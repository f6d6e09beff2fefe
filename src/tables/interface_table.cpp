// SPDX-License-Identifier: MIT
// The interface table: gHashIfNameToIndex.
//
// Lifecycle:
//   1. Empty until FindInterfaces, which start-up calls once, before any file is read.
//   2. FindInterfaces adds one record for each entry of the system's list; a name that comes twice ends the process.
//   3. From then on it is only read: by add_proxy_rule and by the dump. An interface that appears later is not known.
//   4. No record is changed or removed; all end with the process.
// No callback runs inside an operation. The look-up before an insertion is a critical section of its own, since the
// semaphore is not recursive.

#include <net/if.h>

#include <cerrno>
#include <cstring>

#include "runtime/runtime.h"
#include "tables/tables.h"

IfNameToIndex_t* gHashIfNameToIndex = nullptr;

namespace {

// Both in the hands of a caller that holds the semaphore.
IfNameToIndex_t* find_record(const char* if_name) {
  IfNameToIndex_t* record = nullptr;
  HASH_FIND_STR(gHashIfNameToIndex, if_name, record);
  return record;
}

void link_record(IfNameToIndex_t* record) {
  HASH_ADD_KEYPTR(hh, gHashIfNameToIndex, record->if_name, std::strlen(record->if_name), record);
}

IfNameToIndex_t* new_record(const char* if_name, std::int32_t if_index) {
  auto* record = static_cast<IfNameToIndex_t*>(zmk_malloc(sizeof(IfNameToIndex_t), __FILE__, __LINE__));
  if (record == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 102046: malloc failed, exiting.");
  }
  *record = {};
  record->if_name = zmk_strdup(if_name, __FILE__, __LINE__);
  if (record->if_name == nullptr) {
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 102047: strdup failed, exiting.");
  }
  record->if_index = if_index;
  return record;
}

// An entry that has only one of the two is an interface like any other.
bool ends_the_list(const struct if_nameindex& entry) { return entry.if_index == 0 && entry.if_name == nullptr; }

void show_entry(int number, const struct if_nameindex& entry) {
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\n\tInterface #%d: if_index = %d, if_name = >>%s<<\n", number,
                static_cast<int>(entry.if_index), text_or_null(entry.if_name));
  }
}

// Returns how many were added.
int add_interfaces(const struct if_nameindex* entries) {
  int count = 0;
  show_entry(count, entries[count]);
  while (!ends_the_list(entries[count])) {
    hash_add_IfNameToIndex(entries[count].if_name, static_cast<std::int32_t>(entries[count].if_index));
    ++count;
    show_entry(count, entries[count]);
  }
  return count;
}

}  // namespace

std::int32_t hash_getIndex_IfNameToIndex(const char* if_name) {
  log_message(LOG_DEBUG, "hash_getIndex_IfNameToIndex(): START: if_name = %s...  ", if_name);
  std::int32_t if_index = -1;
  {
    const SemaphoreGuard guard(gIfNameToIndexSemaphore);
    const IfNameToIndex_t* record = find_record(if_name);
    if (record != nullptr) {
      if_index = record->if_index;
    }
  }
  log_message(LOG_DEBUG, "hash_getIndex_IfNameToIndex(): returning if_index = %d for if_name = %s\n", if_index,
              if_name);
  return if_index;
}

void hash_add_IfNameToIndex(const char* if_name, std::int32_t if_index) {
  log_message(LOG_DEBUG, "hash_add_IfNameToIndex(): START: if_name = %s, if_index = %d...  ", if_name, if_index);
  if (hash_getIndex_IfNameToIndex(if_name) >= 0) {
    fatal_error(MYSTATUS__INTERFACE_ERROR, LOG_WARNING,
                "ERROR 102048: found two network interfaces with the same name (%s) -- this case is not currently "
                "handled, exiting.",
                if_name);
  }
  {
    const SemaphoreGuard guard(gIfNameToIndexSemaphore);
    link_record(new_record(if_name, if_index));
  }
  log_message(LOG_DEBUG, "hash_add_IfNameToIndex(): returning if_index = %d for if_name = %s\n", if_index, if_name);
}

unsigned hash_count_ifNameToIndex() {
  log_message(LOG_DEBUG, "hash_count_ifNameToIndex(): START...\n");
  const SemaphoreGuard guard(gIfNameToIndexSemaphore);
  return HASH_COUNT(gHashIfNameToIndex);
}

void FindInterfaces() {
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\nFindInterfaces(): START: Finding interfaces and names...\n");
  }
  struct if_nameindex* entries = if_nameindex();
  if (entries == nullptr) {
    fatal_error(MYSTATUS__INTERFACE_ERROR, LOG_WARNING,
                "ERROR 401301141912: if_nameindex() failed with errno =  %d %s, can't find interfaces so exiting.",
                errno, std::strerror(errno));
  }
  const int count = add_interfaces(entries);
  if_freenameindex(entries);
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\n\t>>> %d Total interfaces found.\n", count);
    log_message(LOG_DEBUG, "\t>>> %u total keys in hash via: hash_count_ifNameToIndex()\n\n",
                hash_count_ifNameToIndex());
  }
}
