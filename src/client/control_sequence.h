#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace velotide::client {

// A control sequence taken apart: ESC [ prefix parameters intermediates final.
struct ControlSequence {
  // One of "<=>?", or 0.
  char prefix = 0;
  // Those left out are 0; what stands behind a colon is left out. Values stop at 65535.
  std::vector<int> parameters;
  std::string_view intermediates;
  char final = 0;

  int parameter(std::size_t index, int otherwise = 0) const {
    return index < parameters.size() && parameters[index] != 0 ? parameters[index] : otherwise;
  }

  // Nothing when `sequence` (as a whole) is no control sequence. The result refers to it.
  static std::optional<ControlSequence> parse(std::string_view sequence);
};

}  // namespace velotide::client
