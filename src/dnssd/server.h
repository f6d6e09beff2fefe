// SPDX-License-Identifier: MIT
// One Avahi server per interface in use, bound to that interface.
#pragma once

#include <set>

#include "dnssd/announcer.h"
#include "dnssd/crowd.h"
#include "dnssd/crowd_answers.h"
#include "dnssd/departures.h"
#include "dnssd/dnssd.h"
#include "dnssd/gate.h"
#include "dnssd/group_ear.h"
#include "dnssd/long_names.h"
#include "dnssd/lookups.h"
#include "dnssd/own_records.h"
#include "dnssd/pacing.h"
#include "dnssd/pointers.h"

namespace dnssd {

// Lives from the first operation on its interface until it has been idle for a while, or until the engine ends.
struct Server {
  std::uint32_t interface_index = 0;
  std::string interface_name;  // as it was when the server was made
  AvahiPoll api{};
  AvahiServer* avahi = nullptr;
  int sockets[2] = {-1, -1};        // Avahi's own for IPv4 and IPv6; -1: none
  Gate gates[2];                    // before them
  int bind_error = 0;               // errno of a socket that could not be bound to the interface
  unsigned operations = 0;          // live operations on it
  unsigned lookups = 0;             // those of them that look something up
  unsigned publications = 0;        // live publications on it
  AvahiTimeout* linger = nullptr;   // runs while neither is there
  unsigned link = 0;                // what of its link is there, see links.h
  std::set<std::string> addresses;  // of its interface, as they are sent, without the scope
  OwnRecords own_records;           // of its publications
  Ear ear = Ear::unpublished;       // what its sockets listen to
  Pacing pacing;
  Announcer announcer;
  CrowdAnswers crowd_answers;
  Lookups lookups_there;
  PointerLists pointers;  // that lookups follow
  Departures departures;  // of its browses
  LongNames long_names;   // of its publications
  GroupEar group_ear;
  std::unordered_map<std::string, Publication*> shared;  // publications that further holders may join, by their key
};

// The server of an interface, made if need be. On an error *server is untouched: kDNSServiceErr_Unsupported for index 0 and
// kDNSServiceInterfaceIndexLocalOnly, kDNSServiceErr_BadInterfaceIndex when there is no such interface,
// kDNSServiceErr_NoAuth when its sockets may not be bound to it, kErrServiceNotRunning when Avahi cannot run there.
DNSServiceErrorType server_get(std::uint32_t interface_index, Server** server);

// Counts an operation in or out; `looks_up`: it is a browse, a resolve or a query.
void server_use(Server& server, bool looks_up);
void server_unuse(Server& server, bool looks_up);

// Starts or stops the idle timer, as the two counts say.
void server_review_idle(Server& server);

// Avahi may have forgotten what it had heard, or have missed something: the next that is said of anything is news.
void server_doubt_what_was_heard(Server& server);

// Sends the goodbyes that have been noted and frees Avahi's server; `server` itself stays.
void server_close(Server& server);

}  // namespace dnssd
