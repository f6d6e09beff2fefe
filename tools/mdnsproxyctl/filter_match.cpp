// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/filter_match.h"

#include <algorithm>
#include <array>

#include "mdnsproxyctl/address.h"
#include "mdnsproxyctl/json.h"

namespace {

using Answer = std::optional<bool>;

// An address of either family; of IPv4 the first four bytes count.
struct Address {
  std::size_t size = 0;  // 0: it is none
  std::array<std::uint8_t, 16> bytes = {};
};

Address address_of(const std::string& text) {
  Address address;
  if (inet_pton(family_of(text), text.c_str(), address.bytes.data()) == 1) {
    address.size = is_ipv6(text) ? 16 : 4;
  }
  return address;
}

bool is_multicast(const Address& address) {
  return address.size == 16 ? address.bytes[0] == 0xFF : (address.bytes[0] & 0xF0) == 0xE0;
}

bool is_within(const Address& address, const Address& prefix, long length) {
  if (address.size != prefix.size || length < 0 || length > static_cast<long>(address.size) * 8) {
    return false;
  }
  for (std::size_t bit = 0; bit < static_cast<std::size_t>(length); ++bit) {
    const int mask = 0x80 >> (bit % 8);
    if (((address.bytes[bit / 8] ^ prefix.bytes[bit / 8]) & mask) != 0) {
      return false;
    }
  }
  return true;
}

// What an expression says of the packet.
struct Operand {
  enum class Kind {
    known,
    absent,   // the packet is of another protocol: no condition on it is met
    unknown,  // cannot be told
  } kind = Kind::unknown;
  std::vector<std::string> names;  // any of which may be written for it
  std::optional<long> number;
  Address address;
};

const Operand kUnknown = {};
const Operand kAbsent = {Operand::Kind::absent, {}, {}, {}};

Operand named(const std::string& name, std::optional<long> number = std::nullopt) {
  return {Operand::Kind::known, {name}, number, {}};
}

Operand transport(const FilterPacket& packet) {
  return packet.tcp ? named("tcp", IPPROTO_TCP) : named("udp", IPPROTO_UDP);
}

Operand port(std::uint16_t number) {
  return {
      Operand::Kind::known, number == 5353 ? std::vector<std::string>{"mdns"} : std::vector<std::string>{}, number, {}};
}

Operand meta_operand(const std::string& key, const FilterPacket& packet) {
  if (key == "iifname" || key == "iif") {
    return named(packet.in_link);
  }
  if (key == "oifname" || key == "oif") {
    return named(packet.out_link);
  }
  if (key == "l4proto") {
    return transport(packet);
  }
  if (key == "nfproto") {
    return is_ipv6(packet.destination) ? named("ipv6", AF_INET6) : named("ipv4", AF_INET);
  }
  if (key == "protocol") {
    return is_ipv6(packet.destination) ? named("ip6", 0x86DD) : named("ip", 0x0800);
  }
  if (key == "pkttype") {
    return is_multicast(address_of(packet.destination)) ? named("multicast")
                                                        : Operand{Operand::Kind::known, {"host", "unicast"}, {}, {}};
  }
  return kUnknown;
}

Operand ip_operand(const std::string& field, const FilterPacket& packet) {
  if (field == "saddr" || field == "daddr") {
    return {Operand::Kind::known, {}, {}, address_of(field == "saddr" ? packet.source : packet.destination)};
  }
  return field == "protocol" || field == "nexthdr" ? transport(packet) : kUnknown;
}

Operand payload_operand(const Json& payload, const FilterPacket& packet) {
  const std::string protocol = text_of(payload, "protocol");
  const std::string field = text_of(payload, "field");
  if (protocol == "tcp" || protocol == "udp" || protocol == "th") {
    if (protocol != "th" && (protocol == "tcp") != packet.tcp) {
      return kAbsent;
    }
    return field == "dport" ? port(packet.destination_port) : field == "sport" ? port(packet.source_port) : kUnknown;
  }
  if (protocol == "ip" || protocol == "ip6") {
    return (protocol == "ip6") == is_ipv6(packet.destination) ? ip_operand(field, packet) : kAbsent;
  }
  constexpr const char* kOthers[] = {"icmp", "icmpv6", "igmp", "sctp", "dccp", "udplite", "esp", "ah", "comp", "arp"};
  return std::ranges::any_of(kOthers, [&](const char* each) { return protocol == each; }) ? kAbsent : kUnknown;
}

// The kind of the destination's address, as the routes say it.
Operand fib_operand(const Json& fib, const FilterPacket& packet) {
  const Json* const flags = member(fib, "flags");
  if (text_of(fib, "result") != "type" || flags == nullptr ||
      (*flags != Json("daddr") && *flags != Json::array({"daddr"}))) {
    return kUnknown;
  }
  return named(is_multicast(address_of(packet.destination)) ? "multicast"
               : packet.out_link.empty()                    ? "local"
                                                            : "unicast");
}

Operand operand_of(const Json& expression, const FilterPacket& packet) {
  if (const Json* const meta = member(expression, "meta")) {
    return meta_operand(text_of(*meta, "key"), packet);
  }
  if (const Json* const payload = member(expression, "payload")) {
    return payload_operand(*payload, packet);
  }
  if (const Json* const ct = member(expression, "ct"); ct != nullptr && text_of(*ct, "key") == "state") {
    return named(packet.answers ? "established" : "new");
  }
  if (const Json* const fib = member(expression, "fib")) {
    return fib_operand(*fib, packet);
  }
  return kUnknown;
}

// --- Values ----------------------------------------------------------------------------------------------------------

Answer is_value(const Operand& operand, const Json& value);

Answer is_any_of(const Operand& operand, const Json& values) {
  Answer answer = false;
  for (const Json& each : values) {
    const Answer one = is_value(operand, each);
    if (one == true) {
      return true;
    }
    answer = one ? answer : one;
  }
  return answer;
}

Answer is_in_range(const Operand& operand, const Json& range) {
  if (!range.is_array() || range.size() != 2) {
    return std::nullopt;
  }
  if (operand.number && range[0].is_number_integer() && range[1].is_number_integer()) {
    return range[0].get<long>() <= *operand.number && *operand.number <= range[1].get<long>();
  }
  if (operand.address.size == 0 || !range[0].is_string() || !range[1].is_string()) {
    return std::nullopt;
  }
  const Address first = address_of(range[0].get<std::string>());
  const Address last = address_of(range[1].get<std::string>());
  return first.size == operand.address.size && last.size == first.size && first.bytes <= operand.address.bytes &&
         operand.address.bytes <= last.bytes;
}

Answer is_text(const Operand& operand, const std::string& text) {
  if (text.starts_with("@")) {  // a named set
    return std::nullopt;
  }
  if (operand.address.size != 0) {
    const Address address = address_of(text);
    return address.size != 0 ? Answer(address.size == operand.address.size && address.bytes == operand.address.bytes)
                             : std::nullopt;
  }
  const bool family = text.ends_with("*");  // of interfaces: "br*"
  for (const std::string& name : operand.names) {
    if (name == text || (family && name.starts_with(text.substr(0, text.size() - 1)))) {
      return true;
    }
  }
  return operand.names.empty() ? std::nullopt : Answer(false);
}

Answer is_value(const Operand& operand, const Json& value) {
  if (value.is_number_integer()) {
    return operand.number ? Answer(*operand.number == value.get<long>()) : std::nullopt;
  }
  if (value.is_string()) {
    return is_text(operand, value.get<std::string>());
  }
  if (value.is_array()) {
    return is_any_of(operand, value);
  }
  for (const char* list : {"set", "|"}) {
    if (const Json* const values = member(value, list)) {
      return values->is_array() ? is_any_of(operand, *values) : is_value(operand, *values);
    }
  }
  if (const Json* const range = member(value, "range")) {
    return is_in_range(operand, *range);
  }
  if (const Json* const prefix = member(value, "prefix"); prefix != nullptr && operand.address.size != 0) {
    return is_within(operand.address, address_of(text_of(*prefix, "addr")), number_of(*prefix, "len", -1));
  }
  const Json* const element = member(value, "elem");
  const Json* const inside = element != nullptr ? member(*element, "val") : nullptr;
  return inside != nullptr ? is_value(operand, *inside) : std::nullopt;
}

Answer is_ordered(const Operand& operand, const std::string& op, const Json& value) {
  if (!operand.number || !value.is_number_integer()) {
    return std::nullopt;
  }
  const long other = value.get<long>();
  return op == "<"    ? *operand.number < other
         : op == ">"  ? *operand.number > other
         : op == "<=" ? *operand.number <= other
                      : *operand.number >= other;
}

}  // namespace

