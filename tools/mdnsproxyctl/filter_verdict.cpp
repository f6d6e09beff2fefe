// SPDX-License-Identifier: MIT
// What the packet filter does to a packet: its way through the base chains, in the kernel's order (nft(8)).

#include <algorithm>
#include <array>

#include "mdnsproxyctl/address.h"
#include "mdnsproxyctl/filter.h"
#include "mdnsproxyctl/filter_match.h"
#include "mdnsproxyctl/json.h"
#include "mdnsproxyctl/text.h"

namespace {

// The kernel takes no more jumps than this into one another.
constexpr int kDeepestJump = 16;

enum class Act { none, accept, drop, jump, go, leave };

struct Verdict {
  Act act = Act::none;
  std::string target;  // of a jump: its chain
};

// What a rule does to the packet. `applies`: nothing when that cannot be told.
struct Effect {
  std::optional<bool> applies = true;
  Verdict verdict;
  std::optional<std::uint64_t> packets;
};

// One packet's way through one base chain.
struct Way {
  const std::vector<FilterChain>& chains;
  const FilterPacket& packet;
  FilterJudgement dropped;  // by what, once it is
  FilterJudgement doubt;    // the first rule that is not understood
  bool may_accept = false;  // such a rule might have let it pass
  bool may_drop = false;
};

Verdict verdict_of(const std::string& word, const Json& body) {
  constexpr struct {
    const char* word;
    Act act;
  } kWords[] = {{"accept", Act::accept}, {"drop", Act::drop}, {"reject", Act::drop},
                {"jump", Act::jump},     {"goto", Act::go},   {"return", Act::leave}};
  for (const auto& each : kWords) {
    if (word == each.word) {
      return {each.act, text_of(body, "target")};
    }
  }
  return {};
}

// Statements that neither decide nor restrict.
bool is_harmless(const std::string& word) {
  constexpr std::array kWords = {"counter", "log",  "mangle",    "notrack",    "comment",        "set",     "map",
                                 "flow",    "last", "ct helper", "ct timeout", "ct expectation", "continue"};
  return std::ranges::any_of(kWords, [&](const char* each) { return word == each; });
}

// A map from values of an expression to verdicts.
void apply_map(const Json& map, const FilterPacket& packet, Effect& effect) {
  const Json* const key = member(map, "key");
  const Json* const data = member(map, "data");
  const Json* const pairs = data != nullptr ? member(*data, "set") : nullptr;
  bool unsure = key == nullptr || pairs == nullptr || !pairs->is_array();
  for (std::size_t i = 0; !unsure && i < pairs->size(); ++i) {
    const Json& pair = (*pairs)[i];
    const bool is_pair = pair.is_array() && pair.size() == 2 && pair[1].is_object() && !pair[1].empty();
    const std::optional<bool> same = is_pair ? has_value(*key, pair[0], packet) : std::nullopt;
    if (same == true) {
      effect.verdict = verdict_of(pair[1].begin().key(), pair[1].begin().value());
      return;
    }
    unsure = !same;
  }
  if (unsure) {
    effect.applies = std::nullopt;
    effect.verdict = {Act::jump, ""};  // anything
  }
}

Effect effect_of(const FilterRule& rule, const FilterPacket& packet) {
  Effect effect;
  for (const Json& statement : *rule.statements) {
    if (!statement.is_object() || statement.empty()) {
      continue;
    }
    const std::string word = statement.begin().key();
    const Json& body = statement.begin().value();
    if (word == "counter" && member(body, "packets") != nullptr) {
      effect.packets = static_cast<std::uint64_t>(std::max(0L, number_of(body, "packets")));
    }
    if (word == "match") {
      const std::optional<bool> met = meets_condition(body, packet);
      if (met == false) {
        return {false, {}, {}};
      }
      effect.applies = met ? effect.applies : met;
    } else if (word == "vmap") {
      apply_map(body, packet, effect);
    } else if (!is_harmless(word)) {
      effect.verdict = verdict_of(word, body);
      effect.applies = effect.verdict.act != Act::none ? effect.applies : std::nullopt;
    }
    if (effect.verdict.act != Act::none) {
      break;
    }
  }
  return effect;
}

FilterJudgement place_of(const FilterChain& chain, const FilterRule* rule) {
  FilterJudgement place;
  place.chain = shown(chain.family) + " " + shown(chain.table) + " " + shown(chain.name);
  place.place =
      "chain " + shown(chain.name) + " of table " + shown(chain.family) + " " + shown(chain.table) +
      (rule != nullptr ? " (the rule with handle " + std::to_string(rule->handle) + ")" : std::string(" (its policy)"));
  return place;
}

void note_doubt(Way& way, const FilterChain& chain, const FilterRule& rule, Act act) {
  if (!way.may_accept && !way.may_drop) {
    way.doubt = place_of(chain, &rule);
  }
  way.may_accept |= act != Act::drop;
  way.may_drop |= act != Act::accept;
}

const FilterChain* find_chain(const Way& way, const FilterChain& beside, const std::string& name) {
  for (const FilterChain& each : way.chains) {
    if (each.name == name && each.table == beside.table && each.family == beside.family) {
      return &each;
    }
  }
  return nullptr;
}

// Act::accept, Act::drop, or Act::none at the chain's end.
Act walk(Way& way, const FilterChain& chain, int depth) {
  for (const FilterRule& rule : chain.rules) {
    const Effect effect = effect_of(rule, way.packet);
    const Act act = effect.verdict.act;
    if (effect.applies == false || act == Act::none) {
      continue;
    }
    const bool jumps = act == Act::jump || act == Act::go;
    const FilterChain* const target =
        jumps && depth < kDeepestJump ? find_chain(way, chain, effect.verdict.target) : nullptr;
    if (!effect.applies || (jumps && target == nullptr)) {
      note_doubt(way, chain, rule, act);
      continue;
    }
    if (act == Act::drop) {
      way.dropped = place_of(chain, &rule);
      way.dropped.packets = effect.packets;
    }
    const Act outcome = jumps ? walk(way, *target, depth + 1) : act;
    if (outcome == Act::accept || outcome == Act::drop) {
      return outcome;
    }
    if (act != Act::jump) {
      return Act::none;
    }
  }
  return Act::none;
}

bool is_met(const FilterChain& chain, const std::string& hook, const FilterPacket& packet) {
  if (chain.hook != hook) {
    return false;
  }
  if (hook == "ingress") {
    return std::ranges::find(chain.devices, packet.in_link) != chain.devices.end();
  }
  return chain.family == "inet" || chain.family == (is_ipv6(packet.destination) ? "ip6" : "ip");
}

// The base chains that the packet meets, in their order.
std::vector<const FilterChain*> chains_on_way(const std::vector<FilterChain>& chains, const FilterPacket& packet) {
  std::vector<std::string> hooks = {"ingress", "prerouting", packet.out_link.empty() ? "input" : "forward"};
  if (packet.in_link.empty()) {
    hooks = {"output"};
  }
  if (!packet.out_link.empty()) {
    hooks.emplace_back("postrouting");
  }
  std::vector<const FilterChain*> found;
  for (const std::string& hook : hooks) {
    const auto first = static_cast<std::ptrdiff_t>(found.size());
    for (const FilterChain& each : chains) {
      if (is_met(each, hook, packet)) {
        found.push_back(&each);
      }
    }
    std::ranges::stable_sort(found.begin() + first, found.end(), {},
                             [](const FilterChain* each) { return each->priority; });
  }
  return found;
}

}  // namespace

FilterJudgement judge_packet(const std::vector<FilterChain>& chains, const FilterPacket& packet) {
  FilterJudgement doubt;
  for (const FilterChain* base : chains_on_way(chains, packet)) {
    Way way = {chains, packet, {}, {}};
    const Act act = walk(way, *base, 0);
    const bool dropped = act == Act::drop || (act == Act::none && base->drops);
    if (dropped && !way.may_accept) {
      FilterJudgement judgement = act == Act::drop ? way.dropped : place_of(*base, nullptr);
      judgement.fate = FilterFate::dropped;
      return judgement;
    }
    if (doubt.fate == FilterFate::passes && (dropped || way.may_drop)) {
      doubt = way.doubt;
      doubt.fate = FilterFate::cannot_tell;
    }
  }
  return doubt;
}
