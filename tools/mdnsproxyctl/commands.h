// SPDX-License-Identifier: MIT
// The commands, each in a source of its name. Each prints its answer and returns the program's exit status.
#pragma once

#include <optional>
#include <string>

#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/session.h"

int run_status(const Session& session);

// `only`: the one link to show; empty: all that rules name.
int run_links(const Session& session, const std::string& only);

int run_rules(const Session& session);

// What to show; an empty text or no state: everything.
struct ServicesFilter {
  std::string name;
  std::string link;
  std::optional<StateOfInstance> state;
};
int run_services(const Session& session, const ServicesFilter& filter);

// Each step from the link where the service is to a client's connection, up to the first that fails.
int run_why(const Session& session, const WhyQuestion& question);

// The whole machine: what is wrong, and what was looked at and is well.
int run_doctor(const Session& session);

// Events that the state file still holds, from `since` seconds ago on (nothing: none), then new ones until a signal
// ends it, or the daemon is gone. One line each, in JSON one object each.
int run_watch(const Session& session, std::optional<std::uint64_t> since);

// The next two write to `file` by renaming a new one; to standard output when it is "" or "-".

// Text of the Prometheus exposition format, or the same as JSON.
int run_metrics(const Session& session, const std::string& file);

// One HTML page of everything, or the same as JSON.
int run_report(const Session& session, const std::string& file);

// What would come and go with this rules list, see forecast.h. Changes nothing.
int run_what_if(const Session& session, const std::string& file);

struct ApplyRequest {
  std::string file;       // "": the installed list itself
  std::string installed;  // its place
  bool dry_run = false;   // look and say only
};

// Checks a rules list as the daemon's user, shows its difference to the installed one, installs it and has it read.
// When the daemon does not run with it, the old one is put back. Only root may.
int run_apply(const Session& session, const ApplyRequest& request);
