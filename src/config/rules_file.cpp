// SPDX-License-Identifier: MIT
// The rules list into installed rules. Each failure here closes the stream and frees the text before it ends the
// process.

#include "config/config.h"
#include "config/config_text.h"
#include "config/messages.h"
#include "config/rule_values.h"
#include "config/rules_scanner.h"
#include "proxy/proxy.h"
#include "runtime/runtime.h"
#include "state/state.h"
#include "tables/tables.h"

static_assert(kRulesListStatus == MYSTATUS__RULES_FILE);

namespace {

// Every rule is followed by a browse; this keeps them from being asked on the link in one burst.
constexpr unsigned kPauseBeforeRule = 500000;  // microseconds

// The file that a rule stands in.
struct RulesFile {
  ConfigText text;
  const char* path;
};

// One rule; its texts lie in the file's text.
struct Rule {
  const char* service;
  const char* rule_type;
  const char* if_from;
  const char* if_to;
  const char* bidirectional_text;
  int bidirectional;  // 1, 0, or -1: not a boolean word
};

[[noreturn]] void fail_stat(RulesFile& file) {
  if (gDBG != 0) {
    log_message(LOG_ERR, "cannot find rules config file: %s", file.path);
  }
  close_config_text(file.text);
  fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesStatInvalid, file.path);
}

[[noreturn]] void fail_memory(RulesFile& file) {
  if (gDBG != 0) {
    log_message(LOG_ERR, "cannot alloc buf for rules config file: %s", file.path);
  }
  close_config_text(file.text);
  fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, kRulesNoBuffer, file.path);
}

[[noreturn]] void fail_read(RulesFile& file) {
  const int size = static_cast<int>(file.text.size);
  if (gDBG != 0) {
    log_message(LOG_ERR, "read error size :%d bytes, rules config file %s", size, file.path);
  }
  close_config_text(file.text);
  fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesReadError, size, file.path);
}

RulesFile load_rules(std::FILE* stream, const char* path) {
  RulesFile file = {load_config_text(stream, path), path};
  switch (file.text.outcome) {
    case LoadOutcome::loaded:
      break;
    case LoadOutcome::stat_invalid:
      fail_stat(file);
    case LoadOutcome::no_memory:
      fail_memory(file);
    case LoadOutcome::short_read:
      fail_read(file);
  }
  return file;
}

// A word of the rule has no quoted value. A tag that lacks the word is no rule, and passed over
// (RulesItemKind::other_tag).
[[noreturn]] void fail_missing_value(RulesFile& file, const RulesItem& item) {
  const char* copy = copy_for_message(attribute_of(item, RuleWord::mdnsservice).value);
  const char* service = text_or_null(copy);
  close_config_text(file.text);
  switch (item.missing) {
    case RuleWord::mdnsservice:
      fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesMissingService, file.path);
    case RuleWord::rule_type:
      fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesMissingRuleType, file.path, service);
    case RuleWord::if_from:
      fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesMissingIfFrom, file.path, service);
    case RuleWord::if_to:
      fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesMissingIfTo, file.path, service);
    case RuleWord::bidirectional:
      break;
  }
  fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesMissingBidirectional, file.path, service);
}

[[noreturn]] void fail_bidirectional(RulesFile& file, const Rule& rule) {
  const char* service = copy_for_message(rule.service);
  const char* value = copy_for_message(rule.bidirectional_text);
  close_config_text(file.text);
  fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesInvalidBidirectional, file.path, text_or_null(service),
              text_or_null(value));
}

[[noreturn]] void fail_unknown_service(RulesFile& file, const Rule& rule) {
  const char* service = copy_for_message(rule.service);
  close_config_text(file.text);
  fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesUnknownService, file.path, text_or_null(service),
              gSettings.services_file);
}

[[noreturn]] void fail_rule_type(RulesFile& file, const Rule& rule) {
  const char* service = copy_for_message(rule.service);
  const char* value = copy_for_message(rule.rule_type);
  close_config_text(file.text);
  fatal_error(MYSTATUS__RULES_FILE, LOG_WARNING, kRulesInvalidRuleType, file.path, text_or_null(service),
              text_or_null(value));
}

Rule rule_of(const RulesItem& item) {
  const char* bidirectional = attribute_of(item, RuleWord::bidirectional).value;
  return {attribute_of(item, RuleWord::mdnsservice).value,
          attribute_of(item, RuleWord::rule_type).value,
          attribute_of(item, RuleWord::if_from).value,
          attribute_of(item, RuleWord::if_to).value,
          bidirectional,
          parse_bool_string(bidirectional)};
}

void show_rule(const Rule& rule) {
  if (gDBG != 0) {
    log_message(
        LOG_DEBUG,
        "\n*********************************************************************************************\n\n"
        "\tFound mdnsproxyrule: mdnsservice = %s, rule_type = %s, if_from = %s, if_to = %s, bidirectional = %s, "
        "bidirectional_boolAsInt = %d\n",
        rule.service, rule.rule_type, rule.if_from, rule.if_to, rule.bidirectional_text, rule.bidirectional);
  }
}

// One service type in the rule's direction and, where the rule says so, right after it in the other one.
void install_type(const char* service_type, const Rule& rule) {
  add_proxy_rule(service_type, rule.if_from, rule.if_to);
  if (rule.bidirectional == 0) {
    return;
  }
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "\t BIDIRECTIONAL = %d, so adding inverse rule....", rule.bidirectional);
  }
  add_proxy_rule(service_type, rule.if_to, rule.if_from);
}

void install_named_service(RulesFile& file, const Rule& rule) {
  const UT_array* types = hash_getArray_ServiceNameToServiceTypesArray(rule.service);
  if (types == nullptr) {
    fail_unknown_service(file, rule);
  }
  for (unsigned i = 0; i < array_count(types); ++i) {
    install_type(text_array_at(types, i), rule);
  }
}

void install_literal_type(RulesFile& file, const Rule& rule) {
  char* service_type = zmk_strdup(rule.service, __FILE__, __LINE__);
  if (service_type == nullptr) {
    close_config_text(file.text);
    fatal_error(MYSTATUS__NO_MEMORY, LOG_WARNING, "ERROR 131437: strdup failed, exiting.");
  }
  install_type(service_type, rule);
  zmk_free(service_type, __FILE__, __LINE__);
}

// The rule type is judged last, after the boolean word and the pause.
void install_rule(RulesFile& file, const Rule& rule) {
  if (rule.bidirectional != 0 && rule.bidirectional != 1) {
    fail_bidirectional(file, rule);
  }
  show_rule(rule);
  pause_microseconds(kPauseBeforeRule);
  switch (classify_rule_type(rule.rule_type)) {
    case RuleType::named_service:
      install_named_service(file, rule);
      break;
    case RuleType::literal_type:
      install_literal_type(file, rule);
      break;
    case RuleType::invalid:
      fail_rule_type(file, rule);
  }
}

}  // namespace

int parse_rulesfile(std::FILE* file, const char* path) {
  if (gDBG != 0) {
    log_message(LOG_DEBUG, "parse_rulesfile(): START");
  }
  RulesFile rules = load_rules(file, path);
  RulesScanner scanner = rules_scanner(rules.text.buffer);
  for (RulesItem item = next_item(scanner); item.kind != RulesItemKind::end; item = next_item(scanner)) {
    if (item.kind == RulesItemKind::missing_value) {
      fail_missing_value(rules, item);
    }
    if (item.kind == RulesItemKind::rule) {
      state_rule_stands_at(rules.text.buffer, item.tag_offset);
      install_rule(rules, rule_of(item));
    }
  }
  return close_config_text(rules.text);
}
