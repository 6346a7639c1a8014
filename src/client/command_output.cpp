#include "client/command_output.h"

#include "client/shell_prelude.h"

namespace velotide::client {

void CommandOutput::accept(ByteView chunk, std::uint64_t offset, ByteQueue& output) {
  if (isOver_) return;
  if (offset != undecidedBegin_ + undecided_.size()) {
    isLost_ = hasStarted_ || offset > markerOffset_;
    undecided_.clear();
    undecidedBegin_ = offset;
  }
  if (isLost_) return;
  undecided_.append(chunk);
  for (const TerminalLocatedShellEvent& mark : parser_.acceptLocated(chunk, offset)) {
    if (!isOver_) take(mark, output);
  }
  if (isOver_) return;
  const std::uint64_t decided = offset + chunk.size() - parser_.openMarkByteCount();
  if (hasStarted_) return takeOutput(decided, false, output);
  takeUntil(decided);
  isLost_ = undecidedBegin_ > markerOffset_;
}

void CommandOutput::take(const TerminalLocatedShellEvent& mark, ByteQueue& output) {
  const auto* start = std::get_if<TerminalShellCommandStarted>(&mark.event);
  if (!hasStarted_) {
    if (const auto* shell = std::get_if<TerminalShellDetected>(&mark.event)) shell_ = shell->name;
    hasStarted_ = start != nullptr && mark.startOffset == markerOffset_;
    takeUntil(mark.endOffset);
    return;
  }
  takeOutput(mark.startOffset, true, output);
  // A start without text is none.
  isOver_ =
      std::holds_alternative<TerminalShellCommandFinished>(mark.event) || (start && !start->text.empty());
  const std::string bytes = takeUntil(mark.endOffset);
  if (!hasOutput_) return;
  heldMarks_ += bytes;
  if (heldMarks_.size() <= maximumHeldMarks) return;
  output.append(heldMarks_);
  heldMarks_.clear();
}

void CommandOutput::takeOutput(std::uint64_t end, bool isAll, ByteQueue& output) {
  if (end <= undecidedBegin_) return;
  if (!isBehindPrelude_) {
    const auto size = static_cast<std::size_t>(end - undecidedBegin_);
    const ShellPrelude prelude = shellPrelude(shell_, undecided_.text().substr(0, size));
    if (prelude.mayContinue && !isAll) return;
    takeUntil(undecidedBegin_ + prelude.length);
    isBehindPrelude_ = true;
    if (end == undecidedBegin_) return;
  }
  output.append(heldMarks_);
  heldMarks_.clear();
  output.append(takeUntil(end));
  hasOutput_ = true;
}

std::string CommandOutput::takeUntil(std::uint64_t offset) {
  if (offset <= undecidedBegin_) return {};
  const auto count = static_cast<std::size_t>(offset - undecidedBegin_);
  std::string bytes(undecided_.text().substr(0, count));
  undecided_.consume(count);
  undecidedBegin_ = offset;
  return bytes;
}

}  // namespace velotide::client
