// SPDX-License-Identifier: MIT
#include "mdns/schedule/questions.h"

#include <algorithm>

#include "mdns/state/lookup.h"

namespace mdns {
namespace {

// The question pauses when there is a unique answer, and restarts when there is none any more.
void review_pause(Link& link, OpenQuestion& question) {
  if (question.asking == 0) {
    return;
  }
  const RRset& rrset = *question.rrset;
  const bool has_answer = cache_has_unique_answer(rrset) || zone_has_unique(*rrset.name, rrset.type);
  if (has_answer && question.regular_at != kNever) {
    question.regular_at = kNever;
    question.urgent = kNoProtocol;
    question_plan(link, question);
  } else if (!has_answer && question.regular_at == kNever) {
    question_restart(link, question);
  }
}

}  // namespace

Time may_be_asked_at(const OpenQuestion& question) {
  return std::max(question.asked_at[0], question.asked_at[1]) + kAskedApart;
}

void question_plan(Link& link, OpenQuestion& question) {
  Time at = question.urgent != kNoProtocol ? link.now : question.regular_at;
  if (question.asking == 0) {
    at = question.queries.empty() ? may_be_asked_at(question) : kNever;
  }
  link.querier.due.set(question, at);
}

void rrset_ask_soon(Link& link, RRset& rrset, Protocols protocols) {
  if (is_asked(rrset)) {
    rrset.question->urgent |= protocols & link.protocols;
    question_plan(link, *rrset.question);
  }
}

void question_restart(Link& link, OpenQuestion& question) {
  if (question.asking == 0) {
    return;
  }
  question.interval_since = kLongAgo;
  question.asked_by_others = kNoProtocol;
  question.regular_at = link.now + random_between(link.random, kFirstAskedAfterLeast, kFirstAskedAfterMost);
  question_plan(link, question);
}

void question_stop(Link& link, OpenQuestion& question) {
  if (!question.queries.empty() || may_be_asked_at(question) > link.now) {
    question_plan(link, question);
    return;
  }
  RRset& rrset = *question.rrset;
  link.querier.due.set(question, kNever);
  rrset.question.reset();
  rrset_review(link, rrset);
}

void rrset_review(Link& link, RRset& rrset) {
  if (rrset.question != nullptr) {
    review_pause(link, *rrset.question);
  } else if (rrset.entries.empty()) {
    if (rrset.watch != nullptr) {
      link.cache.watches.set(*rrset.watch, kNever);
    }
    NameEntry& name = *rrset.name;
    std::erase_if(name.rrsets, [&](const auto& each) { return each.get() == &rrset; });
    name_release(link, name);
  }
}

void question_report(Link& link, const RRset& rrset, const Event& event) {
  for (const Query& query : rrset.question->queries) {
    ++link.steps;
    if (event.kind != Event::Kind::renewed || !query.asks) {
      Event& copy = link.events.emplace_back(event);
      copy.id = query.id;
      copy.tag = query.tag;
    }
  }
}

}  // namespace mdns
