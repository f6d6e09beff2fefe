// SPDX-License-Identifier: MIT
// What scenes that are written out share: a world with one calm medium, and short words for what is in it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "simulation/actors.h"
#include "simulation/state_rules.h"

namespace simulation {

inline const std::string kType = wire::name("_http._tcp.local");

class Scene : public testing::Test {
 protected:
  Scene() {
    world_.dice.state = 7;
    a_ = &NewMedium();
  }

  void TearDown() override { EXPECT_EQ(world_.breach, "") << story(world_); }

  Medium& NewMedium() {
    Medium& medium = add_medium(world_, {0, 0, 5 * kMillisecond, false});
    medium.calm_since = -1000 * kSecond;
    return medium;
  }

  Device& GivenDevice(Medium& medium, const std::string& label, std::uint8_t number) {
    Device& device = devices_.emplace_back();
    device.port = &add_port(world_, add_host(world_, label), medium);
    device.label = label;
    device.v4 = std::string({10, 0, 0, static_cast<char>(number)});
    device_start(device);
    return device;
  }

  Browser& GivenLooker(Medium& medium) {
    return Browses(add_port(world_, add_host(world_, "looker"), medium), nullptr);
  }

  Browser& GivenGateway(Medium& from, Medium& to) {
    Host& host = add_host(world_, "gateway");
    Port& port = add_port(world_, host, from);
    return Browses(port, &add_port(world_, host, to));
  }

  Browser& Browses(Port& from, Port* to) {
    Browser& browser = browsers_.emplace_back(Browser{&from, to, kType, 0, {}});
    browse_start(browser);
    return browser;
  }

  void Offers(Device& device, std::size_t count) {
    for (std::size_t each = 0; each < count; ++each) {
      device_offer(device, "Service " + std::to_string(each), kType, "v=1");
    }
  }

  void Seconds(double seconds) { run_for(world_, static_cast<Time>(seconds * 1e6)); }

  // The instances that were reported to the browser as added and not as removed.
  static std::vector<std::string> Seen(const Browser& browser) {
    std::vector<std::string> names;
    for (const Known& known : browser.from->queries.at(browser.query).known) {
      names.push_back(text_of(known.rdata));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // How long until the browser sees that many, in seconds; 1e9 if it does not within a minute.
  double SecondsUntilSeen(const Browser& browser, std::size_t count) {
    const Time begin = world_.now;
    while (world_.breach.empty() && world_.now - begin < 60 * kSecond) {
      if (Seen(browser).size() == count) {
        return static_cast<double>(world_.now - begin) / 1e6;
      }
      run_for(world_, 10 * kMillisecond);
    }
    return 1e9;
  }

  // How often an instance was reported to the browser as removed, counted from now on.
  std::shared_ptr<int> CountsEnds(Browser& browser) {
    auto ends = std::make_shared<int>(0);
    Query& query = browser.from->queries.at(browser.query);
    query.report = [ends, report = query.report](bool added, const std::string& rdata) {
      *ends += added ? 0 : 1;
      report(added, rdata);
    };
    return ends;
  }

  // A host that offers a service on the first medium, and the name and addresses of the one that the service has for
  // `looker`.
  Device& GivenForwarded(const std::string& label, std::uint8_t number) {
    Device& device = GivenDevice(*a_, label, number);
    device_offer(device, "Forwarded", kType, "v=1");
    return device;
  }

  static std::string HostSeen(const Browser& looker) {
    const auto found = looker.findings.find(folded(wire::label("Forwarded") + kType));
    std::string text = found == looker.findings.end() ? "none" : text_of(found->second->target);
    for (const Address& address : found == looker.findings.end() ? std::set<Address>() : found->second->addresses) {
      text += " " + std::to_string(static_cast<std::uint8_t>(address.second.back()));
    }
    return text;
  }

  void Forges(Medium& medium, const Builder& builder, std::uint8_t number = 66) {
    Forged forged;
    forged.source.port = mdns::kPort;
    forged.source.address = {10, 0, 0, number};
    forged.bytes = builder.bytes();
    inject(world_, medium, forged);
  }

  static Builder Response() {
    Builder builder;
    builder.flags(0x8400);
    return builder;
  }

  World world_;
  Medium* a_ = nullptr;
  std::deque<Device> devices_;
  std::deque<Browser> browsers_;
};

}  // namespace simulation
