// SPDX-License-Identifier: MIT
// Random files through the checker and through the daemon's own initialisation: accepted by one, accepted by the other,
// with the same rules in the same order; refused by one, refused by the other, with the same status and message.

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "config/config.h"
#include "fakes/fake_add_proxy_rule.h"
#include "fakes/fake_process.h"
#include "fakes/fake_syslog.h"
#include "mdnsproxy-check/daemon_messages.h"
#include "mdnsproxy-check/verdict.h"
#include "runtime/runtime.h"
#include "support/seed.h"
#include "unit/child_process.h"
#include "unit/tables/daemon_test.h"

namespace {

// Each pair costs a process, which takes a hundred times as long under valgrind: then fewer do.
constexpr int kMostPairs = 1500;
constexpr int kFewestPairs = 30;
constexpr int kPairsThatShowTheMix = 1000;  // with fewer, chance alone could make it look wrong
constexpr std::chrono::seconds kTimeForPairs(10);
constexpr std::size_t kMostPieces = 14;

// What either of the two makes of the files.
struct Outcome {
  int status = 0;                  // 0: accepted
  std::string message;             // of a refusal
  std::vector<std::string> rules;  // "_ipp._tcp br0->br1", in order; those before a refusal are installed already

  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  stream << "status " << outcome.status << ", message \"" << outcome.message << "\", rules:";
  for (const std::string& each : outcome.rules) {
    stream << " [" << each << "]";
  }
  return stream;
}

// A file of random pieces: whole constructs, so that it gets deep into the format, and fragments that break it. Most
// files hold whole constructs only, or few would be accepted.
class RandomFiles {
 public:
  RandomFiles(std::vector<std::string> constructs, std::vector<std::string> fragments, unsigned seed)
      : constructs_(std::move(constructs)), fragments_(std::move(fragments)), random_(seed) {}

  std::string next() {
    std::string text = "\n";
    const bool broken = pick(3) == 0;
    for (std::size_t left = 1 + pick(kMostPieces); left > 0; --left) {
      const std::vector<std::string>& pieces = broken && pick(3) == 0 ? fragments_ : constructs_;
      text += pieces[pick(pieces.size())];
    }
    if (pick(16) == 0) {
      text[pick(text.size())] = static_cast<char>(pick(256));
    }
    return pick(100) == 0 ? "" : text;
  }

 private:
  std::size_t pick(std::size_t below) { return std::uniform_int_distribution<std::size_t>(0, below - 1)(random_); }

  std::vector<std::string> constructs_;
  std::vector<std::string> fragments_;
  std::mt19937 random_;
};

RandomFiles services_files(unsigned seed) {
  return {{"<mdnsservice name=\"A\"><service type=\"_a._tcp\"/><service type=\"_b._udp\"/></mdnsservice>\n",
           "<mdnsservice name=\"B\">\n<service type=\"_b._udp\"/>\n</mdnsservice>\n",
           "<mdnsservice name=\"C\"></mdnsservice>\n", "<!-- <mdnsservice name=\"D\"></mdnsservice> -->\n",
           "<mdnsservice  name=\"E\"><service type=\"_e._tcp\"/></mdnsservice>", "<service type=\"_lost._tcp\"/>", " ",
           "\n", "<list a='1'>"},
          {"mdnsservice name", "service type", "<mdnsservice name=\"F\">", "</mdnsservice>", "\"", "\"\"", "=", "'",
           ">", std::string(1, '\0')},
          seed};
}

RandomFiles rules_files(unsigned seed) {
  std::vector<std::string> rules;
  for (const char* service : {"\"A\" rule_type=\"0\"", "\"B\" rule_type=\"0x\"", "\"C\" rule_type=\"0\"",
                              "\"_a._tcp\" rule_type=\"1\"", "\"_c._tcp\" rule_type=\"10\""}) {
    for (const char* interfaces : {"if_from=\"br0\" if_to=\"br1\" bidirectional=\"no\"",
                                   "if_to=\"br0\" bidirectional=\"Yes\" if_from=\"br1\""}) {
      rules.push_back(std::string("<mdnsproxyrule mdnsservice=") + service + " " + interfaces + "/>\n");
    }
  }
  for (const char* other :
       {"<!-- a comment -->", "<rules>", "</rules>", "<mdnsproxyrule mdnsservice=\"A\" rule_type=\"0\"/>", "\n"}) {
    rules.emplace_back(other);
  }
  return {rules,
          {"<mdnsproxyrule mdnsservice=\"A\" rule_type=\"2\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"1\"/>",
           "<mdnsproxyrule mdnsservice=\"A\" rule_type=\"0\" if_from=\"br0\" if_to=\"br1\" bidirectional=\"maybe\"/>",
           "<r if_to mdnsservice=\"if_from\" rule_type=\"1\" bidirectional=\"\" if_from=\"br1\">",
           "<r mdnsservice rule_type if_from if_to bidirectional>", "<", ">", "\"", "\"\"", " mdnsservice=\"A\"",
           " if_to=\"br1\"", "'", std::string(1, '\0')},
          seed};
}

class Agreement : public DaemonTest {
 protected:
  Agreement() : services_(directory().path_of("services")), rules_(directory().path_of("rules")) {
    gSettings.services_file = services_.c_str();
    gSettings.rules_file = rules_.c_str();
  }

