// SPDX-License-Identifier: MIT
// A state file that a test writes as the daemon does, and reads as mdnsproxyctl does. Each test opens one of its own;
// the mapping and the lock of each stay until the test program ends.
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <string>

#include "mdnsproxyctl/state_reader.h"
#include "state/record.h"
#include "state/state.h"
#include "unit/scratch_directory.h"

class StateTest : public testing::Test {
 protected:
  StateTest() { Open(); }
  ~StateTest() override { gStateImage = nullptr; }

  void Open() { state_open(path().c_str(), {"1.2.3", "/etc/rules", 2001}); }
  std::string path() const { return directory_.path_of("state"); }

  void GivenRule(const void* rule, const char* type = "_ipp._tcp", const char* from = "br0", const char* to = "br1") {
    state_rule_installed(rule, type, from, 2, to, 3);
  }
  // What the proxy tells of an instance up to each stage.
  void Resolves(const char* name) { state_instance_resolved(rule(), name, "printer.local.", htons(631)); }
  void HasAddress(const char* name) {
    const std::uint8_t address4[4] = {192, 0, 2, 1};
    const std::uint8_t address6[16] = {};
    state_instance_addresses(rule(), name, address4, address6);
  }
  void GivenForwarded(const char* name, const void* registration, const char* name_there = nullptr) {
    state_instance_found(rule(), name);
    Resolves(name);
    HasAddress(name);
    state_instance_registering(rule(), name, registration);
    state_instance_registered(rule(), registration, name_there != nullptr ? name_there : name, StateReason::none);
  }

  const void* rule() const { return &rule_; }

  // The file as it reads now; it must be a good one.
  StateView Read() const {
    const StateReading reading = read_state_file(path());
    EXPECT_EQ(reading.outcome, StateOutcome::ok) << reading.message;
    return reading.view;
  }
  // The only instance.
  InstanceView Instance() const {
    const StateView view = Read();
    EXPECT_EQ(view.instances.size(), 1U);
    return view.instances.empty() ? InstanceView{} : view.instances.front();
  }

  ScratchDirectory directory_;

 private:
  int rule_ = 0;
};
