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

constexpr State next(State state, std::uint8_t byte) {
  return static_cast<State>(table[to(state)][byte] & stateBits);
}

constexpr std::size_t blockSize = 32;

// Whether any byte of a block, with the one that follows it, is such a one. Without a branch and in bytes, so
// that the compiler turns it into a few vector instructions.
template <class Predicate>
bool holdsAny(const std::uint8_t* block, Predicate isSuch) {
  std::uint8_t found = 0;
  for (std::size_t index = 0; index < blockSize; ++index) {
    found = static_cast<std::uint8_t>(found | static_cast<std::uint8_t>(isSuch(block + index)));
  }
  return found != 0;
}

bool holdsControl(const std::uint8_t* block) {
  return holdsAny(block, [](const std::uint8_t* at) { return isControl(*at); });
}

bool holdsEscape(const std::uint8_t* block) {
  return holdsAny(block, [](const std::uint8_t* at) { return *at == escape; });
}

// Whether a bell may ring in the block or a string begin, which an escape and a byte of 0x50 to 0x5F do.
// Looks at one byte behind the block, too.
bool holdsTurn(const std::uint8_t* block) {
  return holdsAny(block, [](const std::uint8_t* at) {
    return (at[0] == bell) | ((at[0] == escape) & ((at[1] & 0xF0) == 0x50) & (at[1] != '['));
  });
}

constexpr bool isInString(State state) { return state == State::osc || state == State::string; }
constexpr bool isOutsideStrings(State state) { return state == State::ground || state == State::csi; }
constexpr bool keptByPlainBytes(State state) { return isInString(state) || state == State::ground; }

// Whether the block rings no bell and neither begins nor ends a string, where it is met in this state.
bool isQuiet(State state, const std::uint8_t* block) {
  if (keptByPlainBytes(state) && !holdsControl(block)) return true;
  return isOutsideStrings(state) && !holdsTurn(block);
}

// Null when there is none.
const std::uint8_t* lastEscape(const std::uint8_t* begin, const std::uint8_t* end) {
  while (static_cast<std::size_t>(end - begin) >= blockSize && !holdsEscape(end - blockSize))
    end -= blockSize;
  while (end > begin && end[-1] != escape) --end;
  return end > begin ? end - 1 : nullptr;
}

// The state behind quiet bytes: whatever came before, the last escape in them decides.
State behindQuiet(State state, const std::uint8_t* begin, const std::uint8_t* end) {
  if (isInString(state)) return state;
  if (const std::uint8_t* const found = lastEscape(begin, end)) {
    state = State::escape;
    begin = found + 1;
  }
  for (; begin < end && state != State::ground; ++begin) state = next(state, *begin);
  return state;
}

// Walks the table without branches, so that no mix of sequences is slow, and hands each byte to `take` with
// its step. Answers the bells.
template <class Take>
std::uint64_t walk(State& state, ByteView bytes, Take take) {
  std::uint64_t bells = 0;
  Step step = to(state);
  for (const std::uint8_t byte : bytes) {
    step = table[step & stateBits][byte];
    bells += (step & ringsBell) / ringsBell;
    take(byte, step);
  }
  state = static_cast<State>(step & stateBits);
  return bells;
}

}  // namespace

std::uint64_t TerminalBellParser::consume(ByteView chunk, ByteQueue& visible) {
  if (chunk.empty()) return 0;
  std::uint8_t* const begin = visible.reserve(chunk.size()).data();
  std::uint8_t* last = begin;
  std::uint64_t bells = 0;
  const std::uint8_t* const end = chunk.data() + chunk.size();
  for (const std::uint8_t* at = chunk.data(); at < end;) {
    const std::size_t size = std::min<std::size_t>(blockSize, static_cast<std::size_t>(end - at));
    const bool isPlain = size == blockSize && !holdsControl(at);
    if (isPlain && state_ == State::ground) {
      std::memcpy(last, at, blockSize);
      last += blockSize;
    } else if (!isPlain || !isInString(state_)) {
      bells += walk(state_, {at, size}, [&last](std::uint8_t byte, Step step) {
        *last = byte;
        last += (step & isVisible) / isVisible;
      });
    }
    at += size;
  }
  visible.commit(static_cast<std::size_t>(last - begin));
  return bells;
}

std::uint64_t TerminalBellParser::accept(ByteView chunk) {
  std::uint64_t bells = 0;
  const std::uint8_t* at = chunk.data();
  const std::uint8_t* const end = at + chunk.size();
  // What lies between here and `at` is quiet, and its state not yet asked for.
  const std::uint8_t* settled = at;
  while (at < end) {
    const auto left = static_cast<std::size_t>(end - at);
    if (left > blockSize && isQuiet(state_, at)) {
      at += blockSize;
      continue;
    }
    state_ = behindQuiet(state_, settled, at);
    const std::size_t size = std::min(blockSize, left);
    bells += walk(state_, {at, size}, [](std::uint8_t, Step) {});
    at += size;
    settled = at;
  }
  return bells;
}

}  // namespace velotide
