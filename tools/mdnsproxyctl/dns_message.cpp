// SPDX-License-Identifier: MIT
// Messages are written and read by the DNS-SD library's own code; here its wire format becomes what the tool works
// with.
#include "mdnsproxyctl/dns_message.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string_view>

#include "mdns/wire/name.h"
#include "mdns/wire/reader.h"
#include "mdns/wire/writer.h"

namespace {

constexpr std::string_view kVendorEntry = "vender=Zenmor";

std::string wire_name(const DnsName& name) {
  std::string wire;
  for (const std::string& label : name) {
    const std::string_view text = std::string_view(label).substr(0, mdns::kLabelMax);
    wire += static_cast<char>(text.size());
    wire += text;
  }
  return wire + '\0';
}

DnsName labels_of(std::string_view wire) {
  DnsName name;
  for (; wire.size() > 1; wire = mdns::parent_name(wire)) {
    name.emplace_back(mdns::first_label(wire));
  }
  return name;
}

std::string address_text(int family, std::string_view rdata) {
  char text[INET6_ADDRSTRLEN] = {};
  return inet_ntop(family, rdata.data(), text, sizeof text);
}

// Whether one of the strings of TXT data is the gateway's.
bool holds_vendor_entry(std::string_view rdata) {
  while (!rdata.empty()) {
    const std::size_t length = static_cast<std::uint8_t>(rdata.front());
    if (rdata.substr(1, length) == kVendorEntry) {
      return true;
    }
    rdata.remove_prefix(std::min(rdata.size(), length + 1));
  }
  return false;
}

std::uint16_t port_of(std::string_view srv_rdata) {
  return static_cast<std::uint16_t>(static_cast<std::uint8_t>(srv_rdata[4]) << 8 |
                                    static_cast<std::uint8_t>(srv_rdata[5]));
}

// Its rdata is well formed. Nothing for a type that nobody here asks for.
std::optional<DnsRecord> record_of(const mdns::Record& read) {
  DnsRecord record = {.name = labels_of(read.name), .type = read.type, .target = {}, .address = {}};
  switch (static_cast<DnsType>(read.type)) {
    case DnsType::a:
      record.address = address_text(AF_INET, read.rdata);
      return record;
    case DnsType::aaaa:
      record.address = address_text(AF_INET6, read.rdata);
      return record;
    case DnsType::txt:
      record.through_gateway = holds_vendor_entry(read.rdata);
      return record;
    case DnsType::srv:
      record.port = port_of(read.rdata);
      [[fallthrough]];
    case DnsType::ptr:
      record.target = labels_of(mdns::target_of(read.type, read.rdata));
      return record;
  }
  return std::nullopt;
}

}  // namespace

DnsName dns_name(const std::string& dotted) {
  DnsName name;
  std::string_view rest = dotted;
  while (!rest.empty()) {
    const std::size_t dot = std::min(rest.find('.'), rest.size());
    if (dot > 0) {
      name.emplace_back(rest.substr(0, dot));
    }
    rest.remove_prefix(std::min(dot + 1, rest.size()));
  }
  return name;
}

bool same_name(const DnsName& one, const DnsName& other) {
  return std::ranges::equal(one, other,
                            [](const std::string& a, const std::string& b) { return mdns::same_folded(a, b); });
}

std::vector<std::uint8_t> encode_query(std::uint16_t id, const std::vector<DnsQuestion>& questions) {
  mdns::Writer writer = mdns::writer_new(false, id);
  for (const DnsQuestion& each : questions) {
    const std::string name = wire_name(each.name);
    if (mdns::is_name(name)) {
      mdns::writer_add_question(writer, name, static_cast<std::uint16_t>(each.type), false);
    }
  }
  return mdns::writer_take(writer);
}

std::optional<std::vector<DnsRecord>> decode_response(std::span<const std::uint8_t> message) {
  const std::optional<mdns::Message> read = mdns::read_message(message);
  if (!read || !read->is_response) {
    return std::nullopt;
  }
  std::vector<DnsRecord> records;
  for (const std::vector<mdns::Record>* section : {&read->answers, &read->authorities, &read->additionals}) {
    for (const mdns::Record& each : *section) {
      if (std::optional<DnsRecord> record = record_of(each)) {
        records.push_back(std::move(*record));
      }
    }
  }
  return records;
}
