// SPDX-License-Identifier: MIT
// Browsers and gateways. A finding's life: its PTR record is told, SRV and TXT are asked for, then the addresses of the SRV record's target;
// when there is one of each, it is offered on the other link, and what changes later is followed; when its PTR record goes, so does
// everything.
#include <algorithm>

#include "simulation/actors.h"

namespace simulation {
namespace {

void follow(Browser& browser, Finding& finding);

Finding* find(Browser& browser, const std::string& key) {
  const auto found = browser.findings.find(key);
  return found == browser.findings.end() ? nullptr : found->second.get();
}

bool is_marked(std::string_view txt) { return txt.substr(0, kMark.size()) == kMark; }

void ask_for_addresses(Browser& browser, const std::string& key, Finding& finding) {
  stop(*browser.from, finding.v4_query);
  stop(*browser.from, finding.v6_query);
  for (auto* const addresses : {&finding.v4, &finding.v6}) {
    for (const auto& [rdata, tag] : *addresses) {
      if (tag != 0) {
        withdraw(*browser.to, tag);
      }
    }
    addresses->clear();
  }
  const auto report = [&browser, key](bool v6) {
    return [&browser, key, v6](bool added, const std::string& rdata) {
      Finding* const each = find(browser, key);
      auto& addresses = v6 ? each->v6 : each->v4;
      if (added) {
        addresses.emplace(rdata, 0);
      } else {
        const auto address = addresses.extract(rdata);
        if (!address.empty() && address.mapped() != 0) {
          withdraw(*browser.to, address.mapped());
        }
      }
      follow(browser, *each);
    };
  };
  finding.v4_query = query(*browser.from, finding.target, mdns::kTypeA, report(false));
  finding.v6_query = query(*browser.from, finding.target, mdns::kTypeAaaa, report(true));
}

void offer_addresses(Browser& browser, Finding& finding) {
  for (auto& [rdata, tag] : finding.v4) {
    if (tag == 0) {
      tag = publish(*browser.to, finding.target, {{mdns::kTypeA, 0, rdata}}, mdns::Claim::shared);
    }
  }
  for (auto& [rdata, tag] : finding.v6) {
    if (tag == 0) {
      tag = publish(*browser.to, finding.target, {{mdns::kTypeAaaa, 0, rdata}}, mdns::Claim::shared);
    }
  }
}

// Brings the other link to what is known now.
void follow(Browser& browser, Finding& finding) {
  if (browser.to == nullptr || finding.srv.empty() || finding.txt.empty()) {
    return;
  }
  if (is_marked(finding.txt.back())) {  // another gateway's, or ours: whether its host still has an address does not matter
    if (finding.offer.port != nullptr) {
      offer_stop(finding.offer);
    }
    return;
  }
  if (finding.v4.size() + finding.v6.size() == 0) {
    return;
  }
  offer_addresses(browser, finding);
  const std::string txt = std::string(kMark) + finding.txt.back();
  if (finding.offer.service != 0) {
    offer_change(finding.offer, finding.srv.back(), txt);
    return;
  }
  Offer& offer = finding.offer;
  offer.port = browser.to;
  offer.label = finding.instance.substr(1, static_cast<std::uint8_t>(finding.instance[0]));
  offer.type = browser.type;
  offer.srv = finding.srv.back();
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
  finding.txt_query = query(*browser.from, instance, mdns::kTypeTxt, [&browser, key](bool added, const std::string& rdata) {
    Finding* const each = find(browser, key);
    learn(each->txt, added, rdata);
    follow(browser, *each);
  });
  finding.srv_query = query(*browser.from, instance, mdns::kTypeSrv, [&browser, key](bool added, const std::string& rdata) {
    Finding* const each = find(browser, key);
    learn(each->srv, added, rdata);
    if (!each->srv.empty() && folded(srv_target(each->srv.back())) != folded(each->target)) {
      each->target = srv_target(each->srv.back());
      ask_for_addresses(browser, key, *each);
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
  for (const auto* const addresses : {&finding.v4, &finding.v6}) {
    for (const auto& [rdata, tag] : *addresses) {
      withdraw(*browser.to, tag);
    }
  }
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
  }
}

}  // namespace

void check_gateway(World& world, const Browser& browser, bool exactly) {
  const std::vector<Truth>* const pointers = truths(*browser.from->medium, browser.type, mdns::kTypePtr);
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
