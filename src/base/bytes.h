#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velotide {

// Raw bytes, as opposed to text: std::string and std::string_view always hold UTF-8 text here.
using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

inline ByteView bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string_view textOf(ByteView bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Bytes that a record carries. A record that is sent borrows them from where they rest, in at most two pieces
// (a ring's end and its beginning), and must not outlive that place; a decoded record owns them.
class CarriedBytes {
 public:
  CarriedBytes() = default;
  explicit CarriedBytes(Bytes owned) : owned_(std::move(owned)), isOwned_(true) {}
  CarriedBytes(ByteView head, ByteView tail) : head_(head), tail_(tail) {}

  ByteView head() const { return isOwned_ ? ByteView(owned_) : head_; }
  ByteView tail() const { return isOwned_ ? ByteView() : tail_; }
  std::size_t size() const { return head().size() + tail().size(); }
  bool empty() const { return size() == 0; }
  Bytes copy() const;

  // By content, wherever the bytes rest.
  bool operator==(const CarriedBytes& other) const { return copy() == other.copy(); }

 private:
  Bytes owned_;
  ByteView head_;
  ByteView tail_;
  bool isOwned_ = false;
};

inline Bytes CarriedBytes::copy() const {
  Bytes all(head().begin(), head().end());
  all.insert(all.end(), tail().begin(), tail().end());
  return all;
}

}  // namespace velotide
