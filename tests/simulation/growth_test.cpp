// SPDX-License-Identifier: MIT
// Four times as many services are about four times the work, not sixteen times. The work is the number of records that
// the engines look at (LinkCounts::steps): the same on every machine.
#include <gtest/gtest.h>

#include <cstdio>

#include "mdns/link_counts.h"
#include "simulation/bare_links.h"
#include "simulation/wire.h"

namespace simulation {
namespace {

using mdns::Event;

constexpr int kFew = 300, kMany = 1200;
constexpr double kTimesAtMost = 4.6;  // they are four times as many; the rest is for packets that are not filled evenly
const std::string kType = wire::name("_ipp._tcp.local");
constexpr std::string_view kMark = "forwarded";

std::string instance_of(int number) { return wire::label("Service " + std::to_string(number)) + kType; }

std::string host_of(int number) { return wire::name("host-" + std::to_string(number) + ".local"); }

std::string address_of(int number, int version) {
  return {10, static_cast<char>(version), static_cast<char>(number >> 8), static_cast<char>(number)};
}

// A service on the link of a device.
struct Offered {
  mdns::PublicationId address = 0, service = 0;
};

// Devices: each has a host with an address, and a service.
struct Devices {
  BareLink* link = nullptr;
  int first = 0;
  std::vector<Offered> offered;
};

// What a lister has found of one service; with a second link, what it offers there.
struct Found {
  std::string srv, txt, address;
  bool asks_for_address = false;
  mdns::PublicationId offered_address = 0, offered_service = 0;
};

// A client that lists all services of a link with everything about them; with `to`, a gateway that offers them there.
struct Lister {
  BareLink* from = nullptr;
  BareLink* to = nullptr;
  std::unordered_map<std::string, Found> found = {};
  int ends = 0;  // services that were reported removed

  int complete() const {
    int count = 0;
    for (const auto& [instance, each] : found) {
      count += each.address.empty() || each.txt.empty() ? 0 : 1;
    }
    return count;
  }
};

void offer(Lister& lister, const std::string& instance, Found& found) {
  if (lister.to == nullptr || found.address.empty() || found.txt.empty() || found.txt.ends_with(kMark)) {
    return;
  }
  const mdns::RecordData address{mdns::kTypeA, 0, found.address};
  const mdns::RecordData txt{mdns::kTypeTxt, 0, found.txt + wire::label(kMark)};
  if (found.offered_service != 0) {
    EXPECT_TRUE(bare_update(*lister.to, found.offered_address, address));
    EXPECT_TRUE(bare_update(*lister.to, found.offered_service, txt));
    return;
  }
  const mdns::RecordData service[] = {{mdns::kTypeSrv, 0, found.srv}, txt};
  found.offered_address = bare_publish(*lister.to, srv_target(found.srv), {&address, 1}, mdns::Claim::shared);
  found.offered_service =
      bare_publish(*lister.to, instance, service, mdns::Claim::exclusive, [&lister, instance](const Event& event) {
        ASSERT_EQ(event.kind, Event::Kind::established) << text_of(instance);
        const mdns::RecordData pointer{mdns::kTypePtr, 0, instance};
        bare_publish(*lister.to, kType, {&pointer, 1}, mdns::Claim::shared);
      });
}

void look_up(Lister& lister, const std::string& instance) {
  bare_query(*lister.from, instance, mdns::kTypeTxt, [&lister, instance](const Event& event) {
    if (event.kind == Event::Kind::added) {
      Found& found = lister.found.at(instance);
      found.txt = event.rdata;
      offer(lister, instance, found);
    }
  });
  bare_query(*lister.from, instance, mdns::kTypeSrv, [&lister, instance](const Event& event) {
    Found& found = lister.found.at(instance);
    if (event.kind != Event::Kind::added || found.asks_for_address) {
      return;
    }
    found.srv = event.rdata;
    found.asks_for_address = true;
    bare_query(*lister.from, srv_target(found.srv), mdns::kTypeA, [&lister, instance](const Event& address) {
      if (address.kind == Event::Kind::added) {
        Found& its = lister.found.at(instance);
        its.address = address.rdata;
        offer(lister, instance, its);
      }
    });
  });
}

void list(Lister& lister) {
  bare_query(*lister.from, kType, mdns::kTypePtr, [&lister](const Event& event) {
    lister.ends += event.kind == Event::Kind::removed ? 1 : 0;
    if (event.kind == Event::Kind::added && lister.found.try_emplace(event.rdata).second) {
      look_up(lister, event.rdata);
    }
  });
}

void announce(Devices& devices, int count) {
  for (int number = devices.first; number < devices.first + count; ++number) {
    const std::string instance = instance_of(number);
    const mdns::RecordData address{mdns::kTypeA, 0, address_of(number, 1)};
    const mdns::RecordData service[] = {{mdns::kTypeSrv, 0, wire::srv_of(631, host_of(number))},
                                        {mdns::kTypeTxt, 0, wire::label("v=1")}};
    const mdns::RecordData pointer{mdns::kTypePtr, 0, instance};
    Offered& offered = devices.offered.emplace_back();
    offered.address = bare_publish(*devices.link, host_of(number), {&address, 1}, mdns::Claim::unique);
    offered.service = bare_publish(*devices.link, instance, service, mdns::Claim::exclusive);
    bare_publish(*devices.link, kType, {&pointer, 1}, mdns::Claim::shared);
  }
}

// One world of so many services.
struct Crowd {
  Crowd(int size, std::uint64_t seed) : count(size) { bare.seed = seed; }

