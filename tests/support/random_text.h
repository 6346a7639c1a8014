#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace velotide {

// Pseudo-random choices that are the same in every run.
class Choices {
 public:
  explicit Choices(std::uint32_t seed) : state_(seed) {}

  std::size_t below(std::size_t limit) {
    state_ = state_ * 1664525 + 1013904223;
    return (state_ >> 8) % limit;
  }
  // `count` of the pieces, joined.
  std::string text(std::span<const std::string_view> pieces, std::size_t count) {
    std::string joined;
    while (count-- > 0) joined += pieces[below(pieces.size())];
    return joined;
  }

 private:
  std::uint32_t state_;
};

inline std::string repeat(std::string_view piece, std::size_t count) {
  std::string text;
  while (count-- > 0) text += piece;
  return text;
}

}  // namespace velotide
