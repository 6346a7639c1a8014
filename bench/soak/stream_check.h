#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "soak/known_stream.h"
#include "soak/tally.h"

namespace velotide::bench {

// The output that a response or a push carries.
struct CarriedOutput {
  std::string_view base64;
  std::string_view generation;
  // The offset just behind it.
  std::uint64_t end = 0;
  std::uint64_t latest = 0;
  bool hasGap = false;
};
// Absent where a record carries none; `scratch` may hold its text.
std::optional<CarriedOutput> carriedOutputIn(std::string_view record, std::string& scratch);

// Follows one stream through what a client is sent: the bytes are those that the child wrote there, each
// batch continues the one before it, and what was passed over was said to be, and was really gone.
class StreamCheck {
 public:
  StreamCheck(KnownStream stream, std::string generation, std::uint64_t position)
      : stream_(stream), generation_(std::move(generation)), position_(position) {}

  const std::string& generation() const { return generation_; }
  std::uint64_t position() const { return position_; }
  // Throws, and says what was expected and what was seen.
  void accept(const CarriedOutput& output, Tally& tally);

 private:
  void checkContinuity(const CarriedOutput& output, std::uint64_t begin, Tally& tally);
  [[noreturn]] void fail(std::string_view complaint, const CarriedOutput& output, std::uint64_t begin) const;
  [[noreturn]] void failAtDifference(std::string_view seen, std::string_view expected,
                                     std::uint64_t begin) const;

  KnownStream stream_;
  std::string generation_;
  std::uint64_t position_;
  std::string decoded_;
  std::string expected_;
};

}  // namespace velotide::bench
