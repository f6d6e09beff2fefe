// SPDX-License-Identifier: MIT
// Browsers and gateways. A finding's life: its PTR record is reported, SRV and TXT are asked for, then the addresses of
// the SRV record's target; when there is one of each, it is offered on the other link, and what changes later is
// followed; when its PTR record goes, so does everything.
#include <algorithm>

#include "simulation/actors.h"
#include "simulation/state_rules.h"

namespace simulation {
namespace {

void follow(Browser& browser, Finding& finding);

Finding* find(Browser& browser, const std::string& key) {
  const auto found = browser.findings.find(key);
  return found == browser.findings.end() ? nullptr : found->second.get();
}

bool is_marked(std::string_view txt) { return txt.substr(0, kMark.size()) == kMark; }

void leave_host(Browser& browser, Finding& finding) {
  if (finding.use != 0) {
    host_leave(*browser.to, finding.target, finding.use);
    finding.use = 0;
  }
}

// The addresses of the present target are asked for no more.
void forget_target(Browser& browser, Finding& finding) {
  stop(*browser.from, finding.v4_query);
  stop(*browser.from, finding.v6_query);
  leave_host(browser, finding);
  finding.addresses.clear();
  finding.target.clear();
}

void ask_for_addresses(Browser& browser, const std::string& key, Finding& finding, const std::string& target) {
  forget_target(browser, finding);
  finding.target = target;
  const auto report = [&browser, key](std::uint16_t type) {
    return [&browser, key, type](bool added, const std::string& rdata) {
      Finding* const each = find(browser, key);
      if (added) {
        each->addresses.emplace(type, rdata);
      } else {
        each->addresses.erase({type, rdata});
      }
      follow(browser, *each);
    };
  };
  finding.v4_query = query(*browser.from, finding.target, mdns::kTypeA, report(mdns::kTypeA));
  finding.v6_query = query(*browser.from, finding.target, mdns::kTypeAaaa, report(mdns::kTypeAaaa));
}

void offer_addresses(Browser& browser, Finding& finding) {
  if (finding.use == 0) {
    finding.use =
        host_use(*browser.to, finding.target, *browser.from->medium, [&browser, key = folded(finding.instance)] {
          if (Finding* const each = find(browser, key)) {
            follow(browser, *each);
          }
        });
  }
  host_set_addresses(*browser.to, finding.target, finding.use, finding.addresses);
}

// Brings the other link to what is known now.
void follow(Browser& browser, Finding& finding) {
  if (browser.to == nullptr) {
    return;
  }
  if (!finding.txt.empty() && is_marked(finding.txt.back())) {
    leave_host(browser, finding);
    if (finding.offer.port != nullptr) {
      offer_stop(finding.offer);
    }
    return;
  }
  const bool is_resolved = !finding.srv.empty() && !finding.txt.empty();
  if ((is_resolved && !finding.addresses.empty()) || finding.use != 0) {
    offer_addresses(browser, finding);
  }
  if (!is_resolved || finding.use == 0) {
    return;
  }
  const std::string srv = finding.srv.back().substr(0, 6) + host_name_on(*browser.to, finding.target);
  const std::string txt = std::string(kMark) + finding.txt.back();
  if (finding.offer.service != 0) {
    offer_change(finding.offer, srv, txt);
    return;
  }
  if (finding.addresses.empty()) {
    return;
  }
  Offer& offer = finding.offer;
  offer.port = browser.to;
  offer.is_forwarded = true;
  offer.label = finding.instance.substr(1, static_cast<std::uint8_t>(finding.instance[0]));
  offer.type = browser.type;
  offer.srv = srv;
  offer.txt = txt;
  offer_start(offer);
}

void learn(std::vector<std::string>& known, bool added, const std::string& rdata) {
  std::erase(known, rdata);
  if (added) {
    known.push_back(rdata);
  }
}

void found(Browser& browser, const std::string& instance) {
  if (instance.size() == 1) {
    return;  // the root: no instance has that name
  }
  const std::string key = folded(instance);
  std::unique_ptr<Finding>& place = browser.findings[key];
  if (place) {
    return;
  }
  place = std::make_unique<Finding>();
  Finding& finding = *place;
  finding.instance = instance;
  finding.txt_query =
      query(*browser.from, instance, mdns::kTypeTxt, [&browser, key](bool added, const std::string& rdata) {
        Finding* const each = find(browser, key);
        learn(each->txt, added, rdata);
        follow(browser, *each);
      });
  finding.srv_query =
      query(*browser.from, instance, mdns::kTypeSrv, [&browser, key](bool added, const std::string& rdata) {
        Finding* const each = find(browser, key);
        learn(each->srv, added, rdata);
        if (each->srv.empty()) {
          forget_target(browser, *each);
        } else if (folded(srv_target(each->srv.back())) != folded(each->target)) {
          ask_for_addresses(browser, key, *each, srv_target(each->srv.back()));
        }
        follow(browser, *each);
      });
}

void lose(Browser& browser, const std::string& key) {
  const auto node = browser.findings.extract(key);
  if (node.empty()) {
    return;
  }
  Finding& finding = *node.mapped();
  for (const Tag tag : {finding.srv_query, finding.txt_query, finding.v4_query, finding.v6_query}) {
    stop(*browser.from, tag);
  }
  if (browser.to == nullptr) {
    return;
  }
  if (finding.offer.port != nullptr) {
    offer_stop(finding.offer);
  }
  leave_host(browser, finding);
}

}  // namespace

void browse_start(Browser& browser) {
  browser.query = query(*browser.from, browser.type, mdns::kTypePtr, [&browser](bool added, const std::string& rdata) {
    if (added) {
      found(browser, rdata);
    } else {
      lose(browser, folded(rdata));
    }
  });
}

void browse_stop(Browser& browser) {
  stop(*browser.from, browser.query);
  browser.query = 0;
  while (!browser.findings.empty()) {
    lose(browser, browser.findings.begin()->first);
  }
}

namespace {

const std::vector<Truth>* truths(const Medium& medium, const std::string& name, std::uint16_t type) {
  const auto found = medium.truth.find(hash_set(hash_name(name), type));
  return found == medium.truth.end() || found->second.empty() ? nullptr : &found->second;
}

// Whether an instance of the one link is to be offered on the other.
bool is_forwardable(const Medium& medium, const std::string& instance) {
  const std::vector<Truth>* const srv = truths(medium, instance, mdns::kTypeSrv);
  const std::vector<Truth>* const txt = truths(medium, instance, mdns::kTypeTxt);
  if (srv == nullptr || txt == nullptr || is_marked(txt->back().rdata)) {
    return false;
  }
  const std::string target = srv_target(srv->back().rdata);
  return truths(medium, target, mdns::kTypeA) != nullptr || truths(medium, target, mdns::kTypeAaaa) != nullptr;
}

// The addresses under the name, of hosts that have been there for a while.
std::set<Address> settled_addresses(const World& world, const Medium& medium, const std::string& name) {
  std::set<Address> addresses;
  for (const std::uint16_t type : {mdns::kTypeA, mdns::kTypeAaaa}) {
    const std::vector<Truth>* const all = truths(medium, name, type);
    for (std::size_t at = 0; all != nullptr && at < all->size(); ++at) {
      const Truth& truth = (*all)[at];
      if (is_undisturbed(*truth.port, world.now, 2 * kSettledWithin) && world.now - truth.since >= kSettledWithin) {
        addresses.emplace(type, truth.rdata);
      }
    }
  }
  return addresses;
}

// Whether a gateway may know an address that nobody has published for a while: somebody has just begun, or left it.
bool may_be_known(const Medium& medium, const std::string& name, const Address& address) {
  const std::vector<Truth>* const all = truths(medium, name, address.first);
  if (all != nullptr && std::ranges::count(*all, address.second, &Truth::rdata) > 0) {
    return true;
  }
  const Hash hash = hash_record(hash_set(hash_name(name), address.first), address.first, address.second);
  const auto gone = medium.gone.find(hash);
  return gone != medium.gone.end() &&
         (gone->second.without_goodbye || std::any_of(medium.ports.begin(), medium.ports.end(), [&](const Port* port) {
            return has_heard_no_goodbye(*port, hash);
          }));
}

// Whether gateways publish two hosts under the name: two of the same name on two links, or one under its own and one
// that a gateway which does not forward the first has moved there. Both being shared, neither gives way.
bool is_of_two_hosts(const Medium& medium, const std::string& name, const std::string& original, const Medium& from) {
  const auto is_elsewhere = [&](const auto& use) { return use.second.from != &from; };
  return std::any_of(medium.ports.begin(), medium.ports.end(), [&](const Port* port) {
    return std::any_of(port->forwarded.begin(), port->forwarded.end(), [&](const auto& each) {
      const ForwardedHost& host = *each.second;
      return folded(host_name_on(*port, host.original)) == folded(name) &&
             (each.first != folded(original) || std::any_of(host.uses.begin(), host.uses.end(), is_elsewhere));
    });
  });
}

// Whether the service names a host on the other link that has the addresses of its host on the one, and no others.
void check_host(World& world, const Browser& browser, const Finding& finding, bool exactly) {
  const std::vector<Truth>* const srv = truths(*browser.from->medium, finding.instance, mdns::kTypeSrv);
  if (srv == nullptr || finding.use == 0 || !is_undisturbed(*browser.to, world.now, 2 * kSettledWithin)) {
    return;
  }
  const std::string original = srv_target(srv->back().rdata), name = srv_target(finding.offer.srv);
  const std::set<Address> there = settled_addresses(world, *browser.from->medium, original);
  const std::set<Address> here = settled_addresses(world, *browser.to->medium, name);
  const auto host = browser.to->forwarded.find(folded(original));
  if (there.empty() ||
      (host != browser.to->forwarded.end() && world.now - host->second->moved_at < 2 * kSettledWithin)) {
    return;
  }
  for (const Address& address : there) {
    if (!here.contains(address)) {
      fail(world, browser.to, "a gateway's service names a host without its address",
           text_of(finding.instance) + " " + text_of(name));
    }
  }
  for (const Address& address : here) {
    if (!there.contains(address) && (exactly || !may_be_known(*browser.from->medium, original, address)) &&
        !is_of_two_hosts(*browser.to->medium, name, original, *browser.from->medium)) {
      fail(world, browser.to, "a gateway's service names a host with another's address",
           text_of(finding.instance) + " " + text_of(name));
    }
  }
}

void check_finding(World& world, const Browser& browser, const Finding& finding, bool exactly) {
  const Medium& medium = *browser.from->medium;
  const std::vector<Truth>* const txt = truths(medium, finding.instance, mdns::kTypeTxt);
  const auto service = browser.to->publications.find(finding.offer.service);
  if (service == browser.to->publications.end()) {
    return;
  }
  const Hash pointers = hash_set(hash_name(browser.type), mdns::kTypePtr);
  const auto gone = medium.gone.find(hash_record(pointers, mdns::kTypePtr, finding.instance));
  if (txt == nullptr && !exactly && gone != medium.gone.end() && gone->second.without_goodbye) {
    return;
  }
  if (txt == nullptr) {
    fail(world, browser.to, "a gateway offers what is no more", text_of(finding.instance));
  } else if (std::string(kMark) + txt->back().rdata != finding.offer.txt) {
    fail(world, browser.to, "a gateway offers old TXT data", text_of(finding.instance));
  } else {
    check_host(world, browser, finding, exactly);
  }
}

}  // namespace

void check_gateway(World& world, const Browser& browser, bool exactly) {
  const std::vector<Truth>* const pointers = truths(*browser.from->medium, browser.type, mdns::kTypePtr);
  if (browser.to != nullptr) {
    check_forwarded_hosts(world, *browser.to, exactly);
  }
  for (const auto& [key, finding] : browser.findings) {
    check_finding(world, browser, *finding, exactly);
  }
  for (std::size_t at = 0; pointers != nullptr && at < pointers->size(); ++at) {
    const std::string& instance = (*pointers)[at].rdata;
    const auto finding = browser.findings.find(folded(instance));
    if (is_forwardable(*browser.from->medium, instance) &&
        (finding == browser.findings.end() || finding->second->offer.pointer == 0)) {
      fail(world, browser.to, "a gateway does not offer what is there", text_of(instance));
    }
  }
}

}  // namespace simulation
