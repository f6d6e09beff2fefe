// SPDX-License-Identifier: MIT
// The process runtime: logging, status codes, the ways out, daemon control, start-up and the event loop.
//
// Promises: every message of the proxy, the tables and the files goes through log_message or handle_error, and an error
// that ends the process through the exit paths of status.h. Otherwise the process ends with main, after the event loop
// or the banner; as the parent that daemonize leaves behind; when a hash table finds no memory (tables.h); and by a
// signal that has no handler. What goes past log_message to syslog: a PID file that cannot be removed, mistakes in the
// settings file (settings_file.h), the crash report. Needs: the platform folder, the DNS-SD client library.
//
// Read in this order: settings.h, log.h, held_signals.h, connections.h, status.h, signals.h, pid_file.h,
// daemon_control.h, startup.h.
#pragma once

#include "runtime/connections.h"
#include "runtime/daemon_control.h"
#include "runtime/held_signals.h"
#include "runtime/log.h"
#include "runtime/pid_file.h"
#include "runtime/settings.h"
#include "runtime/signals.h"
#include "runtime/startup.h"
#include "runtime/status.h"
