#pragma once

#include <limits>
#include <string_view>

namespace velotide {

// Ends the process over a programming error. Never used for what a client, a child or the system can cause.
[[noreturn]] void fatal(std::string_view what);

// Adds one to a counter that must never wrap.
template <typename Counter>
void increment(Counter& counter) {
  if (counter == std::numeric_limits<Counter>::max()) fatal("a counter would wrap");
  ++counter;
}

}  // namespace velotide