const Json* member(const Json& object, const char* name) {
  if (!object.is_object()) {
    return nullptr;
  }
  const auto found = object.find(name);
  return found != object.end() ? &*found : nullptr;
}

std::string text_of(const Json& object, const char* name, const std::string& otherwise) {
  const Json* const found = member(object, name);
  return found != nullptr && found->is_string() ? found->get<std::string>() : otherwise;
}

long number_of(const Json& object, const char* name, long otherwise) {
  const Json* const found = member(object, name);
  return found != nullptr && found->is_number_integer() ? found->get<long>() : otherwise;
}

std::optional<bool> has_value(const Json& expression, const Json& value, const FilterPacket& packet) {
  const Operand operand = operand_of(expression, packet);
  switch (operand.kind) {
    case Operand::Kind::absent:
      return false;
    case Operand::Kind::unknown:
      return std::nullopt;
    case Operand::Kind::known:
      break;
  }
  return is_value(operand, value);
}

std::optional<bool> meets_condition(const Json& condition, const FilterPacket& packet) {
  const Json* const left = member(condition, "left");
  const Json* const right = member(condition, "right");
  const std::string op = text_of(condition, "op");
  if (left == nullptr || right == nullptr) {
    return std::nullopt;
  }
  const Operand operand = operand_of(*left, packet);
  if (operand.kind != Operand::Kind::known) {
    return operand.kind == Operand::Kind::absent ? Answer(false) : std::nullopt;
  }
  if (op == "==" || op == "in" || op == "!=") {
    const Answer same = is_value(operand, *right);
    return same && op == "!=" ? Answer(!*same) : same;
  }
  return op == "<" || op == ">" || op == "<=" || op == ">=" ? is_ordered(operand, op, *right) : std::nullopt;
}
