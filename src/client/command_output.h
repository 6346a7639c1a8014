#pragma once

#include <cstdint>
#include <string>

#include "base/byte_queue.h"
#include "commands/shell_integration_parser.h"

namespace velotide::client {

// Finds the output of one command in its session's stream: what stands behind the mark of its start up to the
// mark of its end, or of the next command's start. Neither marks of shell and place that touch either nor
// what the shell prints before it runs the command are output; more than 64 KiB of such marks, which no shell
// makes, are. Takes the stream in any chunks, from the start mark on or, so that the mark of the shell is
// met, from before.
class CommandOutput {
 public:
  // `markerOffset`: where in the stream the start mark begins.
  explicit CommandOutput(std::uint64_t markerOffset) : markerOffset_(markerOffset) {}

  // How far before the start mark that of the shell begins at most, the places of both being of usual length.
  static constexpr std::uint64_t lead = 16'384;
  // Of marks behind output.
  static constexpr std::size_t maximumHeldMarks = 65'536;

  // Appends what is known to be output with this chunk. One that does not continue the
  // stream begins it anew, which is a loss unless the start mark is still to come.
  void accept(ByteView chunk, std::uint64_t offset, ByteQueue& output);

  // Whether the end was there.
  bool isOver() const { return isOver_; }
  // Whether the stream has a gap or lacks the start mark, so that the output cannot be had whole.
  bool isLost() const { return isLost_; }

 private:
  void take(const TerminalLocatedShellEvent& mark, ByteQueue& output);
  void takeOutput(std::uint64_t end, bool isAll, ByteQueue& output);
  std::string takeUntil(std::uint64_t offset);

  TerminalShellIntegrationParser parser_;
  // The stream's end as far as it is not known what it is: at most the longest mark and a chunk.
  ByteQueue undecided_;
  std::uint64_t undecidedBegin_ = 0;
  const std::uint64_t markerOffset_;
  // As the last mark of a shell before the command names it.
  std::string shell_;
  // Marks of shell and place behind output; part of it if more follows.
  std::string heldMarks_;
  bool hasStarted_ = false;
  bool isBehindPrelude_ = false;
  bool hasOutput_ = false;
  bool isOver_ = false;
  bool isLost_ = false;
};

}  // namespace velotide::client
