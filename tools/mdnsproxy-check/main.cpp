// SPDX-License-Identifier: MIT
// mdnsproxy-check: says what the daemon will make of its files before it runs.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "mdnsproxy-check/interfaces.h"
#include "mdnsproxy-check/report.h"
#include "mdnsproxy-check/verdict.h"

namespace {

// A wrong command line counts as an error of what is to be checked.
constexpr int kUsageError = 2;

// The rules list that the unit copies for the daemon, and the one that the daemon reads.
constexpr const char* kRulesFile = "/etc/mdnsproxyrule-list.xml";
constexpr const char* kRulesFileByHand = "/tmp/mdnsproxyrule-list.xml";

struct Options {
  CheckRequest request = {"/etc/mdnsservice-list.xml", kRulesFile, "/etc/mdnsproxy.conf", false, std::nullopt};
  std::string interfaces;
  bool json = false;
  int ends_with = 0;
};

// Which rules list is looked at, when nobody has named one: that of the unit, or without one that of a daemon that is
// started by hand.
std::string choose_rules_file(Options& options) {
  if (access(kRulesFile, F_OK) == 0) {
    return std::string("Rules list: ") + kRulesFile + ", which the unit copies for the daemon\n";
  }
  options.request.rules_file = kRulesFileByHand;
  return std::string("Rules list: ") + kRulesFileByHand + ", which a daemon reads that is started by hand\n";
}

// The machine that the files are for: this one, or one of which only the interfaces are known.
void describe_machine(const CLI::App& app, Options& options) {
  CheckRequest& request = options.request;
  if (app.count("--interfaces") > 0) {
    request.interfaces = CLI::detail::split(options.interfaces, ',');
    return;
  }
  const Interfaces here = interfaces_here();
  request.interfaces = here.names;
  request.interface_faults = here.faults;
  // A daemon that is started by hand is whoever starts it.
  if (geteuid() == 0 && request.rules_file != kRulesFileByHand) {
    request.reader = daemon_reader();
  }
}

void describe(CLI::App& app, Options& options) {
  app.set_version_flag("--version", MDNSPROXY_VERSION);
  app.add_option("--services", options.request.services_file, "services list")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_option("--rules", options.request.rules_file, "rules list (default: the one that the unit takes)")
      ->type_name("FILE");
  app.add_option("--settings", options.request.settings_file, "settings")->type_name("FILE")->capture_default_str();
  app.add_option("--interfaces", options.interfaces,
                 "interfaces of the machine that the files are for (default: those of this one)")
      ->type_name("NAME,NAME...");
  app.add_option("--ends-with", options.ends_with,
                 "say nothing; exit status 0 if the daemon would end with this status, else 1")
      ->type_name("STATUS");
  app.add_flag("--json", options.json, "write JSON instead of text");
}

int run(const CLI::App& app, Options& options) {
  options.request.settings_required = app.count("--settings") > 0;
  const std::string chosen = app.count("--rules") > 0 ? "" : choose_rules_file(options);
  describe_machine(app, options);
  const Verdict verdict = check_files(options.request);
  if (app.count("--ends-with") > 0) {
    return verdict.end && verdict.end->status == options.ends_with ? 0 : 1;
  }
  const std::string report =
      options.json ? json_report(verdict, options.request) : chosen + text_report(verdict, options.request);
  const bool written = std::fputs(report.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  return written ? exit_status(verdict) : kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Says what mdnsproxy will make of its files before it runs.", "mdnsproxy-check");
  Options options;
  describe(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsageError;
  }
  return run(app, options);
}
