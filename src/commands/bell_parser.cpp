#include "commands/bell_parser.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace velotide {

namespace {

using State = TerminalBellParser::State;

constexpr std::uint8_t bell = 0x07;
constexpr std::uint8_t cancel = 0x18;
constexpr std::uint8_t substitute = 0x1A;
constexpr std::uint8_t escape = 0x1B;

// The next state in the low bits, and what the byte does.
using Step = std::uint8_t;
constexpr Step stateBits = 0x07;
constexpr Step ringsBell = 0x40;
constexpr Step isVisible = 0x80;

constexpr Step to(State state) { return static_cast<Step>(state); }

// A control byte other than tab, line feed and carriage return: only these can change a state in which most
// bytes of a stream are met (ground, osc, string), and only these are not visible in ground.
constexpr bool isControl(std::uint8_t byte) {
  return byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
}

constexpr Step stepFor(State state, std::uint8_t byte) {
  const bool endsString = byte == cancel || byte == substitute;
  switch (state) {
    case State::ground:
      if (byte == escape) return to(State::escape);
      if (byte == bell) return to(State::ground) | ringsBell;
      return isControl(byte) ? to(State::ground) : to(State::ground) | isVisible;
    case State::escape:
      if (byte == 'P' || byte == 'X' || byte == '^' || byte == '_') return to(State::string);
      if (byte == '[') return to(State::csi);
      if (byte == ']') return to(State::osc);
      if (byte == escape) return to(State::escape);
      return byte == bell ? to(State::escape) | ringsBell : to(State::ground);
    case State::csi:
      if (byte == escape) return to(State::escape);
      if (byte == bell) return to(State::csi) | ringsBell;
      return byte >= 0x40 && byte <= 0x7E ? to(State::ground) : to(State::csi);
    case State::osc:
      if (byte == escape) return to(State::oscEscape);
      return byte == bell || endsString ? to(State::ground) : to(State::osc);
    case State::oscEscape:
      if (byte == escape) return to(State::oscEscape);
      return byte == '\\' || byte == bell ? to(State::ground) : to(State::osc);
    case State::string:
      if (byte == escape) return to(State::stringEscape);
      return endsString ? to(State::ground) : to(State::string);
    case State::stringEscape:
      if (byte == escape) return to(State::stringEscape);
      return byte == '\\' ? to(State::ground) : to(State::string);
  }
  return to(State::ground);
}

using Table = std::array<std::array<Step, 256>, 7>;

constexpr Table table = [] {
  Table steps{};
  for (std::size_t state = 0; state < steps.size(); ++state) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      steps[state][byte] = stepFor(static_cast<State>(state), static_cast<std::uint8_t>(byte));
    }
  }
  return steps;
}();

constexpr std::size_t blockSize = 32;

// Without a branch, so that the compiler turns it into a few vector instructions.
bool holdsControl(const std::uint8_t* block) {
  std::uint8_t found = 0;
  for (std::size_t index = 0; index < blockSize; ++index) {
    found = static_cast<std::uint8_t>(found | static_cast<std::uint8_t>(isControl(block[index])));
  }
  return found != 0;
}

constexpr bool keptByPlainBytes(State state) {
  return state == State::ground || state == State::osc || state == State::string;
}

// Runs the table over the chunk, block by block; a block of plain bytes is taken in one piece. The table is
// walked without branches, so that no mix of sequences is slow. `visible`, when kept, has room for the chunk.
template <bool keepsVisible>
std::uint64_t run(ByteView chunk, State& state, std::uint8_t*& visible) {
  std::uint64_t bells = 0;
  const std::uint8_t* at = chunk.data();
  const std::uint8_t* const end = at + chunk.size();
  while (at < end) {
    const std::size_t size = std::min<std::size_t>(blockSize, static_cast<std::size_t>(end - at));
    if (size == blockSize && keptByPlainBytes(state) && !holdsControl(at)) {
      if (keepsVisible && state == State::ground) {
        std::memcpy(visible, at, blockSize);
        visible += blockSize;
      }
      at += blockSize;
      continue;
    }
    Step step = to(state);
    for (const std::uint8_t* const blockEnd = at + size; at < blockEnd; ++at) {
      step = table[step & stateBits][*at];
      bells += (step & ringsBell) / ringsBell;
      if constexpr (keepsVisible) {
        *visible = *at;
        visible += (step & isVisible) / isVisible;
      }
    }
    state = static_cast<State>(step & stateBits);
  }
  return bells;
}

}  // namespace

std::uint64_t TerminalBellParser::consume(ByteView chunk, ByteQueue& visible) {
  if (chunk.empty()) return 0;
  std::uint8_t* const begin = visible.reserve(chunk.size()).data();
  std::uint8_t* end = begin;
  const std::uint64_t bells = run<true>(chunk, state_, end);
  visible.commit(static_cast<std::size_t>(end - begin));
  return bells;
}

std::uint64_t TerminalBellParser::accept(ByteView chunk) {
  std::uint8_t* none = nullptr;
  return run<false>(chunk, state_, none);
}

}  // namespace velotide
