// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/complete.h"

#include <algorithm>
#include <cstdio>

#include "mdnsproxyctl/health.h"
#include "mdnsproxyctl/machine.h"

namespace {

using Words = std::vector<std::string>;

// What is known of the words in front of the one that is completed.
struct Line {
  const CLI::App& app;
  const CLI::App* command = nullptr;     // null: none yet
  const CLI::Option* awaited = nullptr;  // the option whose value comes next
  std::size_t positional = 0;            // of the command, which comes next
  bool only_positionals = false;         // behind "--"
  bool broken = false;                   // an unknown command
};

// The word before the options' constraints, "LINK".
std::string kind_of(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  return name.substr(0, name.find(':'));
}

std::vector<const CLI::Option*> options_of(const Line& line) {
  std::vector<const CLI::Option*> options = line.app.get_options();
  if (line.command != nullptr) {
    const std::vector<const CLI::Option*> more = line.command->get_options();
    options.insert(options.begin(), more.begin(), more.end());
  }
  return options;
}

const CLI::Option* find_option(const Line& line, const std::string& word) {
  for (const CLI::Option* each : options_of(line)) {
    if (each->nonpositional() && each->check_name(word)) {
      return each;
    }
  }
  return nullptr;
}

bool takes_value(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

void take_word(Line& line, const std::string& word, Options& options) {
  if (line.awaited != nullptr) {
    if (line.awaited->check_lname("state-file")) {
      options.state_file = word;
    }
    line.awaited = nullptr;
  } else if (!line.only_positionals && word == "--") {
    line.only_positionals = true;
  } else if (!line.only_positionals && word.size() > 1 && word[0] == '-') {
    const CLI::Option* const option = find_option(line, word.substr(0, word.find('=')));
    line.awaited = option != nullptr && takes_value(*option) && word.find('=') == std::string::npos ? option : nullptr;
  } else if (line.command == nullptr) {
    const auto commands = line.app.get_subcommands([&](const CLI::App* each) { return each->get_name() == word; });
    line.command = commands.empty() ? nullptr : commands.front();
    line.broken |= commands.empty();
  } else {
    ++line.positional;
  }
}

const CLI::Option* next_positional(const Line& line) {
  std::size_t left = line.positional;
  for (const CLI::Option* each : line.command->get_options()) {
    if (each->get_positional() && left-- == 0) {
      return each;
    }
  }
  return nullptr;
}

// --- Values --------------------------------------------------------------------------------------------------------

// Whether a terminal shows it as it is; `shown` only doubles its backslashes then.
bool is_plain(const std::string& text) {
  std::string doubled;
  for (const char c : text) {
    doubled += c == '\\' ? "\\\\" : std::string(1, c);
  }
  return !text.empty() && text[0] != '-' && shown(text) == doubled;
}

Words links(const Session& session) {
  Words words;
  for (const RuleLink& each : rule_links(session.state.view)) {
    words.push_back(each.name);
  }
  for (const MachineLink& each : machine_links()) {
    words.push_back(each.name);
  }
  return words;
}

Words names(const Session& session) {
  Words words;
  for (const InstanceView& each : session.state.view.instances) {
    words.push_back(each.name);
    words.push_back(each.name_there);
  }
  return words;
}

Words names_and_types(const Session& session) {
  Words words = names(session);
  for (const RuleView& each : session.state.view.rules) {
    words.push_back(each.type);
  }
  return words;
}

Words values_of(const std::string& kind, const Session& session) {
  if (kind == "LINK" || kind == "FROM" || kind == "TO") {
    return links(session);
  }
  if (kind == "NAME") {
    return names(session);
  }
  if (kind == "NAME|TYPE") {
    return names_and_types(session);
  }
  if (kind == "STATE") {
    return {state_word(StateOfInstance::forwarded), state_word(StateOfInstance::waiting),
            state_word(StateOfInstance::refused)};
  }
  return {};
}

// --- Candidates ----------------------------------------------------------------------------------------------------

void print_word(const std::string& word) {
  std::fwrite(word.c_str(), 1, word.size() + 1, stdout);  // with its zero byte
}

void print_words(Words words, const std::string& begun, const std::string& front) {
  std::erase_if(words, [&](const std::string& each) { return !each.starts_with(begun); });
  std::ranges::sort(words);
  words.erase(std::unique(words.begin(), words.end()), words.end());
  print_word("words");
  for (const std::string& each : words) {
    print_word(front + each);
  }
}

void print_values(const CLI::Option* option, const std::string& begun, const std::string& front,
                  const Options& options) {
  const std::string kind = option != nullptr ? kind_of(*option) : "";
  if (kind == "FILE") {
    print_word("files");
    return;
  }
  Words words = values_of(kind, begin_session(options));
  std::erase_if(words, [](const std::string& each) { return !is_plain(each); });
  print_words(words, begun, front);
}

void print_options(const Line& line, const std::string& begun) {
  Words words;
  for (const CLI::Option* each : options_of(line)) {
    for (const std::string& name : each->get_lnames()) {
      words.push_back("--" + name);
    }
  }
  print_words(words, begun, "");
}

void print_commands(const Line& line, const std::string& begun) {
  Words words;
  for (const CLI::App* each : line.app.get_subcommands([](const CLI::App*) { return true; })) {
    words.push_back(each->get_name());
  }
  print_words(words, begun, "");
}

}  // namespace

int run_complete(const CLI::App& app, const std::vector<std::string>& words, Options options) {
  Line line = {app};
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    take_word(line, words[i], options);
  }
  const std::string begun = words.empty() ? "" : words.back();
  const std::size_t equals = begun.find('=');
  if (line.awaited != nullptr) {
    print_values(line.awaited, begun, "", options);
  } else if (!line.only_positionals && begun.starts_with("--") && equals != std::string::npos) {
    print_values(find_option(line, begun.substr(0, equals)), begun.substr(equals + 1), begun.substr(0, equals + 1),
                 options);
  } else if (!line.only_positionals && begun.starts_with('-')) {
    print_options(line, begun);
  } else if (line.command == nullptr) {
    print_commands(line, line.broken ? "\1" : begun);
  } else {
    print_values(next_positional(line), begun, "", options);
  }
  return std::fflush(stdout) == 0 ? kWell : kUnwell;
}
