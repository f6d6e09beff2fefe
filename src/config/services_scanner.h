// SPDX-License-Identifier: MIT
// The services list scanner: which services and types a file holds, item by item.
//
// The format is what this scanner accepts and no more; it only looks like XML. All matching is byte for byte, and
// everything that is not named here is passed over:
//
//   mdnsservice name  "NAME"     starts a service, wherever it stands (in a comment too)
//   service type      "TYPE"     a type of it; any number
//   </mdnsservice>               ends it; required
//
// Between a phrase and its opening quote anything may stand. What follows an end tag belongs to no service until the
// next start. Needs nothing of the daemon, so that a program which only checks files judges them as the daemon does.
#pragma once

#include <cstddef>

inline constexpr char kServiceStartPhrase[] = "mdnsservice name";
inline constexpr char kServiceTypePhrase[] = "service type";
inline constexpr char kServiceEndTag[] = "</mdnsservice>";

enum class ServicesItemKind {
  service_begins,   // phrase: the start phrase, value: the name
  type,             // phrase: the type phrase, value: the type
  service_ends,     // phrase: the end tag; no value
  missing_end_tag,  // error: no end tag follows the start phrase `phrase_offset`; nothing but `end` comes after it
  missing_name,     // error: the start phrase has no quoted value; the service yields no further item
  missing_type,     // error: the type phrase has no quoted value
  end,              // the text is at its end, here and in every later call
};

// One finding. Texts lie in the scanned buffer, are ended by a zero there and stay as they are for the buffer's life;
// offsets are counted in bytes from its start.
struct ServicesItem {
  ServicesItemKind kind;
  const char* service;        // name of the service that the item belongs to; null before its name is known
  const char* value;          // null where the kind has none
  std::size_t phrase_offset;  // of the phrase or tag that made the item; 0 for `end`
  std::size_t value_offset;   // 0 where there is no value
};

// Where a scan stands. Only the two functions below look inside.
struct ServicesScanner {
  char* buffer;         // not owned
  char* next_start;     // start phrase of the next service; null: none
  char* end_tag;        // end tag of the service being read; null: between services
  char* split;          // where the next type is searched from
  const char* service;  // its name
};

// A scan of a text that ends at its first zero. The buffer is written to (delimiters become zeros) and must outlive the
// scan and every item of it.
ServicesScanner services_scanner(char* buffer);

// The next finding. The daemon ends at the first error; a checker may go on to find more.
ServicesItem next_item(ServicesScanner& scanner);
