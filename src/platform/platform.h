// SPDX-License-Identifier: MIT
// The platform folder: facilities that the daemon expects of the device that it runs on, made real for Linux.
//
// Promises: no call here ends the process (but for a corrupted heap, see zmk_free) and none logs through the daemon's
// own logging; what has to be said goes straight to syslog. Needs: libinih for the settings file.
//
// Read in this order:
//   zmk.h        the tracking allocator
//   vcm.h        the configuration store
//   vcms_if.h    interface MAC address
//   hash.h, ut_array.h  uthash and utarray over that allocator
//   program_name.h, crashdump.h  what the program is called; the report on a fatal signal;
//                backtrace.h, a part of it
//   fencing_catalog.h  the standard services that the store knows by name
//   nss_mdns.h   host names over nss-mdns, loaded when first used
#pragma once

#include "platform/crashdump.h"
#include "platform/vcm.h"
#include "platform/vcms_if.h"
#include "platform/zmk.h"
