#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "soak/known_stream.h"

namespace velotide::bench {

// What a session's child does: writes its stream, or gives back what it is told.
struct ChildPlan {
  enum class Kind {
    // Writes in bursts, and ends by itself when its length is not 0.
    writing,
    // The same, but pays no attention to being hung up.
    stubborn,
    // Writes one record and then what it reads, until it reads `farewell`.
    echoing,
  };
  static constexpr char farewell = '\x04';

  Kind kind = Kind::writing;
  KnownStream stream;
  std::uint64_t length = 0;
  std::uint64_t bytesPerSecond = 0;
  std::size_t largestBurst = 0;
  int exitStatus = 0;

  std::vector<std::string> arguments(const std::string& program) const;
};

constexpr std::string_view childOption = "--child";

// What the program does when it was started with the arguments of a plan.
int runChild(const std::vector<std::string>& arguments);

}  // namespace velotide::bench
