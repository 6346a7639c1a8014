#pragma once

#include <cstdint>
#include <random>

namespace velotide::bench {

// Whims. A run differs from the next one; what is checked never depends on them.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t next() { return engine_(); }
  std::uint64_t below(std::uint64_t bound) { return engine_() % bound; }
  // Both ends included.
  std::uint64_t between(std::uint64_t least, std::uint64_t most) { return least + below(most - least + 1); }
  bool oneIn(std::uint64_t count) { return below(count) == 0; }

 private:
  std::mt19937_64 engine_;
};

}  // namespace velotide::bench
