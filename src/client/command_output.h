#pragma once

#include <cstdint>
#include <string>

#include "base/byte_queue.h"
#include "commands/shell_integration_parser.h"

namespace velotide::client {

// Finds the output of one command in its session's stream: what stands behind the mark of its start up to the
// mark of its end, or of the next command's start. Marks of shell and place that touch either are no output.
// Takes the stream from the start mark on, in any chunks.
class CommandOutput {
 public:
  // `markerOffset`: where in the stream the start mark begins.
  explicit CommandOutput(std::uint64_t markerOffset)
      : undecidedBegin_(markerOffset), markerOffset_(markerOffset) {}

  // Appends what is known to be output with this chunk, which continues the stream.
  void accept(ByteView chunk, std::uint64_t offset, ByteQueue& output);

  // Whether the start mark, and whether the end, was there.
  bool hasStarted() const { return hasStarted_; }
  bool isOver() const { return isOver_; }

 private:
  void take(const TerminalLocatedShellEvent& mark, ByteQueue& output);
  void emitUntil(std::uint64_t offset, ByteQueue& output);
  std::string takeUntil(std::uint64_t offset);

  TerminalShellIntegrationParser parser_;
  // The stream's end as far as it is not known what it is: at most the longest mark and a chunk.
  ByteQueue undecided_;
  std::uint64_t undecidedBegin_;
  const std::uint64_t markerOffset_;
  // Marks of shell and place behind output; part of it if more follows.
  std::string heldMarks_;
  bool hasStarted_ = false;
  bool hasOutput_ = false;
  bool isOver_ = false;
};

}  // namespace velotide::client
