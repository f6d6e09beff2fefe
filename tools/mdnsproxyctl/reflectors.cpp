// SPDX-License-Identifier: MIT
#include "mdnsproxyctl/reflectors.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <future>

#include "mdnsproxyctl/address.h"
#include "mdnsproxyctl/case.h"
#include "mdnsproxyctl/neighbours.h"
#include "mdnsproxyctl/question.h"

namespace {

// Answers about names that one host has come at once (RFC 6762 section 6), and so does what is repeated of them.
constexpr int kAnswerMilliseconds = 750;
constexpr int kNudgeMilliseconds = 300;
constexpr std::ptrdiff_t kSampleSize = 3;

bool is_of_type(const DnsRecord& record, DnsType type) { return record.type == static_cast<std::uint16_t>(type); }

const RuleView& rule_of(const Session& session, const InstanceView& service) {
  return session.state.view.rules[service.rule];
}

DnsName name_of(const Session& session, const InstanceView& service) {
  DnsName name = dns_name(base_type(rule_of(session, service).type) + ".local");
  name.insert(name.begin(), service.name);
  return name;
}

// Whether the sender is the service's host, by the addresses that are known of it and those that it gives itself.
bool is_its_host(const InstanceView& service, const std::string& sender, const std::vector<DnsRecord>& records) {
  const DnsName host = dns_name(service.host);
  return std::ranges::find(service.addresses, sender) != service.addresses.end() ||
         std::ranges::any_of(records, [&](const DnsRecord& each) {
           return each.sender == sender && each.address == sender && same_name(each.name, host);
         });
}

bool says_gateway(const std::vector<DnsRecord>& records, const std::string& sender, const DnsName& name) {
  return std::ranges::any_of(records, [&](const DnsRecord& each) {
    return each.through_gateway && each.sender == sender && same_name(each.name, name);
  });
}

// Makes the kernel look for the host's hardware address, by a question to it alone (RFC 6762 section 5.5).
void nudge(const std::string& address, int link_index) {
  const int opened = socket(family_of(address), SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (opened == -1) {
    return;
  }
  const SocketAddress to = socket_address(address, 5353, static_cast<unsigned>(link_index));
  const std::vector<std::uint8_t> query = encode_query(0, {{dns_name("_services._dns-sd._udp.local"), DnsType::ptr}});
  if (sendto(opened, query.data(), query.size(), 0, to.get(), to.size) >= 0) {
    pollfd answer = {opened, POLLIN, 0};
    poll(&answer, 1, kNudgeMilliseconds);
  }
  close(opened);
}

std::string hardware_of(const std::string& address, int link_index) {
  std::string known = hardware_address(address, link_index);
  if (!known.empty()) {
    return known;
  }
  nudge(address, link_index);
  return hardware_address(address, link_index);
}

// A host that answers over IPv4 and IPv6 is one, and is called by its IPv4 address.
void add_repeater(std::vector<Repeater>& repeaters, Repeater repeater, int link_index) {
  if (std::ranges::find(repeaters, repeater.address, &Repeater::address) != repeaters.end()) {
    return;
  }
  repeater.hardware = hardware_of(repeater.address, link_index);
  const auto same = std::ranges::find_if(
      repeaters, [&](const Repeater& each) { return !each.hardware.empty() && each.hardware == repeater.hardware; });
  if (same == repeaters.end()) {
    repeaters.push_back(repeater);
  } else if (is_ipv6(same->address) && !is_ipv6(repeater.address)) {
    same->address = repeater.address;
  }
}

void judge_answers(const Session& session, const std::vector<MachineLink>& links, const InstanceView& service,
                   const std::vector<DnsRecord>& records, std::vector<Repeater>& repeaters) {
  const RuleView& rule = rule_of(session, service);
  const DnsName name = name_of(session, service);
  const DnsName host = dns_name(service.host);
  const MachineLink* const to = find_link(links, rule.to);
  for (const DnsRecord& each : records) {
    // Another service of the same name has another host or port.
    if (is_of_type(each, DnsType::srv) && same_name(each.name, name) && each.port == service.port &&
        same_name(each.target, host) && !is_of_this_machine(links, each.sender) &&
        !is_its_host(service, each.sender, records)) {
      add_repeater(repeaters, {each.sender, "", rule.from, rule.to, says_gateway(records, each.sender, name)},
                   to->index);
    }
  }
}

// A few services of each pair of links, of those whose host is known.
std::vector<std::vector<const InstanceView*>> samples_of(const StateView& view) {
  std::vector<std::vector<const InstanceView*>> samples;
  for (const InstanceView& each : view.instances) {
    if (!can_find_repeaters(each)) {
      continue;
    }
    const RuleView& rule = view.rules[each.rule];
    auto sample = std::ranges::find_if(samples, [&](const auto& one) {
      return view.rules[one.front()->rule].from == rule.from && view.rules[one.front()->rule].to == rule.to;
    });
    if (sample == samples.end()) {
      samples.emplace_back();
      sample = samples.end() - 1;
    }
    if (std::ssize(*sample) < kSampleSize) {
      sample->push_back(&each);
    }
  }
  return samples;
}

}  // namespace

bool can_find_repeaters(const InstanceView& service) {
  return !service.host.empty() && service.port != 0 && service.reason != StateReason::through_gateway;
}

std::vector<Repeater> find_repeaters(const Session& session, const std::vector<MachineLink>& links,
                                     const std::vector<const InstanceView*>& services) {
  std::vector<Repeater> repeaters;
  const MachineLink* const to = services.empty() ? nullptr : find_link(links, rule_of(session, *services.front()).to);
  if (to == nullptr) {
    return repeaters;
  }
  std::vector<DnsQuestion> questions;
  for (const InstanceView* each : services) {
    questions.push_back({name_of(session, *each), DnsType::srv});
    questions.push_back({name_of(session, *each), DnsType::txt});
  }
  const std::vector<DnsRecord> records = ask(
      *to, questions, [](const auto&) { return false; }, kAnswerMilliseconds);
  for (const InstanceView* each : services) {
    judge_answers(session, links, *each, records, repeaters);
  }
  return repeaters;
}

std::vector<Repeater> find_all_repeaters(const Session& session, const std::vector<MachineLink>& links) {
  std::vector<std::future<std::vector<Repeater>>> searches;
  for (const std::vector<const InstanceView*>& sample : samples_of(session.state.view)) {
    searches.push_back(std::async(std::launch::async, find_repeaters, std::cref(session), std::cref(links), sample));
  }
  std::vector<Repeater> repeaters;
  for (auto& each : searches) {
    const std::vector<Repeater> found = each.get();
    repeaters.insert(repeaters.end(), found.begin(), found.end());
  }
  return repeaters;
}

std::optional<Repeater> find_gateway(const Session& session, const std::vector<MachineLink>& links,
                                     const InstanceView& service) {
  const RuleView& rule = rule_of(session, service);
  const MachineLink* const link = find_link(links, rule.from);
  if (link == nullptr) {
    return std::nullopt;
  }
  const DnsName name = name_of(session, service);
  const auto is_copy = [&](const DnsRecord& each) {
    return each.through_gateway && same_name(each.name, name) && !is_of_this_machine(links, each.sender);
  };
  const auto is_copy_over4 = [&](const DnsRecord& each) { return is_copy(each) && !is_ipv6(each.sender); };
  const std::vector<DnsRecord> records = ask(
      *link, {{name, DnsType::txt}}, [&](const auto& heard) { return std::ranges::any_of(heard, is_copy_over4); },
      kAnswerMilliseconds);
  const auto over4 = std::ranges::find_if(records, is_copy_over4);
  const auto copy = over4 != records.end() ? over4 : std::ranges::find_if(records, is_copy);
  if (copy == records.end()) {
    return std::nullopt;
  }
  return Repeater{copy->sender, hardware_of(copy->sender, link->index), "", rule.from, true};
}

std::string host_text(const Repeater& repeater) {
  return repeater.address + (repeater.hardware.empty() ? "" : " (" + repeater.hardware + ")");
}

std::string repeater_text(const Repeater& repeater) {
  return repeater.gateway ? host_text(repeater) + " announces services of " + shown(repeater.from) + " on " +
                                shown(repeater.to) + ", too: another gateway"
                          : host_text(repeater) + " repeats packets of " + shown(repeater.from) + " on " +
                                shown(repeater.to) + ": a reflector";
}
