// SPDX-License-Identifier: MIT
// Questions of our own on a link, and who answers them.
//
// They are one-shot queries (RFC 6762 section 5.1) from a port of their own: a responder answers such a query by
// unicast, to that port. Port 5353 is never used, since unicast packets to it would then be ours instead of the
// daemon's.
#pragma once

#include <functional>
#include <vector>

#include "mdnsproxyctl/dns_message.h"
#include "mdnsproxyctl/machine.h"

// How long an answer is waited for; responders wait for at most a fifth of a second, and a packet may be lost.
inline constexpr int kQuestionMilliseconds = 1500;

// How often each question is asked.
inline constexpr int kTimesAsked = 2;

// Asks over IPv4 and IPv6 on this link, again after a third of the time, and returns the records of all answers that
// hosts of the link, or this machine, give from port 5353, with the address of who gave them. Returns as soon as
// `enough` is content with the records so far.
std::vector<DnsRecord> ask(const MachineLink& link, const std::vector<DnsQuestion>& questions,
                           const std::function<bool(const std::vector<DnsRecord>&)>& enough,
                           int milliseconds = kQuestionMilliseconds);
