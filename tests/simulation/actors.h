// SPDX-License-Identifier: MIT
// What hosts do: devices that offer services, gateways that browse one link and offer on another what they find,
// lookers that only browse. They use the engine as the library of dns_sd.h and the daemon do.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulation/client.h"
#include "simulation/forwarded_hosts.h"
#include "simulation/world.h"

namespace simulation {

// The first string of TXT data that a gateway offers; what carries it is not forwarded again.
inline constexpr std::string_view kMark =
    "\x09"
    "forwarded";

// The label, or the `attempt`th one that takes its place where it is another's: with the number between `before` and
// `behind`.
std::string numbered(const std::string& label, int attempt, const char* before, const char* behind);

// One service as it is registered: SRV and TXT together under a name that nobody else may have, then the PTR records to
// it. When the name is another's, the next one is tried.
struct Offer {
  Port* port = nullptr;
  std::string label, type;  // "Printer"; the wire name of "_ipp._tcp.local"
  std::string srv, txt;     // data
  int attempt = 1;          // "Printer (2)" is the second
  Tag service = 0, pointer = 0, meta = 0;
  bool is_forwarded = false;  // others of its host may offer the same: their data changes with it
};

// The offer's present name, on the wire.
std::string instance_of(const Offer& offer);

void offer_start(Offer& offer);
// Updates the published records to the offer's present data; nothing happens if it has not changed.
void offer_change(Offer& offer, const std::string& srv, const std::string& txt);
void offer_stop(Offer& offer);

// A host with addresses and services on one link.
struct Device {
  Port* port = nullptr;
  std::string label;  // of its host name
  int attempt = 1;
  std::string v4, v6;     // address data; empty: none
  std::string second_v6;  // the same
  Tag addresses = 0;
  std::vector<std::unique_ptr<Offer>> offers;
};

std::string host_name_of(const Device& device);
void device_start(Device& device);
// Gives up its name and services.
void device_stop(Device& device);
Offer& device_offer(Device& device, std::string_view label, const std::string& type, std::string_view text);
void device_change_address(Device& device, std::uint8_t number);

// What a browse has found of one instance.
struct Finding {
  std::string instance;
  Tag srv_query = 0, txt_query = 0, v4_query = 0, v6_query = 0;
  std::string target;
  std::vector<std::string> srv, txt;  // known now; the latest last
  std::set<Address> addresses;        // known now
  int use = 0;                        // of the target on the other link; 0: none
  Offer offer;
};

// A browse of one type, with everything about what it finds. With `to`, a gateway.
struct Browser {
  Port* from = nullptr;
  Port* to = nullptr;
  std::string type;
  Tag query = 0;
  std::map<std::string, std::unique_ptr<Finding>> findings;  // by folded instance name
};

void browse_start(Browser& browser);
// Ends the queries; with `to`, withdraws everything.
void browse_stop(Browser& browser);

// Whether the gateway offers all that is published on its one link (unmarked, with addresses) on the other, and nothing
// else; what was left behind there without a goodbye only if not `exactly`.
void check_gateway(World& world, const Browser& browser, bool exactly);

// One act of a hostile host on the medium: forged, mutated, random or many datagrams.
void be_hostile(World& world, Medium& medium);

}  // namespace simulation
