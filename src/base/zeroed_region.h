#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace velotide {

// Zeroed memory that costs nothing until it is touched, a page at a time, and that forked children do not
// get: a fork then does not pay for its page tables.
class ZeroedRegion {
 public:
  // Throws SystemFailure when there is no memory.
  explicit ZeroedRegion(std::size_t size);
  ZeroedRegion(const ZeroedRegion&) = delete;
  ZeroedRegion& operator=(const ZeroedRegion&) = delete;
  ~ZeroedRegion();

  std::span<std::uint8_t> bytes() const { return bytes_; }

 private:
  std::span<std::uint8_t> bytes_;
};

}  // namespace velotide
