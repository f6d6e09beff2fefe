// SPDX-License-Identifier: MIT
// DNS names and messages in wire format, for every test and fuzz target that says something to a reader. Shares nothing
// with the readers and writers of the project, so that a mistake of theirs is seen. Nothing is compressed unless
// `pointer` does it, and nothing is checked: what no honest host would send is built as well.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wire {

// A label with its length byte.
inline std::string label(std::string_view text) { return static_cast<char>(text.size()) + std::string(text); }

// The name in wire format of labels with dots between them; none for the root.
inline std::string name(std::string_view labels) {
  std::string wire;
  while (!labels.empty()) {
    const std::size_t size = std::min(labels.find('.'), labels.size());
    wire += label(labels.substr(0, size));
    labels.remove_prefix(std::min(size + 1, labels.size()));
  }
  return wire + '\0';
}

inline std::string number16(unsigned number) { return {static_cast<char>(number >> 8), static_cast<char>(number)}; }
inline std::string number32(std::uint32_t number) { return number16(number >> 16) + number16(number & 0xFFFF); }

inline std::string pointer(std::size_t at) { return number16(0xC000 | static_cast<unsigned>(at)); }

// SRV data: the target's name in wire format, or as labels with dots between them.
inline std::string srv_of(unsigned port, const std::string& target) { return number32(0) + number16(port) + target; }
inline std::string srv(unsigned port, std::string_view target) { return srv_of(port, name(target)); }

// A message's header; `counts` are of questions, answers, authorities and additionals.
struct Counts {
  unsigned questions = 0, answers = 0, authorities = 0, additionals = 0;
};
inline std::string header(unsigned flags, Counts counts, unsigned id = 0) {
  return number16(id) + number16(flags) + number16(counts.questions) + number16(counts.answers) +
         number16(counts.authorities) + number16(counts.additionals);
}

// A question and a record; their names are given in wire format.
inline std::string question(const std::string& name, unsigned type, unsigned klass = 1) {
  return name + number16(type) + number16(klass);
}
inline std::string record(const std::string& owner, unsigned type, const std::string& rdata, unsigned klass = 1,
                          std::uint32_t ttl = 120) {
  return owner + number16(type) + number16(klass) + number32(ttl) + number16(static_cast<unsigned>(rdata.size())) +
         rdata;
}

inline std::span<const std::uint8_t> bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

template <typename Bytes>
std::string text(const Bytes& from) {
  return {from.begin(), from.end()};
}

// Builds a message part by part. Parts are added in the order of their sections; the header counts them.
enum class Part { answer, authority, additional };

struct Builder {
  std::string text = header(0, {});

  void flags(unsigned flags) { text.replace(2, 2, number16(flags)); }

  // Names are in wire format here; `klass` is with its top bit.
  void question(const std::string& name, unsigned type, unsigned klass = 1) {
    ++text[5];
    text += wire::question(name, type, klass);
  }
  void record(Part part, const std::string& name, unsigned type, unsigned klass, std::uint32_t ttl,
              const std::string& rdata) {
    ++text[static_cast<std::size_t>(7 + 2 * static_cast<int>(part))];
    text += wire::record(name, type, rdata, klass, ttl);
  }

  std::vector<std::uint8_t> bytes() const { return {text.begin(), text.end()}; }
};

}  // namespace wire