  // The daemon's, in a process that it may end.
  Outcome DaemonOutcome() const;
  Outcome CheckOutcome() const;

  std::string services_;
  std::string rules_;
};

constexpr char kEndOfText = '\0';

// The child's report, each text with an end that no text of a file holds.
void report_outcome() {
  const std::vector<std::string> warnings = fake_syslog::texts(LOG_WARNING);
  std::cout << (warnings.empty() ? "" : warnings.back()) << kEndOfText;
  for (const std::string& each : fake_add_proxy_rule::rules()) {
    std::cout << each << kEndOfText;
  }
  std::cout.flush();
}

Outcome Agreement::DaemonOutcome() const {
  const ChildProcess child = run_in_child([this] {
    fake_add_proxy_rule::reset();  // the record exists from here on, and so outlives the report at the end
    fake_syslog::reset();
    std::atexit(report_outcome);
    fake_process::start();
    InitFromConfigFiles(services_.c_str(), rules_.c_str());
    std::exit(0);
  });
  EXPECT_EQ(child.ending_signal, 0) << describe(child);
  Outcome outcome;
  outcome.status = child.exit_status;
  std::vector<std::string> texts;
  for (std::size_t begin = 0; begin < child.out.size();) {
    const std::size_t end = child.out.find(kEndOfText, begin);
    texts.push_back(child.out.substr(begin, end - begin));
    begin = end == std::string::npos ? end : end + 1;
  }
  outcome.message = outcome.status != 0 && !texts.empty() ? texts.front() : "";
  outcome.rules.assign(texts.begin() + (texts.empty() ? 0 : 1), texts.end());
  return outcome;
}

// Refused types are left out: the DNS-SD library refuses them, and here rules are only recorded. Findings come in the
// order in which the daemon would meet them.
Outcome Agreement::CheckOutcome() const {
  const CheckRequest request = {services_, rules_, directory().path_of("no-settings"), false, std::nullopt};
  Findings findings;
  const ServiceCatalog catalog = check_services(services_, findings);
  Outcome outcome;
  for (const Installation& each : check_rules(request, catalog, findings)) {
    outcome.rules.push_back(each.service_type + " " + each.if_from + "->" + each.if_to);
  }
  for (const Finding& each : findings) {
    if (outcome.status == 0 && each.severity == Severity::error && each.status != kDnssdStatus) {
      outcome.status = each.status;
      outcome.message = each.message;
    }
  }
  return outcome;
}

// Whether `whole` begins with `part`: what the daemon installed before its end is the beginning of what the checker
// lists.
bool begins_with(const std::vector<std::string>& whole, const std::vector<std::string>& part) {
  return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

TEST_F(Agreement, CheckerAndDaemonJudgeRandomFilesAlike) {
  const unsigned first_seed = static_cast<unsigned>(support::chosen_seed());
  RandomFiles services = services_files(first_seed);
  RandomFiles rules = rules_files(first_seed + 1);
  int accepted = 0;
  int installed = 0;
  int pairs = 0;
  const auto end = std::chrono::steady_clock::now() + kTimeForPairs;
  for (; pairs < kFewestPairs || (pairs < kMostPairs && std::chrono::steady_clock::now() < end); ++pairs) {
    const std::string services_text = services.next();
    const std::string rules_text = rules.next();
    directory().write("services", services_text);
    directory().write("rules", rules_text);
    const Outcome daemon = DaemonOutcome();
    Outcome check = CheckOutcome();
    if (daemon.status != 0) {
      ASSERT_TRUE(begins_with(check.rules, daemon.rules)) << check << "\ndaemon: " << daemon;
      check.rules = daemon.rules;
    }
    ASSERT_EQ(check, daemon) << "pair " << pairs << ", services:\n" << services_text << "\nrules:\n" << rules_text;
    accepted += daemon.status == 0 ? 1 : 0;
    installed += daemon.rules.empty() ? 0 : 1;
  }
  if (pairs >= kPairsThatShowTheMix) {
    EXPECT_GT(accepted, pairs / 20);
    EXPECT_LT(accepted, pairs * 19 / 20);
    EXPECT_GT(installed, pairs / 5);
  }
}

TEST_F(Agreement, MissingFilesEndBothAlike) {
  EXPECT_EQ(CheckOutcome(), DaemonOutcome());
  directory().write("services", "<!-- none -->");
  EXPECT_EQ(CheckOutcome(), DaemonOutcome());
}

}  // namespace
