// SPDX-License-Identifier: MIT
// The process runtime: logging, status codes, the ways out, daemon control, start-up and the event loop.
//
// Promises: every message goes through log_message or handle_error; the process ends only through the exit paths of status.h,
// or by the end of the event loop. Needs: the platform folder, the DNS-SD client library.
//
// Read in this order: settings.h, log.h, status.h, daemon_control.h, startup.h.
#pragma once

#include "runtime/daemon_control.h"
#include "runtime/log.h"
#include "runtime/settings.h"
#include "runtime/startup.h"
#include "runtime/status.h"
