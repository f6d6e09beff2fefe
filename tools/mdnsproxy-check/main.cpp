// SPDX-License-Identifier: MIT
// mdnsproxy-check: says what the daemon will make of its files before it runs.

#include <net/if.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "mdnsproxy-check/report.h"
#include "mdnsproxy-check/verdict.h"

namespace {

// A wrong command line counts as an error of what is to be checked.
constexpr int kUsageError = 2;

// This machine's interfaces; none when they cannot be listed, as the daemon could not then.
std::vector<std::string> interfaces_here() {
  std::vector<std::string> names;
  const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> list(if_nameindex(), &if_freenameindex);
  for (const struct if_nameindex* each = list.get(); each != nullptr && each->if_index != 0; ++each) {
    names.emplace_back(each->if_name);
  }
  return names;
}

struct Options {
  CheckRequest request = {"/etc/mdnsservice-list.xml", "/tmp/mdnsproxyrule-list.xml", "/etc/mdnsproxy.conf", false, std::nullopt};
  std::string interfaces;
  bool json = false;
};

void describe(CLI::App& app, Options& options) {
  app.set_version_flag("--version", MDNSPROXY_VERSION);
  app.add_option("--services", options.request.services_file, "services list")->type_name("FILE")->capture_default_str();
  app.add_option("--rules", options.request.rules_file, "rules list")->type_name("FILE")->capture_default_str();
  app.add_option("--settings", options.request.settings_file, "settings")->type_name("FILE")->capture_default_str();
  app.add_option("--interfaces", options.interfaces,
                 "interfaces of the machine that the files are for (default: those of this one)")
      ->type_name("NAME,NAME...");
  app.add_flag("--json", options.json, "write JSON instead of text");
}

int run(const CLI::App& app, Options& options) {
  options.request.settings_required = app.count("--settings") > 0;
  options.request.interfaces = app.count("--interfaces") > 0 ? CLI::detail::split(options.interfaces, ',') : interfaces_here();
  const Verdict verdict = check_files(options.request);
  const std::string report = options.json ? json_report(verdict, options.request) : text_report(verdict, options.request);
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
