// SPDX-License-Identifier: MIT
// A settings file that tests write, and the questions they ask of it.
#pragma once

#include <gmock/gmock.h>
#include <syslog.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "fakes/failing_memory.h"
#include "fakes/fake_process.h"
#include "fakes/fake_syslog.h"
#include "platform/vcm.h"
#include "platform/zmk.h"
#include "unit/scratch_directory.h"

class SettingsTest : public testing::Test {
 protected:
  SettingsTest() : path_(directory_.path_of("mdnsproxy.conf")), real_path_(gVcmSettingsFile) {
    gVcmSettingsFile = path_.c_str();
    GivenFile("; the store forgets the content of the test before\n");
    LogLevel();
    std::filesystem::remove(path_);
    fake_syslog::reset();
  }
  ~SettingsTest() override {
    failing_memory::reset();
    fake_process::stop();
    gVcmSettingsFile = "/nonexistent";
    Hop(0, kVcmFencingWireless);  // lets the store forget this test's file
    gVcmSettingsFile = real_path_;
  }

  void GivenFile(const std::string& text) { directory_.write("mdnsproxy.conf", text); }
  const char* path() const { return path_.c_str(); }

  // Each asks in a transaction of its own.
  static std::optional<std::string> LogLevel() {
    char text[64] = "untouched";
    VcmXact xact = nullptr;
    vcm_beginXact(&xact);
    const int result = vcm_mdnsproxy_sget_log_level(xact, text, sizeof(text));
    vcm_cancelXact(&xact);
    return Answer(result, text);
  }
  static std::optional<std::int32_t> Hop(int index, int kind) {
    std::int32_t hop = 4711;
    VcmXact xact = nullptr;
    vcm_beginXact(&xact);
    const int result = vcm_bonjour_fencing_pgetHop(xact, index, &hop, kind);
    vcm_cancelXact(&xact);
    if (result != 0) {
      EXPECT_EQ(hop, 4711) << "written without being configured";
      return std::nullopt;
    }
    return hop;
  }
  static std::optional<std::int32_t> Wireless(const char* type) { return Hop(Standard(type), kVcmFencingWireless); }
  static std::optional<std::int32_t> Wired(const char* type) { return Hop(Standard(type), kVcmFencingWired); }
  static std::optional<std::string> Anchor(int index, int kind = kVcmFencingWired) {
    char text[kMacAddressTextSize] = "untouched";
    VcmXact xact = nullptr;
    vcm_beginXact(&xact);
    const int result = vcm_bonjour_fencing_pgetAnchorAp(xact, index, text, kMacAddressTextSize, kind);
    vcm_cancelXact(&xact);
    return Answer(result, text);
  }
  static int Standard(const char* type) { return vcm_bonjour_fencing_serviceTypeToIdx(type, 0, 0, nullptr); }
  static int Custom(const char* type) { return vcm_bonjour_fencing_custom_serviceTypeToIdx(type, 0); }

  // What the store has reported, each line without the file's path in front.
  std::vector<std::string> Reports() const {
    std::vector<std::string> reports;
    for (const std::string& text : fake_syslog::texts(LOG_ERR)) {
      EXPECT_TRUE(text.starts_with(path_)) << text;
      reports.push_back(text.substr(path_.size()));
    }
    EXPECT_EQ(reports.size(), fake_syslog::lines().size()) << "all reports are errors";
    return reports;
  }

  ScratchDirectory directory_;

 private:
  static std::optional<std::string> Answer(int result, const char* text) {
    if (result != 0) {
      EXPECT_STREQ(text, "untouched");
      return std::nullopt;
    }
    return text;
  }

  std::string path_;
  const char* real_path_;
};
