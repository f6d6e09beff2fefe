// SPDX-License-Identifier: MIT
// What every fuzz target uses: a reader that takes an input apart, an input as a text that ends at the end of its
// memory, and a claim that the target makes about the code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace fuzz {

// Ends the process, which libFuzzer reports as a crash with its input.
inline void claim(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "claim broken: %s\n", what);
    std::abort();
  }
}

// Bytes in a block of exactly their size, so that the address sanitizer sees one byte too many.
class Block {
 public:
  explicit Block(std::size_t size) : size_(size), bytes_(new char[size]()) {}
  Block(const std::uint8_t* data, std::size_t size) : Block(size) {
    if (size != 0)
      std::memcpy(bytes_.get(), data, size);
  }
  char* data() { return bytes_.get(); }
  std::size_t size() const { return size_; }
  std::span<const std::uint8_t> bytes() const { return {reinterpret_cast<const std::uint8_t*>(bytes_.get()), size_}; }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> bytes_;
};

// The bytes and a terminating zero, in a block of exactly that size.
class Text {
 public:
  explicit Text(std::string_view text) : block_(text.size() + 1) {
    if (!text.empty())
      std::memcpy(block_.data(), text.data(), text.size());
  }
  Text(const std::uint8_t* data, std::size_t size)
      : Text(std::string_view(reinterpret_cast<const char*>(data), size)) {}
  char* data() { return block_.data(); }
  std::size_t room() const { return block_.size(); }

 private:
  Block block_;
};

// Reads an input from its front to its end; past the end everything is zero or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }

  std::uint8_t byte() {
    if (rest_.empty())
      return 0;
    const std::uint8_t first = rest_[0];
    rest_ = rest_.subspan(1);
    return first;
  }

  std::uint16_t word() { return static_cast<std::uint16_t>(byte() << 8 | byte()); }

  // 0..count-1
  std::size_t below(std::size_t count) { return count != 0 ? byte() % count : 0; }

  // A length byte and that many bytes, or what is left.
  std::string bytes() { return take(byte()); }

  std::string long_bytes() { return take(word()); }

  std::string rest() { return take(rest_.size()); }

 private:
  std::string take(std::size_t wanted) {
    const std::size_t size = wanted < rest_.size() ? wanted : rest_.size();
    std::string taken(reinterpret_cast<const char*>(rest_.data()), size);
    rest_ = rest_.subspan(size);
    return taken;
  }

  std::span<const std::uint8_t> rest_;
};

// Takes a scanner of one of the daemon's lists through the text, and hands each finding to `check_item`, with the text.
template <typename Kind, typename Scanner, typename Item>
void scan(Scanner new_scanner(char*), void check_item(std::string_view, const Item&), const std::uint8_t* data,
          std::size_t size) {
  Text buffer(data, size);
  const std::string text = buffer.data();  // what a scanner sees ends at the first zero
  Scanner scanner = new_scanner(buffer.data());
  for (std::size_t findings = 0;; ++findings) {
    const Item item = next_item(scanner);
    check_item(text, item);
    if (item.kind == Kind::end)
      break;
    claim(findings <= text.size(), "there are no more findings than bytes");
  }
  claim(next_item(scanner).kind == Kind::end, "the end stays the end");
}

}  // namespace fuzz