  Devices& GivenDevices(int medium, int first = 0) {
    devices.push_back({&bare_link(bare, medium), first, {}});
    announce(devices.back(), count);
    return devices.back();
  }

  Lister& GivenClient(int medium) { return Lists({&bare_link(bare, medium), nullptr}); }

  Lister& GivenGateway(int from, int to) {
    BareLink& source = bare_link(bare, from);
    return Lists({&source, &bare_link(bare, to)});
  }

  Lister& Lists(Lister&& lister) {
    listers.push_back(std::move(lister));
    list(listers.back());
    return listers.back();
  }

  void Seconds(int seconds) { bare_run(bare, seconds * mdns::kSecond); }

  // Counting begins here: what the links have done so far was for the scene.
  void Mark() {
    before.clear();
    for (const BareLink& link : bare.links) {
      before.push_back(mdns::link_counts(*link.link).steps);
    }
  }

  std::uint64_t Steps() const {
    std::uint64_t steps = 0;
    for (std::size_t at = 0; at < bare.links.size(); ++at) {
      steps += mdns::link_counts(*bare.links[at].link).steps - (at < before.size() ? before[at] : 0);
    }
    return steps;
  }

  int count;
  Bare bare;
  std::deque<Devices> devices;
  std::deque<Lister> listers;
  std::vector<std::uint64_t> before;
};

// The scene's work with so many services, for so many different random delays.
std::uint64_t StepsOf(const std::function<void(Crowd&)>& scene, int services, std::uint64_t seeds) {
  std::uint64_t steps = 0;
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    Crowd crowd(services, seed);
    scene(crowd);
    steps += crowd.Steps();
  }
  return steps / seeds;
}

void ExpectProportionate(const std::function<void(Crowd&)>& scene, std::uint64_t seeds = 1,
                         double at_most = kTimesAtMost) {
  const std::uint64_t few = StepsOf(scene, kFew, seeds), many = StepsOf(scene, kMany, seeds);
  const double times = static_cast<double>(many) / static_cast<double>(few);
  std::printf("%llu records looked at for %d services, %llu for %d: %.2f times\n", static_cast<unsigned long long>(few),
              kFew, static_cast<unsigned long long>(many), kMany, times);
  EXPECT_GT(few, static_cast<std::uint64_t>(kFew));
  EXPECT_LE(times, at_most);
}

// Devices on link 0, a gateway from it to link 1, a client there.
void GivenForwarded(Crowd& crowd) {
  crowd.GivenGateway(0, 1);
  const Lister& client = crowd.GivenClient(1);
  crowd.GivenDevices(0);
  crowd.Seconds(20);  // the next question of each series is far off
  EXPECT_EQ(client.complete(), crowd.count);
}

TEST(Growth, OfServicesThatAreForwarded) { ExpectProportionate(GivenForwarded); }

TEST(Growth, OfServicesThatAreForwardedBothWays) {
  ExpectProportionate([](Crowd& crowd) {
    Lister& there = crowd.GivenGateway(0, 1);
    crowd.Lists({there.to, there.from});
    crowd.GivenDevices(0);
    crowd.GivenDevices(1, 10000);
    const Lister& client = crowd.GivenClient(0);
    crowd.Seconds(8);
    EXPECT_EQ(client.complete(), 2 * crowd.count);
  });
}

TEST(Growth, OfServicesThatTwoGatewaysForward) {
  ExpectProportionate([](Crowd& crowd) {
    crowd.GivenGateway(0, 1);
    GivenForwarded(crowd);
  });
}

// One link's services go to so many others.
void GivenForwardedToMany(Crowd& crowd, int links) {
  BareLink& from = bare_link(crowd.bare, 0);
  for (int to = 1; to <= links; ++to) {
    crowd.Lists({&from, &bare_link(crowd.bare, to)});
  }
  crowd.GivenDevices(0);
  crowd.Seconds(6);
  for (const Lister& lister : crowd.listers) {
    EXPECT_EQ(lister.complete(), crowd.count);
  }
  for (const BareLink& link : crowd.bare.links) {
    EXPECT_GE(mdns::link_counts(*link.link).published, link.medium == 0 ? 0U : static_cast<unsigned>(4 * crowd.count));
  }
}

TEST(Growth, OfServicesThatAreForwardedToEightLinks) {
  ExpectProportionate([](Crowd& crowd) { GivenForwardedToMany(crowd, 8); });
}

TEST(Growth, OfServicesThatAreForwardedToThirtyTwoLinks) {
  ExpectProportionate([](Crowd& crowd) { GivenForwardedToMany(crowd, 32); });
}

// Packets of forged goodbyes.
void ForgeGoodbyes(Crowd& crowd, int medium, mdns::Protocols protocols) {
  for (int number = 0; number < crowd.count;) {
    Builder builder;
    builder.flags(0x8400);
    for (const int until = number + 6; number < until; ++number) {
      const std::string instance = instance_of(number);
      builder.record(Part::answer, kType, mdns::kTypePtr, mdns::kClassIn, 0, instance);
      builder.record(Part::answer, instance, mdns::kTypeSrv, mdns::kClassIn, 0, wire::srv_of(631, host_of(number)));
      builder.record(Part::answer, host_of(number), mdns::kTypeA, mdns::kClassIn, 0, address_of(number, 1));
    }
    bare_inject(crowd.bare, medium, protocols, builder.bytes());
  }
}

void GivenForgedGoodbyes(Crowd& crowd, mdns::Protocols protocols) {
  GivenForwarded(crowd);
  crowd.Mark();
  ForgeGoodbyes(crowd, 0, protocols);
  ForgeGoodbyes(crowd, 1, protocols);
  crowd.Seconds(5);
  for (const BareLink& link : crowd.bare.links) {
    EXPECT_EQ(mdns::link_counts(*link.link).ignored, 0U);
  }
  for (const Lister& lister : crowd.listers) {
    EXPECT_EQ(lister.ends, 0);
  }
}

TEST(Growth, OfGoodbyesThatAreForged) {
  ExpectProportionate([](Crowd& crowd) { GivenForgedGoodbyes(crowd, mdns::kBothProtocols); });
}

TEST(Growth, OfGoodbyesThatAreForgedOverOneProtocol) {
  ExpectProportionate([](Crowd& crowd) { GivenForgedGoodbyes(crowd, mdns::kIpv4); }, 4);
}

TEST(Growth, OfTextsThatChange) {
  ExpectProportionate([](Crowd& crowd) {
    GivenForwarded(crowd);
    crowd.Mark();
    const Devices& devices = crowd.devices.back();
    for (const Offered& offered : devices.offered) {
      EXPECT_TRUE(bare_update(*devices.link, offered.service, {mdns::kTypeTxt, 0, wire::label("v=2")}));
    }
    crowd.Seconds(5);
    for (const auto& [instance, found] : crowd.listers.back().found) {
      ASSERT_EQ(found.txt, wire::label("v=2") + wire::label(kMark)) << text_of(instance);
    }
  });
}

TEST(Growth, OfAddressesThatChange) {
  ExpectProportionate([](Crowd& crowd) {
    GivenForwarded(crowd);
    crowd.Mark();
    const Devices& devices = crowd.devices.back();
    for (std::size_t at = 0; at < devices.offered.size(); ++at) {
      const mdns::RecordData address{mdns::kTypeA, 0, address_of(static_cast<int>(at), 2)};
      EXPECT_TRUE(bare_update(*devices.link, devices.offered[at].address, address));
    }
    crowd.Seconds(5);
    for (const auto& [instance, found] : crowd.listers.back().found) {
      ASSERT_EQ(found.address[1], 2) << text_of(instance);
    }
  });
}

// So many clients come to the link of the gateway's services and list all of them.
void GivenLateClients(Crowd& crowd, int clients) {
  GivenForwarded(crowd);
  crowd.Mark();
  for (int each = 0; each < clients; ++each) {
    crowd.GivenClient(1);
    bare_run(crowd.bare, 50 * mdns::kMillisecond);
  }
  crowd.Seconds(8);
  for (const Lister& lister : crowd.listers) {
    EXPECT_EQ(lister.complete(), crowd.count);
  }
}

// How far the answers to the first questions save the next ones is a matter of chance.
TEST(Growth, OfServicesThatAClientLists) {
  ExpectProportionate([](Crowd& crowd) { GivenLateClients(crowd, 1); }, 5);
}

TEST(Growth, OfServicesThatTenClientsList) {
  ExpectProportionate([](Crowd& crowd) { GivenLateClients(crowd, 10); });
}

}  // namespace
}  // namespace simulation
