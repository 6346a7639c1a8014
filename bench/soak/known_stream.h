#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace velotide::bench {

// An endless byte stream of which every byte follows from the seed and its offset, so that any part of it can
// be checked by itself. It consists of records of one size; those of text say whose they are and where.
struct KnownStream {
  enum class Dialect {
    text,
    binary,
    // Text with colours, bells and the marks of a shell's commands.
    shell,
  };
  static constexpr std::size_t recordBytes = 64;

  std::uint64_t seed = 0;
  Dialect dialect = Dialect::text;

  void copy(std::uint64_t offset, std::span<char> into) const;
  std::string at(std::uint64_t offset, std::size_t count) const;
};

}  // namespace velotide::bench
