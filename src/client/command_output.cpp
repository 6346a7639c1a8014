#include "client/command_output.h"

namespace velotide::client {

void CommandOutput::accept(ByteView chunk, std::uint64_t offset, ByteQueue& output) {
  if (isOver_) return;
  undecided_.append(chunk);
  for (const TerminalLocatedShellEvent& mark : parser_.acceptLocated(chunk, offset)) {
    if (!isOver_) take(mark, output);
  }
  if (!isOver_) emitUntil(offset + chunk.size() - parser_.openMarkByteCount(), output);
}

void CommandOutput::take(const TerminalLocatedShellEvent& mark, ByteQueue& output) {
  const auto* start = std::get_if<TerminalShellCommandStarted>(&mark.event);
  if (!hasStarted_) {
    hasStarted_ = start != nullptr && mark.startOffset == markerOffset_;
    takeUntil(mark.endOffset);
    return;
  }
  emitUntil(mark.startOffset, output);
  // A start without text is none.
  isOver_ =
      std::holds_alternative<TerminalShellCommandFinished>(mark.event) || (start && !start->text.empty());
  const std::string bytes = takeUntil(mark.endOffset);
  if (hasOutput_) heldMarks_ += bytes;
}

void CommandOutput::emitUntil(std::uint64_t offset, ByteQueue& output) {
  if (!hasStarted_ || offset <= undecidedBegin_) return;
  output.append(heldMarks_);
  heldMarks_.clear();
  output.append(takeUntil(offset));
  hasOutput_ = true;
}

std::string CommandOutput::takeUntil(std::uint64_t offset) {
  const auto count = static_cast<std::size_t>(offset - undecidedBegin_);
  std::string bytes(undecided_.text().substr(0, count));
  undecided_.consume(count);
  undecidedBegin_ = offset;
  return bytes;
}

}  // namespace velotide::client
