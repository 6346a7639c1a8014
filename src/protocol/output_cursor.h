#pragma once

#include <cstdint>

#include "base/uuid.h"

namespace velotide {

// A position in one output stream: the stream's identity and the number of bytes before the position.
struct TerminalRuntimeOutputCursor {
  Uuid generation;
  std::uint64_t offset = 0;

  bool operator==(const TerminalRuntimeOutputCursor&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("generation", self.generation);
    visit("offset", self.offset);
  }
};

}  // namespace velotide
