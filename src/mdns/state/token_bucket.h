// SPDX-License-Identifier: MIT
// Rate limits: a token bucket whose tokens are time. A token is a microsecond; what is to be limited costs so many.
#pragma once

#include <algorithm>

#include "mdns/wire/types.h"

namespace mdns {

// Its tokens are the time since `since`, up to the burst that its user allows; a time to come is what it owes.
struct TokenBucket {
  Time since = kLongAgo;
};

// When the bucket, which holds `burst` at most, has that many tokens; a time that is past: now.
inline Time tokens_at(const TokenBucket& bucket, Time now, Time burst, Time tokens) {
  return std::max(bucket.since, now - burst) + tokens;
}

// Takes the tokens, which need not be there.
inline void tokens_take(TokenBucket& bucket, Time now, Time burst, Time tokens) {
  bucket.since = tokens_at(bucket, now, burst, tokens);
}

}  // namespace mdns
