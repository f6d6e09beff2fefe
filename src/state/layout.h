// SPDX-License-Identifier: MIT
// The layout of the state file, shared by the daemon, which writes it, and mdnsproxyctl, which reads it.
//
// The file is one mapped image: a head that never changes once the file has its name, then the global record, the
// rules, the instances and a ring of events. Everything after the head is written in place. Each record begins with a
// sequence number: it is odd while the record is being written, and grows with each writing. A reader takes the
// number, then the record, then the number again, and believes the record when both numbers are the same even one.
//
// Numbers have the byte order of the machine. Fields lie where they do on every machine (each at a multiple of its own
// size), so that a 32-bit reader understands a 64-bit writer. A later minor version may append fields to a record; a
// reader goes by the sizes in the head, and takes what it knows. Version 1.1 has added the links. Another major version
// is another layout.
//
// What must never be in the file: TXT data, addresses and questions of clients, and anything that no rule names.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr char kStateMagic[8] = {'M', 'D', 'N', 'S', 'P', 'R', 'X', 'Y'};
inline constexpr std::uint16_t kStateMajor = 1;
inline constexpr std::uint16_t kStateMinor = 1;

inline constexpr const char* kStateDefaultPath = "/run/mdnsproxy/state";

inline constexpr std::uint32_t kStateRules = 512;  // further ones are counted only
inline constexpr std::uint32_t kStateInstances =
    2560;  // 2001 that live, the rest for refused ones; further ones are counted only
inline constexpr std::uint32_t kStateEvents = 256;
inline constexpr std::uint32_t kStateLinks = 128;  // further ones are left out
inline constexpr std::uint32_t kStateSiblings = 4;
inline constexpr std::uint32_t kStateLiveInstances = 2001;  // of the slots, those that refused instances never take
inline constexpr std::size_t kStateNameSize = 64;           // a label and its zero (RFC 1035 section 2.3.4)
inline constexpr std::size_t kStateHostSize = 128;          // a host name in presentation format, cut to fit, and its
                                                            // zero
inline constexpr std::size_t kStateInterfaceSize = 16;      // IFNAMSIZ
inline constexpr std::size_t kStateTypeSize = 128;          // a service type with a subtype, cut to fit, and its zero

// Times are nanoseconds of CLOCK_BOOTTIME, unless it says otherwise.
struct StateHead {
  char magic[8];
  std::uint16_t major;
  std::uint16_t minor;
  std::uint32_t head_size;  // the global record lies behind it, then rules, instances, events and links without gaps
  std::uint32_t global_size;
  std::uint32_t rule_size;
  std::uint32_t rules;
  std::uint32_t instance_size;
  std::uint32_t instances;
  std::uint32_t event_size;
  std::uint32_t events;
  std::uint32_t link_size;  // 0 in version 1.0
  std::uint32_t links;      // 0 in version 1.0
  std::uint32_t reserved[3];
};

enum class StatePhase : std::uint32_t {
  starting = 0,  // rules are being installed
  running = 1,
  ended = 2,  // by the daemon's own decision or a handled signal; a killed daemon never says so
};

// What is counted since the start.
enum class StateCounter : std::uint32_t {
  found,            // browse replies that added an instance
  gone,             // browse replies that removed one
  forwarded,        // instances that came to be announced
  renamed,          // of these, announced under another name
  limit,            // refused since there were too many
  through_gateway,  // refused since a gateway had forwarded them already
  link_local_only,  // link-local addresses passed over while the host had no other
  conflict,         // registrations refused since somebody else has the name
  refused_otherwise,
  addresses,   // addresses that were announced or changed
  left_out,    // instances that had no slot in this file
  high_water,  // most instances at a time
  wakes,       // passes of the event loop
  kinds
};
inline constexpr std::size_t kStateCounterSlots = 64;
static_assert(static_cast<std::size_t>(StateCounter::kinds) <= kStateCounterSlots);

struct StateGlobal {
  std::uint32_t sequence;
  std::uint32_t pid;
  std::uint64_t started;
  std::uint64_t started_realtime;  // nanoseconds since 1970
  std::uint64_t beat;              // when the event loop last began a pass; at most a second before the truth
  StatePhase phase;
  std::uint32_t waiting;         // 1 while the event loop waits for something to do
  std::uint32_t rules;           // how many rule slots are in use, from the first on
  std::uint32_t rules_left_out;  // rules that had no slot
  std::uint32_t limit;           // instances that may live at a time
  std::uint32_t exit_status;     // valid when the phase is `ended`
  std::uint64_t events;          // how many have been written; number n lies in slot n modulo the slots
  std::uint64_t counters[kStateCounterSlots];
  char version[32];
  char rules_file[192];
};

