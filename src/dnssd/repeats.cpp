// SPDX-License-Identifier: MIT
#include "dnssd/repeats.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "dnssd/canonical_record.h"

namespace dnssd {
namespace {

// As long as a crowd takes to be committed on another link (pacing.cpp): what devices answer meanwhile, they have mostly said before.
constexpr std::int64_t kRemembered = kRepeatsForgottenAfter / 2;

// Seconds: what lives so long has not begun to be asked for again (at four fifths of its life, RFC 6762 section 5.2) long after
// it has ceased to be remembered here. Goodbyes are below it too.
constexpr std::uint32_t kLongLived = 60;

// Twice what two thousand services of six records say; a flood of invented ones is forgotten as soon as it has filled this.
constexpr std::size_t kRecordsMax = 24'000;

// What an office says finds room; a smaller table would save nothing.
constexpr std::size_t kPlacesMin = 64;

// In the place of data: that there are records of that name and type which others may have as well.
constexpr std::uint64_t kIsShared = 1;

// What a response says: hashes of data by those of keys.
struct Contents {
  std::unordered_map<std::uint64_t, std::uint64_t> said;
  std::vector<std::uint64_t> keys;
  bool is_whole = false;      // it is a response, and well-formed to its end
  bool is_long_lived = true;  // all of it is
};

std::uint64_t hash_of(std::string_view bytes) { return std::hash<std::string_view>{}(bytes); }

std::uint64_t what_of(std::string& data, std::uint32_t ttl, std::uint16_t rrclass) {
  append_number(data, ttl);
  append_number(data, rrclass);
  return hash_of(data);
}

// Reads one record. False when it is malformed.
bool read_record(MessageReader& reader, Contents& contents) {
  std::optional<CanonicalRecord> record = read_canonical_record(reader);
  if (!record) {
    return false;
  }
  const RecordHead& head = record->head;
  std::string key = canonical_key(head.owner, head.rrtype);
  contents.keys.push_back(hash_of(key));
  if ((head.rrclass & kCacheFlushBit) == 0) {
    contents.said.try_emplace(hash_of(key), kIsShared);  // nothing else, unless a unique one of the key stands beside it
    key += record->data;
  }
  contents.said[hash_of(key)] += what_of(record->data, head.ttl, head.rrclass);
  contents.is_long_lived = contents.is_long_lived && head.ttl >= kLongLived;
  return true;
}

Contents contents_of(std::span<const std::uint8_t> message) {
  Contents contents;
  MessageReader reader{message};
  const std::optional<MessageHead> head = read_message_head(reader);
  // What Avahi refuses has not been said.
  const bool is_response = head && (head->flags & kResponseBit) != 0 && (head->flags & kOpcodeAndRcodeBits) == 0;
  if (!is_response || head->questions != 0 || head->answers == 0 || head->authorities != 0) {
    return contents;
  }
  unsigned left = unsigned{head->answers} + head->additionals;
  while (left > 0 && read_record(reader, contents)) {
    --left;
  }
  contents.is_whole = left == 0;
  std::ranges::sort(contents.keys);
  contents.keys.erase(std::unique(contents.keys.begin(), contents.keys.end()), contents.keys.end());
  return contents;
}

// --- The table

// Where a key's entry is, or the free place where it would be. There must be a free one.
template <typename Places>
auto& place_of(Places& places, std::uint64_t key) {
  std::size_t at = key & (places.size() - 1);
  while (places[at].key != 0 && places[at].key != key) {
    at = (at + 1) & (places.size() - 1);
  }
  return places[at];
}

// No key is 0, which marks a free place.
std::uint64_t key_in_table(std::uint64_t key) { return std::max<std::uint64_t>(key, 1); }

void grow(SaidTable& table) {
  std::vector<SaidTable::Said> larger(std::max(kPlacesMin, 2 * table.places.size()));
  for (const SaidTable::Said& said : table.places) {
    if (said.key != 0) {
      place_of(larger, said.key) = said;
    }
  }
  table.places.swap(larger);
}

void put(SaidTable& table, std::uint64_t key, std::uint64_t what, std::int64_t at) {
  if (4 * (table.count + 1) > 3 * table.places.size()) {
    grow(table);
  }
  SaidTable::Said& place = place_of(table.places, key_in_table(key));
  table.count += place.key == 0 ? 1 : 0;
  place = {key_in_table(key), static_cast<std::uint32_t>(what), static_cast<std::uint32_t>(at - table.begun_at)};
}

struct LastSaid {
  std::uint32_t what = 0;
  std::int64_t at = 0;  // monotonic, microseconds
};

// What was said last of a key, if anything is remembered.
std::optional<LastSaid> last_said(const Repeats& repeats, std::uint64_t key) {
  for (const SaidTable* table : {&repeats.recent, &repeats.older}) {
    if (table->count == 0) {
      continue;
    }
    const SaidTable::Said& said = place_of(table->places, key_in_table(key));
    if (said.key != 0) {
      return LastSaid{said.what, table->begun_at + said.after};
    }
  }
  return std::nullopt;
}

// --- Its use

// Makes room: what is older than twice the time is gone, and a flood is too.
void turn(Repeats& repeats, std::int64_t at) {
  const std::int64_t passed = at - repeats.recent.begun_at;
  if (repeats.recent.count > kRecordsMax || passed >= kRepeatsForgottenAfter) {
    repeats_forget(repeats);
  }
  if (passed < kRemembered) {
    return;
  }
  repeats.older = std::exchange(repeats.recent, SaidTable{{}, 0, at});
}

bool is_repeat(const Repeats& repeats, const Contents& contents, std::int64_t at) {
  return contents.is_long_lived && std::ranges::all_of(contents.said, [&](const auto& said) {
           const std::optional<LastSaid> last = last_said(repeats, said.first);
           return last && last->what == static_cast<std::uint32_t>(said.second) && at - last->at <= kRemembered;
         });
}

}  // namespace

Heard repeats_note(Repeats& repeats, std::span<const std::uint8_t> message, std::int64_t at) {
  Contents contents = contents_of(message);
  if (!contents.is_whole) {
    repeats_forget(repeats);
    return {false, std::move(contents.keys)};
  }
  turn(repeats, at);
  // A repeat leaves the first one's time, so that it is passed on again in the end.
  if (is_repeat(repeats, contents, at)) {
    return {true, std::move(contents.keys)};
  }
  for (const auto& [key, what] : contents.said) {
    put(repeats.recent, key, what, at);
  }
  return {false, std::move(contents.keys)};
}

std::uint64_t repeats_key(const Name& name, std::uint16_t rrtype) { return hash_of(canonical_key(name, rrtype)); }

std::uint64_t repeats_what(std::uint16_t rrtype, std::string_view rdata, std::uint32_t ttl) {
  constexpr std::uint16_t kClassIn = 1;
  std::string data = canonical_data(rrtype, rdata);
  return what_of(data, ttl, kClassIn | kCacheFlushBit);
}

std::optional<std::int64_t> repeats_said(const Repeats& repeats, std::uint64_t key, std::uint64_t what) {
  const std::optional<LastSaid> last = last_said(repeats, key);
  return last && last->what == static_cast<std::uint32_t>(what) ? std::optional(last->at) : std::nullopt;
}

bool repeats_knows(const Repeats& repeats, std::uint64_t key) { return last_said(repeats, key).has_value(); }

void repeats_forget(Repeats& repeats) {
  repeats.recent = {{}, 0, repeats.recent.begun_at};
  repeats.older = {};
}

bool repeats_age(Repeats& repeats, std::int64_t now) {
  if (now - repeats.recent.begun_at >= kRepeatsForgottenAfter) {
    repeats_forget(repeats);
  }
  return repeats.recent.count + repeats.older.count > 0;
}

}  // namespace dnssd
