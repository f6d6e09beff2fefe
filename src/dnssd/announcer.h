// SPDX-License-Identifier: MIT
// Announces what has been established and says goodbye for what is withdrawn, in place of Avahi (every record is added with
// AVAHI_PUBLISH_NO_ANNOUNCE). Avahi compares each record that it sends of its own accord with every other of the last half
// second, announces each four times, and adds to it what belongs to it each time: for 2000 services at once that was most
// of the work, and it grew with the square of their number. Here many records share a packet, and each is sent twice, one
// second apart, which is what RFC 6762 section 8.3 asks for; queries are answered by Avahi as ever.
#pragma once

#include <avahi-core/rr.h>

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "dnssd/pacing.h"

namespace dnssd {

struct Server;
struct Publication;

// A goodbye that is to be said once more.
struct Echo {
  std::int64_t at = 0;            // monotonic, microseconds; not before
  AvahiRecord* record = nullptr;  // one reference, owned
};

struct Announcer {
  std::multimap<std::int64_t, std::uintptr_t> due;  // publications by monotonic time in microseconds
  Allowance allowance;
  AvahiTimeout* timer = nullptr;                      // runs while anything is due
  std::vector<AvahiRecord*> goodbyes;                 // owned references, to be sent when the library is left
  std::unordered_multimap<std::string, Echo> echoes;  // by folded name
  AvahiTimeout* echo_timer = nullptr;                 // runs while there are any
  std::int64_t published_again_at = 0;  // monotonic, microseconds; when last something came back soon after its goodbye
};

void announcer_open(Server& server);

// Forgets what is due; the goodbyes that are left, echoes too, are to be sent afterwards.
void announcer_close(Server& server);

// Announces the publication, now and again in a second; what it replaces is withdrawn with the first announcement. One that
// nobody holds any more when its time has come is passed over.
void announce(Publication& publication);

// The same once only, as the answer to a question: at once to a probe, in a moment to others, but never so soon after the last
// time that it would be once too often (RFC 6762 section 6). Nothing happens for what is not established.
void announce_in_answer(Publication& publication, bool to_probe);

// Whether announce_in_answer would have it said, in answer to something else than a probe: it has not been just now, and is not about
// to be.
bool may_be_announced_in_answer(const Publication& publication);

// Whether the first of the announcements has been made.
bool is_announced(const Publication& publication);

// Notes the goodbyes of a publication's records.
void say_goodbye(const Publication& publication);

// Sends the goodbyes that have been noted. Where somebody has just asked something, or something has come back just after its
// goodbye, they are sent once more a moment later: Avahi waits up to 120 ms with its answer (RFC 6762 section 6), takes a
// goodbye of ours for something to set right, and says whatever has been withdrawn in the meantime.
void send_goodbyes(Server& server);

}  // namespace dnssd
