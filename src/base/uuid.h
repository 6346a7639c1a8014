#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace velotide {

// A 128-bit identifier. Its text form is the canonical 8-4-4-4-12 one, written in upper case and read in
// either case; the order of UUIDs is the order of their texts.
struct Uuid {
  std::array<std::uint8_t, 16> bytes{};

  // A version 4 UUID from the kernel's random source.
  static Uuid random();
  // Nothing unless `text` is exactly the canonical form.
  static std::optional<Uuid> parse(std::string_view text);
  std::string text() const;

  auto operator<=>(const Uuid&) const = default;
  // As two words: tables are searched for identifiers in every turn.
  bool operator==(const Uuid& other) const { return halves() == other.halves(); }

  std::array<std::uint64_t, 2> halves() const { return std::bit_cast<std::array<std::uint64_t, 2>>(bytes); }
};

}  // namespace velotide

template <>
struct std::hash<velotide::Uuid> {
  std::size_t operator()(const velotide::Uuid& uuid) const noexcept {
    // Both halves count: whoever makes its own identifiers often counts in the second alone.
    const auto halves = uuid.halves();
    const std::uint64_t mixed = (halves[0] ^ std::rotl(halves[1], 29)) * 0x9E37'79B9'7F4A'7C15u;
    return static_cast<std::size_t>(mixed ^ (mixed >> 32));
  }
};
