// SPDX-License-Identifier: MIT
// The rules list: each rule as the daemon would install it. rule_hints.cpp explains what looks different from what it
// is.

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "config/messages.h"
#include "config/rule_values.h"
#include "config/rules_scanner.h"
#include "mdnsproxy-check/daemon_messages.h"
#include "mdnsproxy-check/library_types.h"
#include "mdnsproxy-check/rule_hints.h"
#include "mdnsproxy-check/service_type.h"
#include "mdnsproxy-check/verdict.h"

namespace {

// One rule of the file; its texts lie in the scanned buffer.
struct Rule {
  const RulesItem& item;
  std::string service;
  std::string rule_type;
  std::string if_from;
  std::string if_to;
  bool bidirectional = false;
};

using Triple = std::tuple<std::string, std::string, std::string>;  // if_from, service type, if_to

// One run over one file.
struct RulesCheck {
  RulesSource source;
  const ServiceCatalog& catalog;
  const std::optional<std::vector<std::string>>& interfaces;
  const std::vector<InterfaceFault>& faults;
  std::set<std::string> warned_interfaces;
  std::string services_path;
  std::vector<Installation> installations;
  std::map<Triple, std::size_t> installed;  // to the place in `installations`
  Findings& findings;
};

const char* path_of(const RulesCheck& check) { return check.source.text.path.c_str(); }

void fail(RulesCheck& check, std::size_t offset, int status, const std::string& message, const std::string& cure) {
  check.findings.push_back(
      {Severity::error, check.source.text.path, position_of(check.source.text, offset), message, cure, status});
}

void warn(RulesCheck& check, std::size_t offset, const std::string& message, const std::string& cure) {
  check.findings.push_back(
      {Severity::warning, check.source.text.path, position_of(check.source.text, offset), message, cure, 0});
}

// --- Reading ---------------------------------------------------------------------------------------------------------

// False: there is nothing to scan.
bool read_rules(RulesCheck& check, const std::string& path, const std::optional<Reader>& reader) {
  SourceText& text = check.source.text;
  switch (read_source(path, reader, text)) {
    case ReadOutcome::ok:
      return true;
    case ReadOutcome::not_found:
      fail(check, 0, kRulesListStatus, formatted(kRulesNotFound, path.c_str()),
           "create the file, or make it readable for the daemon's user");
      return false;
    case ReadOutcome::stat_invalid:
      fail(check, 0, kRulesListStatus, formatted(kRulesStatInvalid, path.c_str()),
           "put at least a comment into the file; it is empty");
      return false;
    case ReadOutcome::read_error:
      fail(check, 0, kRulesListStatus, formatted(kRulesReadError, text.file_size, path.c_str()),
           "give the path of an ordinary file");
      return false;
  }
  return false;
}

// --- One installation ------------------------------------------------------------------------------------------------

bool is_interface(const RulesCheck& check, const std::string& name) {
  return !check.interfaces ||
         std::find(check.interfaces->begin(), check.interfaces->end(), name) != check.interfaces->end();
}

void fail_interface(RulesCheck& check, const Rule& rule, RuleWord word, const char* format, const std::string& name) {
  fail(check, attribute_of(rule.item, word).value_offset, kInterfaceStatus,
       formatted(format, name.c_str(), path_of(check)),
       "name one of the interfaces of this machine: " + joined(*check.interfaces, "there are none"));
}

// Whether both interfaces exist; each that does not is reported once a rule.
bool check_interfaces(RulesCheck& check, const Rule& rule) {
  const bool from_exists = is_interface(check, rule.if_from);
  if (!from_exists) {
    fail_interface(check, rule, RuleWord::if_from, kUnknownIfFrom, rule.if_from);
  }
  const bool to_exists = is_interface(check, rule.if_to);
  if (!to_exists) {
    fail_interface(check, rule, RuleWord::if_to, kUnknownIfTo, rule.if_to);
  }
  return from_exists && to_exists;
}

// Once for each interface that the daemon could do nothing with.
void warn_of_fault(RulesCheck& check, const Rule& rule, RuleWord word, const std::string& name) {
  for (const InterfaceFault& each : check.faults) {
    if (each.name == name && check.warned_interfaces.insert(name).second) {
      warn(check, attribute_of(rule.item, word).value_offset, each.message, each.cure);
    }
  }
}

void warn_of_repetition(RulesCheck& check, const Rule& rule, const Installation& now, const Installation& first) {
  const std::size_t offset = rule.item.tag_offset;
  const std::string what =
      formatted("%s from %s to %s is forwarded already by the rule in line %u", now.service_type.c_str(),
                now.if_from.c_str(), now.if_to.c_str(), first.position.line);
  if (now.inverse != first.inverse) {
    warn(check, offset, "of this pair of rules one contains the inverse of the other: " + what,
         "delete the rule that is not bidirectional, or make neither of them bidirectional");
  } else {
    warn(check, offset, "duplicate rule: " + what, "delete one of the two");
  }
}

void fail_refused_type(RulesCheck& check, const Rule& rule, const std::string& type) {
  const std::optional<TypeFault> fault = find_type_fault(type);
  fail(check, attribute_of(rule.item, RuleWord::mdnsservice).value_offset, kDnssdStatus,
       formatted(kBrowseFailed, kBadParameter),
       formatted("\"%s\" is no DNS-SD service type; ", type.c_str()) + (fault ? fault->cure : "correct it"));
}

// Returns whether this is the first repetition that the rule has shown, if it is one.
bool install(RulesCheck& check, const Rule& rule, const std::string& type, bool inverse, bool warned) {
  Installation installation;
  installation.service_type = type;
  installation.if_from = inverse ? rule.if_to : rule.if_from;
  installation.if_to = inverse ? rule.if_from : rule.if_to;
  installation.service = classify_rule_type(rule.rule_type.c_str()) == RuleType::named_service ? rule.service : "";
  installation.position = position_of(check.source.text, rule.item.tag_offset);
  installation.inverse = inverse;
  const Triple triple = {installation.if_from, type, installation.if_to};
  const auto [first, added] = check.installed.emplace(triple, check.installations.size());
  installation.repeated = !added;
  if (installation.repeated && !warned && rule.if_from != rule.if_to) {
    warn_of_repetition(check, rule, installation, check.installations[first->second]);
  }
  check.installations.push_back(installation);
  return installation.repeated;
}

// Types in their order, each in both directions before the next, as the daemon does it.
void install_types(RulesCheck& check, const Rule& rule, const std::vector<std::string>& types) {
  if (types.empty() || !check_interfaces(check, rule)) {
    return;
  }
  warn_of_fault(check, rule, RuleWord::if_from, rule.if_from);
  warn_of_fault(check, rule, RuleWord::if_to, rule.if_to);
  std::set<std::string> refused;
  bool warned = false;
  for (const std::string& type : types) {
    if (!library_accepts_type(type) && refused.insert(type).second) {
      fail_refused_type(check, rule, type);
    }
    warned = install(check, rule, type, false, warned) || warned;
    if (rule.bidirectional) {
      warned = install(check, rule, type, true, warned) || warned;
    }
  }
}

// --- One rule --------------------------------------------------------------------------------------------------------

const NamedService* find_service(const ServiceCatalog& catalog, const std::string& name) {
  for (const NamedService& each : catalog.services) {
    if (each.name == name) {
      return &each;
    }
  }
  return nullptr;
}

std::vector<std::string> names_of(const ServiceCatalog& catalog) {
  std::vector<std::string> names;
  for (const NamedService& each : catalog.services) {
    names.push_back(each.name);
  }
  return names;
}

void install_named_service(RulesCheck& check, const Rule& rule) {
  if (const NamedService* service = find_service(check.catalog, rule.service)) {
    install_types(check, rule, service->types);
  } else if (check.catalog.readable) {
    fail(check, attribute_of(rule.item, RuleWord::mdnsservice).value_offset, kRulesListStatus,
         formatted(kRulesUnknownService, path_of(check), rule.service.c_str(), check.services_path.c_str()),
         "name one of the services, or write rule_type=\"1\" for a service type: " +
             joined(names_of(check.catalog), "the list has none"));
  }
}

void install_literal_type(RulesCheck& check, const Rule& rule) {
  const std::optional<TypeFault> fault = find_type_fault(rule.service);
  if (fault && library_accepts_type(rule.service)) {
    warn(check, attribute_of(rule.item, RuleWord::mdnsservice).value_offset, fault->message, fault->cure);
  }
  install_types(check, rule, {rule.service});
}

void fail_rule_type(RulesCheck& check, const Rule& rule) {
  fail(check, attribute_of(rule.item, RuleWord::rule_type).value_offset, kRulesListStatus,
       formatted(kRulesInvalidRuleType, path_of(check), rule.service.c_str(), rule.rule_type.c_str()),
       "write rule_type=\"0\" for a service of the services list or rule_type=\"1\" for a service type");
}

void warn_of_one_interface(RulesCheck& check, const Rule& rule) {
  if (rule.if_from == rule.if_to) {
    warn(check, attribute_of(rule.item, RuleWord::if_to).value_offset,
         "if_from and if_to are the same interface: services would be announced where they are", "name two interfaces");
  }
}

void take_rule(RulesCheck& check, const RulesItem& item) {
  const auto value = [&item](RuleWord word) { return std::string(attribute_of(item, word).value); };
  const std::string bidirectional = value(RuleWord::bidirectional);
  const int direction = parse_bool_string(bidirectional.c_str());
  const Rule rule = {item,
                     value(RuleWord::mdnsservice),
                     value(RuleWord::rule_type),
                     value(RuleWord::if_from),
                     value(RuleWord::if_to),
                     direction == 1};
  if (direction != 0 && direction != 1) {
    fail(check, attribute_of(item, RuleWord::bidirectional).value_offset, kRulesListStatus,
         formatted(kRulesInvalidBidirectional, path_of(check), rule.service.c_str(), bidirectional.c_str()),
         "write bidirectional=\"yes\" or bidirectional=\"no\"");
    return;
  }
  switch (classify_rule_type(rule.rule_type.c_str())) {
    case RuleType::named_service:
      install_named_service(check, rule);
      break;
    case RuleType::literal_type:
      install_literal_type(check, rule);
      break;
    case RuleType::invalid:
      fail_rule_type(check, rule);
      return;
  }
  warn_of_one_interface(check, rule);
}

std::string missing_value_message(const RulesCheck& check, const RulesItem& item) {
  const char* service = attribute_of(item, RuleWord::mdnsservice).value;
  switch (item.missing) {
    case RuleWord::mdnsservice:
      return formatted(kRulesMissingService, path_of(check));
    case RuleWord::rule_type:
      return formatted(kRulesMissingRuleType, path_of(check), service);
    case RuleWord::if_from:
      return formatted(kRulesMissingIfFrom, path_of(check), service);
    case RuleWord::if_to:
      return formatted(kRulesMissingIfTo, path_of(check), service);
    case RuleWord::bidirectional:
      return formatted(kRulesMissingBidirectional, path_of(check), service);
  }
  return "";
}

void take_missing_value(RulesCheck& check, const RulesItem& item) {
  const char* word = kRuleWords[static_cast<std::size_t>(item.missing)];
  fail(check, attribute_of(item, item.missing).word_offset, kRulesListStatus, missing_value_message(check, item),
       formatted("write a value between double quotes: %s=\"...\"", word));
}

void scan_rules(RulesCheck& check) {
  std::string buffer = check.source.text.text;
  RulesScanner scanner = rules_scanner(buffer.data());
  for (RulesItem item = next_item(scanner); item.kind != RulesItemKind::end; item = next_item(scanner)) {
    if (item.kind == RulesItemKind::rule) {
      take_rule(check, item);
    } else if (item.kind == RulesItemKind::missing_value) {
      take_missing_value(check, item);
    }
    explain_rule_tag(check.source, item, check.findings);
  }
}

}  // namespace

std::vector<Installation> check_rules(const CheckRequest& request, const ServiceCatalog& catalog, Findings& findings) {
  RulesCheck check = {{}, catalog, request.interfaces, request.interface_faults, {}, request.services_file, {},
                      {}, findings};
  if (!read_rules(check, request.rules_file, request.reader)) {
    return {};
  }
  check.source.comments = comments_of(check.source.text);
  scan_rules(check);
  if (check.source.text.has_zero_byte) {
    warn(check, check.source.text.text.size(), "a zero byte: the daemon does not read beyond it",
         "save the file as plain text in UTF-8");
  }
  return check.installations;
}
