// SPDX-License-Identifier: MIT
// Follows the PTR records of names that are looked for on a server's link: which instances there are of a type.
//
// Avahi's record browsers would do that as well. But Avahi holds each pointer that it hears against all that it remembers of the
// same name, one after the other and letter by letter: with two thousand services on a link that is more than half of all that it
// does, and grows with the square of their number. So pointers are kept here, by what they point to; Avahi is not told of them
// (withheld.h); and they are asked for here, as RFC 6762 has it (pointer_questions.h). A record that nobody confirms in time goes
// at the end of its lifetime, one second after its goodbye, or when its link goes.
//
// Pointers are taken in when Avahi has taken in the rest of their packet, so that whoever then resolves an instance finds what
// stood beside its pointer.
#pragma once

#include <avahi-common/address.h>
#include <avahi-common/defs.h>
#include <avahi-core/rr.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "dnssd/names.h"
#include "dnssd/pointer_questions.h"

struct AvahiTimeout;

namespace dnssd {

struct Lookup;
struct Server;

// One record, over one protocol. Times are monotonic, in microseconds.
struct Pointer {
  std::string target;         // Avahi text, as it was first heard
  std::uint32_t ttl = 0;      // seconds, as it was last heard; not 0
  std::int64_t heard_at = 0;  // last
  std::int64_t ends_at = 0;
  std::int64_t due_at = 0;  // when it is to be asked for again, or when it ends
  unsigned asked = 0;       // how often it has been asked for again
};

using PointersByTarget = std::unordered_map<std::string, Pointer>;  // folded

// Those of one name, while anybody follows them and for a while after that.
struct PointerList {
  Server* server = nullptr;
  Name name;
  AvahiKey* key = nullptr;                   // one reference, owned
  std::array<PointersByTarget, 2> pointers;  // by protocol: IPv4, IPv6
  std::vector<Lookup*> followers;            // have been told of all of them
  std::vector<Lookup*> newcomers;            // will be
  PointerQuestions questions;
  std::array<std::int64_t, 2> superseded_at{};  // by protocol: what was not heard within the second before is to go; 0: nothing
  std::int64_t due_at = 0;                      // the earliest of all pointers', or earlier
  std::int64_t unused_until = 0;                // while nobody follows them; then it goes
  AvahiTimeout* timer = nullptr;                // owned; runs while anything will be due
  std::int64_t fires_at = 0;                    // the timer; 0: it does not run
};

// A server's, by folded name (Avahi text).
using PointerLists = std::unordered_map<std::string, std::unique_ptr<PointerList>>;

// From now on, until pointers_leave, the lookup's callback is told of the pointers of its name; soon, of those that are known.
// Not told of failure: there is none.
void pointers_follow(Lookup& lookup, const Name& name);

// Nothing happens for one that follows none.
void pointers_leave(Lookup& lookup);

// Whether there is a list for the name (Avahi text).
bool pointers_are_kept(const Server& server, const char* name);

// What a multicast response, from the port of multicast DNS, says over the protocol.
void pointers_heard(Server& server, AvahiProtocol protocol, std::span<const std::uint8_t> message);

// Somebody asks over the protocol: a multicast query from that port.
void pointers_asked(Server& server, AvahiProtocol protocol, std::span<const std::uint8_t> message);

// Something was said on the link that was not heard.
void pointers_missed(Server& server);

// The link is gone for these protocols (1: IPv4, 2: IPv6): so is what was heard over them.
void pointers_forget(Server& server, unsigned protocols);

// The link is there again: everything may have changed.
void pointers_ask_anew(Server& server);

// Frees all lists. Nobody is told.
void pointers_close(Server& server);

// --- Between pointers.cpp, pointer_hearing.cpp and pointer_questions.cpp

bool pointers_are_followed(const PointerList& list);

// The record in Avahi's form, its reference owned by the caller.
AvahiRecord* pointer_record(const PointerList& list, const Pointer& pointer);

PointersByTarget& pointers_over(PointerList& list, AvahiProtocol protocol);

// Tells these lookups of a record.
void pointer_tell(const PointerList& list, const std::vector<Lookup*>& lookups, AvahiProtocol protocol, AvahiBrowserEvent event,
                  const Pointer& pointer);

// The record is due at this time.
void pointer_make_due(PointerList& list, Pointer& pointer, std::int64_t at);

// It is to go in a second, whoever is asked.
void pointer_end_soon(PointerList& list, Pointer& pointer, std::int64_t now);

// Something may be due earlier than it was.
void pointers_set_timer(PointerList& list);

}  // namespace dnssd
