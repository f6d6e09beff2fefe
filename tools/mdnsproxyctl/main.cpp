// SPDX-License-Identifier: MIT
// mdnsproxyctl: shows what the daemon does, and why it does not do what was hoped for.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <map>

#include "mdnsproxyctl/commands.h"
#include "mdnsproxyctl/complete.h"
#include "mdnsproxyctl/settings.h"

namespace {

constexpr const char* kSettingsFile = "/etc/mdnsproxy.conf";
constexpr const char* kServicesFile = "/etc/mdnsservice-list.xml";
// The one that the unit copies for the daemon; a daemon that is started by hand reads the other.
constexpr const char* kRulesFile = "/etc/mdnsproxyrule-list.xml";
constexpr const char* kRulesFileByHand = "/tmp/mdnsproxyrule-list.xml";

const std::map<std::string, StateOfInstance> kStates = {{"forwarded", StateOfInstance::forwarded},
                                                        {"waiting", StateOfInstance::waiting},
                                                        {"refused", StateOfInstance::refused}};

// What stands on the command line, of whichever command.
struct Arguments {
  Options options;
  std::string link;
  ServicesFilter filter;
  StateOfInstance state = StateOfInstance::none;
  std::uint64_t since = 0;
  std::string output_file;
  WhyQuestion why;
  std::string what_if_file;
  ApplyRequest apply;
};

void describe_options(CLI::App& app, Arguments& arguments) {
  app.set_version_flag("--version", MDNSPROXY_VERSION);
  app.fallthrough();
  app.require_subcommand(1);
  app.add_option("--state-file", arguments.options.state_file, "the state file (default: by the settings)")
      ->type_name("FILE");
  app.add_option("--services", arguments.options.services_file, "services list (default: /etc/mdnsservice-list.xml)")
      ->type_name("FILE");
  app.add_option("--rules", arguments.options.rules_file, "installed rules list")->type_name("FILE");
  app.add_flag("--json", arguments.options.json, "write JSON instead of text");
  app.add_flag("--no-network", arguments.options.no_network, "ask nothing on the links");
}

void describe_commands(CLI::App& app, Arguments& arguments) {
  app.add_subcommand("status", "the daemon's health in a few lines, the worst first");
  CLI::App* links = app.add_subcommand("links", "the links that rules name");
  links->add_option("link", arguments.link, "this one only")->type_name("LINK");
  app.add_subcommand("rules", "the rules, with what came of each");
  CLI::App* services = app.add_subcommand("services", "the services that rules name");
  services->add_option("name", arguments.filter.name, "this one only")->type_name("NAME");
  services->add_option("--state", arguments.state, "forwarded, waiting or refused ones only")
      ->transform(CLI::CheckedTransformer(kStates))
      ->type_name("STATE");
  services->add_option("--link", arguments.filter.link, "those from or to this link only")->type_name("LINK");
  CLI::App* why = app.add_subcommand("why", "each step of a service's way, up to the first that fails");
  why->add_option("subject", arguments.why.subject, "the service's name, or a type such as _ipp._tcp")
      ->type_name("NAME|TYPE")
      ->required();
  why->add_option("from", arguments.why.from, "the link where it is")->type_name("FROM");
  why->add_option("to", arguments.why.to, "the link where it should be seen")->type_name("TO");
  app.add_subcommand("doctor", "all that can keep services from being forwarded, on the whole machine");
  CLI::App* watch = app.add_subcommand("watch", "comings and goings as they happen");
  watch->add_option("--since", arguments.since, "those of the last SECONDS too, as far as they are still known")
      ->type_name("SECONDS");
  CLI::App* metrics = app.add_subcommand("metrics", "figures for Prometheus");
  CLI::App* report = app.add_subcommand("report", "all of it as one page for a browser");
  for (CLI::App* each : {metrics, report}) {
    each->add_option("-o,--output", arguments.output_file, "write to this file, which is replaced as a whole")
        ->type_name("FILE");
  }
  CLI::App* what_if = app.add_subcommand("what-if", "what would come and go with another rules list");
  what_if->add_option("file", arguments.what_if_file, "the rules list")->type_name("FILE")->required();
  CLI::App* apply =
      app.add_subcommand("apply", "check a rules list, install it and have the daemon read it (root only)");
  apply->add_option("file", arguments.apply.file, "the rules list (default: the installed one)")->type_name("FILE");
  apply->add_flag("--dry-run", arguments.apply.dry_run, "check it and show the difference only");
}

int run(const CLI::App& app, Arguments& arguments) {
  if (arguments.options.state_file.empty()) {
    arguments.options.state_file = configured_state_file(kSettingsFile);
  }
  if (arguments.options.services_file.empty()) {
    arguments.options.services_file = kServicesFile;
  }
  arguments.apply.installed = arguments.options.rules_file.empty() ? kRulesFile : arguments.options.rules_file;
  if (arguments.options.rules_file.empty()) {
    arguments.options.rules_file = access(kRulesFile, R_OK) == 0 ? kRulesFile : kRulesFileByHand;
  }
  arguments.options.settings_file = kSettingsFile;
  const Session session = begin_session(arguments.options);
  const CLI::App* const command = app.get_subcommands().front();
  const std::string& name = command->get_name();
  if (name == "status") {
    return run_status(session);
  }
  if (name == "links") {
    return run_links(session, arguments.link);
  }
  if (name == "rules") {
    return run_rules(session);
  }
  if (name == "why") {
    return run_why(session, arguments.why);
  }
  if (name == "what-if") {
    return run_what_if(session, arguments.what_if_file);
  }
  if (name == "apply") {
    return run_apply(session, arguments.apply);
  }
  if (name == "doctor") {
    return run_doctor(session);
  }
  if (name == "watch") {
    return run_watch(session, command->count("--since") > 0 ? std::optional(arguments.since) : std::nullopt);
  }
  if (name == "metrics") {
    return run_metrics(session, arguments.output_file);
  }
  if (name == "report") {
    return run_report(session, arguments.output_file);
  }
  if (command->count("--state") > 0) {
    arguments.filter.state = arguments.state;
  }
  return run_services(session, arguments.filter);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Shows what mdnsproxy does, and why it does not do what was hoped for.", "mdnsproxyctl");
  Arguments arguments;
  describe_options(app, arguments);
  describe_commands(app, arguments);
  if (argc >= 2 && std::strcmp(argv[1], "complete") == 0) {  // asked by shells alone, and so no command of the
                                                             // description
    arguments.options.state_file = configured_state_file(kSettingsFile);
    return run_complete(app, {argv + 2, argv + argc}, arguments.options);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  return run(app, arguments);
}
