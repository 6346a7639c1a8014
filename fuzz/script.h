#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/bytes.h"

namespace velotide {

// The fuzzer's input as a row of decisions. Behind its end every decision is the first one.
class Script {
 public:
  explicit Script(ByteView input) : rest_(input) {}

  bool isOver() const { return rest_.empty(); }

  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const std::uint8_t first = rest_[0];
    rest_ = rest_.subspan(1);
    return first;
  }
  // Below `bound`, which is at most 256; 0 when that is 0.
  std::size_t below(std::size_t bound) { return bound == 0 ? 0 : byte() % bound; }
  bool flag() { return (byte() & 1) != 0; }
  // One time in sixteen.
  bool rarely() { return byte() >= 0xF0; }
  template <typename T, std::size_t count>
  T pick(const std::array<T, count>& choices) {
    return choices[below(count)];
  }
  // A length and that many bytes.
  std::string_view text(std::size_t maximum = 64) {
    const std::size_t size = std::min(below(maximum), rest_.size());
    const ByteView taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return textOf(taken);
  }
  // The same as ASCII.
  std::string word(std::size_t maximum = 64) {
    std::string word(text(maximum));
    for (char& character : word) character = static_cast<char>(character & 0x7F);
    return word;
  }

 private:
  ByteView rest_;
};

}  // namespace velotide
