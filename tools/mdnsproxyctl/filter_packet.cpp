// SPDX-License-Identifier: MIT
// The packets of which it is asked whether they pass the packet filter, and what to say of those that do not.

#include <algorithm>

#include "mdnsproxyctl/address.h"
#include "mdnsproxyctl/filter.h"
#include "mdnsproxyctl/text.h"

namespace {

constexpr std::uint16_t kMulticastDnsPort = 5353;

// Any of those that the kernel gives to clients.
constexpr std::uint16_t kEphemeralPort = 49152;

// The link's own address of the family; empty when it has none.
std::string own_address(const MachineLink& link, bool ipv6) {
  const auto own = std::ranges::find_if(link.addresses, [&](const std::string& each) { return is_ipv6(each) == ipv6; });
  return own != link.addresses.end() ? *own : "";
}

std::optional<FilterPacket> multicast_packet(const MachineLink& link, bool ipv6) {
  const std::string own = own_address(link, ipv6);
  if (own.empty()) {
    return std::nullopt;
  }
  return FilterPacket{"",   "", own, ipv6 ? "ff02::fb" : "224.0.0.251", false, kMulticastDnsPort, kMulticastDnsPort,
                      false};
}

}  // namespace

std::optional<FilterPacket> multicast_from(const MachineLink& link, bool ipv6) {
  std::optional<FilterPacket> packet = multicast_packet(link, ipv6);
  if (packet) {
    packet->in_link = link.name;
  }
  return packet;
}

std::optional<FilterPacket> multicast_to(const MachineLink& link, bool ipv6) {
  std::optional<FilterPacket> packet = multicast_packet(link, ipv6);
  if (packet) {
    packet->out_link = link.name;
  }
  return packet;
}

std::vector<FilterPacket> client_packets(const MachineLink& clients, const std::string& service_link,
                                         const std::string& address, std::uint16_t port, bool tcp) {
  const std::string client = own_address(clients, is_ipv6(address));
  if (client.empty()) {
    return {};
  }
  return {{clients.name, service_link, client, address, tcp, kEphemeralPort, port, false},
          {service_link, clients.name, address, client, tcp, port, kEphemeralPort, true}};
}

std::string drop_text(const FilterJudgement& judgement, const std::string& what) {
  return judgement.packets
             ? "nft counts " + std::to_string(*judgement.packets) + " packets dropped by " + judgement.place
             : what + " are dropped by " + judgement.place;
}

std::string passing_command(const FilterJudgement& judgement, const FilterPacket& packet) {
  std::string words = "nft insert rule " + judgement.chain + " ";
  words += packet.in_link.empty() ? "" : "iifname \"" + shown(packet.in_link) + "\" ";
  words += packet.out_link.empty() ? "" : "oifname \"" + shown(packet.out_link) + "\" ";
  if (packet.answers) {
    return words + "ct state established,related accept";
  }
  if (packet.tcp || !packet.out_link.empty()) {
    words += (is_ipv6(packet.destination) ? "ip6" : "ip") + std::string(" daddr ") + packet.destination + " ";
  }
  return words + (packet.tcp ? "tcp" : "udp") + " dport " + std::to_string(packet.destination_port) + " accept";
}