struct StateRule {
  std::uint32_t sequence;
  std::uint32_t line;  // of the rules list, from 1
  std::int32_t from_index;
  std::int32_t to_index;
  char from[kStateInterfaceSize];
  char to[kStateInterfaceSize];
  std::uint64_t since;
  char type[kStateTypeSize];
};

enum class StateOfInstance : std::uint8_t { none = 0, forwarded = 1, waiting = 2, refused = 3 };

enum class StateReason : std::uint8_t {
  none = 0,
  resolving = 1,        // waiting for host and port
  no_address = 2,       // waiting for an address of the host
  link_local_only = 3,  // the host has said nothing but link-local addresses
  through_gateway = 4,  // its TXT data says that a gateway has forwarded it
  limit = 5,            // too many live already
  probing = 6,          // waiting until the name is registered on the other link
  not_named = 7,        // no rule names it; never in the file
  conflict = 8,         // somebody else has the name on the other link
};

struct StateInstance {
  std::uint32_t sequence;
  std::uint32_t generation;  // grows each time the slot is taken
  std::uint32_t rule;        // its slot
  StateOfInstance state;     // none: the slot is free
  StateReason reason;
  std::uint16_t port;  // 0: not known
  std::uint64_t found;
  std::uint64_t since;  // of state and reason
  char name[kStateNameSize];
  char name_there[kStateNameSize];  // as registered on the other link; "": not known
  char host[kStateHostSize];        // "": not known
  std::uint8_t address4[4];         // zeros: none; with link_local_only the link-local one
  std::uint32_t reserved;
  std::uint8_t address6[16];
};

struct StateEvent {
  std::uint32_t sequence;
  std::uint32_t rule;
  std::uint64_t number;  // from 0
  std::uint64_t time;
  StateOfInstance before;  // none: it has just been found
  StateOfInstance after;   // none: it is gone
  StateReason reason;      // of the state after
  std::uint8_t reserved[5];
  char name[kStateNameSize];
};

// A host by its address, in network byte order.
struct StateHost {
  std::uint8_t family;  // 4, 6, or 0 for none
  std::uint8_t address[16];
};

// What the DNS-SD library says of an interface that it uses; numbers count from when it began to.
struct StateLinkFigures {
  std::uint64_t received;              // datagrams of others
  std::uint64_t ignored;               // of these, beyond what one host may say
  std::uint64_t lost;                  // datagrams that the system had no room for
  std::uint64_t sent;                  // datagrams
  std::uint64_t conflicts;             // names that turned out to be another host's
  StateHost siblings[kStateSiblings];  // who said within the last hour what the daemon announces there
  std::uint8_t reserved[4];
};

struct StateLink {
  std::uint32_t sequence;
  std::uint32_t index;  // of the interface; 0: the slot is free, as those behind it are
  StateLinkFigures figures;
};

static_assert(sizeof(StateHead) == 64);
static_assert(sizeof(StateGlobal) == 64 + 8 * kStateCounterSlots + 32 + 192);
static_assert(sizeof(StateRule) == 56 + kStateTypeSize);
static_assert(sizeof(StateInstance) == 32 + 2 * kStateNameSize + kStateHostSize + 24);
static_assert(sizeof(StateEvent) == 32 + kStateNameSize);
static_assert(sizeof(StateLink) == 48 + 17 * kStateSiblings + 4);
static_assert(sizeof(StateGlobal) % 8 == 0 && sizeof(StateRule) % 8 == 0);
static_assert(sizeof(StateInstance) % 8 == 0 && sizeof(StateEvent) % 8 == 0 && sizeof(StateLink) % 8 == 0);

// The whole file as this version writes it.
struct StateImage {
  StateHead head;
  StateGlobal global;
  StateRule rules[kStateRules];
  StateInstance instances[kStateInstances];
  StateEvent events[kStateEvents];
  StateLink links[kStateLinks];
};
static_assert(offsetof(StateImage, links) + kStateLinks * sizeof(StateLink) == sizeof(StateImage));
