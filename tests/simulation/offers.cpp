// SPDX-License-Identifier: MIT
// Offers and devices. An offer's life: publish SRV and TXT as exclusive; when established, publish the PTR records; on
// a conflict withdraw them without goodbyes and begin again under the next name.
#include "simulation/actors.h"

namespace simulation {
namespace {

using mdns::Claim;

constexpr std::size_t kLabelMax = 63;

}  // namespace

std::string numbered(const std::string& label, int attempt, const char* before, const char* behind) {
  if (attempt == 1) {
    return label;
  }
  const std::string suffix = before + std::to_string(attempt) + behind;
  return label.substr(0, kLabelMax - suffix.size()) + suffix;
}

namespace {

void offer_established(Offer& offer) {
  if (offer.pointer == 0) {
    static const std::string kMeta = wire::name("_services._dns-sd._udp.local");
    offer.pointer = publish(*offer.port, offer.type, {{mdns::kTypePtr, 0, instance_of(offer)}}, Claim::shared);
    offer.meta = publish(*offer.port, kMeta, {{mdns::kTypePtr, 0, offer.type}}, Claim::shared);
  }
}

void offer_lost(Offer& offer) {
  withdraw(*offer.port, offer.pointer, false);
  withdraw(*offer.port, offer.meta);
  offer.service = offer.pointer = offer.meta = 0;
  ++offer.attempt;
  offer_start(offer);
}

}  // namespace

std::string instance_of(const Offer& offer) {
  return wire::label(numbered(offer.label, offer.attempt, " (", ")")) + offer.type;
}

void offer_start(Offer& offer) {
  offer.service =
      publish(*offer.port, instance_of(offer), {{mdns::kTypeSrv, 0, offer.srv}, {mdns::kTypeTxt, 0, offer.txt}},
              Claim::exclusive, [&offer](bool established) {
                if (established) {
                  offer_established(offer);
                } else {
                  offer_lost(offer);
                }
              });
}

void offer_change(Offer& offer, const std::string& srv, const std::string& txt) {
  const bool changes_srv = srv != offer.srv, changes_txt = txt != offer.txt;
  offer.srv = srv;
  offer.txt = txt;
  if (offer.service == 0) {
    return;
  }
  const bool done =
      (!changes_srv || update(*offer.port, offer.service, {mdns::kTypeSrv, 0, srv}, offer.is_forwarded)) &&
      (!changes_txt || update(*offer.port, offer.service, {mdns::kTypeTxt, 0, txt}, offer.is_forwarded));
  if (!done) {  // another of this host has the same name with the old data
    offer_stop(offer);
    offer_start(offer);
  }
}

void offer_stop(Offer& offer) {
  withdraw(*offer.port, offer.pointer);
  withdraw(*offer.port, offer.meta);
  withdraw(*offer.port, offer.service);
  offer.service = offer.pointer = offer.meta = 0;
}

std::string host_name_of(const Device& device) {
  return wire::label(numbered(device.label, device.attempt, "-", "")) + wire::name("local");
}

namespace {

void device_lost(Device& device) {
  device.addresses = 0;
  ++device.attempt;
  device_start(device);
  for (const std::unique_ptr<Offer>& offer : device.offers) {
    offer_change(*offer, wire::srv_of(80, host_name_of(device)), offer->txt);
  }
}

}  // namespace

void device_start(Device& device) {
  std::vector<mdns::RecordData> records;
  if (!device.v4.empty()) {
    records.push_back({mdns::kTypeA, 0, device.v4});
  }
  if (!device.v6.empty()) {
    records.push_back({mdns::kTypeAaaa, 0, device.v6});
  }
  if (!device.second_v6.empty()) {
    records.push_back({mdns::kTypeAaaa, 0, device.second_v6});
  }
  device.addresses =
      publish(*device.port, host_name_of(device), std::move(records), Claim::unique, [&device](bool established) {
        if (!established) {
          device_lost(device);
        }
      });
}

Offer& device_offer(Device& device, std::string_view label, const std::string& type, std::string_view text) {
  Offer& offer = *device.offers.emplace_back(std::make_unique<Offer>());
  offer.port = device.port;
  offer.label = label;
  offer.type = type;
  offer.srv = wire::srv_of(80, host_name_of(device));
  offer.txt = wire::label(text);
  offer_start(offer);
  return offer;
}

void device_stop(Device& device) {
  for (const std::unique_ptr<Offer>& offer : device.offers) {
    offer_stop(*offer);
  }
  withdraw(*device.port, device.addresses);
  device.addresses = 0;
}

void device_change_address(Device& device, std::uint8_t number) {
  std::string& address = device.v4.empty() ? device.v6 : device.v4;
  address.back() = static_cast<char>(number);
  update(*device.port, device.addresses, {device.v4.empty() ? mdns::kTypeAaaa : mdns::kTypeA, 0, address});
}

}  // namespace simulation
