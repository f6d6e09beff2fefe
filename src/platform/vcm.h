// SPDX-License-Identifier: MIT
// The configuration store: settings that are read while the daemon runs, from one INI file.
//
//   [mdnsproxy]
//   log_level = enable            ; widens the syslog mask
//   state_file = /run/x/state     ; another place for the state file
//   [fencing AirPrint]            ; a standard service by its catalog name, any other name is a custom service type
//   wireless_hop = 1
//   wired_hop = 0
//   anchor_ap = 02:00:00:00:00:01
//
// A missing file means that nothing is configured. A malformed one is reported once to syslog with its line and counts
// as missing; so is one that cannot be read, is no regular file or is larger than 64 KiB. A value that is no number is
// reported once with its line and counts as not configured. The file is read again only when it has changed, and a
// transaction sees one reading from its begin to its cancel.
#pragma once

#include <cstdint>

#include "platform/mac_address.h"

// The file behind the store. Tests point it elsewhere.
extern const char* gVcmSettingsFile;

// A read transaction. Opaque; null: none is open.
struct VcmTransaction;
using VcmXact = VcmTransaction*;

// Which hop setting is asked for.
inline constexpr int kVcmFencingWireless = 1;
inline constexpr int kVcmFencingWired = 2;

// Opens a transaction over the settings as they stand now and stores it in *xact. 0; non-zero (and *xact null) when
// there is no memory.
int vcm_beginXact(VcmXact* xact);

// Ends a transaction without changes and clears *xact. A null *xact does nothing. 0.
int vcm_cancelXact(VcmXact* xact);

// Copies the log level's text into buffer[size] (terminated, cut to fit). 0, or non-zero when none is configured; the
// buffer is untouched then.
int vcm_mdnsproxy_sget_log_level(VcmXact xact, char* buffer, int size);

// Copies the state file's path into buffer[size] (terminated, cut to fit). 0, or non-zero when none is configured; the
// buffer is untouched then.
int vcm_mdnsproxy_sget_state_file(VcmXact xact, char* buffer, int size);

// The index of the standard service that has this type, compared exactly but for a ".local" at the end of either text;
// -1 when there is none. The store keeps one profile and one catalog: `profile` and `flags` select nothing and are
// passed as 0, `name_out` may be null or receives the service's catalog name (a literal).
int vcm_bonjour_fencing_serviceTypeToIdx(const char* service_type, int profile, int flags, const char** name_out);

// The index of a configured custom service type, compared like a standard one; -1 when none of that name is configured.
// An index of a custom type never equals one of a standard service, and keeps its meaning while the process runs.
int vcm_bonjour_fencing_custom_serviceTypeToIdx(const char* service_type, int profile);

// The hop value (kind: kVcmFencingWireless or kVcmFencingWired) of a service by its index. 0 and *hop written, or
// non-zero and *hop untouched when it is not configured or the index or kind is unknown.
int vcm_bonjour_fencing_pgetHop(VcmXact xact, int index, std::int32_t* hop, int kind);

// Copies the anchor access point's MAC address, as the file spells it, into buffer[size]. `kind` as above; only the
// wired one has an anchor. 0, or non-zero and the buffer untouched when it is not configured.
int vcm_bonjour_fencing_pgetAnchorAp(VcmXact xact, int index, char* buffer, int size, int kind);
