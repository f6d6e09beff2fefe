// SPDX-License-Identifier: MIT
// Three rounds of questions: which services there are, where each of them is, and the addresses of their hosts. A
// round leaves out what an earlier answer has told already, as additional records do.
#include "mdnsproxyctl/discovery.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdio>

#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/question.h"

namespace {

using Records = std::vector<DnsRecord>;

// A service that was announced, by the name of its records.
struct Sighting {
  std::string type;
  DnsName name;
};

// The name whose PTR records list the services of a type. A subtype stands in front of the type, or behind a comma.
DnsName listing_name(const std::string& type) {
  const std::size_t comma = std::min(type.find(','), type.size());
  const std::string front = type.substr(0, comma);
  const std::string base = base_type(front);
  DnsName name = dns_name(base + ".local");
  const std::string subtype = comma < type.size()          ? type.substr(comma + 1)
                              : front.size() > base.size() ? front.substr(0, front.size() - base.size() - 1)
                                                           : "";
  if (!subtype.empty()) {
    name.insert(name.begin(), {subtype, "_sub"});
  }
  return name;
}

// The name of the type itself, "_ipp._tcp.local".
DnsName type_name(const std::string& type) { return dns_name(base_type(type.substr(0, type.find(','))) + ".local"); }

bool is_record(const DnsRecord& record, DnsType type, const DnsName& name) {
  return record.type == static_cast<std::uint16_t>(type) && same_name(record.name, name);
}

const DnsRecord* find_record(const Records& records, DnsType type, const DnsName& name) {
  const auto found = std::ranges::find_if(records, [&](const DnsRecord& each) { return is_record(each, type, name); });
  return found != records.end() ? &*found : nullptr;
}

// Whether the name is one label in front of the type's name.
bool is_instance_of(const DnsName& name, const DnsName& type) {
  return name.size() == type.size() + 1 && same_name(DnsName(name.begin() + 1, name.end()), type);
}

std::vector<Sighting> sightings_in(const Records& records, const std::vector<std::string>& types) {
  std::vector<Sighting> sightings;
  for (const std::string& type : types) {
    const DnsName listing = listing_name(type);
    const DnsName plain = type_name(type);
    for (const DnsRecord& each : records) {
      const auto is_same = [&](const Sighting& seen) { return seen.type == type && same_name(seen.name, each.target); };
      if (is_record(each, DnsType::ptr, listing) && is_instance_of(each.target, plain) &&
          sightings.size() < kMostFound && std::ranges::none_of(sightings, is_same)) {
        sightings.push_back({type, each.target});
      }
    }
  }
  return sightings;
}

// Asks what the records do not tell yet, and adds the answers to them.
void ask_for_missing(const MachineLink& link, std::vector<DnsQuestion> questions, Records& records) {
  const auto is_answered = [](const Records& known, const DnsQuestion& each) {
    return find_record(known, each.type, each.name) != nullptr;
  };
  std::erase_if(questions, [&](const DnsQuestion& each) { return is_answered(records, each); });
  if (questions.empty()) {
    return;
  }
  const Records more = ask(link, questions, [&](const Records& known) {
    return std::ranges::all_of(questions, [&](const DnsQuestion& each) { return is_answered(known, each); });
  });
  records.insert(records.end(), more.begin(), more.end());
}

bool has_useful_address(const Records& records, const DnsName& host) {
  return std::ranges::any_of(records, [&](const DnsRecord& each) {
    return (is_record(each, DnsType::a, host) || is_record(each, DnsType::aaaa, host)) && !is_link_local(each.address);
  });
}

// One useful address of a host is enough to foretell what becomes of its services.
void ask_for_hosts(const MachineLink& link, const std::vector<Sighting>& sightings, Records& records) {
  std::vector<DnsQuestion> questions;
  for (const Sighting& each : sightings) {
    const DnsRecord* const where = find_record(records, DnsType::srv, each.name);
    if (where != nullptr && !has_useful_address(records, where->target)) {
      questions.push_back({where->target, DnsType::a});
      questions.push_back({where->target, DnsType::aaaa});
    }
  }
  if (questions.empty()) {
    return;
  }
  const Records more = ask(link, questions, [&](const Records& known) {
    return std::ranges::all_of(questions,
                               [&](const DnsQuestion& each) { return has_useful_address(known, each.name); });
  });
  records.insert(records.end(), more.begin(), more.end());
}

// A name as the state file writes it: labels with a dot behind each, in the presentation format (RFC 1035 section 5.1).
std::string presentation(const DnsName& name) {
  std::string text;
  for (const std::string& label : name) {
    for (const char c : label) {
      const auto byte = static_cast<unsigned char>(c);
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, byte <= ' ' ? "\\%03u" : c == '.' || c == '\\' ? "\\%c" : "%c", byte);
      text += escaped;
    }
    text += '.';
  }
  return text;
}

std::vector<std::string> addresses_of(const Records& records, const DnsName& host) {
  std::vector<std::string> addresses;
  for (const DnsType type : {DnsType::a, DnsType::aaaa}) {
    for (const DnsRecord& each : records) {
      if (is_record(each, type, host) && std::ranges::find(addresses, each.address) == addresses.end()) {
        addresses.push_back(each.address);
      }
    }
  }
  return addresses;
}

FoundService described(const Sighting& sighting, const Records& records) {
  FoundService found = {sighting.type, sighting.name.front(), "", 0, {}, false};
  if (const DnsRecord* const where = find_record(records, DnsType::srv, sighting.name)) {
    found.host = presentation(where->target);
    found.port = where->port;
    found.addresses = addresses_of(records, where->target);
  }
  const auto is_marked = [&](const DnsRecord& each) {
    return each.through_gateway && is_record(each, DnsType::txt, sighting.name);
  };
  found.through_gateway = std::ranges::any_of(records, is_marked);
  return found;
}

}  // namespace

bool is_link_local(const std::string& address) {
  in_addr four = {};
  if (inet_pton(AF_INET, address.c_str(), &four) == 1) {
    return (ntohl(four.s_addr) & 0xFFFF0000U) == 0xA9FE0000U;
  }
  in6_addr six = {};
  return inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LINKLOCAL(&six);
}

std::vector<FoundService> discover(const MachineLink& link, const std::vector<std::string>& types) {
  std::vector<DnsQuestion> listings;
  listings.reserve(types.size());
  for (const std::string& type : types) {
    listings.push_back({listing_name(type), DnsType::ptr});
  }
  Records records = ask(link, listings, [](const Records&) { return false; });
  const std::vector<Sighting> sightings = sightings_in(records, types);
  std::vector<DnsQuestion> details;
  for (const Sighting& each : sightings) {
    details.push_back({each.name, DnsType::srv});
    details.push_back({each.name, DnsType::txt});
  }
  ask_for_missing(link, details, records);
  ask_for_hosts(link, sightings, records);
  std::vector<FoundService> found;
  found.reserve(sightings.size());
  for (const Sighting& each : sightings) {
    found.push_back(described(each, records));
  }
  return found;
}
