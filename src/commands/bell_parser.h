#pragma once

#include <cstdint>

#include "base/byte_queue.h"
#include "base/bytes.h"

namespace velotide {

// Follows control sequences in terminal output, in any chunks: counts the bells that really ring, not the BEL
// bytes that end a title or a mark, and picks out what is visible. Keeps one byte of state.
class TerminalBellParser {
 public:
  // The number of bells in the chunk. Its visible bytes (never more than its size) are appended to `visible`.
  std::uint64_t consume(ByteView chunk, ByteQueue& visible);
  // The number of bells alone.
  std::uint64_t accept(ByteView chunk);

  enum class State : std::uint8_t { ground, escape, csi, osc, oscEscape, string, stringEscape };

 private:
  State state_ = State::ground;
};

}  // namespace velotide
