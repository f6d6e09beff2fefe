// SPDX-License-Identifier: MIT
// What operations look up: an Avahi record browser each, while it is needed.
//
// Avahi asks as long as there is a record browser, at intervals that grow from a second to an hour, and asks even for what it has
// found in its cache. Two thousand services are four thousand addresses that are asked for over two protocols each, and nothing
// that comes of it is news: who has heard all that a host has said of a unique record need not ask before four fifths of its
// lifetime are over (RFC 6762 sections 5.2 and 10.2). So a lookup rests, without a browser, while what it has told is what was
// said last of its name and type; it wakes when something else is said of them, when the lifetime runs out, and when the link
// changes. That needs ears for all that is said, which a server has while nothing is published on it (repeats.h).
//
// A brief lookup rests for a moment at the first answer from the cache, whatever else there is: a resolve, whose answer stands
// beside the pointer that led to it, is mostly ended by then.
//
// Pointers are not looked up with a record browser at all (pointers.h).
//
// Only lookups of unique records rest, and what they tell is bounded (told_records.h): of very many records, the newest. Avahi goes
// through its cache from the newest record to the oldest; a lasting lookup tells what it found there the other way round.
//
// And when a record browser is freed, Avahi walks over all that there are before it looks at the next packet: those of a twentieth
// of a second are freed together.
#pragma once

#include <map>
#include <span>

#include "dnssd/dnssd.h"
#include "dnssd/repeats.h"
#include "dnssd/told_records.h"

namespace dnssd {

// Told of a record that is new (AVAHI_BROWSER_NEW) or gone (AVAHI_BROWSER_REMOVE), over one protocol, and of Avahi's failure
// (AVAHI_BROWSER_FAILURE, with a null record).
using LookupCallback = void (*)(Operation& operation, AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord* record);

enum class LookupKind {
  steady,   // never rests, and tells everything
  lasting,  // rests while it has nothing to ask
  brief,    // and at its first answer
};

struct PointerList;

// Owned by its operation until lookup_end.
struct Lookup {
  Operation* operation = nullptr;  // null once it has ended
  Server* server = nullptr;
  LookupCallback callback = nullptr;
  LookupKind kind = LookupKind::steady;
  bool is_reviewed = false;                // it is among those to be reviewed
  bool is_scanning = false;                // the browser has not been through the cache yet
  bool has_dropped = false;                // since it began: records that there was no room for
  AvahiKey* key = nullptr;                 // one reference, owned
  std::uint64_t heard_as = 0;              // the key's key in Repeats; 0: steady
  AvahiSRecordBrowser* browser = nullptr;  // null while it rests, and for pointers
  PointerList* pointers = nullptr;         // that it follows
  std::int64_t wakes_at = 0;               // while it rests: monotonic, microseconds
  ToldRecords told;                        // as new, and not yet as gone; unused by a steady one
};

// A server's lookups that rest, and those that have ended or are to be looked at again, by and by.
struct Lookups {
  std::unordered_multimap<std::uint64_t, Lookup*> by_key;  // all but the steady ones
  std::multimap<std::int64_t, Lookup*> resting;            // by wakes_at
  std::vector<Lookup*> ended;
  std::vector<Lookup*> reviewed;
  ToldRecords scanned;                 // what the lookup whose browser is going through the cache has found, the newest first
  AvahiTimeout* waking = nullptr;      // runs while any rests
  AvahiTimeout* settling = nullptr;    // runs while any has ended or is to be reviewed
  AvahiTimeout* forgetting = nullptr;  // runs while the gates' Repeats remember anything
  bool will_forget = false;            // it runs
};

void lookups_open(Server& server);

// Frees what has ended on the server, which is about to be closed.
void lookups_close(Server& server);

// Something was said of these keys, and Avahi has taken it in; `repeats` is of the socket that heard it.
void lookups_heard(Server& server, const Repeats& repeats, std::span<const std::uint64_t> keys);

// Wakes all of them: what is said on the server's link may have been missed.
void lookups_wake(Server& server);

// Looks for the records of `name` on the operation's interface; null when Avahi refuses the name.
Lookup* lookup_start(Operation& operation, const Name& name, std::uint16_t rrtype, LookupKind kind, LookupCallback callback);

// Nothing is told any more. Null: nothing happens.
void lookup_end(Lookup* lookup);

}  // namespace dnssd
