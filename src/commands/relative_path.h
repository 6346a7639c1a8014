#pragma once

#include <cstddef>
#include <string_view>

namespace velotide {

// Relative source paths with a known extension, an optional line and an optional column. On a line of many
// segments without an extension behind them the matcher takes quadratic time.
inline constexpr std::u16string_view relativePathPattern =
    uR"(\b[\w.-]+(?:/[\w .@%+=:,~_-]+)+\.(?:swift|go|js|jsx|ts|tsx|rb|py|rs|java|kt|m|mm|c|cc|cpp|h|hpp|json)"
    uR"(|yaml|yml|toml|md)(?::\d+(?::\d+)?)?)";

// Finds in one pass over a line the parts outside of which relativePathPattern cannot match. A part begins
// with the word before a first slash and ends with a last extension, so that the matcher, which looks for
// both, does not go astray.
class RelativePathRegions {
 public:
  explicit RelativePathRegions(std::u16string_view line) : line_(line) {}

  // From left to right; empty at the end.
  std::u16string_view next();

 private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);

  // What is known of the characters read since the last one that no match can hold.
  struct Run {
    std::size_t wordBegin = none;  // of the name that the last character belongs to
    bool nameMayStart = false;     // the name holds a place where a match may begin
    std::size_t regionBegin = none;
    std::size_t regionEnd = none;

    bool isRegion() const { return regionBegin != none && regionEnd != none; }
  };

  void readSlash();
  void readCharacter(char32_t character, std::size_t begin);

  std::u16string_view line_;
  std::size_t at_ = 0;
  char16_t previous_ = 0;
  Run run_;
};

}  // namespace velotide
