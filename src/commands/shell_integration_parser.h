#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/byte_queue.h"
#include "base/bytes.h"
#include "commands/shell_integration_event.h"

namespace velotide {

// An event and the absolute offsets of its mark: of the first byte of the prefix, and behind the terminator.
struct TerminalLocatedShellEvent {
  TerminalShellIntegrationEvent event;
  std::uint64_t startOffset = 0;
  std::uint64_t endOffset = 0;
  bool operator==(const TerminalLocatedShellEvent&) const = default;
};

// Finds shell-integration marks in terminal output that arrives in any chunks. A mark is the prefix
// ESC "]777;Velotide;", a payload of UTF-8 text and, as terminator, BEL or ESC "\".
// Bounded: while a mark is open at most maximumRetainedBytes of it are kept; one that grows beyond is given
// up. Otherwise what is kept of the stream is the possible beginning of a prefix.
class TerminalShellIntegrationParser {
 public:
  static constexpr std::size_t maximumRetainedBytes = 32'768;

  // The marks that `chunk` completes, in stream order. `offset` is the absolute offset of its first byte; one
  // that does not continue the stream drops a half-received mark.
  std::vector<TerminalLocatedShellEvent> acceptLocated(ByteView chunk, std::uint64_t offset);
  // The same for a chunk that continues the stream (which begins at 0).
  std::vector<TerminalShellIntegrationEvent> accept(ByteView chunk);

  // How far back from the stream's end the parser still looks.
  std::size_t retainedByteCount() const;
  // How many of the stream's last bytes may belong to a mark that is still open.
  std::size_t openMarkByteCount() const {
    return state_ == State::searching ? prefixMatched_ : retainedByteCount();
  }

 private:
  enum class State {
    searching,
    insideMark,
    // A mark grew too long. Its kept bytes may hold the prefix of another one, which the next chunk decides.
    abandoned,
  };

  using Events = std::vector<TerminalLocatedShellEvent>;

  void forget();
  std::size_t resumePrefix(ByteView chunk);
  std::size_t resumeMark(ByteView chunk, std::uint64_t offset, Events& events);
  void extendMark(ByteView bytes);
  void leaveAbandonedMark();
  void rememberTail(ByteView bytes);

  State state_ = State::searching;
  ByteQueue payload_;              // of the open or abandoned mark
  std::size_t prefixMatched_ = 0;  // while searching: how much of a prefix the stream ends with
  std::size_t searched_ = 0;       // while searching: bytes since the last mark or gap, up to what can matter
  std::optional<std::uint64_t> nextOffset_;
};

}  // namespace velotide
