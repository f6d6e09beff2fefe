// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/census.h"

#include <algorithm>
#include <future>
#include <set>

#include "mdnsproxyctl/question.h"

namespace {

bool is_of_type(const DnsRecord& record, const std::string& type) {
  return record.type == static_cast<std::uint16_t>(DnsType::ptr) && same_name(record.name, dns_name(type + ".local"));
}

}  // namespace

ServiceCounts count_services(const std::vector<MachineLink>& links, const MachineLink& link,
                             const std::vector<std::string>& types) {
  std::vector<DnsQuestion> questions;
  questions.reserve(types.size());
  for (const std::string& type : types) {
    questions.push_back({dns_name(type + ".local"), DnsType::ptr});
  }
  const std::vector<DnsRecord> records = ask(link, questions, [](const auto&) { return false; });
  std::set<DnsName> seen;
  for (const DnsRecord& each : records) {
    if (each.through_gateway) {
      seen.insert(each.name);  // a copy
    }
  }
  ServiceCounts counts;
  for (const DnsRecord& each : records) {
    const auto type = std::ranges::find_if(types, [&](const std::string& one) { return is_of_type(each, one); });
    if (type != types.end() && !is_of_this_machine(links, each.sender) && seen.insert(each.target).second) {
      counts[*type] += 1;
    }
  }
  return counts;
}

std::map<std::string, ServiceCounts> count_services_everywhere(const std::vector<MachineLink>& links,
                                                               const std::vector<std::string>& types) {
  std::map<std::string, std::future<ServiceCounts>> counting;
  for (const MachineLink& link : links) {
    if (link.up && link.multicast) {
      counting[link.name] =
          std::async(std::launch::async, count_services, std::cref(links), std::cref(link), std::cref(types));
    }
  }
  std::map<std::string, ServiceCounts> counts;
  for (auto& [link, count] : counting) {
    counts[link] = count.get();
  }
  return counts;
}
